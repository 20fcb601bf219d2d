// What the diagnostics page shows, read back through the platform's window calls
// alone, in both builds: the tests compare it, the sheet host prints it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform.h"

// One line of the results list: its text and the index of the image before it.
struct ListLine {
    std::wstring text;
    int image = -1;
    bool operator==(const ListLine& other) const { return text == other.text && image == other.image; }
};

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
    std::vector<std::wstring> categoryRows;
    std::wstring category;  // the selected row's text, empty for none
};

// The module's resource id of an icon a static shows: 0 for none, -1 for one that is
// none of the module's. Each build knows its icons its own way.
using IconIdentifier = std::function<int(HICON)>;

PageScreen readPageScreen(HWND page, const IconIdentifier& identifyIcon);

// A window's whole text.
std::wstring windowText(HWND window);
