// The test side's reading of the screen and its user actions.
#include "Controls.h"
#include "WindowSystem.h"

namespace {

using host::Window;
using host::windowSystem;

template <typename Result, typename Body> Result read(HWND window, Result none, Body body)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto found = s.windows.find(window);
    return found != s.windows.end() ? body(*found->second) : none;
}

template <typename ControlClass, typename Result, typename Body>
Result readControl(HWND window, Result none, Body body)
{
    return read(window, none, [&](const Window& w) {
        const auto* control = dynamic_cast<const ControlClass*>(w.control.get());
        return control != nullptr ? body(*control) : none;
    });
}

// A user reaches a control only while it is enabled and it and its parents show.
bool reachable(HWND window)
{
    return IsWindowEnabled(window) != FALSE && IsWindowVisible(window) != FALSE;
}

}  // namespace

namespace host {

std::wstring windowText(HWND window)
{
    return read(window, std::wstring{}, [](const Window& w) { return w.text; });
}

std::wstring windowClass(HWND window)
{
    return read(window, std::wstring{}, [](const Window& w) { return w.className; });
}

DWORD windowStyle(HWND window)
{
    return read(window, DWORD{0}, [](const Window& w) { return w.style; });
}

DWORD windowExStyle(HWND window)
{
    return read(window, DWORD{0}, [](const Window& w) { return w.exStyle; });
}

bool isEnabled(HWND window)
{
    return read(window, false, [](const Window& w) { return (w.style & WS_DISABLED) == 0; });
}

bool isVisible(HWND window)
{
    return read(window, false, [](const Window& w) { return (w.style & WS_VISIBLE) != 0; });
}

RECT windowRect(HWND window)
{
    return read(window, RECT{}, [](const Window& w) { return w.rect; });
}

std::vector<HWND> children(HWND dialog)
{
    return read(dialog, std::vector<HWND>{}, [](const Window& w) { return w.children; });
}

std::vector<ListLine> listLines(HWND listView)
{
    return readControl<ListViewControl>(listView, std::vector<ListLine>{}, [](const ListViewControl& list) {
        std::vector<ListLine> lines;
        for (const auto& item : list.items) {
            const auto text = item.texts.find(0);
            lines.push_back({text != item.texts.end() ? text->second : L"", item.image});
        }
        return lines;
    });
}

int listColumnWidth(HWND listView, int column)
{
    return readControl<ListViewControl>(listView, -1, [column](const ListViewControl& list) {
        return column >= 0 && static_cast<std::size_t>(column) < list.columns.size()
            ? list.columns[static_cast<std::size_t>(column)].width
            : -1;
    });
}

int listColumnCount(HWND listView)
{
    return readControl<ListViewControl>(
        listView, 0, [](const ListViewControl& list) { return static_cast<int>(list.columns.size()); });
}

DWORD listExtendedStyle(HWND listView)
{
    return readControl<ListViewControl>(listView, DWORD{0},
                                        [](const ListViewControl& list) { return list.extendedStyle; });
}

HIMAGELIST listImageList(HWND listView, int which)
{
    return readControl<ListViewControl>(listView, HIMAGELIST{}, [which](const ListViewControl& list) {
        const auto found = list.imageLists.find(which);
        return found != list.imageLists.end() ? found->second : nullptr;
    });
}

std::vector<std::wstring> comboRows(HWND comboBox)
{
    return readControl<ComboBoxControl>(comboBox, std::vector<std::wstring>{},
                                        [](const ComboBoxControl& combo) { return combo.rows; });
}

int comboSelection(HWND comboBox)
{
    return readControl<ComboBoxControl>(comboBox, -1,
                                        [](const ComboBoxControl& combo) { return combo.selection; });
}

HICON staticIcon(HWND staticControl)
{
    return readControl<StaticControl>(staticControl, HICON{},
                                      [](const StaticControl& picture) { return picture.icon; });
}

std::vector<SentMessage> sentMessages(HWND window)
{
    return read(window, std::vector<SentMessage>{}, [](const Window& w) { return w.sent; });
}

void clearSentMessages(HWND window)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto found = s.windows.find(window);
    if (found != s.windows.end()) {
        found->second->sent.clear();
    }
}

std::vector<DeferredMove> lastDeferredMoves()
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.lastDeferred;
}

bool click(HWND button)
{
    if (!reachable(button)) {
        return false;
    }
    const auto id = static_cast<WORD>(GetDlgCtrlID(button));
    SendMessageW(GetParent(button), WM_COMMAND, MAKEWPARAM(id, BN_CLICKED), reinterpret_cast<LPARAM>(button));
    return true;
}

bool chooseComboRow(HWND comboBox, int row)
{
    if (!reachable(comboBox) || row < 0 || row >= static_cast<int>(comboRows(comboBox).size())) {
        return false;
    }
    // The user's choice goes straight to the control; only the parent is told.
    {
        auto& s = windowSystem();
        const std::lock_guard<std::mutex> guard(s.lock);
        auto* combo = dynamic_cast<ComboBoxControl*>(s.windows.at(comboBox)->control.get());
        combo->selection = row;
    }
    const auto id = static_cast<WORD>(GetDlgCtrlID(comboBox));
    SendMessageW(GetParent(comboBox), WM_COMMAND, MAKEWPARAM(id, CBN_SELCHANGE),
                 reinterpret_cast<LPARAM>(comboBox));
    return true;
}

}  // namespace host
