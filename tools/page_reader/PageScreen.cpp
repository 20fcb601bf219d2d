#include "tools/page_reader/PageScreen.h"

#include "resources/resource.h"

namespace {

int iconOf(HWND staticControl, const IconIdentifier& identifyIcon)
{
    const auto icon = reinterpret_cast<HICON>(SendMessageW(staticControl, STM_GETICON, 0, 0));
    return icon != nullptr ? identifyIcon(icon) : 0;
}

std::vector<ListLine> linesOf(HWND list)
{
    std::vector<ListLine> lines;
    const auto count = static_cast<int>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
    for (int index = 0; index < count; ++index) {
        wchar_t buffer[512] = {};
        LVITEMW item{};
        item.mask = LVIF_TEXT | LVIF_IMAGE;
        item.iItem = index;
        item.pszText = buffer;
        item.cchTextMax = 512;
        SendMessageW(list, LVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&item));
        lines.push_back({buffer, item.iImage});
    }
    return lines;
}

std::wstring comboRow(HWND combo, int row)
{
    const auto length = static_cast<int>(SendMessageW(combo, CB_GETLBTEXTLEN, static_cast<WPARAM>(row), 0));
    std::wstring text(static_cast<std::size_t>(length > 0 ? length : 0) + 1, L'\0');
    SendMessageW(combo, CB_GETLBTEXT, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(text.data()));
    text.resize(static_cast<std::size_t>(length > 0 ? length : 0));
    return text;
}

bool enabled(HWND window)
{
    return IsWindowEnabled(window) != FALSE;
}

}  // namespace

std::wstring windowText(HWND window)
{
    const int length = GetWindowTextLengthW(window);
    std::wstring text(static_cast<std::size_t>(length > 0 ? length : 0) + 1, L'\0');
    const int copied = GetWindowTextW(window, text.data(), static_cast<int>(text.size()));
    text.resize(static_cast<std::size_t>(copied > 0 ? copied : 0));
    return text;
}

PageScreen readPageScreen(HWND page, const IconIdentifier& identifyIcon)
{
    const auto control = [page](int id) { return GetDlgItem(page, id); };
    PageScreen s;
    s.linkStatus = windowText(control(IDC_LINK_STATUS));
    s.speed = windowText(control(IDC_LINK_SPEED));
    s.linkIcon = iconOf(control(IDC_LINK_ICON), identifyIcon);
    s.temperature = windowText(control(IDC_TEMPERATURE));
    s.healthIcon = iconOf(control(IDC_HEALTH_ICON), identifyIcon);
    s.detail = windowText(control(IDC_TEMPERATURE_DETAIL));
    s.detailVisible = IsWindowVisible(control(IDC_TEMPERATURE_DETAIL)) != FALSE;
    s.lines = linesOf(control(IDC_RESULTS_LIST));
    s.runEnabled = enabled(control(IDC_RUN_DIAG));
    s.categoryLabelEnabled = enabled(control(IDC_CABLE_CATEGORY_LABEL));
    HWND combo = control(IDC_CABLE_CATEGORY);
    s.categoryEnabled = enabled(combo);
    const auto rows = static_cast<int>(SendMessageW(combo, CB_GETCOUNT, 0, 0));
    for (int row = 0; row < rows; ++row) {
        s.categoryRows.push_back(comboRow(combo, row));
    }
    const auto selected = static_cast<int>(SendMessageW(combo, CB_GETCURSEL, 0, 0));
    if (selected >= 0 && selected < rows) {
        s.category = s.categoryRows[static_cast<std::size_t>(selected)];
    }
    return s;
}
