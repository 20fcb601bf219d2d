// Test-side windows of the host platform layer: create a window, read what was
// posted to it, and hand the posts to a window procedure as a pump would.
#pragma once

#include <vector>

#include "platform.h"

namespace host {

struct PostedMessage {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

HWND createWindow();
// Later calls on the handle fail with ERROR_INVALID_WINDOW_HANDLE.
void destroyWindow(HWND window);
// Takes every message posted to the window so far, oldest first.
std::vector<PostedMessage> takePosted(HWND window);
// SetWindowLongW answers 0 with this error from now on (0: normal behaviour).
void failSetWindowLong(DWORD error);

}  // namespace host
