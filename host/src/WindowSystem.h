// Internal: the host's windows, one record per window, the message queue of
// each thread, timers and the test clock, all under one lock. Window procedures
// are always called with the lock released; control classes run under it.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/HostWindows.h"
#include "platform.h"

namespace host {

class Control;  // Controls.h

struct Timer {
    UINT period = 0;
    std::uint64_t dueAt = 0;
    bool pending = false;
};

struct Window {
    HWND handle = nullptr;
    DWORD threadId = 0;
    HWND parent = nullptr;
    std::wstring className;
    std::wstring text;
    DWORD style = 0;
    DWORD exStyle = 0;
    int id = 0;
    RECT rect{};  // relative to the parent's client area; the screen for a top-level window
    std::map<int, LONG_PTR> slots;
    bool dialog = false;
    DLGPROC dialogProc = nullptr;
    std::vector<HWND> children;
    std::unique_ptr<Control> control;
    std::map<UINT_PTR, Timer> timers;

    Window();
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;
    bool isDialog() const { return dialog; }
};

struct QueuedMessage {
    HWND window = nullptr;
    UINT message = 0;
    WPARAM wParam = 0;
    LPARAM lParam = 0;
    bool fromTimer = false;
    // Real time of the post, for the longest wait a message had in its queue.
    std::chrono::steady_clock::time_point queuedAt = std::chrono::steady_clock::now();
};

struct SleepCall {
    DWORD threadId;
    DWORD milliseconds;
};

struct WindowSystem {
    std::mutex lock;
    std::map<HWND, std::unique_ptr<Window>> windows;
    std::map<DWORD, std::deque<QueuedMessage>> queues;
    std::chrono::nanoseconds longestQueueWait{0};
    std::map<HDWP, std::vector<std::pair<HWND, DeferredMove>>> deferrals;
    std::vector<DeferredMove> lastDeferred;
    std::map<int, SHORT> keys;
    std::uint64_t clock = 0;
    std::vector<SleepCall> sleeps;
    std::shared_ptr<const std::function<void(DWORD)>> sleepHook;
    std::shared_ptr<const std::function<void(HWND, UINT)>> deadPostHook;
};

WindowSystem& windowSystem();

// Under the lock. A null answer has set ERROR_INVALID_WINDOW_HANDLE.
Window* findWindow(WindowSystem& system, HWND window);
// Whether the handle was ever given to a window (live or destroyed).
bool wasIssued(HWND window);
// A new window of the calling thread, linked to its parent.
Window& addWindow(WindowSystem& system);
// Where a window's client area starts on the screen, and its client size.
POINT clientOrigin(WindowSystem& system, const Window& window);
SIZE clientSize(const Window& window);
// Moves and sizes as SetWindowPos does; true if the size changed.
bool applyPosition(Window& window, int x, int y, int cx, int cy, UINT flags);
// Queues WM_TIMER for each due timer of the thread's windows.
void queueDueTimers(WindowSystem& system, DWORD threadId);

// Lock released: delivers a message as SendMessageW does.
LRESULT deliver(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Destroys the window and its children: WM_DESTROY, WM_NCDESTROY, then gone.
BOOL destroyWindowTree(HWND window);
// Creates a dialog from the module's template: the dialog, WM_SIZE, its
// controls, WM_INITDIALOG. The style bits are changed as a sheet changes its
// pages'; `position`, if given, replaces the template's.
HWND createDialog(WORD templateId, HWND parent, DLGPROC dialogProc, LPARAM initParam, DWORD removeStyles,
                  DWORD addStyles, const POINT* position);
// Clears everything above, without sending a message.
void resetWindows();
void resetIcons();
// Clears the scripted failure and count of CreateThread; running threads go on.
void resetThreads();
// Clears the scripted failures of the file functions; open files stay open.
void resetFiles();
// Closes a handle of CreateFileW; false if `handle` is none of its.
bool closeFileHandle(HANDLE handle);

}  // namespace host
