// ztpanel.exe: the ZT Diagnostics page of an adapter, where Device Manager
// loads no co-installer. `ztpanel [ADAPTER]`; see docs/deploying.md.
#include <exception>

#include "ztpanel/Panel.h"
// After the platform header, whose types it needs.
// clang-format off
#include <shellapi.h>
// clang-format on

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE /*previous*/, PWSTR /*commandLine*/, int /*show*/)
{
    PanelHooks hooks;
    try {
        int count = 0;
        LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &count);
        if (argv == nullptr) {
            hooks.tell(L"The command line can't be read.", MB_ICONERROR);
            return panelUsage;
        }
        PanelSettings settings;
        settings.args.assign(argv + 1, argv + count);
        LocalFree(argv);
        settings.dllPath = besideProgram(L"ztprop.dll");
        settings.instance = instance;
        return runPanel(settings, hooks);
    } catch (const std::exception&) {
        hooks.tell(L"ztpanel ran out of memory.", MB_ICONERROR);
        return panelSheetFailed;
    }
}
