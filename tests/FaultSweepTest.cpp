// One scripted page session (open, two ticks, a cable run, media events, a
// category change, removal, arrival, close), replayed with each WMI call it
// made failing in turn, then with each driver value left out or malformed.
// Every replay must end cleanly: a page in one of its modes, with a line that
// says what happened, and every reference the service handed out given back.
#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <deque>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "PageModes.h"
#include "TraceCapture.h"
#include "WmiFixture.h"
#include "diag_page/DiagResultsList.h"
#include "installer/ModuleRecord.h"
#include "resources/resource.h"
#include "sim/SimAdapter.h"
#include "tools/page_reader/PageSheet.h"

namespace {

using namespace std::chrono_literals;
using sim::ZtDriver;
using sim::ZtField;

const wchar_t* const adapter = L"ZT 5G Network Adapter";
constexpr std::size_t parallelReplays = 12;

// What a replay does to the service before the page opens.
using Script = std::function<void(sim::WmiService&, ZtDriver&)>;

struct Replay {
    std::string name;
    Script script;
};

struct Outcome {
    std::vector<sim::CallRecord> calls;
    std::string problems;  // a line each
};

// Opens the page through the co-installer on a fresh service and drives the
// session on a dialog thread of its own; checks the modes after every step.
Outcome runSession(const Script& script)
{
    const TraceAll trace;  // a clean platform for every replay
    Outcome outcome;
    {
        sim::ZtValues values;
        values.cableLength = 50;
        sim::SimAdapter sim({adapter, true, true, 5000000000ULL, true, values});
        SP_DEVINFO_DATA device = workingZtDevice(21, adapter);
        script(sim.service(), sim.driver());

        onNewThread([&] {
            PageSheet sheet(host::deviceInfoSet(), device);
            if (sheet.page() == nullptr) {
                outcome.problems += "no page\n";
                return;
            }
            const auto check = [&](const char* step) {
                const std::string wrong
                    = modeViolation(sheet.screen(), temperatureTimerRunning(sheet.page()));
                if (!wrong.empty()) {
                    outcome.problems += std::string(step) + ": " + wrong + "\n";
                }
            };
            check("open");
            sheet.tick();
            sheet.tick();
            check("ticks");
            sheet.click(IDC_RUN_DIAG);
            const bool ended = sheet.pumpUntil(
                [&] {
                    const PageScreen s = sheet.screen();
                    return s.lines.empty()
                        || s.lines.front().image != DiagResultsList::ImageInfo;  // not started
                },
                10s);
            if (!ended) {
                outcome.problems += "the run never ended\n";
            }
            check("run");
            sim.ndis().disconnect(adapter).wait();
            sheet.pump();
            check("disconnect");
            sim.ndis().setLinkState(adapter, sim::LinkState::at(2500000000ULL, false));
            sim.ndis().connect(adapter).wait();
            sheet.pump();
            check("connect");
            sheet.chooseCategory(1);
            check("category");
            sim.driver().removeAdapter(adapter);
            sim.ndis().remove(adapter).wait();
            sheet.pump();
            check("removal");
            sim.driver().addAdapter(adapter);
            sim.driver().setCableLength(adapter, 50);
            sim.ndis().arrive(adapter, sim::LinkState::at(5000000000ULL)).wait();
            sheet.pump();
            check("arrival");
            sheet.close();
        });
        if (!sim.service().drain(10s)) {
            outcome.problems += "deliveries never drained\n";
        }
        sim.driver().shutdown();
        moduleRecord.deviceReader.reset();
        outcome.calls = sim.service().calls();
        const sim::ReferenceCounts references = sim.service().references();
        if (references.liveObjects != 0 || references.references != 0) {
            outcome.problems += "still referenced: " + std::to_string(references.liveObjects) + " objects, "
                + std::to_string(references.references) + " references\n";
            for (const std::string& line : sim.service().liveObjects()) {
                outcome.problems += "  " + line + "\n";
            }
        }
    }
    if (host::livePropertySheetPages() != 0) {
        outcome.problems += "a sheet page was not released\n";
    }
    return outcome;
}

// One replay per call site of the clean session: (call, target, n) fails on
// the nth call of that name whose class or target is `target`, as the service counts.
std::vector<Replay> failingCalls(const std::vector<sim::CallRecord>& calls)
{
    std::vector<Replay> replays;
    for (auto at = calls.begin(); at != calls.end(); ++at) {
        const sim::CallRecord& site = *at;
        if (site.call == "SetStatus") {
            continue;  // the service's own call to the sink, not one it answers
        }
        const auto sameSite = [&site](const sim::CallRecord& c) {
            return c.call == site.call
                && (wcscasecmp(site.target.c_str(), c.className.c_str()) == 0
                    || wcscasecmp(site.target.c_str(), c.target.c_str()) == 0);
        };
        const int n = static_cast<int>(std::count_if(calls.begin(), at + 1, sameSite));
        const sim::Fault fault = sim::Fault::on(site.call, WBEM_E_FAILED).forTarget(site.target).onlyCall(n);
        replays.push_back({site.call + " " + narrow(site.target) + " #" + std::to_string(n),
                           [fault](sim::WmiService& service, ZtDriver&) { service.injectFault(fault); }});
    }
    return replays;
}

// Each value the driver hands out, left out and in shapes it never has.
std::vector<Replay> malformedValues()
{
    const char* const fields[]
        = {"cableDiagReturnValue", "diagRes",      "pairs",          "cableLengthReturnValue",
           "cableLength",          "major",        "minor",          "revision",
           "thermalInfo",          "thermalFlags", "phyTemperature", "macTemperature"};  // ZtField's order
    const std::pair<const char*, std::optional<sim::Value>> shapes[] = {
        {" left out", std::nullopt},
        {" a string", sim::Value::string(L"12x")},
        {" null", sim::Value::null()},
        {" a 64-bit integer", sim::Value::integer(VT_UI8, ~0ULL)},
        {" 2-byte words", sim::Value::array(VT_I2, {0, 0x0107, 0xFFFF, 0, 0})},
    };
    std::vector<Replay> replays;
    for (std::size_t f = 0; f < std::size(fields); ++f) {
        for (const auto& [shape, v] : shapes) {
            const auto field = static_cast<ZtField>(f);
            replays.push_back(
                {fields[f] + std::string(shape), [field, value = v](sim::WmiService&, ZtDriver& driver) {
                     if (value) {
                         driver.setField(adapter, field, *value);
                     } else {
                         driver.removeField(adapter, field);
                     }
                 }});
        }
    }
    return replays;
}

// Runs each replay in a child process, several at a time: the replays wait
// mostly (an arrival pauses 500 ms on a delivery thread), and the module's
// process-wide state allows one session per process. The parent has no other
// thread when it forks. What a child found comes back through a pipe; a crash
// is found by its exit status.
struct Child {
    pid_t pid = 0;
    int output = -1;
    std::size_t replay = 0;
};

Child startChild(const Replay& replay, std::size_t index)
{
    int pipeEnds[2] = {-1, -1};
    if (pipe(pipeEnds) != 0) {
        return {};
    }
    std::cout.flush();
    const pid_t pid = fork();
    if (pid == 0) {
        close(pipeEnds[0]);
        std::string report = runSession(replay.script).problems;
#if defined(__SANITIZE_ADDRESS__)
        report += __lsan_do_recoverable_leak_check() != 0 ? "leaks (see the report above)\n" : "";
#endif
        dprintf(pipeEnds[1], "%s", report.c_str());
        _exit(0);  // no test framework or static clean-up in the child
    }
    close(pipeEnds[1]);
    return {pid, pipeEnds[0], index};
}

// Empty if the child ended normally and found nothing.
std::string finishChild(const Child& child)
{
    std::string report;
    char buffer[4096];
    for (ssize_t n = 0; (n = read(child.output, buffer, sizeof buffer)) > 0;) {
        report.append(buffer, static_cast<std::size_t>(n));
    }
    close(child.output);
    int status = 0;
    waitpid(child.pid, &status, 0);
    if (WIFSIGNALED(status)) {
        report += "crashed with signal " + std::to_string(WTERMSIG(status)) + "\n";
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        report += "exited with status " + std::to_string(WEXITSTATUS(status)) + "\n";
    }
    return report;
}

TEST(FaultSweepTest, everyReplayEndsInAModeWithEveryReferenceBack)
{
#if defined(__SANITIZE_THREAD__)
    // Each replay is one dialog thread after another: nothing for the race
    // detector that the stress test doesn't cover, at ten times the time.
    GTEST_SKIP() << "run under host and host-asan";
#endif
    const auto started = std::chrono::steady_clock::now();
    const Outcome clean = runSession([](sim::WmiService&, ZtDriver&) {});
    ASSERT_EQ(clean.problems, "");
    ASSERT_FALSE(clean.calls.empty());
    std::vector<Replay> replays = failingCalls(clean.calls);
    const std::size_t sites = replays.size();
    const std::vector<Replay> malformed = malformedValues();
    replays.insert(replays.end(), malformed.begin(), malformed.end());

    std::deque<Child> running;
    int failed = 0;
    const auto finishOldest = [&] {
        const Child child = running.front();
        running.pop_front();
        const std::string report = finishChild(child);
        if (!report.empty()) {
            ++failed;
            ADD_FAILURE() << replays[child.replay].name << ":\n" << report;
        }
    };
    for (std::size_t i = 0; i < replays.size(); ++i) {
        if (running.size() == parallelReplays) {
            finishOldest();
        }
        const Child child = startChild(replays[i], i);
        ASSERT_GT(child.pid, 0) << "fork failed";
        running.push_back(child);
    }
    while (!running.empty()) {
        finishOldest();
    }
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::cout << "fault sweep: " << replays.size() << " replays (" << sites << " failing call sites, "
              << replays.size() - sites << " malformed values), " << failed << " failed, in " << seconds
              << " s\n";
    RecordProperty("replays", static_cast<int>(replays.size()));
    RecordProperty("callSites", static_cast<int>(sites));
}

}  // namespace
