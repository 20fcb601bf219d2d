// ztdiag_demo.exe: the console tool's code on the simulated adapter, for
// scripts/run-ztdiag and the Wine test; never shipped. Its own settings come
// first, as --sim-NAME=VALUE; every other argument is the tool's. With the
// command `watch` it plays a few link changes, a removal and an arrival, then
// presses Ctrl+C; with `cable-test` it can tell when the driver's test runs,
// for a script that presses Ctrl+C then. A command line the tool refuses, or
// help and version, need no simulated service: the tool answers them before
// one is started.
#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Threading.h"
#include "sim/ZtDriver.h"
#include "tools/sheet_host/Linger.h"
#include "tools/sheet_host/LoaderLock.h"
#include "tools/sheet_host/ProcessThreads.h"
#include "tools/sheet_host/Watchdog.h"
#include "ztdiag/CommandLine.h"
#include "ztdiag/Ztdiag.h"
#include "ztdiag/demo/DemoWorld.h"
#include "ztdiag/windows/WindowsConsole.h"

namespace {

// The longest command (a cable test: 40 seconds) with the threads' ends after it.
constexpr std::chrono::seconds runLimit{50};

const wchar_t* const demoUsage
    = L"ztdiag_demo [--sim-NAME=VALUE...] [ztdiag arguments]\n"
      L"  --sim-second-adapter      a second ZT adapter, disabled\n"
      L"  --sim-link=down           no cable in\n"
      L"  --sim-speed=BPS           link speed in bits per second (2500000000)\n"
      L"  --sim-pairs=S[:D],...     the cable test's pair words: status and distance (0,0,0,0)\n"
      L"  --sim-cable-length=M      the driver's raw cable length in meters (100)\n"
      L"  --sim-cable-test-ms=MS    how long the driver's cable test takes (1500)\n"
      L"  --sim-tell-cable-test     cable-test: a line on stderr once the driver's test runs\n"
      L"  --sim-firmware=X.Y.Z      firmware version (1.5.66)\n"
      L"  --sim-temperatures=P,M    PHY and MAC temperature in hundredths of a degree (5425,6100)\n"
      L"  --sim-pooled-threads      the service's delivery threads end whenever they find no work\n"
      L"  --sim-loader-lock         at the end, the calls into the service made under the loader\n"
      L"                            lock (inside a thread's exit), to stderr\n"
      L"  --sim-linger-detach=MS    every thread's end in the process waits MS in another DLL's\n"
      L"                            DLL_THREAD_DETACH (linger.dll, beside the program)\n";

std::vector<std::wstring> split(const std::wstring& text, wchar_t separator)
{
    std::vector<std::wstring> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end - start));
        if (end == std::wstring::npos) {
            return parts;
        }
        start = end + 1;
    }
}

unsigned long long number(const std::wstring& text)
{
    std::size_t used = 0;
    const unsigned long long value = std::stoull(text, &used);
    if (used != text.size()) {
        throw std::invalid_argument("not a number");
    }
    return value;
}

// Takes the --sim- settings out of `args`; throws std::invalid_argument or std::out_of_range.
DemoSettings takeSettings(std::vector<std::wstring>& args)
{
    DemoSettings settings;
    std::vector<std::wstring> rest;
    for (const std::wstring& arg : args) {
        if (arg.rfind(L"--sim-", 0) != 0) {
            rest.push_back(arg);
            continue;
        }
        const std::size_t equals = arg.find(L'=');
        const std::wstring name = arg.substr(0, equals);
        const std::wstring value = equals == std::wstring::npos ? L"" : arg.substr(equals + 1);
        if (name == L"--sim-pooled-threads") {
            settings.pooledThreads = true;
        } else if (name == L"--sim-loader-lock") {
            settings.loaderLockReport = true;
        } else if (name == L"--sim-linger-detach") {
            settings.lingerDetachMs = static_cast<std::uint32_t>(number(value));
        } else if (name == L"--sim-second-adapter") {
            settings.secondAdapter = true;
        } else if (name == L"--sim-link") {
            settings.linkUp = value != L"down";
        } else if (name == L"--sim-speed") {
            settings.linkSpeed = number(value);
        } else if (name == L"--sim-pairs") {
            settings.pairs.clear();
            for (const std::wstring& pair : split(value, L',')) {
                const std::vector<std::wstring> parts = split(pair, L':');
                const auto status = static_cast<std::uint8_t>(number(parts[0]));
                const auto distance = static_cast<std::uint8_t>(parts.size() > 1 ? number(parts[1]) : 0);
                settings.pairs.push_back(sim::ZtDriver::pairWord(status, distance));
            }
        } else if (name == L"--sim-cable-length") {
            settings.cableLength = static_cast<std::uint32_t>(number(value));
        } else if (name == L"--sim-cable-test-ms") {
            settings.cableTestMs = static_cast<std::uint32_t>(number(value));
        } else if (name == L"--sim-tell-cable-test") {
            settings.tellCableTest = true;
        } else if (name == L"--sim-firmware") {
            const std::vector<std::wstring> parts = split(value, L'.');
            if (parts.size() != 3) {
                throw std::invalid_argument("firmware");
            }
            settings.firmwareMajor = static_cast<std::uint8_t>(number(parts[0]));
            settings.firmwareMinor = static_cast<std::uint8_t>(number(parts[1]));
            settings.firmwareRevision = static_cast<std::uint16_t>(number(parts[2]));
        } else if (name == L"--sim-temperatures") {
            const std::vector<std::wstring> parts = split(value, L',');
            if (parts.size() != 2) {
                throw std::invalid_argument("temperatures");
            }
            settings.phyTemperature = std::stoi(parts[0]);
            settings.macTemperature = std::stoi(parts[1]);
        } else {
            throw std::invalid_argument("unknown setting");
        }
    }
    args = rest;
    return settings;
}

// What `watch` sees: a cable pulled and put back, a faster link, the adapter
// removed and back, then Ctrl+C. Each step stops early once `done` is set.
void playWatch(DemoWorld& world, const std::atomic<bool>& done)
{
    const auto pause = [&done] {
        for (int slice = 0; slice < 8 && !done; ++slice) {
            waitRealTime(std::chrono::milliseconds(50));
        }
        return !done;
    };
    if (!world.awaitSubscriptions() || !pause()) {
        return;
    }
    world.unplug();
    if (!pause()) {
        return;
    }
    world.plug(1000000000);
    if (!pause()) {
        return;
    }
    world.plug(2500000000);
    if (!pause()) {
        return;
    }
    world.remove();
    if (!pause()) {
        return;
    }
    world.arrive();
    if (pause()) {
        WindowsConsole::controlEvent(CTRL_C_EVENT);
    }
}

// "ztdiag_demo: the driver's cable test runs" on the error stream once it
// does, past the tool's console: while the test runs, the tool writes nothing there.
void tellCableTest(DemoWorld& world, const std::atomic<bool>& done)
{
    while (!done) {
        if (world.cableTestRunning(std::chrono::milliseconds(50))) {
            const char line[] = "ztdiag_demo: the driver's cable test runs\n";
            DWORD written = 0;
            WriteFile(GetStdHandle(STD_ERROR_HANDLE), line, sizeof line - 1, &written, nullptr);
            return;
        }
    }
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    std::vector<std::wstring> args(argv + 1, argv + argc);
    WindowsConsole console;
    DemoSettings settings;
    try {
        settings = takeSettings(args);
    } catch (const std::exception&) {
        console.err(demoUsage);
        ExitProcess(exitUsage);
    }
    Command command;
    std::wstring error;
    if (!parseCommandLine(args, command, error) || command.kind == CommandKind::Help
        || command.kind == CommandKind::Version) {
        ExitProcess(static_cast<UINT>(ztdiagMain(args, console)));
    }
    // Past its limit a run that hangs prints every thread's stack and ends with exit code 3.
    Watchdog watchdog;
    watchdog.nameThread("main");
    const Watchdog::Wait wait(watchdog, "the command, then the end of every other thread", runLimit);
    const std::vector<DWORD> startThreads = processThreads();
    DemoWorld world(settings);
    if (!world.ready()) {
        console.err(L"ztdiag_demo: the simulated adapter couldn't be set up\n");
        ExitProcess(exitServiceFailed);
    }
    if (settings.loaderLockReport) {
        world.service().watchForbiddenCalls(holdsLoaderLock);
    }
    // Kept loaded to the end: ExitProcess comes first.
    std::unique_ptr<Linger> linger;
    if (settings.lingerDetachMs != 0) {
        linger = std::make_unique<Linger>(std::chrono::milliseconds(settings.lingerDetachMs));
        if (!linger->error().empty()) {
            console.err(L"ztdiag_demo: linger.dll: "
                        + std::wstring(linger->error().begin(), linger->error().end()) + L"\n");
            ExitProcess(exitServiceFailed);
        }
    }
    std::atomic<bool> done{false};
    Thread script;
    if (command.kind == CommandKind::Watch) {
        script = Thread([&world, &done] { playWatch(world, done); });
    } else if (command.kind == CommandKind::CableTest && settings.tellCableTest) {
        script = Thread([&world, &done] { tellCableTest(world, done); });
    }
    const int code = ztdiagMain(args, console);
    done = true;
    if (script.joinable()) {
        script.join();
    }
    world.stop();
    // Ctrl+C's threads and a service thread the tool left end on their own: the
    // reports count their ends, and Wine's end of the process must not race them.
    awaitOtherThreadsEnded(startThreads);
    if (settings.loaderLockReport) {
        const std::vector<std::string> calls = world.service().forbiddenCalls();
        console.err(L"loader lock: " + std::to_wstring(calls.size()) + L" calls inside a thread's exit\n");
        for (const std::string& call : calls) {
            console.err(L"  " + std::wstring(call.begin(), call.end()) + L"\n");
        }
    }
    if (linger) {
        const Linger::Counts counts = linger->counts();
        console.err(L"linger: " + std::to_wstring(counts.probed) + L" thread ends held, "
                    + std::to_wstring(counts.held) + L" of them under the loader lock\n");
    }
    ExitProcess(static_cast<UINT>(code));
}
