// The user32 functions over the window system: window state, text, messages,
// timers, positions and deferred moves, keys, and bare test windows.
#include <algorithm>
#include <atomic>
#include <utility>

#include "Controls.h"
#include "WindowSystem.h"

namespace {

using host::Window;
using host::windowSystem;

std::atomic<std::uintptr_t> nextDeferral{0xD000};

// Runs `body` on the window's record under the lock; `failure` if there is none.
template <typename Result, typename Body> Result withWindow(HWND window, Result failure, Body body)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    Window* record = host::findWindow(s, window);
    return record != nullptr ? body(*record) : failure;
}

void sendSize(HWND window)
{
    const SIZE size = withWindow(window, SIZE{0, 0}, [](Window& w) { return host::clientSize(w); });
    host::deliver(window, WM_SIZE, SIZE_RESTORED,
                  MAKELPARAM(static_cast<WORD>(size.cx), static_cast<WORD>(size.cy)));
}

}  // namespace

BOOL DestroyWindow(HWND window)
{
    return host::destroyWindowTree(window);
}

BOOL IsWindow(HWND window)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.windows.count(window) != 0 ? TRUE : FALSE;
}

HWND GetParent(HWND window)
{
    return withWindow(window, HWND{}, [](Window& w) { return w.parent; });
}

HWND GetDlgItem(HWND dialog, int id)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    const Window* record = host::findWindow(s, dialog);
    if (record == nullptr) {
        return nullptr;
    }
    for (HWND child : record->children) {
        if (s.windows.at(child)->id == id) {
            return child;
        }
    }
    SetLastError(ERROR_CONTROL_ID_NOT_FOUND);
    return nullptr;
}

int GetDlgCtrlID(HWND window)
{
    return withWindow(window, 0, [](Window& w) { return w.id; });
}

BOOL EnableWindow(HWND window, BOOL enable)
{
    // The answer is whether the window was disabled before.
    bool changed = false;
    const BOOL wasDisabled = withWindow(window, FALSE, [&](Window& w) {
        const bool disabled = (w.style & WS_DISABLED) != 0;
        w.style = enable != FALSE ? (w.style & ~WS_DISABLED) : (w.style | WS_DISABLED);
        changed = disabled == (enable != FALSE);
        return disabled ? TRUE : FALSE;
    });
    if (changed) {
        host::deliver(window, WM_ENABLE, enable != FALSE ? TRUE : FALSE, 0);
    }
    return wasDisabled;
}

BOOL IsWindowEnabled(HWND window)
{
    return withWindow(window, FALSE, [](Window& w) { return (w.style & WS_DISABLED) == 0 ? TRUE : FALSE; });
}

BOOL ShowWindow(HWND window, int command)
{
    // The answer is whether the window was visible before.
    const bool show = command != SW_HIDE;
    bool changed = false;
    const BOOL wasVisible = withWindow(window, FALSE, [&](Window& w) {
        const bool visible = (w.style & WS_VISIBLE) != 0;
        w.style = show ? (w.style | WS_VISIBLE) : (w.style & ~WS_VISIBLE);
        changed = visible != show;
        return visible ? TRUE : FALSE;
    });
    if (changed) {
        host::deliver(window, WM_SHOWWINDOW, show ? TRUE : FALSE, 0);
    }
    return wasVisible;
}

BOOL IsWindowVisible(HWND window)
{
    // Visible only if the window and every parent have WS_VISIBLE.
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    for (HWND each = window; each != nullptr;) {
        const auto found = s.windows.find(each);
        if (found == s.windows.end() || (found->second->style & WS_VISIBLE) == 0) {
            return FALSE;
        }
        each = found->second->parent;
    }
    return window != nullptr ? TRUE : FALSE;
}

BOOL SetWindowTextW(HWND window, LPCWSTR text)
{
    if (!IsWindow(window)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return FALSE;
    }
    return host::deliver(window, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text)) != 0 ? TRUE : FALSE;
}

BOOL SetDlgItemTextW(HWND dialog, int id, LPCWSTR text)
{
    HWND control = GetDlgItem(dialog, id);
    return control != nullptr ? SetWindowTextW(control, text) : FALSE;
}

int GetWindowTextW(HWND window, LPWSTR buffer, int maxCount)
{
    if (buffer == nullptr || maxCount <= 0 || !IsWindow(window)) {
        SetLastError(IsWindow(window) ? ERROR_INVALID_PARAMETER : ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    return static_cast<int>(
        host::deliver(window, WM_GETTEXT, static_cast<WPARAM>(maxCount), reinterpret_cast<LPARAM>(buffer)));
}

int GetWindowTextLengthW(HWND window)
{
    if (!IsWindow(window)) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    return static_cast<int>(host::deliver(window, WM_GETTEXTLENGTH, 0, 0));
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    return host::deliver(window, message, wParam, lParam);
}

BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto& s = windowSystem();
    std::shared_ptr<const std::function<void(HWND, UINT)>> deadPostHook;
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        const Window* record = host::findWindow(s, window);
        if (record != nullptr) {
            s.queues[record->threadId].push_back({window, message, wParam, lParam, false});
            return TRUE;
        }
        if (host::wasIssued(window)) {
            deadPostHook = s.deadPostHook;
        }
    }
    if (deadPostHook) {
        (*deadPostHook)(window, message);  // outside the lock: the hook may call the platform
    }
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return FALSE;
}

LONG_PTR GetWindowLongPtrW(HWND window, int index)
{
    return withWindow(window, LONG_PTR{0}, [index](Window& w) -> LONG_PTR {
        switch (index) {
        case GWL_STYLE:
            return static_cast<LONG>(w.style);
        case GWL_EXSTYLE:
            return static_cast<LONG>(w.exStyle);
        case GWLP_ID:
            return w.id;
        default: {
            const auto slot = w.slots.find(index);
            return slot != w.slots.end() ? slot->second : 0;
        }
        }
    });
}

LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value)
{
    return withWindow(window, LONG_PTR{0}, [index, value](Window& w) -> LONG_PTR {
        switch (index) {
        case GWL_STYLE:
            return static_cast<LONG>(std::exchange(w.style, static_cast<DWORD>(value)));
        case GWL_EXSTYLE:
            return static_cast<LONG>(std::exchange(w.exStyle, static_cast<DWORD>(value)));
        case GWLP_ID:
            return std::exchange(w.id, static_cast<int>(value));
        default:
            return std::exchange(w.slots[index], value);
        }
    });
}

LONG SetWindowLongW(HWND window, int index, LONG value)
{
    return static_cast<LONG>(SetWindowLongPtrW(window, index, value));
}

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT elapse, TIMERPROC /*timerProc*/)
{
    // Out of range periods become the minimum; an existing id restarts.
    if (elapse < USER_TIMER_MINIMUM || elapse > 0x7FFFFFFF) {
        elapse = USER_TIMER_MINIMUM;
    }
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    Window* record = host::findWindow(s, window);
    if (record == nullptr) {
        return 0;
    }
    host::Timer& timer = record->timers[id];
    timer.period = elapse;
    timer.dueAt = s.clock + elapse;
    return id != 0 ? id : 1;
}

BOOL KillTimer(HWND window, UINT_PTR id)
{
    // A WM_TIMER already queued stays queued, as the platform documents.
    return withWindow(window, FALSE, [id](Window& w) { return w.timers.erase(id) != 0 ? TRUE : FALSE; });
}

BOOL SetWindowPos(HWND window, HWND /*insertAfter*/, int x, int y, int cx, int cy, UINT flags)
{
    bool resized = false;
    const BOOL done = withWindow(window, FALSE, [&](Window& w) {
        resized = host::applyPosition(w, x, y, cx, cy, flags);
        return TRUE;
    });
    if (resized) {
        sendSize(window);
    }
    return done;
}

BOOL GetWindowRect(HWND window, LPRECT rect)
{
    if (rect == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    const Window* record = host::findWindow(s, window);
    if (record == nullptr) {
        return FALSE;
    }
    const auto parent = s.windows.find(record->parent);
    const POINT parentOrigin = parent != s.windows.end() && (record->style & WS_CHILD) != 0
        ? host::clientOrigin(s, *parent->second)
        : POINT{0, 0};
    *rect = {record->rect.left + parentOrigin.x, record->rect.top + parentOrigin.y,
             record->rect.right + parentOrigin.x, record->rect.bottom + parentOrigin.y};
    return TRUE;
}

BOOL GetClientRect(HWND window, LPRECT rect)
{
    if (rect == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return withWindow(window, FALSE, [rect](Window& w) {
        const SIZE size = host::clientSize(w);
        *rect = {0, 0, size.cx, size.cy};
        return TRUE;
    });
}

BOOL ScreenToClient(HWND window, LPPOINT point)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    const Window* record = host::findWindow(s, window);
    if (record == nullptr || point == nullptr) {
        return FALSE;
    }
    const POINT origin = host::clientOrigin(s, *record);
    point->x -= origin.x;
    point->y -= origin.y;
    return TRUE;
}

BOOL ClientToScreen(HWND window, LPPOINT point)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    const Window* record = host::findWindow(s, window);
    if (record == nullptr || point == nullptr) {
        return FALSE;
    }
    const POINT origin = host::clientOrigin(s, *record);
    point->x += origin.x;
    point->y += origin.y;
    return TRUE;
}

int MapWindowPoints(HWND from, HWND to, LPPOINT points, UINT count)
{
    // A null window stands for the screen. The answer packs the offsets.
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    POINT fromOrigin{0, 0};
    POINT toOrigin{0, 0};
    for (auto [window, origin] : {std::pair{from, &fromOrigin}, std::pair{to, &toOrigin}}) {
        if (window == nullptr) {
            continue;
        }
        const Window* record = host::findWindow(s, window);
        if (record == nullptr) {
            return 0;
        }
        *origin = host::clientOrigin(s, *record);
    }
    const LONG dx = fromOrigin.x - toOrigin.x;
    const LONG dy = fromOrigin.y - toOrigin.y;
    for (UINT i = 0; points != nullptr && i < count; ++i) {
        points[i].x += dx;
        points[i].y += dy;
    }
    SetLastError(NO_ERROR);
    return MAKELONG(static_cast<WORD>(dx), static_cast<WORD>(dy));
}

HDWP BeginDeferWindowPos(int numWindows)
{
    if (numWindows < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    auto* handle = reinterpret_cast<HDWP>(nextDeferral.fetch_add(4));
    s.deferrals[handle];
    return handle;
}

HDWP DeferWindowPos(HDWP positions, HWND window, HWND /*insertAfter*/, int x, int y, int cx, int cy,
                    UINT flags)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto deferral = s.deferrals.find(positions);
    if (deferral == s.deferrals.end()) {
        SetLastError(ERROR_INVALID_DWP_HANDLE);
        return nullptr;
    }
    const Window* record = host::findWindow(s, window);
    if (record == nullptr) {
        s.deferrals.erase(deferral);  // a failed call destroys the structure
        return nullptr;
    }
    deferral->second.push_back({window, {record->id, x, y, cx, cy, flags}});
    return positions;
}

BOOL EndDeferWindowPos(HDWP positions)
{
    // Every move takes effect before any window hears of its new size.
    std::vector<HWND> resized;
    {
        auto& s = windowSystem();
        const std::lock_guard<std::mutex> guard(s.lock);
        const auto deferral = s.deferrals.find(positions);
        if (deferral == s.deferrals.end()) {
            SetLastError(ERROR_INVALID_DWP_HANDLE);
            return FALSE;
        }
        s.lastDeferred.clear();
        for (const auto& [window, move] : deferral->second) {
            s.lastDeferred.push_back(move);
            Window* record = host::findWindow(s, window);
            if (record != nullptr
                && host::applyPosition(*record, move.x, move.y, move.cx, move.cy, move.flags)) {
                resized.push_back(window);
            }
        }
        s.deferrals.erase(deferral);
    }
    for (HWND window : resized) {
        sendSize(window);
    }
    return TRUE;
}

SHORT GetKeyState(int virtualKey)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto found = s.keys.find(virtualKey);
    return found != s.keys.end() ? found->second : SHORT{0};
}

namespace host {

HWND createWindow()
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    return addWindow(s).handle;
}

void destroyWindow(HWND window)
{
    auto& s = windowSystem();
    std::unique_ptr<Window> gone;
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto found = s.windows.find(window);
    if (found != s.windows.end()) {
        gone = std::move(found->second);
        s.windows.erase(found);
    }
}

std::vector<PostedMessage> takePosted(HWND window)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    Window* record = findWindow(s, window);
    if (record == nullptr) {
        return {};
    }
    std::vector<PostedMessage> taken;
    auto& queue = s.queues[record->threadId];
    for (auto each = queue.begin(); each != queue.end();) {
        if (each->window != window) {
            ++each;
            continue;
        }
        const auto timer = record->timers.find(each->wParam);
        if (each->fromTimer && timer != record->timers.end()) {
            timer->second.pending = false;
        }
        taken.push_back({each->message, each->wParam, each->lParam});
        each = queue.erase(each);
    }
    return taken;
}

}  // namespace host
