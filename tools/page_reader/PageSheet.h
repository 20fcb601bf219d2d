// A property sheet with the diagnostics page on a simulated adapter, driven the
// way a user would (clicks, picks, timer ticks) and read back by the page reader.
// Runs on the thread that makes it (the dialog's thread).
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "host/HostWindows.h"
#include "platform.h"
#include "tools/page_reader/PageScreen.h"
#include "tools/page_reader/PageText.h"

// Device `devInst` of the host's device list as the co-installer reads it: a
// listed hardware id, `name` as its friendly name, working (problem code 0).
SP_DEVINFO_DATA workingZtDevice(DWORD devInst, const std::wstring& name);

class PageSheet {
public:
    // Asks the co-installer for the pages of the device and opens them in a sheet.
    PageSheet(HDEVINFO deviceInfoSet, SP_DEVINFO_DATA& device);
    ~PageSheet();
    PageSheet(const PageSheet&) = delete;
    PageSheet& operator=(const PageSheet&) = delete;

    DWORD installResult() const { return installResult_; }
    HWND page() const { return page_; }
    HWND control(int id) const { return GetDlgItem(page_, id); }
    PageScreen screen() const;

    // Dispatches what is queued for the dialog's thread.
    void pump();
    // Pumps until `done` or the (real) time runs out; false on timeout.
    bool pumpUntil(const std::function<bool()>& done,
                   std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // One period of the temperature timer on the test clock.
    void tick();
    void click(int id);
    void chooseCategory(int row);
    // Closes the sheet: the dialog goes, then the page is released.
    void close();

private:
    DWORD installResult_ = 0;
    std::unique_ptr<host::PropertySheet> sheet_;
    HWND page_ = nullptr;
};
