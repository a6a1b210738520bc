// ModuleStart: the module state and the extension-module start and end.
#include <merovane/platform/ModuleStart.h>

AFX_MODULE_STATE* AfxGetModuleState() {
    // A function-local static: usable from a load-time constructor before other statics exist.
    static AFX_MODULE_STATE state;
    return &state;
}

void AfxExtensionModulePreamble(AFX_EXTENSION_MODULE& state) {
    AFX_MODULE_STATE* module = AfxGetModuleState();
    state.pFirstSharedClass = module->m_classList;
    module->m_classList = nullptr;
    state.pFirstSharedFactory = module->m_factoryList;
    module->m_factoryList = nullptr;
}

BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& state, HINSTANCE instance) {
    if (state.bInitialized) return 1;
    state.hModule = instance;
    state.hResource = instance;
    state.bInitialized = 1;
    return 1;
}

void AfxTermExtensionModule(AFX_EXTENSION_MODULE& state, BOOL all) {
    AFX_MODULE_STATE* module = AfxGetModuleState();
    CDynLinkLibrary* lib = module->m_libraryList;
    while (lib != nullptr) {
        CDynLinkLibrary* next = lib->m_pNextDLL;
        if (all || lib->m_hModule == state.hModule) delete lib;  // the destructor unlinks it
        lib = next;
    }
    state.bInitialized = 0;
}

CDynLinkLibrary::CDynLinkLibrary(AFX_EXTENSION_MODULE& state, BOOL system)
    : m_hModule(state.hModule), m_hResource(state.hResource), m_bSystem(system), m_pNextDLL(nullptr) {
    AFX_MODULE_STATE* module = AfxGetModuleState();
    m_pNextDLL = module->m_libraryList;
    module->m_libraryList = this;
}

CDynLinkLibrary::~CDynLinkLibrary() {
    CDynLinkLibrary** link = &AfxGetModuleState()->m_libraryList;
    while (*link != nullptr && *link != this) link = &(*link)->m_pNextDLL;
    if (*link == this) *link = m_pNextDLL;
}
