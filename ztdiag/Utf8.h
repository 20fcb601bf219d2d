// Wide text (UTF-16 on Windows, UTF-32 on the host) to UTF-8 and back, for the
// JSON library and redirected output. A surrogate pair is one character; a lone
// surrogate half becomes U+FFFD, and so does each byte that starts no whole
// UTF-8 character (a broken or overlong sequence, an encoded surrogate).
#pragma once

#include <string>

std::string toUtf8(const std::wstring& text);
std::wstring fromUtf8(const std::string& text);
