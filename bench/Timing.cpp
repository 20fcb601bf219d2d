#include "Timing.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace {

// Keeps each run's time instead of printing it.
class Capture : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
                best = std::min(best, run.GetAdjustedRealTime());
            }
        }
    }
    double best = std::numeric_limits<double>::infinity();
};

}  // namespace

double nanosecondsPerIteration(const std::string& name)
{
    Capture capture;
    const std::size_t ran = benchmark::RunSpecifiedBenchmarks(&capture, "^" + name + "(/|$)");
    return ran == 0 ? -1.0 : capture.best;  // the benchmarks below report in nanoseconds
}
