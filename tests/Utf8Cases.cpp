#include "Utf8Cases.h"

#include <cstdio>
#include <type_traits>

#include "ztdiag/Utf8.h"

namespace {

// These UTF-16 units as the platform's wide text holds them: as they are on
// Windows; where wchar_t is 32-bit, a pair is its one character.
std::wstring wide(const std::u16string& units)
{
    std::wstring text;
    for (std::size_t i = 0; i < units.size(); ++i) {
        char32_t c = units[i];
        const bool pair = c >= 0xD800 && c <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00
            && units[i + 1] <= 0xDFFF;
        if (sizeof(wchar_t) == 4 && pair) {
            c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
        }
        text += static_cast<wchar_t>(c);
    }
    return text;
}

// Each unit in hex: two digits for a byte, four for a wide unit.
template <typename Text> std::string hex(const Text& units)
{
    std::string out;
    char unit[16];
    for (const auto c : units) {
        using Unsigned = std::make_unsigned_t<typename Text::value_type>;
        std::snprintf(unit, sizeof unit, "%0*X ", sizeof c == 1 ? 2 : 4,
                      static_cast<unsigned>(static_cast<Unsigned>(c)));
        out += unit;
    }
    return out;
}

template <typename Text>
void check(std::vector<std::string>& failures, const char* what, const Text& got, const Text& expected)
{
    if (got != expected) {
        failures.push_back(std::string(what) + ": got " + hex(got) + ", expected " + hex(expected));
    }
}

}  // namespace

std::vector<std::string> utf8Failures()
{
    std::vector<std::string> failures;
    const struct {
        const char* what;
        std::u16string wide;
        std::string utf8;
    } toCases[] = {
        {"ASCII", u"A", "A"},
        {"U+0080, the first of two bytes", u"\x0080", "\xC2\x80"},
        {"two bytes", u"\x00E9", "\xC3\xA9"},
        {"the first of three bytes", u"\x0800", "\xE0\xA0\x80"},
        {"three bytes", u"\x20AC", "\xE2\x82\xAC"},
        {"U+1F600 as a pair", u"\xD83D\xDE00", "\xF0\x9F\x98\x80"},
        {"U+10000, the first pair", u"\xD800\xDC00", "\xF0\x90\x80\x80"},
        {"U+10FFFF, the last pair", u"\xDBFF\xDFFF", "\xF4\x8F\xBF\xBF"},
        {"a pair between text", u"a\xD83D\xDE00z", "a\xF0\x9F\x98\x80z"},
        {"a high half at the end", u"a\xD83D", "a\xEF\xBF\xBD"},
        {"a high half before text", u"\xD83Dz", "\xEF\xBF\xBDz"},
        {"a low half alone", u"\xDE00", "\xEF\xBF\xBD"},
        {"a low half after text", u"a\xDE00", "a\xEF\xBF\xBD"},
        {"halves the wrong way round", u"\xDE00\xD83D", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"a high half, then a pair", u"\xD83D\xD83D\xDE00", "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
        {"U+FFFD itself", u"\xFFFD", "\xEF\xBF\xBD"},
    };
    for (const auto& c : toCases) {
        check(failures, c.what, toUtf8(wide(c.wide)), c.utf8);
    }

    const std::u16string bad = u"\xFFFD";
    const struct {
        const char* what;
        std::string utf8;
        std::u16string wide;
    } fromCases[] = {
        {"back: U+0080 and U+07FF, the ends of two bytes", "\xC2\x80\xDF\xBF", u"\x0080\x07FF"},
        {"back: U+0800", "\xE0\xA0\x80", u"\x0800"},
        {"back: U+FF21, led by the last byte of three", "\xEF\xBC\xA1", u"\xFF21"},
        {"back: U+1F600", "\xF0\x9F\x98\x80", u"\xD83D\xDE00"},
        {"back: U+10000", "\xF0\x90\x80\x80", u"\xD800\xDC00"},
        {"back: U+10FFFF", "\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},
        {"back: a pair between text", "a\xF0\x9F\x98\x80z", u"a\xD83D\xDE00z"},
        // One U+FFFD for each byte that starts no whole character.
        {"a byte that starts none", "\xFF", bad},
        {"a surrogate half's own encoding", "\xED\xA0\xBD", bad + bad + bad},
        {"a pair encoded half by half", "\xED\xA0\xBD\xED\xB8\x80", bad + bad + bad + bad + bad + bad},
        {"past U+10FFFF", "\xF4\x90\x80\x80", bad + bad + bad + bad},
        {"a four-byte character cut short", "\xF0\x9F\x98z", bad + bad + bad + u"z"},
        {"an overlong U+0080", "\xE0\x82\x80", bad + bad + bad},
        {"an overlong U+0800", "\xF0\x80\xA0\x80", bad + bad + bad + bad},
        {"an overlong U+1F600", "\xF8\x88\x9F\x98\x80", bad + bad + bad + bad + bad},
    };
    for (const auto& c : fromCases) {
        check(failures, c.what, fromUtf8(c.utf8), wide(c.wide));
    }

    const std::wstring whole = wide(u"Pair B \x00E9\x20AC\xD83D\xDE00\xDBFF\xDFFF end");
    check(failures, "a round trip", fromUtf8(toUtf8(whole)), whole);
    return failures;
}
