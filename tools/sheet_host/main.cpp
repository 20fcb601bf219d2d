// sheet_host: shows ztprop.dll's pages for a simulated adapter in a real
// property sheet and reads them back. See tools/sheet_host/README.md.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tools/sheet_host/Linger.h"
#include "tools/sheet_host/LoaderLock.h"
#include "tools/sheet_host/Output.h"
#include "tools/sheet_host/Scenario.h"
#include "tools/sheet_host/SheetHost.h"
#include "tools/sheet_host/Watchdog.h"
#include "tools/sheet_host/Win32.h"

namespace {

// A later round's summary: what the rounds are for.
std::string summary(const SheetHost::Outcome& outcome)
{
    return std::string("dll ") + (outcome.unloaded ? "unloaded" : "still loaded")
        + ", threads ended, under the loader lock " + std::to_string(outcome.serviceCallsUnderLoaderLock)
        + " service calls and " + std::to_string(outcome.comCallsUnderLoaderLock) + " COM calls, objects "
        + std::to_string(outcome.left.liveObjects) + ", references "
        + std::to_string(outcome.left.references);
}

// Lines of `lines` that `model` doesn't have at the same place, or all of them.
std::vector<std::string> unlike(const std::vector<std::string>& lines, const std::vector<std::string>& model)
{
    if (lines.size() != model.size()) {
        return lines;
    }
    std::vector<std::string> different;
    for (std::size_t index = 0; index < lines.size(); ++index) {
        if (lines[index] != model[index]) {
            different.push_back(lines[index]);
        }
    }
    return different;
}

// Round 1 prints all it has to say; a later round its summary (folded with
// the rounds before it that said the same), and the lines in which it is
// unlike the first round that freed the DLL the same way (the first such
// round: unlike round 1).
int runRounds(const Scenario& scenario, Watchdog& watchdog)
{
    const bool repeated = scenario.rounds > 1;
    std::vector<std::vector<std::string>> models(scenario.freeDll.size());
    int exitCode = 0;
    for (std::uint32_t round = 1; round <= scenario.rounds; ++round) {
        holdLines(repeated);
        SheetHost::Outcome outcome;
        {
            SheetHost host(scenario, watchdog, round);
            outcome = host.run();
        }
        holdLines(false);
        exitCode = std::max(exitCode, outcome.exitCode);
        std::vector<std::string> lines = takeHeldLines();
        std::vector<std::string>& model = models[(round - 1) % models.size()];
        if (round == 1) {
            if (repeated) {
                say("round 1:");
            }
            for (const std::string& line : lines) {
                say(line);
            }
        } else {
            sayRound(round, summary(outcome));
            for (const std::string& line : unlike(lines, model.empty() ? models[0] : model)) {
                say("  " + line);
            }
        }
        if (model.empty()) {
            model = std::move(lines);
        }
    }
    if (repeated) {
        say("rounds: " + std::to_string(scenario.rounds) + " completed");
    }
    return exitCode;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    std::vector<std::wstring> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && (arguments[0] == L"--help" || arguments[0] == L"-h")) {
        std::fputs(scenarioUsage(), stdout);
        return 0;
    }
    Scenario scenario;
    try {
        scenario = parseScenario(arguments);
    } catch (const ScenarioError& error) {
        std::fprintf(stderr, "sheet_host: %s\n%s", error.what(), scenarioUsage());
        return 2;
    }
    // First: a thread made once a hung thread holds the loader lock would wait for it.
    Watchdog watchdog;
    watchdog.nameThread("main");
    if (!loaderLockVisible()) {
        say("loader lock: its holder can't be told (the PEB's LoaderLock isn't where it was)");
        return 2;
    }
    say("loader lock: its holder is told apart");
    std::unique_ptr<Linger> linger;
    if (scenario.lingerDetachMs) {
        linger = std::make_unique<Linger>(std::chrono::milliseconds(*scenario.lingerDetachMs));
        if (!linger->error().empty()) {
            say("linger: " + linger->error());
            return 2;
        }
        say("linger: each thread's end in the process held " + std::to_string(*scenario.lingerDetachMs)
            + " ms");
    }
    int exitCode = runRounds(scenario, watchdog);
    if (linger != nullptr) {
        // Its DLL_THREAD_DETACH runs under the loader lock: there the probe must see it.
        const Linger::Counts counts = linger->counts();
        const bool seen = counts.probed > 0 && counts.held == counts.probed;
        say(seen ? std::string("linger: the loader lock was seen held at each thread's end")
                 : "linger: the loader lock was seen held at " + std::to_string(counts.held) + " of "
                    + std::to_string(counts.probed) + " thread ends");
        exitCode = seen ? exitCode : std::max(exitCode, 1);
    }
    return exitCode;
}
