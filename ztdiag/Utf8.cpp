#include "ztdiag/Utf8.h"

namespace {

constexpr char32_t replacement = 0xFFFD;
constexpr bool wideIsUtf16 = sizeof(wchar_t) == 2;

bool isSurrogate(char32_t c)
{
    return c >= 0xD800 && c <= 0xDFFF;
}

void appendUtf8(std::string& out, char32_t c)
{
    if (c > 0x10FFFF || isSurrogate(c)) {
        c = replacement;
    }
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

void appendWide(std::wstring& out, char32_t c)
{
    if (wideIsUtf16 && c >= 0x10000) {
        c -= 0x10000;
        out += static_cast<wchar_t>(0xD800 + (c >> 10));
        out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
    } else {
        out += static_cast<wchar_t>(c);
    }
}

// The length of a sequence by its first byte, 0 for a byte that can't start one.
std::size_t sequenceLength(unsigned char first)
{
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return 2;
    }
    if (first >= 0xE0 && first <= 0xEF) {
        return 3;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        return 4;
    }
    return 0;
}

}  // namespace

std::string toUtf8(const std::wstring& text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<char32_t>(text[i]);
        if (wideIsUtf16 && c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size()) {
            const auto low = static_cast<char32_t>(text[i + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        appendUtf8(out, c);
    }
    return out;
}

std::wstring fromUtf8(const std::string& text)
{
    std::wstring out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        const auto first = static_cast<unsigned char>(text[i]);
        const std::size_t length = sequenceLength(first);
        if (length == 0 || i + length > text.size()) {
            appendWide(out, replacement);
            ++i;
            continue;
        }
        char32_t c = length == 1 ? first : first & (0x7F >> length);
        bool whole = true;
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                whole = false;
                break;
            }
            c = (c << 6) | (next & 0x3F);
        }
        const bool overlong = (length == 3 && c < 0x800) || (length == 4 && c < 0x10000);
        if (!whole || overlong || c > 0x10FFFF || isSurrogate(c)) {
            appendWide(out, replacement);
            ++i;
            continue;
        }
        appendWide(out, c);
        i += length;
    }
    return out;
}
