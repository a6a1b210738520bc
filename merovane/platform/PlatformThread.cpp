// A thread on a stack of its own, painted beforehand so that its deepest use can be read afterwards.
#include <merovane/platform/PlatformThread.h>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace {

constexpr unsigned char kPaint = 0xA5;
constexpr std::size_t kGuardBytes = 1u << 20;

struct AThreadCall {
    void (*fn)(void*);
    void* arg;
};

void* threadStart(void* p) {
    AThreadCall* call = static_cast<AThreadCall*>(p);
    call->fn(call->arg);
    return nullptr;
}

}  // namespace

bool PlatformRunWithStack(std::size_t stackBytes, void (*fn)(void*), void* arg, std::size_t* touchedBytes) {
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    const std::size_t page = pageSize > 0 ? static_cast<std::size_t>(pageSize) : 4096;
    long minimum = ::sysconf(_SC_THREAD_STACK_MIN);
    std::size_t size = stackBytes;
    if (minimum > 0 && size < static_cast<std::size_t>(minimum)) size = static_cast<std::size_t>(minimum);
    size = (size + page - 1) / page * page;

    // An inaccessible megabyte below the stack: a thread that runs past its stack, even by a large
    // frame, faults there.
    const std::size_t guard = (kGuardBytes + page - 1) / page * page;
    void* mapped = ::mmap(nullptr, size + guard, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) return false;
    unsigned char* base = static_cast<unsigned char*>(mapped);
    unsigned char* stack = base + guard;
    bool ok = ::mprotect(base, guard, PROT_NONE) == 0;
    if (ok) std::memset(stack, kPaint, size);

    pthread_attr_t attr;
    ok = ok && ::pthread_attr_init(&attr) == 0;
    if (ok) {
        AThreadCall call{fn, arg};
        pthread_t thread;
        ok = ::pthread_attr_setstack(&attr, stack, size) == 0 &&
             ::pthread_create(&thread, &attr, threadStart, &call) == 0;
        ::pthread_attr_destroy(&attr);
        if (ok) ok = ::pthread_join(thread, nullptr) == 0;
    }
    if (ok && touchedBytes != nullptr) {
        // The stack grows down: the lowest byte that lost its paint marks the deepest use.
        std::size_t untouched = 0;
        while (untouched < size && stack[untouched] == kPaint) ++untouched;
        *touchedBytes = size - untouched;
    }
    ::munmap(mapped, size + guard);
    return ok;
}
