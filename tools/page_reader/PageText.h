// The page as stable text, one fact a line, as the sheet host prints it, and the
// UTF-8 forms of wide texts it prints them in.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tools/page_reader/PageScreen.h"

// UTF-8 of a wide text, whichever width the build's wchar_t has.
std::string narrow(const std::wstring& text);
// "text" with backslash, quote, tab and line breaks escaped, in UTF-8.
std::string quoted(const std::wstring& text);

// The module's icons, with the names the text gives them.
struct IconName {
    int resourceId;
    const char* name;
};
const std::vector<IconName>& moduleIcons();
// The name of a module icon by resource id: "none" for 0, "other" for no match.
std::string iconName(int resourceId);

// Each line starts with two blanks: the link and health groups, the detail line,
// the category controls, the run button, then the list's lines with their images.
std::vector<std::string> describePage(const PageScreen& screen);

// `image "text"`, for test messages.
std::ostream& operator<<(std::ostream& out, const ListLine& line);
