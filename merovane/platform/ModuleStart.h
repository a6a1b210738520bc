// ModuleStart: stand-ins for the class framework's extension-module start (module state, module record,
// library object).
#pragma once

#include <cstdint>

#include <merovane/platform/Export.h>

// The library is started as an extension module of its host's class framework. On this platform
// there is no such framework; these stand-ins keep its shape so the module start reads as it would
// there: a process-wide module state with the list heads of registered classes and factories and a
// list of library objects, an extension-module record per module, and the library object that
// links a module into the state.

using BOOL = int;
using DWORD = std::uint32_t;
using HINSTANCE = void*;
using LPVOID = void*;

// Reasons of a module entry call.
constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
constexpr DWORD DLL_THREAD_ATTACH = 2;
constexpr DWORD DLL_THREAD_DETACH = 3;

class CDynLinkLibrary;

// Process-wide state: heads of the lists of registered classes and factories (opaque here), and the
// chain of library objects.
struct AFX_MODULE_STATE {
    void* m_classList = nullptr;
    void* m_factoryList = nullptr;
    CDynLinkLibrary* m_libraryList = nullptr;
};

// One per extension module, a static of the module.
struct AFX_EXTENSION_MODULE {
    BOOL bInitialized = 0;
    HINSTANCE hModule = nullptr;
    HINSTANCE hResource = nullptr;
    void* pFirstSharedClass = nullptr;
    void* pFirstSharedFactory = nullptr;
};

// The process's module state; never null.
AFX_MODULE_STATE* AfxGetModuleState();

// The fixed preamble of an extension module's start: moves the class and factory list heads of the
// module state into `state` and clears them in the module state.
void AfxExtensionModulePreamble(AFX_EXTENSION_MODULE& state);

// Records `instance` in `state` and marks it initialised; a second call on an initialised record
// changes nothing. Gives 1 (this stand-in cannot fail).
BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& state, HINSTANCE instance);

// Deletes the library objects of `state`'s module (of every module when `all` is not 0), unlinking
// them from the module state, and marks the record uninitialised.
void AfxTermExtensionModule(AFX_EXTENSION_MODULE& state, BOOL all = 0);

// Links a module into the module state's chain when constructed, unlinks itself when destroyed.
// Allocated with new by the module start and deleted by AfxTermExtensionModule.
class CDynLinkLibrary {
public:
    CDynLinkLibrary(AFX_EXTENSION_MODULE& state, BOOL system = 0);
    virtual ~CDynLinkLibrary();
    CDynLinkLibrary(const CDynLinkLibrary&) = delete;
    CDynLinkLibrary& operator=(const CDynLinkLibrary&) = delete;

    HINSTANCE m_hModule;
    HINSTANCE m_hResource;
    BOOL m_bSystem;
    CDynLinkLibrary* m_pNextDLL;
};
