#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/HostPlatform.h"
#include "host/HostWindows.h"
#include "resources/resource.h"

namespace {

using Log = std::vector<std::string>;
Log* procLog = nullptr;

INT_PTR recordingProc(HWND, UINT message, WPARAM, LPARAM lParam)
{
    if (procLog != nullptr) {
        procLog->push_back(message == WM_INITDIALOG ? "init " + std::to_string(lParam)
                                                    : std::to_string(message));
    }
    return message == WM_INITDIALOG ? TRUE : FALSE;
}

// Pixels from dialog units with the host's base units, 6 x 13 per 4 x 8 (MulDiv rounding).
int px(int x)
{
    return (x * 6 + 2) / 4;
}
int py(int y)
{
    return (y * 13 + 4) / 8;
}

class Dialogs : public ::testing::Test {
protected:
    void SetUp() override { host::reset(); }
    void TearDown() override
    {
        procLog = nullptr;
        host::reset();
    }
    HWND create()
    {
        return CreateDialogParamW(host::moduleInstance(), MAKEINTRESOURCEW(IDD_DIAGNOSTICS), nullptr,
                                  &recordingProc, 7);
    }
};

TEST_F(Dialogs, diagnosticsTemplate_controlsInTemplateOrderWithTheirClassesStylesAndPixels)
{
    Log log;
    procLog = &log;
    HWND dialog = create();
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(log, (Log{"5", "init 7"})) << "WM_SIZE before the controls, WM_INITDIALOG after";
    EXPECT_EQ(host::windowText(dialog), L"ZT Diagnostics");
    EXPECT_EQ(host::windowStyle(dialog), 0x48C00048U);
    RECT client{};
    GetClientRect(dialog, &client);
    EXPECT_EQ(client.right, px(221));
    EXPECT_EQ(client.bottom, py(190));

    constexpr DWORD child = WS_CHILD | WS_VISIBLE;
    constexpr DWORD text = child | WS_GROUP | SS_LEFT;
    constexpr DWORD line = child | WS_GROUP | SS_ETCHEDHORZ;
    constexpr DWORD icon = child | SS_ICON | SS_REALSIZEIMAGE;
    const struct {
        const wchar_t* cls;
        const wchar_t* text;
        int id;
        DWORD style;
        int x, y, cx, cy;
    } expected[] = {
        {L"SysListView32", L"", IDC_RESULTS_LIST,
         child | WS_BORDER | WS_TABSTOP | LVS_REPORT | LVS_ALIGNLEFT | LVS_NOCOLUMNHEADER | LVS_NOSORTHEADER,
         7, 99, 207, 65},
        {L"Button", L"Run cable diagnostics", IDC_RUN_DIAG, child | WS_TABSTOP | BS_PUSHBUTTON, 7, 169, 85,
         14},
        {L"Static", L"Cable diagnostics", IDC_DIAG_CAPTION, text, 7, 75, 56, 8},
        {L"Static", L"", IDC_DIAG_LINE, line, 66, 79, 44, 1},
        {L"Static", L"Status", IDC_LINK_STATUS, text, 30, 36, 72, 8},
        {L"Static", L"Cable category", IDC_CABLE_CATEGORY_LABEL, text, 7, 86, 50, 8},
        {L"ComboBox", L"", IDC_CABLE_CATEGORY, child | WS_VSCROLL | WS_TABSTOP | CBS_DROPDOWNLIST | CBS_SORT,
         62, 84, 52, 30},
        {L"Static", L"", IDC_BANNER, icon, 7, 7, -238, -48},
        {L"Static", L"Link information", IDC_LINK_CAPTION, text, 7, 27, 51, 8},
        {L"Static", L"", IDC_LINK_LINE, line, 62, 31, 44, 1},
        {L"Static", L"Speed", IDC_LINK_SPEED, text, 7, 57, 94, 8},
        {L"Static", L"", IDC_LINK_ICON, icon, 7, 35, -16, -16},
        {L"Static", L"Temperature <unknown>", IDC_TEMPERATURE, text, 130, 37, 84, 8},
        {L"Static", L"", IDC_HEALTH_ICON, icon, 119, 35, -16, -16},
        {L"Static", L"Health", IDC_HEALTH_CAPTION, text, 117, 27, 22, 8},
        {L"Static", L"", IDC_HEALTH_LINE, line, 142, 31, 73, 1},
        {L"Static", L"PHY: 100.00\u00B0C\tMAC: 100.00\u00B0C", IDC_TEMPERATURE_DETAIL, text & ~WS_VISIBLE,
         111, 57, 103, 8},
    };
    const auto controls = host::children(dialog);
    ASSERT_EQ(controls.size(), std::size(expected));
    for (std::size_t i = 0; i < controls.size(); ++i) {
        const auto& e = expected[i];
        HWND control = controls[i];
        EXPECT_EQ(GetDlgItem(dialog, e.id), control) << e.id;
        EXPECT_EQ(GetDlgCtrlID(control), e.id);
        EXPECT_EQ(GetParent(control), dialog);
        EXPECT_EQ(host::windowClass(control), e.cls) << e.id;
        EXPECT_EQ(host::windowText(control), e.text) << e.id;
        EXPECT_EQ(host::windowStyle(control), e.style) << e.id;
        EXPECT_EQ(host::windowExStyle(control),
                  (e.style & SS_TYPEMASK) == SS_ICON && e.cls == std::wstring(L"Static")
                      ? static_cast<DWORD>(WS_EX_TRANSPARENT)
                      : 0U)
            << e.id;
        // A negative size is an icon's own size in pixels: SS_ICON statics take it.
        const RECT r = host::windowRect(control);
        EXPECT_EQ(r.left, px(e.x)) << e.id;
        EXPECT_EQ(r.top, py(e.y)) << e.id;
        EXPECT_EQ(r.right - r.left, e.cx < 0 ? -e.cx : px(e.cx)) << e.id;
        EXPECT_EQ(r.bottom - r.top, e.cy < 0 ? -e.cy : py(e.cy)) << e.id;
    }
    EXPECT_EQ(host::iconResourceId(host::staticIcon(GetDlgItem(dialog, IDC_BANNER))), IDI_BANNER);
    EXPECT_EQ(host::iconResourceId(host::staticIcon(GetDlgItem(dialog, IDC_HEALTH_ICON))), IDI_LAMP_OK);
    EXPECT_FALSE(IsWindowVisible(GetDlgItem(dialog, IDC_RUN_DIAG))) << "the dialog itself is not shown";
    EXPECT_EQ(GetDlgItem(dialog, 4242), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_CONTROL_ID_NOT_FOUND);
    EXPECT_EQ(CreateDialogParamW(nullptr, MAKEINTRESOURCEW(IDI_BANNER), nullptr, &recordingProc, 0), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
}

TEST_F(Dialogs, icons_comeFromTheModulesIconGroups)
{
    const struct {
        int id;
        int cx, cy;
        UINT flags;
        SIZE size;
    } loads[] = {
        {IDI_LAMP_OK, 16, 16, 0, {16, 16}},
        {IDI_BANNER, 0, 0, 0, {238, 48}},
        {IDI_RESULT_BLANK, 0, 0, 0, {32, 32}},
        {IDI_RESULT_OK, 0, 0, LR_DEFAULTSIZE, {32, 32}},
    };
    for (const auto& load : loads) {
        auto* icon = static_cast<HICON>(LoadImageW(host::moduleInstance(),
                                                   MAKEINTRESOURCEW(static_cast<WORD>(load.id)), IMAGE_ICON,
                                                   load.cx, load.cy, load.flags));
        ASSERT_NE(icon, nullptr) << load.id;
        EXPECT_EQ(host::iconResourceId(icon), load.id);
        EXPECT_EQ(host::iconSize(icon).cx, load.size.cx) << load.id;
        EXPECT_EQ(host::iconSize(icon).cy, load.size.cy) << load.id;
        EXPECT_TRUE(DestroyIcon(icon));
    }
    EXPECT_EQ(host::liveIcons(), 0);
    HICON shared = LoadIconW(nullptr, MAKEINTRESOURCEW(IDI_RESULT_INFO));
    EXPECT_EQ(LoadIconW(nullptr, MAKEINTRESOURCEW(IDI_RESULT_INFO)), shared) << "LoadIconW shares";
    EXPECT_EQ(host::iconSize(shared).cx, 32);
    EXPECT_EQ(LoadImageW(nullptr, MAKEINTRESOURCEW(IDD_DIAGNOSTICS), IMAGE_ICON, 16, 16, 0), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_EQ(LoadImageW(nullptr, MAKEINTRESOURCEW(IDI_BANNER), 0 /* IMAGE_BITMAP */, 0, 0, 0), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_TYPE_NOT_FOUND);
}

TEST_F(Dialogs, controls_answerAsThePlatformDocuments)
{
    HWND dialog = create();
    HWND run = GetDlgItem(dialog, IDC_RUN_DIAG);
    EXPECT_FALSE(EnableWindow(run, FALSE)) << "was enabled";
    EXPECT_TRUE(EnableWindow(run, FALSE)) << "was disabled";
    EXPECT_TRUE(EnableWindow(run, TRUE));
    EXPECT_TRUE(IsWindowEnabled(run));
    HWND detail = GetDlgItem(dialog, IDC_TEMPERATURE_DETAIL);
    EXPECT_FALSE(ShowWindow(detail, SW_SHOW)) << "was hidden";
    EXPECT_TRUE(ShowWindow(detail, SW_HIDE)) << "was visible";
    EXPECT_TRUE(SetDlgItemTextW(dialog, IDC_LINK_STATUS, L"Connected"));
    wchar_t buffer[6];
    EXPECT_EQ(GetWindowTextW(GetDlgItem(dialog, IDC_LINK_STATUS), buffer, 6), 5);
    EXPECT_EQ(std::wstring(buffer), L"Conne");
    EXPECT_EQ(GetWindowTextLengthW(GetDlgItem(dialog, IDC_LINK_STATUS)), 9);

    HWND lamp = GetDlgItem(dialog, IDC_LINK_ICON);
    HICON first = host::staticIcon(lamp);
    auto* grey
        = static_cast<HICON>(LoadImageW(nullptr, MAKEINTRESOURCEW(IDI_LAMP_UNKNOWN), IMAGE_ICON, 16, 16, 0));
    EXPECT_EQ(reinterpret_cast<HICON>(SendMessageW(lamp, STM_SETICON, reinterpret_cast<WPARAM>(grey), 0)),
              first);
    EXPECT_EQ(reinterpret_cast<HICON>(SendMessageW(lamp, STM_GETICON, 0, 0)), grey);

    HWND combo = GetDlgItem(dialog, IDC_CABLE_CATEGORY);
    const struct {
        const wchar_t* row;
        LRESULT index;
    } adds[] = {{L"6a", 0}, {L"6", 0}, {L"5E", 0}, {L"5e", 1}, {L"7", 4}};
    for (const auto& add : adds) {
        EXPECT_EQ(SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(add.row)), add.index)
            << add.row;
    }
    EXPECT_EQ(host::comboRows(combo), (std::vector<std::wstring>{L"5E", L"5e", L"6", L"6a", L"7"}));
    EXPECT_EQ(SendMessageW(combo, CB_GETCURSEL, 0, 0), CB_ERR);
    EXPECT_EQ(SendMessageW(combo, CB_SETCURSEL, 3, 0), 3);
    SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(L"1"));
    EXPECT_EQ(SendMessageW(combo, CB_GETCURSEL, 0, 0), 4) << "the selection stays on its row";
    EXPECT_EQ(GetWindowTextLengthW(combo), 2);
    EXPECT_EQ(SendMessageW(combo, CB_SETCURSEL, 6, 0), CB_ERR);
    EXPECT_EQ(host::comboSelection(combo), -1) << "out of range clears";
    EXPECT_EQ(SendMessageW(combo, CB_GETLBTEXTLEN, 4, 0), 2);
    EXPECT_EQ(SendMessageW(combo, CB_GETLBTEXTLEN, 9, 0), CB_ERR);
    EXPECT_EQ(SendMessageW(combo, CB_GETCOUNT, 0, 0), 6);

    host::clearSentMessages(combo);
    EXPECT_EQ(SendMessageW(combo, 0x7777, 1, 2), 0);
    ASSERT_EQ(host::sentMessages(combo).size(), 1U);
    EXPECT_FALSE(host::sentMessages(combo)[0].known);
}

TEST_F(Dialogs, listView_appendsSetsAndDeletesLikeTheCommonControl)
{
    HWND list = GetDlgItem(create(), IDC_RESULTS_LIST);
    EXPECT_EQ(SendMessageW(list, LVM_SETEXTENDEDLISTVIEWSTYLE, 0, LVS_EX_FULLROWSELECT | LVS_EX_DOUBLEBUFFER),
              0);
    EXPECT_EQ(SendMessageW(list, LVM_SETEXTENDEDLISTVIEWSTYLE, LVS_EX_FULLROWSELECT, 0), 0x10020);
    EXPECT_EQ(host::listExtendedStyle(list), LVS_EX_DOUBLEBUFFER);
    auto* images = reinterpret_cast<HIMAGELIST>(0x1234);
    EXPECT_EQ(SendMessageW(list, LVM_SETIMAGELIST, LVSIL_SMALL, reinterpret_cast<LPARAM>(images)), 0);
    EXPECT_EQ(host::listImageList(list, LVSIL_SMALL), images);

    wchar_t property[] = L"Property";
    LVCOLUMNW column{LVCF_WIDTH | LVCF_TEXT | LVCF_SUBITEM, 0, 0, property, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(SendMessageW(list, LVM_INSERTCOLUMNW, 0, reinterpret_cast<LPARAM>(&column)), 0);
    EXPECT_TRUE(SendMessageW(list, LVM_SETCOLUMNWIDTH, 0, MAKELPARAM(300, 0)));
    EXPECT_EQ(SendMessageW(list, LVM_GETCOLUMNWIDTH, 0, 0), 300);
    EXPECT_FALSE(SendMessageW(list, LVM_SETCOLUMNWIDTH, 1, MAKELPARAM(300, 0)));

    auto item = [](int index, const wchar_t* text, int image) {
        LVITEMW lv{};
        lv.mask = LVIF_TEXT | LVIF_IMAGE;
        lv.iItem = index;
        lv.pszText = const_cast<LPWSTR>(text);
        lv.iImage = image;
        return lv;
    };
    const struct {
        int index;
        const wchar_t* text;
        LRESULT result;
    } inserts[] = {{0x7FFFFFFF, L"b", 0}, {0x7FFFFFFF, L"c", 1}, {0, L"a", 0}, {-1, L"x", -1}};
    for (const auto& insert : inserts) {
        LVITEMW lv = item(insert.index, insert.text, 3);
        EXPECT_EQ(SendMessageW(list, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&lv)), insert.result);
    }
    LVITEMW change = item(2, L"C", 1);
    EXPECT_TRUE(SendMessageW(list, LVM_SETITEMW, 0, reinterpret_cast<LPARAM>(&change)));
    change.iItem = 3;
    EXPECT_FALSE(SendMessageW(list, LVM_SETITEMW, 0, reinterpret_cast<LPARAM>(&change)));
    EXPECT_EQ(host::listLines(list), (std::vector<host::ListLine>{{L"a", 3}, {L"b", 3}, {L"C", 1}}));

    wchar_t buffer[8];
    LVITEMW read = item(2, nullptr, 0);
    read.pszText = buffer;
    read.cchTextMax = 8;
    EXPECT_EQ(SendMessageW(list, LVM_GETITEMTEXTW, 2, reinterpret_cast<LPARAM>(&read)), 1);
    EXPECT_EQ(std::wstring(buffer), L"C");
    read.iImage = -5;
    EXPECT_TRUE(SendMessageW(list, LVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&read)));
    EXPECT_EQ(read.iImage, 1);

    EXPECT_TRUE(SendMessageW(list, LVM_DELETEITEM, 0, 0));
    EXPECT_FALSE(SendMessageW(list, LVM_DELETEITEM, 2, 0));
    EXPECT_EQ(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0), 2);
    EXPECT_TRUE(SendMessageW(list, LVM_DELETEALLITEMS, 0, 0));
    EXPECT_TRUE(host::listLines(list).empty());
}

TEST_F(Dialogs, geometry_deferredMovesApplyTogetherAndASizeChangeTellsTheDialog)
{
    Log log;
    procLog = &log;
    HWND dialog = create();
    log.clear();
    EXPECT_TRUE(SetWindowPos(dialog, nullptr, 0, 0, 378, 354, SWP_NOMOVE | SWP_NOZORDER));
    EXPECT_EQ(log, Log{"5"});
    ASSERT_EQ(host::sentMessages(dialog).back().lParam, MAKELPARAM(378, 354));
    SetWindowPos(dialog, nullptr, 40, 50, 0, 0, SWP_NOSIZE);
    EXPECT_EQ(log.size(), 1U) << "a move alone sends no WM_SIZE";

    HWND banner = GetDlgItem(dialog, IDC_BANNER);
    HWND list = GetDlgItem(dialog, IDC_RESULTS_LIST);
    RECT screen{};
    GetWindowRect(banner, &screen);
    POINT corner{screen.left, screen.top};
    ScreenToClient(dialog, &corner);
    EXPECT_EQ(corner.x, px(7));
    EXPECT_EQ(screen.left, 40 + px(7));
    RECT client{};
    GetClientRect(list, &client);
    EXPECT_EQ(client.right, px(207) - 2) << "WS_BORDER takes a pixel each side";

    HDWP moves = BeginDeferWindowPos(1);
    moves = DeferWindowPos(moves, banner, nullptr, 1, 2, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
    moves = DeferWindowPos(moves, list, nullptr, 0, 0, 100, 50, SWP_NOMOVE | SWP_NOZORDER);
    EXPECT_EQ(host::windowRect(banner).left, px(7)) << "nothing moves before EndDeferWindowPos";
    EXPECT_TRUE(EndDeferWindowPos(moves));
    EXPECT_EQ(host::windowRect(banner).left, 1);
    EXPECT_EQ(host::windowRect(list).right - host::windowRect(list).left, 100);
    EXPECT_EQ(
        host::lastDeferredMoves(),
        (std::vector<host::DeferredMove>{{IDC_BANNER, 1, 2, 0, 0, SWP_NOSIZE | SWP_NOZORDER},
                                         {IDC_RESULTS_LIST, 0, 0, 100, 50, SWP_NOMOVE | SWP_NOZORDER}}));
    EXPECT_FALSE(EndDeferWindowPos(moves)) << "the handle is spent";
}

TEST_F(Dialogs, userActions_reachOnlyEnabledVisibleControls)
{
    Log log;
    procLog = &log;
    HWND dialog = create();
    HWND run = GetDlgItem(dialog, IDC_RUN_DIAG);
    HWND combo = GetDlgItem(dialog, IDC_CABLE_CATEGORY);
    SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(L"6"));
    log.clear();
    EXPECT_FALSE(host::click(run)) << "the dialog is not shown";
    ShowWindow(dialog, SW_SHOW);
    EXPECT_TRUE(host::click(run));
    EXPECT_TRUE(host::chooseComboRow(combo, 0));
    EXPECT_FALSE(host::chooseComboRow(combo, 1));
    EnableWindow(run, FALSE);
    EXPECT_FALSE(host::click(run));
    const auto command = std::to_string(WM_COMMAND);
    EXPECT_EQ(log, (Log{"24", command, command}));
    const auto sent = host::sentMessages(dialog);
    EXPECT_EQ(sent[sent.size() - 2].wParam, MAKEWPARAM(IDC_RUN_DIAG, BN_CLICKED));
    EXPECT_EQ(sent.back().wParam, MAKEWPARAM(IDC_CABLE_CATEGORY, CBN_SELCHANGE));
    EXPECT_EQ(host::comboSelection(combo), 0);
}

// ---- Property sheet ------------------------------------------------------------------------

Log* sheetLog = nullptr;

UINT pageCallback(HWND, UINT message, LPPROPSHEETPAGEW page)
{
    sheetLog->push_back("callback " + std::to_string(message) + " " + std::to_string(page->lParam));
    return page->lParam == 2 && message == PSPCB_CREATE ? 0 : 1;
}

INT_PTR pageProc(HWND window, UINT message, WPARAM, LPARAM lParam)
{
    if (message == WM_INITDIALOG) {
        const auto* page = reinterpret_cast<const PROPSHEETPAGEW*>(lParam);
        SetWindowLongPtrW(window, DWLP_USER, page->lParam);
        sheetLog->push_back("init " + std::to_string(page->lParam));
    } else if (message == WM_DESTROY) {
        sheetLog->push_back("destroy " + std::to_string(GetWindowLongPtrW(window, DWLP_USER)));
    }
    return FALSE;
}

TEST_F(Dialogs, propertySheet_createsInitialisesDestroysAndReleasesInOrder)
{
    Log log;
    sheetLog = &log;
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
        ASSERT_NE(sheet.page(0), nullptr);
        EXPECT_EQ(sheet.page(1), nullptr) << "its callback refused";
        EXPECT_EQ(sheet.tabs(), std::vector<std::wstring>{L"ZT Diagnostics"});
        EXPECT_TRUE(IsWindowVisible(sheet.page(0)));
        EXPECT_TRUE(IsWindowEnabled(sheet.page(0))) << "a page loses its template's WS_DISABLED";
        EXPECT_EQ(GetWindowLongPtrW(sheet.page(0), GWL_STYLE) & static_cast<LONG_PTR>(WS_CAPTION), 0);
    }
    EXPECT_EQ(log,
              (Log{"callback 0 1", "callback 0 2", "callback 2 1", "init 1", "callback 2 2", "destroy 1",
                   "callback 1 1", "callback 1 2"}));
    EXPECT_EQ(host::livePropertySheetPages(), 0);
    sheetLog = nullptr;
}

}  // namespace
