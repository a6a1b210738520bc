// Terminal and interrupt helpers for programs: is a stream a terminal, and Ctrl-C as a flag.
#pragma once

#include <merovane/platform/Export.h>

// The standard streams a program may ask about.
enum class PlatformStream { Output, Error };

// True when `stream` is an interactive terminal (a progress bar may redraw its line), false when it
// goes to a file or a pipe (progress is then written as plain lines).
MEROVANE_API bool PlatformIsTerminal(PlatformStream stream);

// From now on an interrupt (Ctrl-C, SIGINT) stores 1 in *flag instead of ending the process, so a
// run that reads the flag can stop cleanly and remove what it half wrote. A second interrupt while
// the flag is already set ends the process as usual. Null restores the default handling.
MEROVANE_API void PlatformCatchInterrupt(volatile int* flag);

// Sends an interrupt to this process, as Ctrl-C would (for tests of the handling above).
MEROVANE_API void PlatformRaiseInterrupt();
