// A co-installer that adds no page, for the panel's Wine tests: built as
// refusing.dll, which answers NO_ERROR as a co-installer does for a device it
// doesn't list (another version's list), and as failing.dll, which answers the
// error STUB_RESULT as one that failed inside. Never shipped.
// clang-format off
#include <windows.h>
#include <setupapi.h>
// clang-format on

extern "C" __declspec(dllexport) DWORD CALLBACK
    CoDeviceInstall(DI_FUNCTION /*function*/, HDEVINFO /*set*/, PSP_DEVINFO_DATA /*device*/,
                    PCOINSTALLER_CONTEXT_DATA /*context*/)
{
    return STUB_RESULT;
}
