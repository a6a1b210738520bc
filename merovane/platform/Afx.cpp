// Default message sink and the OLE exception.
#include <merovane/platform/Afx.h>

#include <cstdio>

namespace {

int defaultHandler(const char* text, void*) {
    std::fprintf(stderr, "%s\n", text ? text : "");
    std::fflush(stderr);
    return 1;
}

AfxMessageBoxHandler g_handler = defaultHandler;
void* g_user = nullptr;

}  // namespace

AfxMessageBoxHandler AfxSetMessageBoxHandler(AfxMessageBoxHandler handler, void* user) {
    AfxMessageBoxHandler previous = g_handler;
    g_handler = handler ? handler : defaultHandler;
    g_user = handler ? user : nullptr;
    return previous;
}

int AfxMessageBox(const char* text, unsigned, unsigned) {
    return g_handler(text, g_user);
}

COleException::COleException(std::uint32_t sc) : m_sc(sc) {
    std::snprintf(m_what, sizeof m_what, "OLE exception 0x%08X", static_cast<unsigned>(sc));
}

void AfxThrowOleException(std::uint32_t sc) {
    throw COleException(sc);
}
