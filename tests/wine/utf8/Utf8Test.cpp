// The console tool's text conversions on Windows' 16-bit wide text, which the
// host build (32-bit wchar_t) never sees: surrogate pairs join into one
// character, a lone surrogate half becomes U+FFFD, and UTF-8 comes back as
// pairs. A plain program: one line per failure, then the counts; exit 1 on any.
#include "ztdiag/Utf8.h"

#include <cstdio>
#include <string>

namespace {

static_assert(sizeof(wchar_t) == 2, "the Windows build's wide text");

int passed = 0;
int failed = 0;

std::string hex(const std::string& bytes)
{
    std::string out;
    char unit[16];
    for (const char c : bytes) {
        std::snprintf(unit, sizeof unit, "%02X ", static_cast<unsigned>(static_cast<unsigned char>(c)));
        out += unit;
    }
    return out;
}

std::string hex(const std::wstring& units)
{
    std::string out;
    char unit[16];
    for (const wchar_t c : units) {
        std::snprintf(unit, sizeof unit, "%04X ", static_cast<unsigned>(c));
        out += unit;
    }
    return out;
}

template <typename Text> void check(const char* what, const Text& got, const Text& expected)
{
    if (got == expected) {
        ++passed;
        return;
    }
    ++failed;
    std::printf("FAILED %s: got %s, expected %s\n", what, hex(got).c_str(), hex(expected).c_str());
}

}  // namespace

int main()
{
    struct ToUtf8 {
        const char* what;
        std::wstring wide;
        std::string utf8;
    };
    const ToUtf8 toCases[] = {
        {"ASCII", L"A", "A"},
        {"two bytes", L"\x00E9", "\xC3\xA9"},
        {"three bytes", L"\x20AC", "\xE2\x82\xAC"},
        {"U+1F600 as a pair", L"\xD83D\xDE00", "\xF0\x9F\x98\x80"},
        {"U+10000, the first pair", L"\xD800\xDC00", "\xF0\x90\x80\x80"},
        {"U+10FFFF, the last pair", L"\xDBFF\xDFFF", "\xF4\x8F\xBF\xBF"},
        {"a pair between text", L"a\xD83D\xDE00z", "a\xF0\x9F\x98\x80z"},
        {"a high half at the end", L"a\xD83D", "a\xEF\xBF\xBD"},
        {"a high half before text",
         L"\xD83D"
         L"A",
         "\xEF\xBF\xBD"
         "A"},
        {"a low half alone", L"\xDE00", "\xEF\xBF\xBD"},
        {"halves the wrong way round", L"\xDE00\xD83D", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"a high half, then a pair", L"\xD83D\xD83D\xDE00", "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
        {"U+FFFD itself", L"\xFFFD", "\xEF\xBF\xBD"},
    };
    for (const auto& c : toCases) {
        check(c.what, toUtf8(c.wide), c.utf8);
    }

    struct FromUtf8 {
        const char* what;
        std::string utf8;
        std::wstring wide;
    };
    const std::wstring bad = L"\xFFFD";
    const FromUtf8 fromCases[] = {
        {"back: U+1F600", "\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
        {"back: U+10000", "\xF0\x90\x80\x80", L"\xD800\xDC00"},
        {"back: U+10FFFF", "\xF4\x8F\xBF\xBF", L"\xDBFF\xDFFF"},
        {"back: a pair between text", "a\xF0\x9F\x98\x80z", L"a\xD83D\xDE00z"},
        // One U+FFFD for each byte that starts no whole character.
        {"a surrogate half's own encoding", "\xED\xA0\xBD", bad + bad + bad},
        {"a pair encoded half by half", "\xED\xA0\xBD\xED\xB8\x80", bad + bad + bad + bad + bad + bad},
        {"past U+10FFFF", "\xF4\x90\x80\x80", bad + bad + bad + bad},
        {"a four-byte character cut short",
         "\xF0\x9F\x98"
         "A",
         bad + bad + bad + L"A"},
        {"an overlong U+1F600", "\xF8\x88\x9F\x98\x80", bad + bad + bad + bad + bad},
    };
    for (const auto& c : fromCases) {
        check(c.what, fromUtf8(c.utf8), c.wide);
    }

    const std::wstring whole = L"Pair B \x00E9\x20AC\xD83D\xDE00\xDBFF\xDFFF end";
    check("a round trip", fromUtf8(toUtf8(whole)), whole);

    std::printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
