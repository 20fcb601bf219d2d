// The diagnostics page as the sheet host prints it: the page reader's text, its
// icons known by their pixels, and which visible texts their static cuts with the
// real fonts.
#pragma once

#include <string>
#include <vector>

#include "tools/page_reader/PageScreen.h"
#include "tools/sheet_host/IconCatalog.h"
#include "tools/sheet_host/Win32.h"

class PageReader {
public:
    explicit PageReader(HMODULE module);

    PageScreen screen(HWND page) const;
    // One line per fact, each starting with two blanks.
    std::vector<std::string> read(HWND page) const;

private:
    IconCatalog icons_;
};

// The title of a property sheet's tab; "?" if it has none.
std::wstring sheetTabTitle(HWND sheet, int index);
