#include "tools/sheet_host/HostPages.h"

namespace {

void append(std::vector<WORD>& words, const std::wstring& text)
{
    words.insert(words.end(), text.begin(), text.end());
    words.push_back(0);
}

void alignToDword(std::vector<WORD>& words)
{
    if (words.size() % 2 != 0) {
        words.push_back(0);
    }
}

void appendDword(std::vector<WORD>& words, DWORD value)
{
    words.push_back(LOWORD(value));
    words.push_back(HIWORD(value));
}

// DLGTEMPLATE with DS_SETFONT and one static control, as the resource compiler lays it out.
std::vector<WORD> pageTemplate(const std::wstring& line)
{
    std::vector<WORD> words;
    appendDword(words, WS_CHILD | WS_DISABLED | WS_CAPTION | DS_SHELLFONT);
    appendDword(words, 0);  // extended style
    words.push_back(1);  // controls
    words.push_back(0);  // x
    words.push_back(0);  // y
    words.push_back(221);  // the diagnostics page's own size, so the sheet doesn't change with it
    words.push_back(190);
    words.push_back(0);  // no menu
    words.push_back(0);  // the standard dialog class
    words.push_back(0);  // no caption: the page's title says it
    words.push_back(8);  // font size
    append(words, L"MS Shell Dlg");
    alignToDword(words);
    appendDword(words, WS_CHILD | WS_VISIBLE | SS_LEFT);
    appendDword(words, 0);
    words.push_back(7);
    words.push_back(7);
    words.push_back(207);
    words.push_back(20);
    words.push_back(0xFFFF);  // id -1
    words.push_back(0xFFFF);  // a predefined class follows by atom
    words.push_back(0x0082);  // static
    append(words, line);
    words.push_back(0);  // no creation data
    return words;
}

}  // namespace

HostPages::HostPages()
{
    // The pages point into these; no reallocation may move them.
    templates_.reserve(32);
    titles_.reserve(32);
}

HPROPSHEETPAGE HostPages::create(const std::wstring& title, const std::wstring& line)
{
    if (templates_.size() == templates_.capacity()) {
        return nullptr;
    }
    templates_.push_back(pageTemplate(line));
    titles_.push_back(title);
    PROPSHEETPAGEW page{};
    page.dwSize = sizeof page;
    page.dwFlags = PSP_DLGINDIRECT | PSP_USETITLE;
    page.hInstance = GetModuleHandleW(nullptr);
    page.pResource = reinterpret_cast<LPCDLGTEMPLATEW>(templates_.back().data());
    page.pszTitle = titles_.back().c_str();
    page.pfnDlgProc = dialogProc_;
    return CreatePropertySheetPageW(&page);
}

INT_PTR CALLBACK HostPages::dialogProc_(HWND /*window*/, UINT message, WPARAM /*wParam*/, LPARAM /*lParam*/)
{
    return message == WM_INITDIALOG ? TRUE : FALSE;
}
