// Text conversions of the sheet host: UTF-8 for its output and scenario files,
// and the quoted form in which it prints a control's text (the page reader's).
#pragma once

#include <string>

#include "tools/page_reader/PageText.h"

std::wstring widen(const std::string& text);
