// The control classes. Messages behave as the platform documents them: the
// results of bad indices, appends past the end, sorted inserts, and so on.
#include "Controls.h"

#include <algorithm>
#include <cwctype>
#include <utility>

namespace {

// lstrcmpiW's order for the plain texts a combo box gets: case-insensitive,
// character by character, a prefix first.
int compareIgnoringCase(const std::wstring& a, const std::wstring& b)
{
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        const auto x = std::towlower(static_cast<wint_t>(a[i]));
        const auto y = std::towlower(static_cast<wint_t>(b[i]));
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

// Copies at most maxCount - 1 characters and a terminating zero; answers the
// number of characters copied.
LRESULT copyText(const std::wstring& text, LPWSTR buffer, std::size_t maxCount)
{
    if (buffer == nullptr || maxCount == 0) {
        return 0;
    }
    const std::size_t count = std::min(text.size(), maxCount - 1);
    std::copy_n(text.begin(), count, buffer);
    buffer[count] = 0;
    return static_cast<LRESULT>(count);
}

int asInt(WPARAM value)
{
    return static_cast<int>(static_cast<INT_PTR>(value));
}

}  // namespace

namespace host {

bool sameTextIgnoringCase(const std::wstring& a, const std::wstring& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towlower(static_cast<wint_t>(x)) == std::towlower(static_cast<wint_t>(y));
           });
}

std::unique_ptr<Control> makeControl(const std::wstring& className)
{
    if (sameTextIgnoringCase(className, L"SysListView32")) {
        return std::make_unique<ListViewControl>();
    }
    if (sameTextIgnoringCase(className, L"ComboBox")) {
        return std::make_unique<ComboBoxControl>();
    }
    if (sameTextIgnoringCase(className, L"Static")) {
        return std::make_unique<StaticControl>();
    }
    if (sameTextIgnoringCase(className, L"Button")) {
        return std::make_unique<ButtonControl>();
    }
    return nullptr;
}

LRESULT defaultMessage(Window& window, UINT message, WPARAM wParam, LPARAM lParam, bool& known)
{
    known = true;
    switch (message) {
    case WM_SETTEXT: {
        const auto* text = reinterpret_cast<LPCWSTR>(lParam);
        window.text = text != nullptr ? text : L"";
        return TRUE;
    }
    case WM_GETTEXT:
        return copyText(window.text, reinterpret_cast<LPWSTR>(lParam), wParam);
    case WM_GETTEXTLENGTH:
        return static_cast<LRESULT>(window.text.size());
    case WM_DESTROY:
    case WM_NCDESTROY:
    case WM_SIZE:
    case WM_ENABLE:
    case WM_SHOWWINDOW:
        return 0;
    default:
        known = false;
        return 0;
    }
}

// ---- List view ----------------------------------------------------------------------------

LRESULT ListViewControl::handle(Window& /*window*/, UINT message, WPARAM wParam, LPARAM lParam, bool& known)
{
    known = true;
    switch (message) {
    case LVM_SETEXTENDEDLISTVIEWSTYLE: {
        // A mask of 0 changes every bit.
        const DWORD previous = extendedStyle;
        const auto mask = wParam == 0 ? ~DWORD{0} : static_cast<DWORD>(wParam);
        extendedStyle = (extendedStyle & ~mask) | (static_cast<DWORD>(lParam) & mask);
        return static_cast<LRESULT>(previous);
    }
    case LVM_GETEXTENDEDLISTVIEWSTYLE:
        return static_cast<LRESULT>(extendedStyle);
    case LVM_SETIMAGELIST: {
        HIMAGELIST& slot = imageLists[asInt(wParam)];
        return reinterpret_cast<LRESULT>(std::exchange(slot, reinterpret_cast<HIMAGELIST>(lParam)));
    }
    case LVM_GETIMAGELIST: {
        const auto found = imageLists.find(asInt(wParam));
        return found != imageLists.end() ? reinterpret_cast<LRESULT>(found->second) : 0;
    }
    case LVM_INSERTCOLUMNW:
        return insertColumn_(wParam, reinterpret_cast<const LVCOLUMNW*>(lParam));
    case LVM_SETCOLUMNWIDTH:
        return setColumnWidth_(wParam, lParam);
    case LVM_GETCOLUMNWIDTH:
        return wParam < columns.size() ? columns[wParam].width : 0;
    case LVM_INSERTITEMW:
        return insertItem_(reinterpret_cast<const LVITEMW*>(lParam));
    case LVM_SETITEMW:
        return setItem_(reinterpret_cast<const LVITEMW*>(lParam));
    case LVM_GETITEMW:
        return getItem_(reinterpret_cast<LVITEMW*>(lParam));
    case LVM_GETITEMTEXTW:
        return getItemText_(wParam, reinterpret_cast<LVITEMW*>(lParam));
    case LVM_GETITEMCOUNT:
        return static_cast<LRESULT>(items.size());
    case LVM_DELETEITEM:
        if (wParam >= items.size()) {
            return FALSE;
        }
        items.erase(items.begin() + static_cast<std::ptrdiff_t>(wParam));
        return TRUE;
    case LVM_DELETEALLITEMS:
        items.clear();
        return TRUE;
    default:
        known = false;
        return 0;
    }
}

LRESULT ListViewControl::insertItem_(const LVITEMW* item)
{
    if (item == nullptr || item->iItem < 0 || item->iSubItem != 0) {
        return -1;
    }
    // An index past the end appends.
    const auto index = std::min<std::size_t>(static_cast<std::size_t>(item->iItem), items.size());
    Item added;
    if ((item->mask & LVIF_TEXT) != 0 && item->pszText != nullptr) {
        added.texts[0] = item->pszText;
    }
    if ((item->mask & LVIF_IMAGE) != 0) {
        added.image = item->iImage;
    }
    if ((item->mask & LVIF_PARAM) != 0) {
        added.param = item->lParam;
    }
    items.insert(items.begin() + static_cast<std::ptrdiff_t>(index), std::move(added));
    return static_cast<LRESULT>(index);
}

LRESULT ListViewControl::setItem_(const LVITEMW* item)
{
    if (item == nullptr || item->iItem < 0 || static_cast<std::size_t>(item->iItem) >= items.size()
        || item->iSubItem < 0) {
        return FALSE;
    }
    Item& target = items[static_cast<std::size_t>(item->iItem)];
    if ((item->mask & LVIF_TEXT) != 0) {
        target.texts[item->iSubItem] = item->pszText != nullptr ? item->pszText : L"";
    }
    if ((item->mask & LVIF_IMAGE) != 0 && item->iSubItem == 0) {
        target.image = item->iImage;
    }
    if ((item->mask & LVIF_PARAM) != 0 && item->iSubItem == 0) {
        target.param = item->lParam;
    }
    return TRUE;
}

LRESULT ListViewControl::getItem_(LVITEMW* item) const
{
    if (item == nullptr || item->iItem < 0 || static_cast<std::size_t>(item->iItem) >= items.size()) {
        return FALSE;
    }
    const Item& source = items[static_cast<std::size_t>(item->iItem)];
    if ((item->mask & LVIF_TEXT) != 0 && item->cchTextMax > 0) {
        const auto text = source.texts.find(item->iSubItem);
        copyText(text != source.texts.end() ? text->second : L"", item->pszText,
                 static_cast<std::size_t>(item->cchTextMax));
    }
    if ((item->mask & LVIF_IMAGE) != 0) {
        item->iImage = source.image;
    }
    if ((item->mask & LVIF_PARAM) != 0) {
        item->lParam = source.param;
    }
    return TRUE;
}

LRESULT ListViewControl::getItemText_(WPARAM index, LVITEMW* item) const
{
    if (item == nullptr || item->cchTextMax <= 0) {
        return 0;
    }
    std::wstring text;
    if (index < items.size()) {
        const auto found = items[index].texts.find(item->iSubItem);
        text = found != items[index].texts.end() ? found->second : L"";
    }
    return copyText(text, item->pszText, static_cast<std::size_t>(item->cchTextMax));
}

LRESULT ListViewControl::insertColumn_(WPARAM index, const LVCOLUMNW* column)
{
    if (column == nullptr || asInt(index) < 0) {
        return -1;
    }
    const auto at = std::min<std::size_t>(index, columns.size());
    Column added;
    added.subItem = static_cast<int>(at);
    if ((column->mask & LVCF_TEXT) != 0 && column->pszText != nullptr) {
        added.text = column->pszText;
    }
    if ((column->mask & LVCF_WIDTH) != 0) {
        added.width = std::max(column->cx, 0);
    }
    if ((column->mask & LVCF_FMT) != 0) {
        added.format = column->fmt;
    }
    if ((column->mask & LVCF_SUBITEM) != 0) {
        added.subItem = column->iSubItem;
    }
    columns.insert(columns.begin() + static_cast<std::ptrdiff_t>(at), std::move(added));
    return static_cast<LRESULT>(at);
}

LRESULT ListViewControl::setColumnWidth_(WPARAM index, LPARAM width)
{
    if (index >= columns.size()) {
        return FALSE;
    }
    // The width is the low word, signed, so that the autosize values arrive.
    const auto cx = static_cast<short>(LOWORD(static_cast<ULONG_PTR>(width)));
    if (cx == LVSCW_AUTOSIZE || cx == LVSCW_AUTOSIZE_USEHEADER) {
        // Without a font the fit is an estimate: 6 pixels a character and a margin.
        std::size_t longest = cx == LVSCW_AUTOSIZE_USEHEADER ? columns[index].text.size() : 0;
        for (const auto& item : items) {
            const auto text = item.texts.find(columns[index].subItem);
            longest = std::max(longest, text != item.texts.end() ? text->second.size() : 0);
        }
        columns[index].width = static_cast<int>(longest) * 6 + 12;
        return TRUE;
    }
    columns[index].width = std::max<int>(cx, 0);
    return TRUE;
}

// ---- Combo box ----------------------------------------------------------------------------

LRESULT ComboBoxControl::handle(Window& window, UINT message, WPARAM wParam, LPARAM lParam, bool& known)
{
    known = true;
    const int index = asInt(wParam);
    const bool valid = index >= 0 && static_cast<std::size_t>(index) < rows.size();
    switch (message) {
    case CB_ADDSTRING:
        return addString_(window, reinterpret_cast<LPCWSTR>(lParam));
    case CB_GETCOUNT:
        return static_cast<LRESULT>(rows.size());
    case CB_GETCURSEL:
        return selection;
    case CB_SETCURSEL:
        // -1 or a row that does not exist clears the selection and answers CB_ERR.
        selection = valid ? index : -1;
        return valid ? index : CB_ERR;
    case CB_GETLBTEXT:
        if (!valid || lParam == 0) {
            return CB_ERR;
        }
        return copyText(rows[static_cast<std::size_t>(index)], reinterpret_cast<LPWSTR>(lParam),
                        rows[static_cast<std::size_t>(index)].size() + 1);
    case CB_GETLBTEXTLEN:
        return valid ? static_cast<LRESULT>(rows[static_cast<std::size_t>(index)].size()) : CB_ERR;
    case WM_GETTEXT:
    case WM_GETTEXTLENGTH: {
        // A drop-down list shows its selected row as its text.
        if ((window.style & 0x3) != CBS_DROPDOWNLIST) {
            return defaultMessage(window, message, wParam, lParam, known);
        }
        const std::wstring shown = selection >= 0 ? rows[static_cast<std::size_t>(selection)] : L"";
        return message == WM_GETTEXTLENGTH ? static_cast<LRESULT>(shown.size())
                                           : copyText(shown, reinterpret_cast<LPWSTR>(lParam), wParam);
    }
    default:
        known = false;
        return 0;
    }
}

LRESULT ComboBoxControl::addString_(const Window& window, LPCWSTR text)
{
    if (text == nullptr) {
        return CB_ERR;
    }
    const std::wstring row(text);
    auto at = rows.end();
    if ((window.style & CBS_SORT) != 0) {
        at = std::upper_bound(
            rows.begin(), rows.end(), row,
            [](const std::wstring& a, const std::wstring& b) { return compareIgnoringCase(a, b) < 0; });
    }
    const auto index = static_cast<int>(at - rows.begin());
    rows.insert(at, row);
    if (selection >= index) {
        ++selection;  // the selection stays on its row
    }
    return index;
}

// ---- Static and button --------------------------------------------------------------------

LRESULT StaticControl::handle(Window& window, UINT message, WPARAM wParam, LPARAM /*lParam*/, bool& known)
{
    known = true;
    switch (message) {
    case STM_SETICON:
        return reinterpret_cast<LRESULT>(setIcon(window, reinterpret_cast<HICON>(wParam)));
    case STM_GETICON:
        return reinterpret_cast<LRESULT>(icon);
    default:
        known = false;
        return 0;
    }
}

HICON StaticControl::setIcon(Window& window, HICON newIcon)
{
    const HICON previous = std::exchange(icon, newIcon);
    const bool keepsSize = (window.style & (SS_CENTERIMAGE | SS_REALSIZECONTROL)) != 0;
    if (newIcon != nullptr && (window.style & SS_TYPEMASK) == SS_ICON && !keepsSize) {
        const SIZE size = iconSize(newIcon);
        window.rect.right = window.rect.left + size.cx;
        window.rect.bottom = window.rect.top + size.cy;
    }
    return previous;
}

LRESULT ButtonControl::handle(Window& /*window*/, UINT /*message*/, WPARAM /*wParam*/, LPARAM /*lParam*/,
                              bool& known)
{
    known = false;
    return 0;
}

}  // namespace host
