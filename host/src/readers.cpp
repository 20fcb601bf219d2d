// The test side's reading of the screen and its user actions.
#include "Controls.h"
#include "WindowSystem.h"

namespace {

using host::windowSystem;

template <typename Result, typename Body> Result read(HWND window, Result none, Body body)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto found = s.windows.find(window);
    return found != s.windows.end() ? body(*found->second) : none;
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
    if (!reachable(comboBox) || row < 0 || row >= SendMessageW(comboBox, CB_GETCOUNT, 0, 0)) {
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
