// User messages and the one exception of the library: AfxMessageBox and AfxThrowOleException.
#pragma once

#include <cstdint>
#include <exception>

#include <merovane/platform/Export.h>

// The library shows a handful of messages to the user. By default each goes to stderr as one line;
// a host with a user interface (or a test) installs its own handler to see them.
// The handler gets the text and the user pointer given with it, and its result is AfxMessageBox's.
using AfxMessageBoxHandler = int (*)(const char* text, void* user);

// Installs `handler` (null restores the default) and returns the handler it replaced.
MEROVANE_API AfxMessageBoxHandler AfxSetMessageBoxHandler(AfxMessageBoxHandler handler, void* user = nullptr);

// Shows `text`; `type` and `helpId` are accepted for the callers' sake and not used. Returns the
// handler's result, 1 (OK) from the default.
MEROVANE_API int AfxMessageBox(const char* text, unsigned type = 0, unsigned helpId = 0);

// The exception of the date functions: carries a 32-bit status code such as 0x80004005 (unspecified
// failure) or 0x80070057 (invalid argument).
class MEROVANE_API COleException : public std::exception {
public:
    explicit COleException(std::uint32_t sc);
    const char* what() const noexcept override { return m_what; }

    std::uint32_t m_sc;

private:
    char m_what[48];
};

[[noreturn]] MEROVANE_API void AfxThrowOleException(std::uint32_t sc);
