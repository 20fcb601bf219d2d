// The fuzz targets' oracle checks: a broken expectation is a crash, which
// libFuzzer reports and keeps the input of, like any sanitizer finding.
#pragma once

#include <cstdio>
#include <cstdlib>

inline void fuzzCheck(bool ok, const char* what)
{
    if (!ok) {
        std::fprintf(stderr, "fuzz check failed: %s\n", what);
        std::abort();
    }
}
