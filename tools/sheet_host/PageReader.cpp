#include "tools/sheet_host/PageReader.h"

#include "tools/page_reader/PageText.h"

namespace {

// The texts of the page's visible text statics that their control cuts: DrawText wraps them, as
// the static does, to more lines than its height holds, or a word is wider than the control.
std::string cutTexts(HWND page)
{
    std::string cut;
    for (HWND child = GetWindow(page, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        wchar_t className[16] = {};
        GetClassNameW(child, className, 16);
        const auto style = static_cast<DWORD>(GetWindowLongW(child, GWL_STYLE));
        const std::wstring text = windowText(child);
        if (lstrcmpiW(className, L"Static") != 0 || (style & SS_TYPEMASK) != SS_LEFT
            || !IsWindowVisible(child) || text.empty()) {
            continue;
        }
        RECT client{};
        GetClientRect(child, &client);
        RECT needed = client;
        HDC dc = GetDC(child);
        const HGDIOBJ previous
            = SelectObject(dc, reinterpret_cast<HGDIOBJ>(SendMessageW(child, WM_GETFONT, 0, 0)));
        DrawTextW(dc, text.c_str(), -1, &needed, DT_LEFT | DT_EXPANDTABS | DT_WORDBREAK | DT_CALCRECT);
        SelectObject(dc, previous);
        ReleaseDC(child, dc);
        if (needed.bottom > client.bottom || needed.right > client.right) {
            cut += " " + quoted(text);
        }
    }
    return cut.empty() ? " none" : cut;
}

}  // namespace

PageReader::PageReader(HMODULE module) : icons_(module)
{
}

PageScreen PageReader::screen(HWND page) const
{
    return readPageScreen(page, [this](HICON icon) { return icons_.resourceId(icon); });
}

std::vector<std::string> PageReader::read(HWND page) const
{
    std::vector<std::string> out = describePage(screen(page));
    out.push_back("  texts cut:" + cutTexts(page));
    return out;
}

std::wstring sheetTabTitle(HWND sheet, int index)
{
    HWND tabs = PropSheet_GetTabControl(sheet);
    wchar_t text[128] = {};
    TCITEMW item{};
    item.mask = TCIF_TEXT;
    item.pszText = text;
    item.cchTextMax = 128;
    if (tabs == nullptr
        || !SendMessageW(tabs, TCM_GETITEMW, static_cast<WPARAM>(index), reinterpret_cast<LPARAM>(&item))) {
        return L"?";
    }
    return text;
}
