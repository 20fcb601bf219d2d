// Text conversions of the sheet host: UTF-8 for its output and scenario files,
// and the quoted form in which it prints a control's text.
#pragma once

#include <string>

std::string narrow(const std::wstring& text);
std::wstring widen(const std::string& text);
// "text" with backslash, quote, tab and line breaks escaped, in UTF-8.
std::string quoted(const std::wstring& text);
