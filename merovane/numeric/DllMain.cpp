// DllMain: module start (processor survey and extension-module registration) and module end.
#include <merovane/numeric/DllMain.h>

#include <new>

#include <merovane/numeric/KernelDispatch.h>

AFX_EXTENSION_MODULE MerovaneModule;

BOOL DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    DetectKernelCpu();
    if (reason == DLL_PROCESS_ATTACH) {
        if (!AfxInitExtensionModule(MerovaneModule, instance)) return 0;
        // The object links itself into the module state, which owns it from then on.
        new (std::nothrow) CDynLinkLibrary(MerovaneModule, 0);
        return 1;
    }
    if (reason == DLL_PROCESS_DETACH) {
        AfxTermExtensionModule(MerovaneModule, 0);
        return 1;
    }
    return 1;
}

namespace {

// Priority 101 runs these before (and, for the destructor, after) every default-priority constructor
// of the loaded object, the library's static objects included.
__attribute__((constructor(101))) void moduleLoad() {
    AfxExtensionModulePreamble(MerovaneModule);
    DllMain(static_cast<HINSTANCE>(&MerovaneModule), DLL_PROCESS_ATTACH, nullptr);
}

__attribute__((destructor(101))) void moduleUnload() {
    DllMain(static_cast<HINSTANCE>(&MerovaneModule), DLL_PROCESS_DETACH, nullptr);
}

}  // namespace
