// A property sheet with the diagnostics page on a simulated adapter, driven and
// read back the way a user would: clicks, picks, timer ticks, and what the
// controls show. Runs on the thread that makes it (the dialog's thread).
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/HostWindows.h"
#include "platform.h"

// One line of the results list: its text and the image before it.
struct ListLine {
    std::wstring text;
    int image;
    bool operator==(const ListLine& other) const { return text == other.text && image == other.image; }
};
std::ostream& operator<<(std::ostream& out, const ListLine& line);

// Everything the page shows, read through the platform's own calls.
struct PageScreen {
    std::wstring linkStatus;
    std::wstring speed;
    int linkIcon = 0;  // resource id of the icon shown, 0 for none
    std::wstring temperature;
    int healthIcon = 0;
    std::wstring detail;
    bool detailVisible = false;
    std::vector<ListLine> lines;
    bool runEnabled = false;
    bool categoryLabelEnabled = false;
    bool categoryEnabled = false;
    std::wstring category;  // the selected row's text, empty for none
};

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
