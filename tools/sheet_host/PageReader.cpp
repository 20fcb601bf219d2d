#include "tools/sheet_host/PageReader.h"

#include "resources/resource.h"
#include "tools/sheet_host/Text.h"
#include "tools/sheet_host/Win32.h"

namespace {

// The results list's image list, in its order.
const char* const imageNames[] = {"blank", "ok", "error", "warning", "info"};

std::wstring textOf(HWND window)
{
    if (window == nullptr) {
        return L"<no control>";
    }
    const int length = GetWindowTextLengthW(window);
    std::wstring text(static_cast<std::size_t>(length) + 1, L'\0');
    text.resize(static_cast<std::size_t>(GetWindowTextW(window, text.data(), length + 1)));
    return text;
}

std::string state(HWND window)
{
    if (window == nullptr) {
        return "missing";
    }
    std::string text = IsWindowEnabled(window) ? "enabled" : "disabled";
    if (!IsWindowVisible(window)) {
        text += " hidden";
    }
    return text;
}

std::string imageName(int index)
{
    if (index >= 0 && index < static_cast<int>(sizeof imageNames / sizeof imageNames[0])) {
        return imageNames[index];
    }
    return "image" + std::to_string(index);
}

struct ListLine {
    int image = -1;
    std::wstring text;
};

std::vector<ListLine> readList(HWND list)
{
    std::vector<ListLine> lines;
    if (list == nullptr) {
        return lines;
    }
    const auto count = static_cast<int>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
    for (int index = 0; index < count; ++index) {
        wchar_t buffer[512] = {};
        LVITEMW item{};
        item.mask = LVIF_TEXT | LVIF_IMAGE;
        item.iItem = index;
        item.pszText = buffer;
        item.cchTextMax = 512;
        SendMessageW(list, LVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&item));
        lines.push_back({item.iImage, buffer});
    }
    return lines;
}

// The texts of the page's visible text statics that their control cuts: DrawText wraps them, as
// the static does, to more lines than its height holds, or a word is wider than the control.
std::string cutTexts(HWND page)
{
    std::string cut;
    for (HWND child = GetWindow(page, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        wchar_t className[16] = {};
        GetClassNameW(child, className, 16);
        const auto style = static_cast<DWORD>(GetWindowLongW(child, GWL_STYLE));
        const std::wstring text = textOf(child);
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

std::string PageReader::icon_(HWND page, int id) const
{
    HWND control = GetDlgItem(page, id);
    if (control == nullptr) {
        return "missing";
    }
    return icons_.name(reinterpret_cast<HICON>(SendMessageW(control, STM_GETICON, 0, 0)));
}

std::vector<std::string> PageReader::read(HWND page) const
{
    std::vector<std::string> out;
    const auto item = [page](int id) { return GetDlgItem(page, id); };
    const auto text = [&](int id) { return quoted(textOf(item(id))); };

    out.push_back("  link: " + icon_(page, IDC_LINK_ICON) + " " + text(IDC_LINK_STATUS) + " "
                  + text(IDC_LINK_SPEED));
    out.push_back("  health: " + icon_(page, IDC_HEALTH_ICON) + " " + text(IDC_TEMPERATURE));
    out.push_back("  detail: " + state(item(IDC_TEMPERATURE_DETAIL)) + " " + text(IDC_TEMPERATURE_DETAIL));

    HWND combo = item(IDC_CABLE_CATEGORY);
    std::string rows;
    if (combo != nullptr) {
        const auto count = static_cast<int>(SendMessageW(combo, CB_GETCOUNT, 0, 0));
        for (int row = 0; row < count; ++row) {
            const auto length = static_cast<int>(SendMessageW(combo, CB_GETLBTEXTLEN, row, 0));
            std::wstring rowText(static_cast<std::size_t>(length < 0 ? 0 : length) + 1, L'\0');
            SendMessageW(combo, CB_GETLBTEXT, row, reinterpret_cast<LPARAM>(rowText.data()));
            rowText.resize(static_cast<std::size_t>(length < 0 ? 0 : length));
            rows += " " + quoted(rowText);
        }
        const auto selected = static_cast<int>(SendMessageW(combo, CB_GETCURSEL, 0, 0));
        rows += ", selected " + (selected < 0 ? std::string("none") : quoted(textOf(combo)));
    }
    out.push_back("  category: label " + state(item(IDC_CABLE_CATEGORY_LABEL)) + ", combo " + state(combo)
                  + "," + rows);
    out.push_back("  run: " + state(item(IDC_RUN_DIAG)) + " " + text(IDC_RUN_DIAG));

    out.push_back("  texts cut:" + cutTexts(page));

    const std::vector<ListLine> lines = readList(item(IDC_RESULTS_LIST));
    out.push_back("  list: " + std::to_string(lines.size()) + " line" + (lines.size() == 1 ? "" : "s"));
    for (const ListLine& line : lines) {
        out.push_back("    " + imageName(line.image) + " " + quoted(line.text));
    }
    return out;
}

std::vector<std::wstring> PageReader::listLines(HWND page)
{
    std::vector<std::wstring> lines;
    for (const ListLine& line : readList(GetDlgItem(page, IDC_RESULTS_LIST))) {
        lines.push_back(widen(imageName(line.image)) + L" " + line.text);
    }
    return lines;
}
