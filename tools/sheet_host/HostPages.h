// The pages the device installer and other installers bring to an adapter's
// sheet, as plain pages of the host: "General" and any number of others'
// pages, each a one-line dialog built in memory.
#pragma once

#include <string>
#include <vector>

#include "tools/sheet_host/Win32.h"

class HostPages {
public:
    HostPages();
    HostPages(const HostPages&) = delete;
    HostPages& operator=(const HostPages&) = delete;

    // A new sheet page with this tab title and line; the caller owns it until a sheet takes it.
    HPROPSHEETPAGE create(const std::wstring& title, const std::wstring& line);

private:
    static INT_PTR CALLBACK dialogProc_(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    std::vector<std::vector<WORD>> templates_;  // the pages refer to them until they are gone
    std::vector<std::wstring> titles_;
};
