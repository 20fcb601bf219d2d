// One scripted page session (open, two ticks, a cable run, media events, a
// category change, removal, arrival, close), replayed with each WMI call it
// made failing in turn, then with each driver value left out or malformed.
// Every replay must end cleanly: a page in one of its modes, with a line that
// says what happened, and every reference the service handed out given back.
#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define ZTPROP_LEAK_CHECK 1
#else
#define ZTPROP_LEAK_CHECK 0
#endif

#include <cwctype>
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
const wchar_t* const listedId = L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02";
constexpr std::uint64_t speed5G = 5000000000ULL;
constexpr std::uint64_t speed2500M = 2500000000ULL;
constexpr std::size_t parallelReplays = 12;

bool equalsNoCase(const std::wstring& a, const std::wstring& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towlower(x) == std::towlower(y);
           });
}

// What a replay does to the service before the page opens.
using Script = std::function<void(sim::WmiService&, ZtDriver&)>;

struct Replay {
    std::string name;
    Script script;
};

struct Outcome {
    std::vector<sim::CallRecord> calls;
    std::vector<std::string> problems;
    sim::ReferenceCounts references;
    std::vector<std::string> liveObjects;
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
        sim::SimAdapter sim({adapter, true, true, speed5G, true, values});
        sim::WmiService& service = sim.service();
        sim::NdisProvider& ndis = sim.ndis();
        ZtDriver& driver = sim.driver();
        SP_DEVINFO_DATA device = host::makeDevice(21);
        host::setDeviceStringList(device, DEVPKEY_Device_HardwareIds, {listedId});
        host::setDeviceString(device, DEVPKEY_Device_FriendlyName, adapter);
        host::setDeviceUint32(device, DEVPKEY_Device_ProblemCode, 0);
        script(service, driver);

        onNewThread([&] {
            {
                PageSheet sheet(host::deviceInfoSet(), device);
                if (sheet.page() == nullptr) {
                    outcome.problems.emplace_back("no page");
                    return;
                }
                const auto check = [&](const char* step) {
                    const std::string wrong
                        = modeViolation(sheet.screen(), temperatureTimerRunning(sheet.page()));
                    if (!wrong.empty()) {
                        outcome.problems.push_back(std::string(step) + ": " + wrong);
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
                    outcome.problems.emplace_back("the run never ended");
                }
                check("run");
                ndis.disconnect(adapter).wait();
                sheet.pump();
                check("disconnect");
                ndis.setLinkState(adapter, sim::LinkState::at(speed2500M, false));
                ndis.connect(adapter).wait();
                sheet.pump();
                check("connect");
                sheet.chooseCategory(1);
                check("category");
                driver.removeAdapter(adapter);
                ndis.remove(adapter).wait();
                sheet.pump();
                check("removal");
                driver.addAdapter(adapter);
                driver.setCableLength(adapter, 50);
                ndis.arrive(adapter, sim::LinkState::at(speed5G)).wait();
                sheet.pump();
                check("arrival");
                sheet.close();
            }
        });
        if (!service.drain(10s)) {
            outcome.problems.emplace_back("deliveries never drained");
        }
        driver.shutdown();
        moduleRecord.deviceReader.reset();
        outcome.calls = service.calls();
        outcome.references = service.references();
        outcome.liveObjects = service.liveObjects();
    }
    if (host::livePropertySheetPages() != 0) {
        outcome.problems.emplace_back("a sheet page was not released");
    }
    return outcome;
}

// One replay per call site of the clean session: (call, target, n) fails on
// the nth call of that name whose class or target is `target`, as the service counts.
std::vector<Replay> failingCalls(const std::vector<sim::CallRecord>& calls)
{
    std::vector<Replay> replays;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        const sim::CallRecord& site = calls[i];
        if (site.call == "SetStatus") {
            continue;  // the service's own call to the sink, not one it answers
        }
        int n = 0;
        for (std::size_t j = 0; j <= i; ++j) {
            const sim::CallRecord& c = calls[j];
            n += c.call == site.call
                && (equalsNoCase(site.target, c.className) || equalsNoCase(site.target, c.target));
        }
        const sim::Fault fault = sim::Fault::on(site.call, WBEM_E_FAILED).forTarget(site.target).onlyCall(n);
        replays.push_back({site.call + " " + narrow(site.target) + " #" + std::to_string(n),
                           [fault](sim::WmiService& service, ZtDriver&) { service.injectFault(fault); }});
    }
    return replays;
}

// Each value the driver hands out, left out and in shapes it never has.
std::vector<Replay> malformedValues()
{
    const std::pair<const char*, ZtField> fields[] = {
        {"cableDiagReturnValue", ZtField::cableDiagReturnValue},
        {"diagRes", ZtField::diagRes},
        {"pairs", ZtField::pairs},
        {"cableLengthReturnValue", ZtField::cableLengthReturnValue},
        {"cableLength", ZtField::cableLength},
        {"major", ZtField::major},
        {"minor", ZtField::minor},
        {"revision", ZtField::revision},
        {"thermalInfo", ZtField::thermalInfo},
        {"thermalFlags", ZtField::thermalFlags},
        {"phyTemperature", ZtField::phyTemperature},
        {"macTemperature", ZtField::macTemperature},
    };
    const std::pair<const char*, std::optional<sim::Value>> shapes[] = {
        {" left out", std::nullopt},
        {" a string", sim::Value::string(L"12x")},
        {" null", sim::Value::null()},
        {" a 64-bit integer", sim::Value::integer(VT_UI8, ~0ULL)},
        {" 2-byte words", sim::Value::array(VT_I2, {0, 0x0107, 0xFFFF, 0, 0})},
    };
    std::vector<Replay> replays;
    for (const auto& [name, f] : fields) {
        for (const auto& [shape, v] : shapes) {
            const ZtField field = f;
            const std::optional<sim::Value> value = v;
            replays.push_back({name + std::string(shape), [field, value](sim::WmiService&, ZtDriver& driver) {
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

std::string reportOf(const Outcome& outcome)
{
    std::string report;
    for (const std::string& problem : outcome.problems) {
        report += problem + "\n";
    }
    if (outcome.references.liveObjects != 0 || outcome.references.references != 0) {
        report += "still referenced: " + std::to_string(outcome.references.liveObjects) + " objects, "
            + std::to_string(outcome.references.references) + " references\n";
        for (const std::string& line : outcome.liveObjects) {
            report += "  " + line + "\n";
        }
    }
#if ZTPROP_LEAK_CHECK
    if (__lsan_do_recoverable_leak_check() != 0) {
        report += "leaks (see the report above)\n";
    }
#endif
    return report;
}

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
        const std::string report = reportOf(runSession(replay.script));
        std::size_t written = 0;
        while (written < report.size()) {
            const ssize_t n = write(pipeEnds[1], report.data() + written, report.size() - written);
            if (n <= 0) {
                break;
            }
            written += static_cast<std::size_t>(n);
        }
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
    ASSERT_EQ(clean.problems, std::vector<std::string>{});
    ASSERT_FALSE(clean.calls.empty());
    std::vector<Replay> replays = failingCalls(clean.calls);
    const std::size_t sites = replays.size();
    for (Replay& replay : malformedValues()) {
        replays.push_back(std::move(replay));
    }

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
