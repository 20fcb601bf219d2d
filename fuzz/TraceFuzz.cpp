// Formats built of literal text and the conversions the module uses (%d %u
// %llu %g %s %#x %S, with widths and precisions), and their arguments, through
// traceMessage. The line handed over never passes 511 characters: a text that
// fits is handed over as formatted, a longer one is cut to 510 characters and
// a line feed, and one the formatter can't produce at all leaves the format.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Check.h"
#include "FuzzInput.h"
#include "host/HostPlatform.h"
#include "platform.h"
#include "trace/Trace.h"

// Every argument goes in one call with eight 8-byte integer slots and eight
// doubles: the System V x86-64 convention passes integers and pointers of a
// variadic call in 8-byte slots and floating-point values apart, so each
// conversion reads the next slot of its kind, whatever the mix.
static_assert(sizeof(void*) == 8 && sizeof(long long) == 8, "x86-64 host");

namespace {

constexpr std::size_t slots = 8;

struct Arguments {
    std::uint64_t integers[slots] = {};
    double reals[slots] = {};
    std::vector<std::string> narrow;
    std::vector<std::wstring> wide;
};

// The whole text, however long, by the same platform formatter.
int formatAll(std::vector<char>& out, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int written = _vsnprintf(out.data(), out.size() - 1, format, args);
    va_end(args);
    return written;
}

std::string buildFormat(FuzzInput& in, Arguments& args)
{
    std::string format;
    std::size_t integers = 0;
    std::size_t reals = 0;
    args.narrow.reserve(slots);
    args.wide.reserve(slots);
    const std::size_t segments = in.byte() % 25;
    for (std::size_t i = 0; i < segments && !in.empty(); ++i) {
        const std::uint8_t kind = in.byte();
        if (kind < 0x60) {
            std::string text = in.narrowText(80);
            for (char& c : text) {
                c = c == '%' ? '#' : c;
            }
            format += text;
            continue;
        }
        if (kind < 0x68) {
            format += "%%";
            continue;
        }
        const char* const conversions[] = {"d", "u", "llu", "x", "s", "S", "g"};
        const std::string conversion = conversions[kind % std::size(conversions)];
        std::string conversionText = conversion == "x" ? "%#" : "%";
        const std::uint8_t shape = in.byte();
        if ((shape & 0x01) != 0) {
            conversionText += '-';
        }
        if ((shape & 0x02) != 0) {
            conversionText += std::to_string(in.u16() % 700);
        }
        if ((shape & 0x04) != 0) {
            conversionText += '.' + std::to_string(in.byte() % 40);
        }
        if (conversion == "g") {
            if (reals == slots) {
                continue;
            }
            double value = 0;
            const std::uint64_t bits = in.u64();
            std::memcpy(&value, &bits, sizeof value);
            args.reals[reals++] = value;
        } else {
            if (integers == slots) {
                continue;
            }
            if (conversion == "s") {
                args.narrow.push_back(in.narrowText(120));
                args.integers[integers++] = reinterpret_cast<std::uintptr_t>(args.narrow.back().c_str());
            } else if (conversion == "S") {
                args.wide.push_back(in.wideText(120));
                args.integers[integers++] = reinterpret_cast<std::uintptr_t>(args.wide.back().c_str());
            } else {
                args.integers[integers++] = in.u64();
            }
        }
        format += conversionText + conversion;
    }
    return format;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput in(data, size);
    host::clearDebugOutput();
    traceLevel = in.byte() % 6;
    const int level = static_cast<int>(in.byte() % 8) - 1;
    Arguments args;
    const std::string format = buildFormat(in, args);
    const std::uint64_t* g = args.integers;
    const double* r = args.reals;

    traceMessage(level, format.c_str(), g[0], g[1], g[2], g[3], g[4], g[5], g[6], g[7], r[0], r[1], r[2],
                 r[3], r[4], r[5], r[6], r[7]);
    const std::vector<std::string> lines = host::debugOutput();
    if (level > traceLevel) {
        fuzzCheck(lines.empty(), "a line above the level is not written");
        return 0;
    }
    fuzzCheck(lines.size() == 1, "a line is handed over in one call");

    std::vector<char> full(1 << 16);
    const int written = formatAll(full, format.c_str(), g[0], g[1], g[2], g[3], g[4], g[5], g[6], g[7], r[0],
                                  r[1], r[2], r[3], r[4], r[5], r[6], r[7]);
    const std::string text
        = written >= 0 ? std::string(full.data(), static_cast<std::size_t>(written)) : format;
    const std::string expected = text.size() <= 511 ? text : text.substr(0, 510) + "\n";
    fuzzCheck(lines[0].size() <= 511, "a line never passes 511 characters");
    if (lines[0] != expected) {
        std::fprintf(stderr, "format: [%s]\ntraced: [%s]\nexpected: [%s]\n", format.c_str(), lines[0].c_str(),
                     expected.c_str());
    }
    fuzzCheck(lines[0] == expected, "the line is the text, cut to 510 characters and a line feed");
    host::clearDebugOutput();
    return 0;
}
