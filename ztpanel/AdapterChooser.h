// ztpanel's chooser: the adapters, one a row, the first selected; Open, Enter
// or a double click takes the selected row, Cancel or the close box none.
#pragma once

#include <string>
#include <vector>

#include "platform.h"

struct AdapterChoice {
    int row = -1;  // -1: none chosen
    DWORD error = 0;  // the dialog couldn't be shown: the platform's code
};

// Modal on the calling thread; the dialog is `instance`'s IDD_CHOOSER.
AdapterChoice chooseAdapter(HINSTANCE instance, const std::vector<std::wstring>& rows);
