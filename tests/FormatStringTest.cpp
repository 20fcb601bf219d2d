#include "trace/FormatString.h"

#include <gtest/gtest.h>

#include <tuple>

#include "host/HostPlatform.h"

namespace {

TEST(FormatString, textOfAnyLengthInAsFewPassesAsTheFormattersAnswersAsk)
{
    // what, the formatting, its text, the formatter's passes
    const std::tuple<const char*, std::wstring (*)(), std::wstring, long> cases[] = {
        {"empty format: size 0, then 1", [] { return formatString(L""); }, L"", 2},
        {"no conversion", [] { return formatString(L"Approx cable length"); }, L"Approx cable length", 1},
        {"wide %s", [] { return formatString(L"Pair %s: %s", L"A", L"Open"); }, L"Pair A: Open", 1},
        {"much longer", [] { return formatString(L"<%s>", std::wstring(300, L'x').c_str()); },
         L"<" + std::wstring(300, L'x') + L">", 7},
        {"numbers", [] { return formatString(L"%d %u %g %g", -1, 4294967295U, 1.5, 0.001); },
         L"-1 4294967295 1.5 0.001", 2},
        {"percent", [] { return formatString(L"%d%%", 100); }, L"100%", 1},
        {"fits twice the format", [] { return formatString(L"Pair %s", L"A"); }, L"Pair A", 1},
        {"exactly twice the format", [] { return formatString(L"%s%s", L"abcd", L"efgh"); }, L"abcdefgh", 2},
        {"one past twice the format", [] { return formatString(L"%s%s", L"abcd", L"efghi"); }, L"abcdefghi",
         2},
        // 11 units: 22 is too short for 39, the doubled 44 fits.
        {"doubles after a negative answer",
         [] { return formatString(L"Pair %s: %s", std::wstring(32, L'x').c_str(), L""); },
         L"Pair " + std::wstring(32, L'x') + L": ", 2},
        // 8 units: a text of exactly 16 leaves no room for the zero.
        {"a text as long as the buffer goes once more",
         [] { return formatString(L"%s%s%s%s", std::wstring(16, L'y').c_str(), L"", L"", L""); },
         std::wstring(16, L'y'), 2},
    };
    for (const auto& [what, format, expected, passes] : cases) {
        const long before = host::wideFormatterCalls();
        EXPECT_EQ(format(), expected) << what;
        EXPECT_EQ(host::wideFormatterCalls() - before, passes) << what;
    }
}

}  // namespace
