#include "installer/ModuleRecord.h"
#include "platform.h"
#include "trace/Trace.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/)
{
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        ZT_TRACE(5, "Process attach");
        moduleRecord.moduleInstance = instance;
        return TRUE;
    case DLL_PROCESS_DETACH:
        // The record's own clean-up runs with the module's static objects.
        ZT_TRACE(5, "Process detach");
        return TRUE;
    default:
        return TRUE;
    }
}
