// POSIX implementation of the terminal and interrupt helpers.
#include <merovane/platform/Terminal.h>

#include <signal.h>
#include <unistd.h>

namespace {

volatile int* g_interruptFlag = nullptr;

void onInterrupt(int) {
    volatile int* flag = g_interruptFlag;
    if (flag == nullptr || *flag != 0) {
        // The user asked twice: give up on a clean stop.
        signal(SIGINT, SIG_DFL);
        raise(SIGINT);
        return;
    }
    *flag = 1;
}

}  // namespace

bool PlatformIsTerminal(PlatformStream stream) {
    return isatty(stream == PlatformStream::Output ? STDOUT_FILENO : STDERR_FILENO) == 1;
}

void PlatformCatchInterrupt(volatile int* flag) {
    g_interruptFlag = flag;
    struct sigaction action {};
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    action.sa_handler = flag != nullptr ? onInterrupt : SIG_DFL;
    sigaction(SIGINT, &action, nullptr);
}

void PlatformRaiseInterrupt() {
    raise(SIGINT);
}
