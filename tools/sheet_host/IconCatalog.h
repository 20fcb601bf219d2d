// Knows an icon a control shows by comparing its pixels with the module's icon
// resources loaded at the same size; the handles the page loaded are its own.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/sheet_host/Win32.h"

class IconCatalog {
public:
    explicit IconCatalog(HMODULE module);

    // The resource id of the module's icon it shows: 0 for a null icon, -1 for no match.
    int resourceId(HICON icon) const;

private:
    struct Pixels {
        int width = 0;
        int height = 0;
        std::vector<std::uint32_t> colour;
        std::vector<std::uint32_t> mask;
    };
    static bool pixelsOf_(HICON icon, Pixels& out);

    HMODULE module_;
};
