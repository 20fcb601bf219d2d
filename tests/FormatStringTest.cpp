#include "trace/FormatString.h"

#include <gtest/gtest.h>

#include "host/HostPlatform.h"

namespace {

TEST(FormatString, textOfAnyLength)
{
    struct Case {
        const char* what;
        std::wstring expected;
        std::wstring actual;
    };
    const std::wstring longName(300, L'x');
    const Case cases[] = {
        {"empty format", L"", formatString(L"")},
        {"no conversion", L"Approx cable length", formatString(L"Approx cable length")},
        {"wide %s", L"Pair A: Open", formatString(L"Pair %s: %s", L"A", L"Open")},
        {"much longer", L"<" + longName + L">", formatString(L"<%s>", longName.c_str())},
        {"numbers", L"-1 4294967295 1.5 0.001", formatString(L"%d %u %g %g", -1, 4294967295U, 1.5, 0.001)},
        {"percent", L"100%", formatString(L"%d%%", 100)},
        {"exactly twice the format", L"abcdefgh", formatString(L"%s%s", L"abcd", L"efgh")},
        {"one past twice the format", L"abcdefghi", formatString(L"%s%s", L"abcd", L"efghi")},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.actual, c.expected) << c.what;
    }
}

TEST(FormatString, growsByTheFormattersAnswer)
{
    struct Case {
        const char* what;
        std::wstring (*format)();
        long passes;
    };
    const Case cases[] = {
        {"empty format: size 0, then 1", [] { return formatString(L""); }, 2},
        {"fits twice the format", [] { return formatString(L"Pair %s", L"A"); }, 1},
        // 11 units: 22 is too short for 39, the doubled 44 fits.
        {"doubles after a negative answer",
         [] { return formatString(L"Pair %s: %s", std::wstring(32, L'x').c_str(), L""); }, 2},
        // 8 units: a text of exactly 16 leaves no room for the zero.
        {"a text as long as the buffer goes once more",
         [] { return formatString(L"%s%s%s%s", std::wstring(16, L'y').c_str(), L"", L"", L""); }, 2},
    };
    for (const auto& c : cases) {
        const long before = host::wideFormatterCalls();
        const std::wstring text = c.format();
        EXPECT_EQ(host::wideFormatterCalls() - before, c.passes) << c.what;
        EXPECT_FALSE(text.empty() && c.passes == 1) << c.what;
    }
}

}  // namespace
