// The window table, message delivery, destruction, the per-thread queues, the
// pump, timers and the clock.
#include "WindowSystem.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "Controls.h"

namespace {

// Handles are numbers, never reused in a process, so a stale handle stays invalid.
constexpr std::uintptr_t firstHandle = 0x10010;
std::atomic<std::uintptr_t> nextHandle{firstHandle};

host::Window* lookup(host::WindowSystem& system, HWND window)
{
    const auto found = system.windows.find(window);
    return found != system.windows.end() ? found->second.get() : nullptr;
}

int borderOf(const host::Window& window)
{
    if (window.isDialog() || !window.control) {
        return 0;
    }
    if ((window.exStyle & static_cast<DWORD>(WS_EX_CLIENTEDGE)) != 0) {
        return 2;
    }
    return (window.style & WS_BORDER) != 0 ? 1 : 0;
}

void collectTree(host::WindowSystem& system, HWND window, std::vector<HWND>& out)
{
    out.push_back(window);
    if (const host::Window* record = lookup(system, window)) {
        for (HWND child : record->children) {
            collectTree(system, child, out);
        }
    }
}

}  // namespace

namespace host {

Window::Window() = default;
Window::~Window() = default;

WindowSystem& windowSystem()
{
    static WindowSystem instance;
    return instance;
}

Window* findWindow(WindowSystem& system, HWND window)
{
    Window* found = lookup(system, window);
    if (found == nullptr) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    }
    return found;
}

bool wasIssued(HWND window)
{
    const auto value = reinterpret_cast<std::uintptr_t>(window);
    return value >= firstHandle && value < nextHandle.load() && value % 4 == 0;
}

Window& addWindow(WindowSystem& system)
{
    auto record = std::make_unique<Window>();
    record->handle = reinterpret_cast<HWND>(nextHandle.fetch_add(4));
    record->threadId = GetCurrentThreadId();
    Window& added = *record;
    system.windows.emplace(added.handle, std::move(record));
    return added;
}

POINT clientOrigin(WindowSystem& system, const Window& window)
{
    POINT origin{window.rect.left, window.rect.top};
    if (const Window* parent = lookup(system, window.parent);
        parent != nullptr && (window.style & WS_CHILD) != 0) {
        const POINT parentOrigin = clientOrigin(system, *parent);
        origin.x += parentOrigin.x;
        origin.y += parentOrigin.y;
    }
    const int border = borderOf(window);
    return {origin.x + border, origin.y + border};
}

SIZE clientSize(const Window& window)
{
    const int border = borderOf(window);
    return {std::max(0, window.rect.right - window.rect.left - 2 * border),
            std::max(0, window.rect.bottom - window.rect.top - 2 * border)};
}

bool applyPosition(Window& window, int x, int y, int cx, int cy, UINT flags)
{
    const LONG width = window.rect.right - window.rect.left;
    const LONG height = window.rect.bottom - window.rect.top;
    if ((flags & SWP_NOMOVE) == 0) {
        window.rect = {x, y, x + width, y + height};
    }
    if ((flags & SWP_NOSIZE) == 0) {
        // The platform takes a negative size as 0.
        window.rect.right = window.rect.left + std::max(cx, 0);
        window.rect.bottom = window.rect.top + std::max(cy, 0);
    }
    return window.rect.right - window.rect.left != width || window.rect.bottom - window.rect.top != height;
}

void queueDueTimers(WindowSystem& system, DWORD threadId)
{
    for (auto& [handle, window] : system.windows) {
        if (window->threadId != threadId) {
            continue;
        }
        for (auto& [id, timer] : window->timers) {
            if (!timer.pending && system.clock >= timer.dueAt) {
                system.queues[threadId].push_back({handle, WM_TIMER, id, 0, true});
                timer.pending = true;
                timer.dueAt = system.clock + timer.period;
            }
        }
    }
}

LRESULT deliver(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto& s = windowSystem();
    std::unique_lock<std::mutex> guard(s.lock);
    Window* record = findWindow(s, window);
    if (record == nullptr) {
        return 0;
    }
    bool known = true;
    if (!record->isDialog()) {
        LRESULT result = 0;
        known = false;
        if (record->control) {
            result = record->control->handle(*record, message, wParam, lParam, known);
        }
        if (!known) {
            result = defaultMessage(*record, message, wParam, lParam, known);
        }
        return result;
    }
    // A dialog: its procedure first, with the lock released; what it leaves
    // (answers 0 to) gets the default handling.
    const DLGPROC procedure = record->dialogProc;
    guard.unlock();
    const INT_PTR answer = procedure != nullptr ? procedure(window, message, wParam, lParam) : 0;
    if (answer != 0) {
        return answer;
    }
    guard.lock();
    record = lookup(s, window);
    return record != nullptr ? defaultMessage(*record, message, wParam, lParam, known) : 0;
}

BOOL destroyWindowTree(HWND window)
{
    auto& s = windowSystem();
    std::vector<HWND> tree;
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        if (findWindow(s, window) == nullptr) {
            return FALSE;
        }
        collectTree(s, window, tree);
    }
    // WM_DESTROY reaches the parent before its children, WM_NCDESTROY after them.
    for (HWND each : tree) {
        deliver(each, WM_DESTROY, 0, 0);
    }
    for (auto each = tree.rbegin(); each != tree.rend(); ++each) {
        deliver(*each, WM_NCDESTROY, 0, 0);
    }
    std::vector<HIMAGELIST> imageLists;
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        for (HWND each : tree) {
            // A list view destroys its image lists with itself, unless told they are shared.
            Window& record = *s.windows.at(each);
            const auto* list = dynamic_cast<const ListViewControl*>(record.control.get());
            if (list != nullptr && (record.style & LVS_SHAREIMAGELISTS) == 0) {
                for (const auto& [which, images] : list->imageLists) {
                    if (images != nullptr) {
                        imageLists.push_back(images);
                    }
                }
            }
            s.windows.erase(each);
        }
        for (auto& [handle, record] : s.windows) {
            auto& children = record->children;
            children.erase(std::remove(children.begin(), children.end(), window), children.end());
        }
    }
    for (HIMAGELIST images : imageLists) {
        ImageList_Destroy(images);
    }
    return TRUE;
}

void resetWindows()
{
    auto& s = windowSystem();
    std::map<HWND, std::unique_ptr<Window>> gone;
    std::shared_ptr<const std::function<void(DWORD)>> hook;
    std::shared_ptr<const std::function<void(HWND, UINT)>> deadPostHook;
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        gone.swap(s.windows);
        hook.swap(s.sleepHook);
        deadPostHook.swap(s.deadPostHook);
        s.queues.clear();
        s.deferrals.clear();
        s.lastDeferred.clear();
        s.keys.clear();
        s.clock = 0;
        s.sleeps.clear();
    }
}

// ---- Test side: pump, clock, timers, sleeps, keys ----------------------------------------

int pumpMessages()
{
    auto& s = windowSystem();
    const DWORD me = GetCurrentThreadId();
    int dispatched = 0;
    for (;;) {
        QueuedMessage next{};
        {
            const std::lock_guard<std::mutex> guard(s.lock);
            queueDueTimers(s, me);
            auto& queue = s.queues[me];
            // Posted messages come before WM_TIMER, as the platform's GetMessage takes them.
            auto taken = std::find_if(queue.begin(), queue.end(), [](const auto& m) { return !m.fromTimer; });
            if (taken == queue.end()) {
                taken = queue.begin();
            }
            if (taken == queue.end()) {
                return dispatched;
            }
            next = *taken;
            queue.erase(taken);
            s.longestQueueWait = std::max(s.longestQueueWait,
                                          std::chrono::duration_cast<std::chrono::nanoseconds>(
                                              std::chrono::steady_clock::now() - next.queuedAt));
            Window* record = lookup(s, next.window);
            if (record == nullptr) {
                continue;  // the window is gone: dropped
            }
            if (next.fromTimer) {
                const auto timer = record->timers.find(next.wParam);
                if (timer != record->timers.end()) {
                    timer->second.pending = false;
                }
            }
        }
        deliver(next.window, next.message, next.wParam, next.lParam);
        ++dispatched;
    }
}

std::chrono::nanoseconds takeLongestQueueWait()
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    return std::exchange(s.longestQueueWait, std::chrono::nanoseconds{0});
}

std::uint64_t clockNow()
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.clock;
}

void advanceClock(std::uint64_t milliseconds)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.clock += milliseconds;
    queueDueTimers(s, GetCurrentThreadId());
}

std::vector<TimerInfo> liveTimers(HWND window)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    std::vector<TimerInfo> out;
    if (const Window* record = lookup(s, window)) {
        for (const auto& [id, timer] : record->timers) {
            out.push_back({id, timer.period, timer.dueAt, timer.pending});
        }
    }
    return out;
}

std::vector<DWORD> sleepCalls()
{
    auto& s = windowSystem();
    const DWORD me = GetCurrentThreadId();
    const std::lock_guard<std::mutex> guard(s.lock);
    std::vector<DWORD> out;
    for (const auto& call : s.sleeps) {
        if (call.threadId == me) {
            out.push_back(call.milliseconds);
        }
    }
    return out;
}

void onSleep(std::function<void(DWORD milliseconds)> hook)
{
    auto& s = windowSystem();
    auto shared = hook ? std::make_shared<const std::function<void(DWORD)>>(std::move(hook)) : nullptr;
    const std::lock_guard<std::mutex> guard(s.lock);
    s.sleepHook.swap(shared);
}

void onPostToDestroyedWindow(std::function<void(HWND window, UINT message)> hook)
{
    auto& s = windowSystem();
    auto shared = hook ? std::make_shared<const std::function<void(HWND, UINT)>>(std::move(hook)) : nullptr;
    const std::lock_guard<std::mutex> guard(s.lock);
    s.deadPostHook.swap(shared);
}

void setKeyState(int virtualKey, SHORT state)
{
    auto& s = windowSystem();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.keys[virtualKey] = state;
}

}  // namespace host
