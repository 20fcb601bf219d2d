// Window slots and posted messages. A window is a record with its long values
// and a queue; posts may come from any thread.
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "host/HostWindows.h"

struct HWND__ {
    std::map<int, LONG_PTR> slots;
    std::vector<host::PostedMessage> posted;
};

namespace {

struct Windows {
    std::mutex lock;
    std::map<HWND, std::unique_ptr<HWND__>> live;
    DWORD setLongError = 0;
};

Windows& windows()
{
    static Windows instance;
    return instance;
}

HWND__* find(Windows& w, HWND window)
{
    const auto found = w.live.find(window);
    if (found == w.live.end()) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    return found->second.get();
}

}  // namespace

BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto& w = windows();
    const std::lock_guard<std::mutex> guard(w.lock);
    HWND__* record = find(w, window);
    if (record == nullptr) {
        return FALSE;
    }
    record->posted.push_back({message, wParam, lParam});
    return TRUE;
}

LONG_PTR GetWindowLongPtrW(HWND window, int index)
{
    auto& w = windows();
    const std::lock_guard<std::mutex> guard(w.lock);
    HWND__* record = find(w, window);
    if (record == nullptr) {
        return 0;
    }
    const auto slot = record->slots.find(index);
    return slot != record->slots.end() ? slot->second : 0;
}

LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value)
{
    auto& w = windows();
    const std::lock_guard<std::mutex> guard(w.lock);
    HWND__* record = find(w, window);
    if (record == nullptr) {
        return 0;
    }
    LONG_PTR& slot = record->slots[index];
    const LONG_PTR previous = slot;
    slot = value;
    return previous;
}

LONG SetWindowLongW(HWND window, int index, LONG value)
{
    {
        auto& w = windows();
        const std::lock_guard<std::mutex> guard(w.lock);
        if (w.setLongError != 0) {
            SetLastError(w.setLongError);
            return 0;
        }
    }
    return static_cast<LONG>(SetWindowLongPtrW(window, index, value));
}

namespace host {

HWND createWindow()
{
    auto& w = windows();
    const std::lock_guard<std::mutex> guard(w.lock);
    auto record = std::make_unique<HWND__>();
    HWND handle = record.get();
    w.live.emplace(handle, std::move(record));
    return handle;
}

void destroyWindow(HWND window)
{
    auto& w = windows();
    const std::lock_guard<std::mutex> guard(w.lock);
    w.live.erase(window);
}

std::vector<PostedMessage> takePosted(HWND window)
{
    auto& w = windows();
    const std::lock_guard<std::mutex> guard(w.lock);
    HWND__* record = find(w, window);
    if (record == nullptr) {
        return {};
    }
    return std::exchange(record->posted, {});
}

void failSetWindowLong(DWORD error)
{
    auto& w = windows();
    const std::lock_guard<std::mutex> guard(w.lock);
    w.setLongError = error;
}

}  // namespace host
