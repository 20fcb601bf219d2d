// Test-side view of the host's window system: pump a thread's messages, move the
// test clock, script keys and thread creation, read the screen back as a user
// would, act as the user, and show pages in a property sheet.
//
// Geometry: dialog units become pixels with fixed base units of 6 x 13 pixels
// per 4 x 8 units (an 8 point shell font at 96 dpi): x' = MulDiv(x, 6, 4),
// y' = MulDiv(y, 13, 8). Windows have no non-client area except a 1-pixel
// border for WS_BORDER and 2 pixels for WS_EX_CLIENTEDGE on controls. An SS_ICON
// static without SS_CENTERIMAGE or SS_REALSIZECONTROL takes its icon's size. A
// list view without LVS_SHAREIMAGELISTS destroys its image lists with itself.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform.h"

namespace host {

// ---- Bare windows -----------------------------------------------------------------------
struct PostedMessage {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

// A window of the calling thread with no class and no procedure.
HWND createWindow();
// Later calls on the handle fail with ERROR_INVALID_WINDOW_HANDLE. Sends nothing.
void destroyWindow(HWND window);
// Takes every message posted to the window and not yet pumped, oldest first.
std::vector<PostedMessage> takePosted(HWND window);
// Called on the posting thread, outside the window system's lock, for each
// PostMessageW to a window that existed and was destroyed (the post fails as
// before). Null removes it; reset() too.
void onPostToDestroyedWindow(std::function<void(HWND window, UINT message)> hook);

// ---- Message pump, clock and timers -------------------------------------------------------
// Dispatches every message queued for the calling thread's windows, those posted
// while it runs included, and the WM_TIMER of every due timer; messages for
// destroyed windows are dropped. Returns how many it dispatched.
int pumpMessages();
// The longest real time any message waited in a queue before the pump took
// it, since the last call (all threads); starts again from 0.
std::chrono::nanoseconds takeLongestQueueWait();

// The test clock in milliseconds since reset; only advanceClock and Sleep move it.
std::uint64_t clockNow();
// Moves the clock and queues WM_TIMER for each due timer of the calling thread's
// windows: at most one pending per timer, the next period counted from then.
void advanceClock(std::uint64_t milliseconds);

// What GetLocalTime answers from now on; Tuesday, 14 May 2024, 09:30:00.000
// after reset. The test clock doesn't move it.
void setLocalTime(const SYSTEMTIME& time);
// From now on each GetLocalTime answer is this many milliseconds later than
// the one before (within the hour); 0 after reset: the time stands still.
void setLocalTimeStep(WORD milliseconds);
// What GetTimeZoneInformation answers from now on: `bias` minutes (UTC = local
// + bias) and the answer telling which part of the year it is
// (TIME_ZONE_ID_STANDARD adds `standardBias`, TIME_ZONE_ID_DAYLIGHT
// `daylightBias`; TIME_ZONE_ID_INVALID fails with ERROR_INVALID_DATA).
// UTC, TIME_ZONE_ID_UNKNOWN after reset.
void setTimeZone(LONG bias, DWORD answer = TIME_ZONE_ID_UNKNOWN, LONG standardBias = 0,
                 LONG daylightBias = 0);

struct TimerInfo {
    UINT_PTR id;
    UINT period;
    std::uint64_t dueAt;  // clock time of the next WM_TIMER
    bool pending;  // a WM_TIMER is queued and not yet dispatched
};
std::vector<TimerInfo> liveTimers(HWND window);

// ---- Sleep ------------------------------------------------------------------------------
// The arguments of Sleep on the calling thread since reset.
std::vector<DWORD> sleepCalls();
// Called on the sleeping thread after each Sleep has moved the clock, so a test
// scripts what happens between sleeps. Null removes it.
void onSleep(std::function<void(DWORD milliseconds)> hook);

// ---- Keyboard and threads ------------------------------------------------------------------
// What GetKeyState answers for a key; every key is 0 until set.
void setKeyState(int virtualKey, SHORT state);
// Each of these is about the calling thread's own CreateThread calls, since
// the simulated service makes threads of its own meanwhile.
// A non-zero error makes every later CreateThread of this thread fail with it (0: normal).
void failCreateThread(DWORD error);
int createThreadCalls();
// Thread handles this thread's CreateThread gave and CloseHandle has not closed.
int liveThreadHandles();
// Values that threads left in allocated TLS slots when they ended, since reset.
int tlsValuesLeftAtThreadEnd();

// ---- Resources and icons ------------------------------------------------------------------
// The icon resource an icon was loaded from and its size in pixels (0 and {0, 0}
// for a handle that is not a live icon).
int iconResourceId(HICON icon);
SIZE iconSize(HICON icon);
// Icons loaded without LR_SHARED and not yet destroyed.
int liveIcons();

// ---- Reading the screen -------------------------------------------------------------------
std::wstring windowText(HWND window);

struct DeferredMove {
    int controlId;
    int x;
    int y;
    int cx;
    int cy;
    UINT flags;
    bool operator==(const DeferredMove& other) const
    {
        return controlId == other.controlId && x == other.x && y == other.y && cx == other.cx
            && cy == other.cy && flags == other.flags;
    }
};
// The moves of the last successful EndDeferWindowPos, in the order deferred.
std::vector<DeferredMove> lastDeferredMoves();

// ---- Acting as the user ---------------------------------------------------------------------
// Clicks a button: only if it is enabled and visible (its parents too), then
// WM_COMMAND MAKEWPARAM(id, BN_CLICKED) with the button as lParam goes to the
// parent. Returns whether the click happened.
bool click(HWND button);
// Selects a row of an enabled, visible combo box and sends WM_COMMAND
// MAKEWPARAM(id, CBN_SELCHANGE) to the parent. False for a bad row.
bool chooseComboRow(HWND comboBox, int row);

// ---- A property sheet on the calling thread ---------------------------------------------
// For each page: PSPCB_CREATE (a page whose callback answers 0 is not shown),
// then its dialog from the page's template, as a child of the sheet, and
// WM_INITDIALOG with the sheet's copy of the page description. The first shown
// page is visible and enabled. Unlike the platform, every page is created at once.
class PropertySheet {
public:
    explicit PropertySheet(std::vector<HPROPSHEETPAGE> pages);
    ~PropertySheet();
    PropertySheet(const PropertySheet&) = delete;
    PropertySheet& operator=(const PropertySheet&) = delete;

    HWND window() const { return frame_; }
    // The page's dialog; null for a page that was not shown or a closed sheet.
    HWND page(std::size_t index) const;
    // A shown page's tab: the template's caption unless the page has its own title.
    std::vector<std::wstring> tabs() const { return tabs_; }
    // Destroys the dialogs (WM_DESTROY, WM_NCDESTROY), then every page handle
    // (PSPCB_RELEASE), then the sheet's window. Idempotent.
    void close();

private:
    HWND frame_ = nullptr;
    std::vector<HPROPSHEETPAGE> pages_;
    std::vector<HWND> dialogs_;
    std::vector<std::wstring> tabs_;
    bool closed_ = false;
};

}  // namespace host
