// A device's property sheet as Device Manager shows one: titled "NAME Properties",
// modeless, on the thread that opens it, whose messages pumpQueued() or
// runUntilClosed() handle. The sheet takes its pages, whether it opens or not.
// Used on the thread that made it.
#pragma once

#include <string>
#include <vector>

#include "platform.h"

class DeviceSheet {
public:
    DeviceSheet(const std::wstring& deviceName, std::vector<HPROPSHEETPAGE> pages, UINT startPage);
    ~DeviceSheet();  // close()
    DeviceSheet(const DeviceSheet&) = delete;
    DeviceSheet& operator=(const DeviceSheet&) = delete;

    // Null if PropertySheetW failed (error() tells why) or once closed.
    HWND window() const { return sheet_; }
    DWORD error() const { return error_; }
    // Handles the messages queued now; false once the user has ended the sheet
    // (OK, Cancel, the close box) or it is closed: then close() is due.
    bool pumpQueued();
    // Handles messages until the user ends the sheet, then closes it.
    void runUntilClosed();
    // Presses OK, as a sheet's end does, and destroys the sheet with its pages.
    void close();

private:
    bool ended_() const;

    HWND sheet_ = nullptr;
    DWORD error_ = 0;
};
