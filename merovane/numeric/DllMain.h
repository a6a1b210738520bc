// DllMain: the module's entry, run at load and unload by load-time constructor and destructor hooks.
#pragma once

#include <merovane/platform/ModuleStart.h>

// The module's one extension-module record.
extern AFX_EXTENSION_MODULE MerovaneModule;

// Runs DetectKernelCpu on every call, then: on DLL_PROCESS_ATTACH initialises MerovaneModule with
// `instance` (0 if that fails, and the load fails) and links a new CDynLinkLibrary into the module
// state, giving 1; on DLL_PROCESS_DETACH terminates MerovaneModule, giving 1; other reasons give 1.
//
// On this platform a constructor of the loaded object (shared library, or program when the objects
// are linked in directly) calls the preamble and then DllMain(attach) before any static object of
// the library is constructed, so the dispatch index is set before any kernel can run; a destructor
// calls DllMain(detach) after the static objects are gone. The instance handle is the address of
// MerovaneModule.
BOOL DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);
