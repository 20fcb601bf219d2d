// Names an icon a control shows by comparing its pixels with the module's icon
// resources loaded at the same size; the handles the page loaded are its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/sheet_host/Win32.h"

class IconCatalog {
public:
    explicit IconCatalog(HMODULE module);

    // The resource's name ("lamp_ok", ...), "none" for a null icon, "other" for no match.
    std::string name(HICON icon) const;

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
