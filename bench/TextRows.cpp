// Rows of the trace and of the wide text formatter: the time of a suppressed
// line against an empty call, their allocations, and formatString's
// allocations and passes for lines of the results list.
#include <benchmark/benchmark.h>

#include <cstdarg>
#include <string>
#include <vector>

#include "Allocations.h"
#include "EmptyCall.h"
#include "Rows.h"
#include "Timing.h"
#include "host/HostPlatform.h"
#include "platform.h"
#include "trace/FormatString.h"
#include "trace/Trace.h"

namespace {

const wchar_t* const pairLetter = L"A";
const wchar_t* const pairGood = L"Good";
const wchar_t* const pairCrossed = L"Connected to pair D (cross-wired)";

// A suppressed statement as the module writes them: traceLevel is 0.
void suppressedLine(int from, int to)
{
    ZT_TRACE(3, "ZtNic: media state changed %d -> %d", from, to);
}

// An enabled line of typical length, as ZT_TRACE spells the cable test's:
// the same format goes to the host layer's functions alone below, so that
// their share of the allocations can be told from the module's.
const char* const enabledFormat
    = "got pair %S result: status %u, distance %u, farthest distance %u @parseDiagResult+85\n";

void enabledLine(const wchar_t* pair, unsigned status, unsigned distance, unsigned farthest)
{
    traceMessage(1, enabledFormat, pair, status, distance, farthest);
}

void emptyCallBench(benchmark::State& state)
{
    int from = 1;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(from);
        emptyTraceCall(3, "ZtNic: media state changed %d -> %d", from, 2);
    }
}
BENCHMARK(emptyCallBench)->Repetitions(5);

void suppressedTraceBench(benchmark::State& state)
{
    traceLevel = 0;
    int from = 1;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(from);
        ZT_TRACE(3, "ZtNic: media state changed %d -> %d", from, 2);
    }
}
BENCHMARK(suppressedTraceBench)->Repetitions(5);

void enabledTraceBench(benchmark::State& state)
{
    traceLevel = 5;
    unsigned n = 0;
    while (state.KeepRunning()) {
        enabledLine(pairLetter, 1, 3, 18);
        if ((++n & 1023U) == 0) {
            host::clearDebugOutput();  // the host layer keeps every line for tests
        }
    }
    traceLevel = 0;
    host::clearDebugOutput();
}
BENCHMARK(enabledTraceBench)->Repetitions(5);

void formatPairBench(benchmark::State& state)
{
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(formatString(L"Pair %s: %s", pairLetter, pairGood));
    }
}
BENCHMARK(formatPairBench)->Repetitions(5);

void formatLengthBench(benchmark::State& state)
{
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(formatString(L"Approx cable length: %d meters", 115));
    }
}
BENCHMARK(formatLengthBench)->Repetitions(5);

// What the host layer's two functions allocate for one line: the formatter's
// format and text strings, and the copy the layer keeps of each line.
long standInTraceAllocations(const char* format, ...)
{
    char line[512];
    va_list args;
    va_start(args, format);
    const long count = allocationsDuring([&] { _vsnprintf(line, sizeof line - 1, format, args); });
    va_end(args);
    line[sizeof line - 1] = '\0';
    return count + allocationsDuring([&] { OutputDebugStringA(line); });
}

// What the host layer's wide formatter allocates in one pass.
long standInFormatterAllocations(std::size_t units, const wchar_t* format, ...)
{
    std::vector<wchar_t> buffer(units + 1);
    va_list args;
    va_start(args, format);
    const long count = allocationsDuring([&] { _vsnwprintf(buffer.data(), units, format, args); });
    va_end(args);
    return count;
}

struct Formatted {
    long allocations;
    long passes;
};

template <typename Call> Formatted measureFormat(Call&& call)
{
    const long passesBefore = host::wideFormatterCalls();
    const long allocations = allocationsDuring(call);
    return {allocations, host::wideFormatterCalls() - passesBefore};
}

std::vector<Row> traceRows()
{
    traceLevel = 0;
    const double empty = nanosecondsPerIteration("emptyCallBench");
    const double suppressed = nanosecondsPerIteration("suppressedTraceBench");
    const double enabled = nanosecondsPerIteration("enabledTraceBench");
    const double ratio = suppressed / empty;

    constexpr int calls = 1000;
    const long suppressedAllocations = allocationsDuring([] {
        for (int i = 0; i < calls; ++i) {
            suppressedLine(i, 2);
        }
    });
    traceLevel = 5;
    host::clearDebugOutput();
    const long enabledAllocations = allocationsDuring([] { enabledLine(pairLetter, 1, 3, 18); });
    const std::string line = host::debugOutput().at(0);
    traceLevel = 0;
    const long standIn = standInTraceAllocations(enabledFormat, pairLetter, 1U, 3U, 18U);
    host::clearDebugOutput();

    return {
        {"traceMessage, suppressed line (level 3 of 0) vs empty call",
         fixed(suppressed, 2) + " ns vs " + fixed(empty, 2) + " ns = " + fixed(ratio, 2) + "x", "<= 2x",
         verdict(ratio <= 2.0), ""},
        {"traceMessage, suppressed line: heap allocations",
         fixed(static_cast<double>(suppressedAllocations) / calls, 2) + " per line", "0",
         verdict(suppressedAllocations == 0), ""},
        {"traceMessage, enabled line of " + std::to_string(line.size()) + " characters",
         fixed(enabled, 0) + " ns", "", "",
         "the host layer's stand-in formatter and its line store, not the module, take most of the time"},
        {"traceMessage, enabled line: heap allocations",
         std::to_string(enabledAllocations) + " (module " + std::to_string(enabledAllocations - standIn)
             + ", host layer " + std::to_string(standIn) + ")",
         "0 (module)", verdict(enabledAllocations - standIn == 0),
         "the host layer's _vsnprintf builds strings and OutputDebugStringA keeps a copy of each line"},
    };
}

std::vector<Row> formatRows()
{
    std::vector<Row> rows;
    struct Case {
        std::string what;
        std::wstring format;
        Formatted measured;
        long standInPerPass;
        double nanoseconds;
        long goal;
        bool hasGoal;
    };
    const std::wstring pairFormat = L"Pair %s: %s";
    const std::wstring lengthFormat = L"Approx cable length: %d meters";
    std::vector<Case> cases = {
        {"formatString L\"Pair %s: %s\" (\"Pair A: Good\")", pairFormat,
         measureFormat([&] { formatString(pairFormat, pairLetter, pairGood); }),
         standInFormatterAllocations(2 * pairFormat.size(), pairFormat.c_str(), pairLetter, pairGood),
         nanosecondsPerIteration("formatPairBench"), 1, true},
        {"formatString L\"Approx cable length: %d meters\" (115)", lengthFormat,
         measureFormat([&] { formatString(lengthFormat, 115); }),
         standInFormatterAllocations(2 * lengthFormat.size(), lengthFormat.c_str(), 115),
         nanosecondsPerIteration("formatLengthBench"), 1, true},
        {"formatString L\"Pair %s: %s\", 41 units (past twice the format)", pairFormat,
         measureFormat([&] { formatString(pairFormat, pairLetter, pairCrossed); }),
         standInFormatterAllocations(2 * pairFormat.size(), pairFormat.c_str(), pairLetter, pairCrossed),
         -1.0, 2, false},
    };
    for (const Case& c : cases) {
        const long module = c.measured.allocations - c.measured.passes * c.standInPerPass;
        std::string measured = std::to_string(module) + " per call, " + std::to_string(c.measured.passes)
            + (c.measured.passes == 1 ? " pass" : " passes");
        if (c.nanoseconds >= 0) {
            measured += ", " + fixed(c.nanoseconds, 0) + " ns";
        }
        rows.push_back({c.what, measured, c.hasGoal ? std::to_string(c.goal) + " per call" : "",
                        c.hasGoal ? verdict(module <= c.goal) : "",
                        "the host layer's formatter adds " + std::to_string(c.standInPerPass)
                            + " allocations per pass, not counted"
                            + (c.hasGoal ? "" : "; one allocation per pass by design")});
    }
    return rows;
}

const RowGroup traceGroup("10 trace", traceRows);
const RowGroup formatGroup("20 format", formatRows);

}  // namespace
