// The order in which the host's property sheet calls a page and its dialog,
// which the module's page tests rely on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/HostPlatform.h"
#include "host/HostWindows.h"
#include "resources/resource.h"

namespace {

using Log = std::vector<std::string>;
Log* calls = nullptr;

INT_PTR pageProc(HWND window, UINT message, WPARAM, LPARAM lParam)
{
    if (message == WM_INITDIALOG) {
        const auto* page = reinterpret_cast<const PROPSHEETPAGEW*>(lParam);
        SetWindowLongPtrW(window, DWLP_USER, page->lParam);
        calls->push_back("init " + std::to_string(page->lParam));
    } else if (message == WM_DESTROY || message == WM_COMMAND) {
        calls->push_back(std::to_string(message) + " "
                         + std::to_string(GetWindowLongPtrW(window, DWLP_USER)));
    }
    return FALSE;
}

UINT pageCallback(HWND, UINT message, LPPROPSHEETPAGEW page)
{
    calls->push_back("callback " + std::to_string(message) + " " + std::to_string(page->lParam));
    return page->lParam == 2 && message == PSPCB_CREATE ? 0 : 1;
}

TEST(PropertySheet, callsEachPageAndItsDialogInTheSheetsOrder)
{
    host::reset();
    Log log;
    calls = &log;
    std::vector<HPROPSHEETPAGE> pages;
    for (LPARAM n : {1, 2}) {
        PROPSHEETPAGEW page{};
        page.dwSize = sizeof page;
        page.dwFlags = PSP_USECALLBACK;
        page.pszTemplate = MAKEINTRESOURCEW(n == 1 ? IDD_DIAGNOSTICS : IDD_FIRMWARE);
        page.pfnDlgProc = &pageProc;
        page.lParam = n;
        page.pfnCallback = &pageCallback;
        pages.push_back(CreatePropertySheetPageW(&page));
    }
    {
        host::PropertySheet sheet(pages);
        EXPECT_EQ(sheet.page(1), nullptr) << "its callback refused";
        HWND run = GetDlgItem(sheet.page(0), IDC_RUN_DIAG);
        EXPECT_TRUE(host::click(run));
        EnableWindow(run, FALSE);
        EXPECT_FALSE(host::click(run)) << "a disabled control takes no click";
    }
    const std::string command = std::to_string(WM_COMMAND) + " 1";
    EXPECT_EQ(log,
              (Log{"callback 0 1", "callback 0 2", "callback 2 1", "init 1", "callback 2 2", command, "2 1",
                   "callback 1 1", "callback 1 2"}));
    EXPECT_EQ(host::livePropertySheetPages(), 0);
    calls = nullptr;
}

}  // namespace
