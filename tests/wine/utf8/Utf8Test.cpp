// The text conversions' cases on Windows' 16-bit wide text: a line for each
// failure, exit 1 on any.
#include <cstdio>

#include "Utf8Cases.h"

static_assert(sizeof(wchar_t) == 2, "the Windows build's wide text");

int main()
{
    const std::vector<std::string> failures = utf8Failures();
    for (const std::string& failure : failures) {
        std::printf("FAILED %s\n", failure.c_str());
    }
    std::printf("%zu failed\n", failures.size());
    return failures.empty() ? 0 : 1;
}
