#include "ztpanel/DeviceSheet.h"

DeviceSheet::DeviceSheet(const std::wstring& deviceName, std::vector<HPROPSHEETPAGE> pages, UINT startPage)
{
    PROPSHEETHEADERW header{};
    header.dwSize = sizeof header;
    header.dwFlags = PSH_MODELESS | PSH_NOAPPLYNOW | PSH_PROPTITLE | PSH_NOCONTEXTHELP;
    header.hInstance = GetModuleHandleW(nullptr);
    header.pszCaption = deviceName.c_str();
    header.nPages = static_cast<UINT>(pages.size());
    header.nStartPage = startPage < pages.size() ? startPage : 0;
    header.phpage = pages.data();
    const INT_PTR result = PropertySheetW(&header);
    if (result == 0 || result == -1) {
        error_ = GetLastError();
        return;
    }
    sheet_ = reinterpret_cast<HWND>(result);
}

DeviceSheet::~DeviceSheet()
{
    close();
}

bool DeviceSheet::ended_() const
{
    // A modeless sheet that OK, Cancel or the close box ended has no current page.
    return sheet_ == nullptr || PropSheet_GetCurrentPageHwnd(sheet_) == nullptr;
}

bool DeviceSheet::pumpQueued()
{
    MSG message{};
    while (!ended_() && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (!PropSheet_IsDialogMessage(sheet_, &message)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
    }
    return !ended_();
}

void DeviceSheet::runUntilClosed()
{
    MSG message{};
    while (!ended_() && GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (!PropSheet_IsDialogMessage(sheet_, &message)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
    }
    close();
}

void DeviceSheet::close()
{
    if (sheet_ == nullptr) {
        return;
    }
    HWND sheet = sheet_;
    sheet_ = nullptr;  // nothing pumps into a sheet being destroyed
    PropSheet_PressButton(sheet, PSBTN_OK);
    // The pages are released here; a page may wait for its work to end.
    DestroyWindow(sheet);
}
