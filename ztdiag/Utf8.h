// Wide text (UTF-16 on Windows, UTF-32 on the host) to UTF-8 and back, for the
// JSON library and redirected output. Anything that isn't a whole character
// (a lone surrogate, a broken sequence) becomes U+FFFD.
#pragma once

#include <string>

std::string toUtf8(const std::wstring& text);
std::wstring fromUtf8(const std::string& text);
