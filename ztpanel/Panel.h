// ztpanel's whole run: the adapter's property sheet with the pages ztprop.dll
// adds, for where Device Manager loads no co-installer. It finds the ZT
// adapters as the console tool does, takes the one the command line names (or
// the only one, or the user's choice), hands the DLL's one export the device's
// installation parameters as the device installer does, and shows the pages it
// added in a sheet on a thread of the sheet's own. Every failure is told in a
// message box and has its exit code.
#pragma once

#include <string>
#include <vector>

#include "platform.h"

// The exit codes, as docs/deploying.md lists them.
enum PanelExit : int {
    panelShown = 0,  // the sheet was shown, then closed
    panelNoChoice = 1,  // the chooser was closed without a choice
    panelNoAdapter = 2,  // no ZT adapter, or none by the name given
    panelCantList = 3,  // the network adapters can't be listed
    panelDllUnusable = 4,  // ztprop.dll can't be loaded, or has no CoDeviceInstall
    panelNoPage = 5,  // ztprop.dll added no page for the adapter, or failed
    panelSheetFailed = 6,  // the adapter vanished, or the chooser or sheet couldn't be shown
    panelUsage = 64,  // more than one argument, an empty name, a name of several adapters
};

// Where a test build steps in; the product uses these as they are.
class PanelHooks {
public:
    virtual ~PanelHooks() = default;
    // A message box titled "ZT Diagnostics"; `icon` is MB_ICONERROR or MB_ICONINFORMATION.
    virtual void tell(const std::wstring& text, UINT icon);
    // The DLL is loaded; its export is called next.
    virtual void loaded(HMODULE /*dll*/) { }
    // On the sheet's thread: the sheet and its first page are up.
    virtual void sheetOpened(HWND /*sheet*/) { }
    // The sheet's thread has ended; FreeLibrary comes next.
    virtual void unloading(HMODULE /*dll*/) { }
};

struct PanelSettings {
    std::vector<std::wstring> args;  // the command line's arguments
    std::wstring dllPath;  // ztprop.dll, beside the program
    HINSTANCE instance = nullptr;  // where the chooser's dialog is
};

// The run, on the calling thread (the chooser and message boxes) and the
// sheet's; the exit code. No exception leaves it.
int runPanel(const PanelSettings& settings, PanelHooks& hooks) noexcept;

// "Usage: ztpanel [ADAPTER]" and what ADAPTER may be.
extern const wchar_t* const panelUsageText;

// The full path of `name` in the running program's folder.
std::wstring besideProgram(const std::wstring& name);
