// A thread with a stack of a chosen size, to run code where stacks are small.
#pragma once

#include <cstddef>

#include <merovane/platform/Export.h>

// Runs fn(arg) on a new thread whose stack holds `stackBytes` bytes (rounded up to whole pages, and
// at least the system's minimum) with an inaccessible megabyte below it, so that overflowing the
// stack faults instead of overwriting other memory, and waits for the thread to end. The thread's own
// bookkeeping (its control block and thread-local storage) lies at the top of that stack and takes
// part of it. When `touchedBytes` is not null it receives how many bytes from the top of the stack
// were written while the thread ran, the deepest use of the stack. False when the stack could not be
// had or the thread not started; fn has not run then.
MEROVANE_API bool PlatformRunWithStack(std::size_t stackBytes, void (*fn)(void*), void* arg,
                                       std::size_t* touchedBytes);
