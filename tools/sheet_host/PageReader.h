// Reads the diagnostics page back through Win32 as a person would see it and
// writes it as stable text: the link and health groups, the cable controls,
// the list's lines with their images, which controls are enabled or shown, and
// which texts their control cuts.
#pragma once

#include <string>
#include <vector>

#include "tools/sheet_host/IconCatalog.h"
#include "tools/sheet_host/Win32.h"

class PageReader {
public:
    explicit PageReader(HMODULE module);

    // One line per fact, each starting with two blanks.
    std::vector<std::string> read(HWND page) const;
    // The list's lines as "image text", for waiting on a line.
    static std::vector<std::wstring> listLines(HWND page);

private:
    std::string icon_(HWND page, int id) const;

    IconCatalog icons_;
};
