// The console tool as its user sees it: what ztdiagMain prints, on which
// stream, and its exit code, on a machine of listed network devices with the
// simulated adapter behind them.
#include "ztdiag/Ztdiag.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <thread>

#include "TraceCapture.h"
#include "host/HostPlatform.h"
#include "host/HostWindows.h"
#include "resources/resource.h"
#include "sim/SimAdapter.h"
#include "ztdiag/ServiceThread.h"
#include "ztdiag/Utf8.h"

namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using sim::ZtDriver;

const wchar_t* const first = L"ZT Ethernet Adapter";
const wchar_t* const disabled = L"ZT Ethernet Adapter #2";
constexpr std::uint64_t gbps1 = 1000000000;
constexpr std::uint64_t gbps5 = 5000000000;

// The device instance id of the machine's nth network device (from 1).
std::wstring instanceId(int n)
{
    return L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02\\4&2F6B3A1&0&00E" + std::to_wstring(n);
}

// Records what the tool writes and the handler it leaves for Ctrl+C; its
// output can be closed, as a pipe whose reader went away.
class RecordingConsole : public Console {
public:
    bool out(const std::wstring& text) override
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (textsTaken_ == textsBeforeClose_) {
            ++writesAfterClose_;
            return false;
        }
        ++textsTaken_;
        outText += text;
        wrote_.notify_all();
        return true;
    }
    void err(const std::wstring& text) override { errText += text; }
    bool isTerminal() const override { return terminal; }
    void onInterrupt(std::function<void()> handler) override
    {
        const std::lock_guard<std::mutex> guard(lock_);
        interrupt_ = std::move(handler);
    }
    // Ctrl+C as the console gives it: the handler the tool set, or none.
    std::function<void()> interruptHandler()
    {
        const std::lock_guard<std::mutex> guard(lock_);
        return interrupt_;
    }

    // The output takes this many texts, then is closed.
    void closeOutputAfter(int texts)
    {
        const std::lock_guard<std::mutex> guard(lock_);
        textsBeforeClose_ = texts;
    }
    // Until the output holds `lines` lines (10 s at most); false if it doesn't.
    bool waitForLines(std::size_t lines)
    {
        std::unique_lock<std::mutex> guard(lock_);
        return wrote_.wait_for(guard, 10s, [&] {
            return static_cast<std::size_t>(std::count(outText.begin(), outText.end(), L'\n')) >= lines;
        });
    }

    // Read once the tool has returned (written on its thread).
    std::wstring outText;
    std::wstring errText;
    bool terminal = false;
    // Writes refused once the output was closed.
    int writesAfterClose()
    {
        const std::lock_guard<std::mutex> guard(lock_);
        return writesAfterClose_;
    }

private:
    std::mutex lock_;
    std::condition_variable wrote_;
    int textsTaken_ = 0;
    int textsBeforeClose_ = -1;  // -1: never closed
    int writesAfterClose_ = 0;
    std::function<void()> interrupt_;
};

// IP Helper's entry of `first`'s connection, and one of another maker's adapter.
host::NetConnection firstConnection()
{
    return {first,
            L"Ethernet 2",
            12,
            12,
            {0x00, 0x1B, 0x21, 0x3A, 0x4F, 0x5C},
            "{5A1C7D2E-0B3F-4E61-9C8A-2D4F6B1E3A70}"};
}
host::NetConnection otherMakers()
{
    return {L"Onboard Gigabit Ethernet",
            L"Ethernet",
            7,
            7,
            {0x00, 0x1B, 0x21, 0x3A, 0x4F, 0x60},
            "{0E4B9A53-7C21-4D8F-A6B0-3F5E2C9D1B84}"};
}

// The machine: the simulated adapter `first` (2.5 Gbps, four good pairs, 100 m
// of cable as the driver measures it), listed with `devices` 1, and with 2 also
// `disabled` (problem code 22). A cable test takes the link down and, with a
// cable in, back up. IP Helper lists `first`'s connection and another maker's.
class Machine {
public:
    // 1.5.66 firmware, PHY at 54.25 and MAC at 61 degrees.
    explicit Machine(int devices = 0)
        : sim({first, true, true, 2500000000, true, {1, 5, 66, 5425, 6100, 12, {0, 0, 0, 0}, 100}, true})
    {
        for (int i = 0; i < devices; ++i) {
            device(i == 0 ? first : disabled, i == 0 ? 0 : 22);
        }
        host::setNetConnections({otherMakers(), firstConnection()});
    }
    ~Machine()
    {
        // The tool's service thread ends before the service does.
        for (int wait = 0; wait < 1000 && ServiceThread::running() != 0; ++wait) {
            std::this_thread::sleep_for(10ms);
        }
        EXPECT_EQ(ServiceThread::running(), 0);
        EXPECT_TRUE(sim.service().drain(10s));
        EXPECT_EQ(sim.service().references().references, 0)
            << testing::PrintToString(sim.service().liveObjects());
    }
    // A network device with a listed hardware id; the nth has instanceId(n).
    void device(const std::wstring& name, DWORD problemCode = 0)
    {
        ++devices_;
        host::addDevice(devices_, GUID_DEVCLASS_NET, true, instanceId(static_cast<int>(devices_)));
        const SP_DEVINFO_DATA device = host::makeDevice(devices_);
        host::setDeviceStringList(device, DEVPKEY_Device_HardwareIds,
                                  {L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02"});
        host::setDeviceString(device, DEVPKEY_Device_FriendlyName, name);
        host::setDeviceUint32(device, DEVPKEY_Device_ProblemCode, problemCode);
    }
    const TraceAll capture;  // a clean host first
    sim::SimAdapter sim;
    RecordingConsole console;

private:
    DWORD devices_ = 0;
};

// The tool's JSON here is ASCII.
json parsed(const std::wstring& text)
{
    return json::parse(std::string(text.begin(), text.end()));
}

// A second working adapter: no link, hot, firmware too old for a cable test.
void addBackup(Machine& m)
{
    const std::wstring backup = L"ZT Backup Adapter";
    m.device(backup);
    m.sim.ndis().addAdapter(backup, {sim::ndis::mediaDisconnected, sim::ndis::duplexFull, 0, 0});
    m.sim.driver().addAdapter(backup, {1, 5, 10, 10250, 10500});
}

// B open at 12 m, C crossed with A at 3 m, D shorted at 30 m.
void faultyPairs(Machine& m)
{
    m.sim.driver().setPairs(
        first,
        {0, ZtDriver::pairWord(ZtDriver::pairOpen, 12), ZtDriver::pairWord(2, 3), ZtDriver::pairWord(4, 30)});
}

std::wstring usageError(const std::wstring& message)
{
    return L"ztdiag: " + message
        + L"\nUsage: ztdiag [cable-test [ADAPTER] [--category 5e|6|6a] | watch [ADAPTER] [--metrics FILE]"
          L" | metrics [ADAPTER] [--output FILE]] [--json] [--quiet] (ztdiag --help tells more)\n";
}

// How the listing shows `first`'s connection.
const wchar_t* const firstConnectionListed
    = L"Connection : Ethernet 2\nifIndex    : 12\nMAC address: 00-1B-21-3A-4F-5C\n";
const wchar_t* const noConnectionListed
    = L"Connection : <unknown>\nifIndex    : <unknown>\nMAC address: <unknown>\n";
const wchar_t* const firstListed
    = L"Name       : ZT Ethernet Adapter\n"
      L"Connection : Ethernet 2\nifIndex    : 12\nMAC address: 00-1B-21-3A-4F-5C\n"
      L"State      : Ready\n"
      L"Link       : Connected, 2.5 Gbps\n"
      L"Health     : Temperature is ok (PHY 54.25\u00B0C, MAC 61\u00B0C)\n"
      L"Firmware   : 1.5.66\nCable test : Yes\n";
// The listing of `first` with another link and health.
std::wstring firstListedAs(const std::wstring& link, const std::wstring& health)
{
    return L"Name       : ZT Ethernet Adapter\n" + std::wstring(firstConnectionListed)
        + L"State      : Ready\nLink       : " + link + L"\nHealth     : " + health
        + L"\nFirmware   : 1.5.66\nCable test : Yes\n";
}
// That listing as JSON, with these JSON values.
std::wstring firstListedAsJson(const std::wstring& link, const std::wstring& speed,
                               const std::wstring& speedText, const std::wstring& phy = L"54.25",
                               const std::wstring& mac = L"61.0")
{
    return LR"({"adapters": [{"name": "ZT Ethernet Adapter", "connectionName": "Ethernet 2", "interfaceIndex": 12,
        "macAddress": "00-1B-21-3A-4F-5C", "state": "ready", "stateText": "Ready", "problemCode": 0, "link": )"
        + link + L", \"speed\": " + speed + L", \"speedText\": " + speedText
        + LR"(, "health": "ok", "healthText": "Temperature is ok", "phyTemperature": )" + phy
        + L", \"macTemperature\": " + mac + LR"(, "firmware": "1.5.66", "cableTest": true}]})";
}
// A device that isn't working, as the listing shows it; `first` with its connection.
std::wstring notWorkingListed(const std::wstring& name, const std::wstring& state)
{
    return L"Name       : " + name + L"\n" + (name == first ? firstConnectionListed : noConnectionListed)
        + L"State      : " + state
        + L"\nLink       : <unknown>\nHealth     : Temperature <unknown>\nFirmware   : <unknown>\n"
          L"Cable test : No, the device isn't ready\n";
}
const wchar_t* const goodPairs = L"Cable test on ZT Ethernet Adapter\nPair A: OK\nPair B: OK\nPair C: OK\n"
                                 L"Pair D: OK\nThe overall status of cable is good\n";
// A cable test's JSON on `first` with four good pairs and these JSON values.
std::wstring goodPairsJson(const std::wstring& link, const std::wstring& speed, const std::wstring& speedText,
                           const std::wstring& cableLength, const std::wstring& category)
{
    std::wstring pairs;
    for (const wchar_t* pair : {L"A", L"B", L"C", L"D"}) {
        pairs += std::wstring(pairs.empty() ? L"" : L", ") + L"{\"pair\": \"" + pair
            + L"\", \"status\": 0, \"verdict\": \"OK\", \"distance\": null, \"partner\": null, \"text\": "
              L"\"Pair "
            + pair + L": OK\"}";
    }
    return L"{\"adapter\": \"ZT Ethernet Adapter\", \"good\": true, \"pairs\": [" + pairs + L"], \"link\": "
        + link + L", \"speed\": " + speed + L", \"speedText\": " + speedText + L", \"cableLength\": "
        + cableLength + L", \"category\": " + category + L"}";
}
// The line `watch` prints first for `first`, at the host's clock (09:30, UTC).
std::wstring watchingFirst(const std::wstring& state)
{
    return L"Watching ZT Ethernet Adapter; press Ctrl+C to stop.\n2024-05-14T09:30:00.000+00:00  ZT Ethernet "
           L"Adapter  "
        + state + L"\n";
}

template <typename... Text> std::vector<std::wstring> args(Text... texts)
{
    return {texts...};
}

bool has(const std::vector<std::wstring>& arguments, const wchar_t* word)
{
    return std::find(arguments.begin(), arguments.end(), word) != arguments.end();
}

// Runs the tool as its user does, on a thread of its own; a watch is ended by
// Ctrl+C once it has subscribed, after `whileWatching`.
int run(Machine& machine, const std::vector<std::wstring>& arguments,
        const std::function<void()>& whileWatching = nullptr, const ZtdiagLimits& limits = {})
{
    std::atomic<bool> ended{false};
    int code = -1;
    std::thread tool([&] {
        code = ztdiagMain(arguments, machine.console, limits);
        ended = true;
    });
    std::function<void()> ctrlC;
    const bool watch = has(arguments, L"watch");
    for (int wait = 0; watch && wait < 1000 && !ended && !(ctrlC = machine.console.interruptHandler());
         ++wait) {
        std::this_thread::sleep_for(10ms);
    }
    if (ctrlC) {
        if (whileWatching) {
            whileWatching();
        }
        ctrlC();
    }
    tool.join();
    return code;
}

// Each JSON document of `text`: one per line for `watch`, else the whole text.
std::vector<json> documents(const std::wstring& text, bool perLine)
{
    if (!perLine) {
        return {parsed(text)};
    }
    std::vector<json> lines;
    std::wistringstream in(text);
    for (std::wstring line; std::getline(in, line);) {
        lines.push_back(parsed(line));
    }
    return lines;
}

struct Case {
    std::vector<std::wstring> arguments;
    int devices;  // as Machine takes them
    int code;
    void (*setup)(Machine&);  // may be null
    std::wstring out;  // with --json the documents, compared parsed; `watch`'s one a line
    std::wstring err;
};

// The error object that --json adds to an error: its code and the message of
// the error line, without "ztdiag: ".
json errorObject(int code, const std::wstring& errorLine)
{
    const std::wstring prefix = L"ztdiag: ";
    EXPECT_EQ(errorLine.rfind(prefix, 0), 0U) << testing::PrintToString(errorLine);
    return {{"error", {{"code", code}, {"message", toUtf8(errorLine.substr(prefix.size()))}}}};
}

std::wstring firstLine(const std::wstring& text)
{
    return text.substr(0, text.find(L'\n'));
}

// An error with --json and no `out` of its own prints only the error object,
// from the first line on the error stream.
void expectCase(const Case& c)
{
    SCOPED_TRACE(testing::PrintToString(c.arguments));
    Machine machine(c.devices);
    if (c.setup != nullptr) {
        c.setup(machine);
    }
    EXPECT_EQ(run(machine, c.arguments), c.code);
    EXPECT_EQ(machine.console.errText, c.err);
    const bool asJson = has(c.arguments, L"--json") && !has(c.arguments, L"--quiet");
    if (asJson && !c.out.empty()) {
        const bool perLine = has(c.arguments, L"watch");
        EXPECT_EQ(documents(machine.console.outText, perLine), documents(c.out, perLine))
            << testing::PrintToString(machine.console.outText);
    } else if (asJson && c.code > exitCableFault) {
        const std::wstring& out = machine.console.outText;
        EXPECT_EQ(out.find(L'\n'), out.size() - 1) << "one line: " << testing::PrintToString(out);
        EXPECT_EQ(documents(machine.console.outText, false),
                  std::vector<json>{errorObject(c.code, firstLine(c.err))})
            << testing::PrintToString(machine.console.outText);
    } else {
        EXPECT_EQ(machine.console.outText, c.out);
    }
}

TEST(Ztdiag, printsWhatTheUserAskedForAndExitsWithItsCode)
{
    const Case cases[] = {
        // The listing.
        {args(), 1, 0, nullptr, firstListed, L""},
        {args(), 1, 0, addBackup,
         std::wstring(firstListed) + L"\nName       : ZT Backup Adapter\n" + noConnectionListed
             + L"State      : Ready\nLink       : Disconnected\n"
               L"Health     : Temperature is high (PHY 102.5\u00B0C, MAC 105\u00B0C)\nFirmware   : 1.5.10\n"
               L"Cable test : No, firmware older than 1.5.66\n",
         L""},
        {args(), 0, 0,
         [](Machine& m) {
             m.device(disabled, 22);
             m.sim.revokeLocator();  // a device that isn't working needs no service
         },
         notWorkingListed(disabled, L"Device is disabled"), L""},
        {args(L"--json"), 2, 0, nullptr,
         LR"({"adapters": [{"name": "ZT Ethernet Adapter", "connectionName": "Ethernet 2", "interfaceIndex": 12,
           "macAddress": "00-1B-21-3A-4F-5C", "state": "ready", "stateText": "Ready", "problemCode": 0, "link": "connected", "speed": 2500000000, "speedText": "2.5 Gbps", "health": "ok",
           "healthText": "Temperature is ok", "phyTemperature": 54.25, "macTemperature": 61.0, "firmware": "1.5.66",
           "cableTest": true}, {"name": "ZT Ethernet Adapter #2", "connectionName": null, "interfaceIndex": null,
           "macAddress": null, "state": "disabled", "problemCode": 22,
           "stateText": "Device is disabled", "link": null, "speed": null, "speedText": null,
           "health": "unknown", "healthText": "Temperature <unknown>", "phyTemperature": null,
           "macTemperature": null, "firmware": null, "cableTest": false}]})",
         L""},
        // The cable test; the length is corrected for the category at 2.5 and 5 Gbps only.
        {args(L"cable-test"), 1, 0, [](Machine& m) { m.sim.renegotiate(gbps1); },
         std::wstring(goodPairs) + L"Approx cable length: 100 meters\n", L""},
        {args(L"cable-test"), 1, 0, [](Machine& m) { m.sim.renegotiate(gbps5); },
         std::wstring(goodPairs) + L"Approx cable length: 101 meters (category 5e at 5.0 Gbps)\n", L""},
        {args(L"cable-test", L"--category=6A"), 1, 0, [](Machine& m) { m.sim.renegotiate(gbps5); },
         std::wstring(goodPairs) + L"Approx cable length: 121 meters (category 6a at 5.0 Gbps)\n", L""},
        {args(L"cable-test", first, L"--category", L"6"), 1, 1, faultyPairs,
         L"Cable test on ZT Ethernet Adapter\nPair A: OK\nPair B: open circuit, distance 12 meters\n"
         L"Pair C: connected to another pair (A), distance 3 meters\n"
         L"Pair D: short circuit, distance 30 meters\n"
         L"Approx cable length: 153 meters (category 6 at 2.5 Gbps)\n",
         L""},
        {args(L"cable-test", L"--json", L"--category", L"6"), 1, 1, faultyPairs,
         LR"j({"adapter": "ZT Ethernet Adapter", "good": false, "link": "connected", "speed": 2500000000,
          "speedText": "2.5 Gbps", "cableLength": 153, "category": "6", "pairs": [
          {"pair": "A", "status": 0, "verdict": "OK", "distance": null, "partner": null, "text": "Pair A: OK"},
          {"pair": "B", "status": 7, "verdict": "open circuit", "distance": 12, "partner": null,
           "text": "Pair B: open circuit, distance 12 meters"}, {"pair": "C", "status": 2, "distance": 3,
           "verdict": "connected to another pair (A)", "partner": "A",
           "text": "Pair C: connected to another pair (A), distance 3 meters"}, {"pair": "D", "status": 4,
           "verdict": "short circuit", "distance": 30, "partner": null,
           "text": "Pair D: short circuit, distance 30 meters"}]})j",
         L""},
        {args(L"cable-test"), 1, 0, [](Machine& m) { m.sim.unplug(); },
         std::wstring(goodPairs) + L"Unable to determine cable length: no link\n", L""},
        // The adapter isn't there or can't be tested.
        {args(L"cable-test", L"ZT Adapter"), 2, 2, nullptr, L"",
         L"ztdiag: no ZT adapter named 'ZT Adapter'; the ZT adapters are 'ZT Ethernet Adapter' (connection "
         L"'Ethernet 2'), "
         L"'ZT Ethernet Adapter #2'\n"},
        {args(L"watch", L"ZT Adapter"), 0, 2, nullptr, L"",
         L"ztdiag: no ZT adapter named 'ZT Adapter': there is no ZT adapter\n"},
        {args(L"cable-test", L"zt ethernet adapter #2"), 2, 2, nullptr, L"",
         L"ztdiag: ZT Ethernet Adapter #2: Device is disabled\n"},
        {args(L"cable-test"), 1, 2, [](Machine& m) { m.sim.driver().setFirmware(first, 1, 5, 10); }, L"",
         L"ztdiag: ZT Ethernet Adapter: Current version of firmware doesn't support cable diagnostics "
         L"(firmware 1.5.10, cable tests need 1.5.66)\n"},
        // The device manager or the management service fails.
        {args(), 1, 3, [](Machine&) { host::failGetClassDevs(ERROR_NOT_ENOUGH_MEMORY); }, L"",
         L"ztdiag: can't list the network adapters (SetupAPI error 8)\n"},
        {args(), 1, 3,
         [](Machine& m) { m.sim.service().injectFault(sim::Fault::on("ConnectServer", E_FAIL)); }, L"",
         L"ztdiag: can't connect to the management service (root\\wmi)\n"},
        {args(L"cable-test"), 1, 3, [](Machine& m) { m.sim.revokeLocator(); }, L"",
         L"ztdiag: can't connect to the management service (root\\wmi)\n"},
        {args(L"cable-test"), 1, 3,
         [](Machine& m) {
             m.sim.service().injectFault(
                 sim::Fault::on("ExecMethod", WBEM_E_FAILED).forTarget(L"Zt_NetAdapter.ExecCableDiag"));
         },
         L"", L"ztdiag: ZT Ethernet Adapter: the driver's cable test failed\n"},
        // Usage errors, and the version.
        {args(L"frobnicate"), 1, 64, nullptr, L"",
         usageError(L"unknown command 'frobnicate'; the commands are cable-test, watch and metrics")},
        {args(L"--fast"), 1, 64, nullptr, L"", usageError(L"unknown option '--fast'")},
        {args(L"metrics", L"--metrics", L"x.prom"), 1, 64, nullptr, L"",
         usageError(L"--metrics goes with watch only")},
        {args(L"watch", L"--output=x.prom"), 1, 64, nullptr, L"",
         usageError(L"--output goes with metrics only")},
        {args(L"watch", L"--metrics"), 1, 64, nullptr, L"", usageError(L"--metrics needs a file name")},
        {args(L"metrics", L"--output="), 1, 64, nullptr, L"", usageError(L"an empty file name for --output")},
        {args(L"metrics", L"--json"), 1, 64, nullptr, L"",
         usageError(L"metrics are written in the Prometheus text format, never as JSON")},
        {args(L"cable-test", L"--category", L"7"), 1, 64, nullptr, L"",
         usageError(L"unknown cable category '7'; the categories are 5e, 6 and 6a")},
        {args(L"cable-test"), 2, 64, nullptr, L"",
         usageError(L"2 ZT adapters: name the one to test: 'ZT Ethernet Adapter' (connection 'Ethernet 2'), "
                    L"'ZT Ethernet Adapter #2'")},
        {args(L"--version"), 1, 0, nullptr, L"ztdiag " ZTPROP_VERSION_TEXT L"\n", L""},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(Ztdiag, helpTellsTheLimitsInForceAndWinsOverEverythingElse)
{
    for (const auto& arguments : {args(L"--help"), args(L"watch", L"--no", L"-h")}) {
        Machine machine;
        ZtdiagLimits limits;
        limits.service = 250ms;
        EXPECT_EQ(ztdiagMain(arguments, machine.console, limits), 0);
        const std::wstring& help = machine.console.outText;
        EXPECT_EQ(help.rfind(L"ztdiag " ZTPROP_VERSION_TEXT L": link, health and cable test of ZT", 0), 0U);
        EXPECT_NE(help.find(L"  3   the management service failed, or didn't answer within 250 ms\n"
                            L"      (the cable test: 40 seconds)\n  64  usage error\n"
                            L"  73  the metrics file can't be written (the old one is left as it was)\n"
                            L"  74  the output was closed (the reader of a pipe went away)\n"
                            L"  130 a cable test interrupted by Ctrl+C\n"),
                  std::wstring::npos);
        EXPECT_EQ(machine.console.errText, L"");
    }
}

TEST(Ztdiag, aServiceThatDoesntAnswerInTimeEndsTheCommandAndItsThreadFinishesAlone)
{
    Machine machine(1);
    machine.sim.driver().holdCableTest(first);
    ZtdiagLimits limits;
    limits.cableTest = 300ms;
    EXPECT_EQ(ztdiagMain({L"cable-test"}, machine.console, limits), 3);
    EXPECT_EQ(machine.console.errText, L"ztdiag: the management service didn't answer within 300 ms\n");
    EXPECT_EQ(machine.console.outText, L"");
    ASSERT_TRUE(machine.sim.driver().waitUntilCableTestRunning(first));
    EXPECT_EQ(ServiceThread::running(), 1) << "the test goes on in the driver";
    machine.sim.driver().releaseCableTest(first);
}

const wchar_t* const backup = L"ZT Backup Adapter";

// A line of `watch` at 09:`minute` (UTC, as the host's zone is after reset).
std::wstring watchLine(int minute, const std::wstring& adapter, const std::wstring& text)
{
    return L"2024-05-14T09:" + std::to_wstring(minute) + L":00.000+00:00  " + adapter + L"  " + text + L"\n";
}

// A change made at its minute once the lines before it are out; it adds `lines` lines.
struct Step {
    WORD minute;
    std::function<void(Machine&)> change;
    std::size_t lines;
};

// Runs `watch` through `steps`, then Ctrl+C once their lines are out; gives the exit code.
int watchThrough(Machine& m, const std::vector<std::wstring>& arguments, std::size_t initialLines,
                 const std::vector<Step>& steps, const ZtdiagLimits& limits = {})
{
    return run(
        m, arguments,
        [&] {
            std::size_t lines = initialLines;
            EXPECT_TRUE(m.console.waitForLines(lines));
            for (const Step& step : steps) {
                host::setLocalTime({2024, 5, 2, 14, 9, step.minute, 0, 0});
                step.change(m);
                EXPECT_TRUE(m.sim.service().drain(10s));
                lines += step.lines;
                EXPECT_TRUE(m.console.waitForLines(lines)) << "after the change at minute " << step.minute;
            }
        },
        limits);
}

TEST(Ztdiag, watchPrintsATimestampedLineForEachLinkEventUntilCtrlC)
{
    // Each change at its own minute, its lines out before the next.
    const std::vector<Step> changes = {
        {31, [](Machine& m) { m.sim.unplug(); }, 1},
        {32, [](Machine& m) { m.sim.plug(); }, 1},
        {33, [](Machine& m) { m.sim.renegotiate(gbps1); }, 2},
        {34,  // another speed with no drop between
         [](Machine& m) {
             m.sim.ndis().setLinkState(first, sim::LinkState::at(gbps5));
             m.sim.ndis().connect(first);
         },
         1},
        {35, [](Machine& m) { m.sim.remove(); }, 1},
        {36, [](Machine& m) { m.sim.arrive(); }, 1},
    };
    const struct {
        int minute;
        const wchar_t* adapter;
        const wchar_t* text;
        const char* json;  // but the time and the adapter
    } lines[] = {
        {30, first, L"Connected, 2.5 Gbps; Temperature is ok",
         R"({"event":"state","problemCode":0,"link":"connected","speed":2500000000,"speedText":"2.5 Gbps",
             "health":"ok","healthText":"Temperature is ok"})"},
        {30, disabled, L"Device is disabled",
         R"({"event":"state","problemCode":22,"link":null,"speed":null,"speedText":null,"health":"unknown",
             "healthText":"Temperature <unknown>"})"},
        {31, first, L"Disconnected",
         R"({"event":"disconnected","link":"disconnected","speed":null,"speedText":null})"},
        {32, first, L"Connected, 2.5 Gbps",
         R"({"event":"connected","link":"connected","speed":2500000000,"speedText":"2.5 Gbps",
             "downshift":false,"previousSpeed":null})"},
        {33, first, L"Disconnected",
         R"({"event":"disconnected","link":"disconnected","speed":null,"speedText":null})"},
        // Slower than the connection before, down between.
        {33, first, L"Connected, 1.0 Gbps (downshift from 2.5 Gbps)",
         R"({"event":"connected","link":"connected","speed":1000000000,"speedText":"1.0 Gbps",
             "downshift":true,"previousSpeed":2500000000})"},
        {34, first, L"Speed 5.0 Gbps",
         R"({"event":"speed","link":"connected","speed":5000000000,"speedText":"5.0 Gbps",
             "downshift":false,"previousSpeed":null})"},
        {35, first, L"Removed", R"({"event":"removed"})"},
        {36, first, L"Arrived", R"({"event":"arrived"})"},
    };
    for (const bool asJson : {false, true}) {
        SCOPED_TRACE(asJson ? "--json" : "text");
        Machine machine(2);
        const int code = watchThrough(machine, asJson ? args(L"watch", L"--json") : args(L"watch"),
                                      asJson ? 2 : 3, changes);
        EXPECT_EQ(code, 0);
        EXPECT_EQ(machine.console.errText, L"");
        EXPECT_FALSE(machine.console.interruptHandler()) << "Ctrl+C ends the program again";
        EXPECT_TRUE(machine.sim.service().subscriptions().empty());

        std::wstring text = L"Watching ZT Ethernet Adapter, ZT Ethernet Adapter #2; press Ctrl+C to stop.\n";
        std::vector<json> objects;
        for (const auto& line : lines) {
            text += L"2024-05-14T09:" + std::to_wstring(line.minute) + L":00.000+00:00  " + line.adapter
                + L"  " + line.text + L"\n";
            json object = json::parse(line.json);
            object["time"] = "2024-05-14T09:" + std::to_string(line.minute) + ":00.000+00:00";
            object["adapter"]
                = std::wstring(line.adapter) == first ? "ZT Ethernet Adapter" : "ZT Ethernet Adapter #2";
            objects.push_back(object);
        }
        if (!asJson) {
            EXPECT_EQ(machine.console.outText, text);
            continue;
        }
        EXPECT_EQ(documents(machine.console.outText, true), objects);
    }
}

// ---- What the tool doesn't know it never shows as fact ---------------------

void linkQueryFails(Machine& m)
{
    m.sim.service().injectFault(
        sim::Fault::on("ExecMethod", WBEM_E_FAILED).forTarget(L"MSNdis_LinkState.WmiQueryLinkState"));
}

// NDIS_LINK_SPEED_UNKNOWN on a connected link.
constexpr std::uint64_t speedUnknown = ~0ULL;

TEST(Ztdiag, aLinkStateOrSpeedThatCantBeReadIsUnknownNeverDisconnectedOrZero)
{
    const Case cases[] = {
        // The listing.
        {args(), 1, 0, linkQueryFails,
         firstListedAs(L"<unknown>", L"Temperature is ok (PHY 54.25\u00B0C, MAC 61\u00B0C)"), L""},
        {args(L"--json"), 1, 0, linkQueryFails, firstListedAsJson(L"null", L"null", L"null"), L""},
        {args(), 1, 0,
         [](Machine& m) {
             m.sim.ndis().setLinkState(first, {0, sim::ndis::duplexFull, gbps1, gbps1});
         },
         firstListedAs(L"<unknown>", L"Temperature is ok (PHY 54.25\u00B0C, MAC 61\u00B0C)"), L""},
        {args(L"--json"), 1, 0,
         [](Machine& m) {
             m.sim.ndis().setLinkState(first, {7, sim::ndis::duplexFull, gbps1, gbps1});
         },
         firstListedAsJson(L"null", L"null", L"null"), L""},
        {args(), 1, 0, [](Machine& m) { m.sim.ndis().setLinkState(first, sim::LinkState::at(speedUnknown)); },
         firstListedAs(L"Connected, <unknown>", L"Temperature is ok (PHY 54.25\u00B0C, MAC 61\u00B0C)"), L""},
        {args(L"--json"), 1, 0,
         [](Machine& m) {
             m.sim.service().injectFault(sim::Fault::on("ExecMethod", WBEM_E_FAILED)
                                             .forTarget(L"MSNdis_LinkState.WmiQueryLinkState")
                                             .onlyCall(2));  // the speed's query, after the state's
         },
         firstListedAsJson(L"\"connected\"", L"null", L"null"), L""},
        // The state `watch` starts from.
        {args(L"watch"), 1, 0, linkQueryFails, watchingFirst(L"<unknown>; Temperature is ok"), L""},
        {args(L"watch", L"--json"), 1, 0, linkQueryFails,
         LR"({"time": "2024-05-14T09:30:00.000+00:00", "adapter": "ZT Ethernet Adapter", "event": "state", )"
         LR"("problemCode": 0, "link": null, "speed": null, "speedText": null, "health": "ok", )"
         LR"("healthText": "Temperature is ok"})",
         L""},
        {args(L"watch"), 1, 0,
         [](Machine& m) { m.sim.ndis().setLinkState(first, sim::LinkState::at(speedUnknown)); },
         watchingFirst(L"Connected, <unknown>; Temperature is ok"), L""},
        // The cable test's report: with no link state there is no length, nor
        // with no speed, which tells whether the length needs the category.
        {args(L"cable-test"), 1, 0,
         [](Machine& m) {
             linkQueryFails(m);
             m.sim.driver().onLinkDrop([](const std::wstring&) {});  // and no link event either
             m.sim.driver().onLinkRestore([](const std::wstring&) {});
         },
         std::wstring(goodPairs) + L"Unable to determine cable length: link <unknown>\n", L""},
        {args(L"cable-test", L"--json"), 1, 0,
         [](Machine& m) {
             linkQueryFails(m);
             m.sim.driver().onLinkDrop([](const std::wstring&) {});
             m.sim.driver().onLinkRestore([](const std::wstring&) {});
         },
         goodPairsJson(L"null", L"null", L"null", L"null", L"null"), L""},
        {args(L"cable-test"), 1, 0,
         [](Machine& m) {
             m.sim.driver().onLinkRestore([&m](const std::wstring& name) {
                 m.sim.ndis().setLinkState(name, sim::LinkState::at(speedUnknown));
                 m.sim.ndis().connect(name);
             });
         },
         std::wstring(goodPairs) + L"Unable to determine cable length: link speed <unknown>\n", L""},
        {args(L"cable-test", L"--json", L"--category", L"6"), 1, 0,
         [](Machine& m) {
             m.sim.driver().onLinkRestore([&m](const std::wstring& name) {
                 m.sim.ndis().setLinkState(name, sim::LinkState::at(speedUnknown));
                 m.sim.ndis().connect(name);
             });
         },
         goodPairsJson(L"\"connected\"", L"null", L"null", L"null", L"null"), L""},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(Ztdiag, aTemperatureTheDriverDoesntReportReadsUnknown)
{
    const Case cases[] = {
        {args(), 1, 0, [](Machine& m) { m.sim.driver().setThermalFlags(first, 4); },
         firstListedAs(L"Connected, 2.5 Gbps", L"Temperature is ok (PHY 54.25\u00B0C, MAC <unknown>)"), L""},
        {args(), 1, 0, [](Machine& m) { m.sim.driver().setThermalFlags(first, 8); },
         firstListedAs(L"Connected, 2.5 Gbps", L"Temperature is ok (PHY <unknown>, MAC 61\u00B0C)"), L""},
        {args(L"--json"), 1, 0, [](Machine& m) { m.sim.driver().setThermalFlags(first, 8); },
         firstListedAsJson(L"\"connected\"", L"2500000000", L"\"2.5 Gbps\"", L"null", L"61.0"), L""},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(Ztdiag, theCategoryIsTheOneAskedForWhereverItAppliesWithALengthOrNot)
{
    const auto noLength = [](Machine& m) { m.sim.driver().setCableLength(first, 0); };
    const Case cases[] = {
        {args(L"cable-test", L"--category", L"6", L"--json"), 1, 0, noLength,
         goodPairsJson(L"\"connected\"", L"2500000000", L"\"2.5 Gbps\"", L"null", L"\"6\""), L""},
        {args(L"cable-test", L"--json"), 1, 0,
         [](Machine& m) {
             m.sim.driver().setCableLength(first, 0);
             m.sim.renegotiate(gbps5);
         },
         goodPairsJson(L"\"connected\"", L"5000000000", L"\"5.0 Gbps\"", L"null", L"\"5e\""), L""},
        {args(L"cable-test", L"--category", L"6", L"--json"), 1, 0,
         [](Machine& m) { m.sim.renegotiate(gbps1); },
         goodPairsJson(L"\"connected\"", L"1000000000", L"\"1.0 Gbps\"", L"100", L"null"), L""},
        {args(L"cable-test", L"--category", L"6"), 1, 0, noLength,
         std::wstring(goodPairs) + L"Unable to determine cable length\n", L""},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(Ztdiag, aCableTestWithoutPairResultsIsAnErrorNeverAGoodCable)
{
    const auto noPairs = [](Machine& m) { m.sim.driver().setPairs(first, {}); };
    const wchar_t* const noResult
        = L"ztdiag: ZT Ethernet Adapter: the driver's cable test gave no result for any wire pair\n";
    const Case cases[] = {
        {args(L"cable-test"), 1, 3, noPairs, L"", noResult},
        {args(L"cable-test", L"--json"), 1, 3, noPairs, L"", noResult},
        {args(L"cable-test"), 1, 3,
         [](Machine& m) { m.sim.driver().removeField(first, sim::ZtField::pairs); }, L"",
         L"ztdiag: ZT Ethernet Adapter: the driver's cable test failed\n"},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(Ztdiag, aProblemCodeIsTheUnsignedNumberWindowsShows)
{
    const auto unreadable = [](Machine& m) {
        m.device(first);
        host::removeDeviceProperty(host::makeDevice(1), DEVPKEY_Device_ProblemCode);
    };
    const Case cases[] = {
        {args(), 0, 0, unreadable, notWorkingListed(first, L"Device has a problem (code 4294967295)"), L""},
        {args(L"--json"), 0, 0, unreadable,
         LR"j({"adapters": [{"name": "ZT Ethernet Adapter", "connectionName": "Ethernet 2", "interfaceIndex": 12,
           "macAddress": "00-1B-21-3A-4F-5C", "state": "problem",
           "stateText": "Device has a problem (code 4294967295)", "problemCode": 4294967295, "link": null,
           "speed": null, "speedText": null, "health": "unknown", "healthText": "Temperature <unknown>",
           "phyTemperature": null, "macTemperature": null, "firmware": null, "cableTest": false}]})j",
         L""},
        {args(L"cable-test"), 0, 2, [](Machine& m) { m.device(first, 0x80000000); }, L"",
         L"ztdiag: ZT Ethernet Adapter: Device has a problem (code 2147483648)\n"},
        {args(L"watch"), 0, 0, unreadable, watchingFirst(L"Device has a problem (code 4294967295)"), L""},
        {args(L"watch", L"--json"), 0, 0, [](Machine& m) { m.device(first, 28); },
         LR"({"time": "2024-05-14T09:30:00.000+00:00", "adapter": "ZT Ethernet Adapter", "event": "state", )"
         LR"("problemCode": 28, "link": null, "speed": null, "speedText": null, "health": "unknown", )"
         LR"("healthText": "Temperature <unknown>"})",
         L""},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

// ---- Which adapter: never one picked silently ------------------------------

// Two network devices both named `first`.
void twoAlike(Machine& m)
{
    m.device(first);
    m.device(first);
}

TEST(Ztdiag, anAdapterNameThatNamesNoneOrSeveralIsAUsageError)
{
    const std::wstring ids = L"'" + instanceId(1) + L"', '" + instanceId(2) + L"'";
    const std::wstring bothListed = L"'ZT Ethernet Adapter' (device instance id '" + instanceId(1)
        + L"'), 'ZT Ethernet Adapter' (device instance id '" + instanceId(2) + L"')";
    const std::wstring empty = usageError(
        L"an empty adapter name; the ZT adapters are 'ZT Ethernet Adapter' (connection 'Ethernet 2')");
    const Case cases[] = {
        {args(L"cable-test", first), 0, 64, twoAlike, L"",
         usageError(
             L"'ZT Ethernet Adapter' names 2 ZT adapters; give the device instance id of the one to test: "
             + ids)},
        {args(L"watch", L"zt ethernet adapter"), 0, 64, twoAlike, L"",
         usageError(L"'zt ethernet adapter' names 2 ZT adapters; give the device instance id of the one to "
                    L"watch: "
                    + ids)},
        {args(L"cable-test", first, L"--json"), 0, 64,
         [](Machine& m) {
             twoAlike(m);
             host::failGetDeviceInstanceId(ERROR_INVALID_HANDLE);
         },
         L"",
         usageError(
             L"'ZT Ethernet Adapter' names 2 ZT adapters; give the device instance id of the one to test: "
             L"<unknown>, <unknown>")},
        {args(L"cable-test"), 0, 64, twoAlike, L"",
         usageError(L"2 ZT adapters: name the one to test: " + bothListed)},
        {args(L"cable-test", L"ZT Adapter"), 0, 2,
         [](Machine& m) {
             twoAlike(m);
             m.device(disabled, 22);
         },
         L"",
         L"ztdiag: no ZT adapter named 'ZT Adapter'; the ZT adapters are " + bothListed
             + L", 'ZT Ethernet Adapter #2'\n"},
        // Given empty, ADAPTER names no adapter: it isn't "the only one".
        {args(L"cable-test", L""), 1, 64, nullptr, L"", empty},
        {args(L"cable-test", L"", L"--json"), 1, 64, nullptr, L"", empty},
        {args(L"watch", L""), 1, 64, nullptr, L"", empty},
        {args(L"watch", L""), 0, 64, nullptr, L"",
         usageError(L"an empty adapter name; there is no ZT adapter")},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(Ztdiag, namesMatchIgnoringCaseCharacterByCharacterAsThePlatformComparesThem)
{
    const Case cases[] = {
        {args(L"cable-test", L"zt ethernet adapter \u00E4"), 0, 2,
         [](Machine& m) { m.device(L"ZT Ethernet Adapter \u00C4", 22); }, L"",
         L"ztdiag: ZT Ethernet Adapter \u00C4: Device is disabled\n"},
        // The exact spelling wins nothing: case doesn't matter, so both are named.
        {args(L"cable-test", L"ZT Ethernet Adapter \u00C4"), 0, 64,
         [](Machine& m) {
             m.device(L"ZT Ethernet Adapter \u00C4", 22);
             m.device(L"zt ethernet adapter \u00E4", 22);
         },
         L"",
         usageError(
             L"'ZT Ethernet Adapter \u00C4' names 2 ZT adapters; give the device instance id of the one "
             L"to test: '"
             + instanceId(1) + L"', '" + instanceId(2) + L"'")},
        // One character for one: no linguistic folding of "\u00DF" into "SS".
        {args(L"cable-test", L"ZT STRASSE"), 0, 2, [](Machine& m) { m.device(L"ZT Stra\u00DFe", 22); }, L"",
         L"ztdiag: no ZT adapter named 'ZT STRASSE'; the ZT adapters are 'ZT Stra\u00DFe'\n"},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

std::wstring lowerCase(std::wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return std::towlower(c); });
    return text;
}

TEST(Ztdiag, anAdapterCanBeNamedByItsDeviceInstanceIdInAnyCase)
{
    // Both named `first`; the second one is disabled, so each answer tells which one was taken.
    const auto twoAlikeSecondDisabled = [](Machine& m) {
        m.device(first);
        m.device(first, 22);
    };
    const Case cases[] = {
        {args(L"cable-test", instanceId(1)), 0, 0, twoAlikeSecondDisabled,
         std::wstring(goodPairs) + L"Approx cable length: 144 meters (category 5e at 2.5 Gbps)\n", L""},
        {args(L"cable-test", lowerCase(instanceId(2))), 0, 2, twoAlikeSecondDisabled, L"",
         L"ztdiag: ZT Ethernet Adapter: Device is disabled\n"},
        {args(L"watch", instanceId(2)), 0, 0, twoAlikeSecondDisabled, watchingFirst(L"Device is disabled"),
         L""},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

// ---- Any name Windows gives an adapter -------------------------------------

// `disabled`'s connection besides `first`'s, and a third ZT adapter without one.
void connections(Machine& m)
{
    host::setNetConnections({otherMakers(),
                             firstConnection(),
                             {disabled,
                              L"Verbindung \u00C4",
                              14,
                              14,
                              {0x00, 0x1B, 0x21, 0x3A, 0x4F, 0x5D},
                              "{9D3E61A0-4C7B-4F25-8E19-6A0B2D5C7F43}"}});
    m.device(L"ZT Spare Adapter", 22);
}

const wchar_t* const disabledChosen = L"ztdiag: ZT Ethernet Adapter #2: Device is disabled\n";

TEST(Ztdiag, anAdapterCanBeNamedByItsConnectionsNameIndexOrMacAddress)
{
    const std::wstring adaptersAre
        = L"the ZT adapters are 'ZT Ethernet Adapter' (connection 'Ethernet 2'), 'ZT Ethernet Adapter #2' "
          L"(connection 'Verbindung \u00C4'), 'ZT Spare Adapter'";
    const Case cases[] = {
        {args(L"cable-test", L"ZT ETHERNET ADAPTER #2"), 2, 2, connections, L"", disabledChosen},
        {args(L"cable-test", L"Verbindung \u00C4"), 2, 2, connections, L"", disabledChosen},
        {args(L"cable-test", L"VERBINDUNG \u00E4"), 2, 2, connections, L"", disabledChosen},
        {args(L"cable-test", L"14"), 2, 2, connections, L"", disabledChosen},
        {args(L"cable-test", L"00-1B-21-3A-4F-5D"), 2, 2, connections, L"", disabledChosen},
        {args(L"cable-test", L"00:1b:21:3a:4f:5d"), 2, 2, connections, L"", disabledChosen},
        {args(L"cable-test", L"001B213a4F5d"), 2, 2, connections, L"", disabledChosen},
        {args(L"cable-test", instanceId(2)), 2, 2, connections, L"", disabledChosen},
        {args(L"watch", L"ethernet 2"), 2, 0, connections,
         watchingFirst(L"Connected, 2.5 Gbps; Temperature is ok"), L""},
        // An adapter IP Helper doesn't list is named as before.
        {args(L"cable-test", L"zt spare adapter"), 2, 2, connections, L"",
         L"ztdiag: ZT Spare Adapter: Device is disabled\n"},
        {args(L"cable-test", instanceId(3)), 2, 2, connections, L"",
         L"ztdiag: ZT Spare Adapter: Device is disabled\n"},
        // Other makers' connections, index 0, other forms of numbers name none.
        {args(L"cable-test", L"Ethernet"), 2, 2, connections, L"",
         L"ztdiag: no ZT adapter named 'Ethernet'; " + adaptersAre + L"\n"},
        {args(L"cable-test", L"7"), 2, 2, connections, L"",
         L"ztdiag: no ZT adapter named '7'; " + adaptersAre + L"\n"},
        {args(L"cable-test", L"0"), 2, 2, connections, L"",
         L"ztdiag: no ZT adapter named '0'; " + adaptersAre + L"\n"},
        {args(L"cable-test", L"0x0E"), 2, 2, connections, L"",
         L"ztdiag: no ZT adapter named '0x0E'; " + adaptersAre + L"\n"},
        {args(L"cable-test", L"00-1B:21-3A-4F-5D"), 2, 2, connections, L"",
         L"ztdiag: no ZT adapter named '00-1B:21-3A-4F-5D'; " + adaptersAre + L"\n"},
        {args(L"cable-test", L"001B.213A.4F5D"), 2, 2, connections, L"",
         L"ztdiag: no ZT adapter named '001B.213A.4F5D'; " + adaptersAre + L"\n"},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(Ztdiag, wordsThatNameSeveralAdaptersInDifferentWaysAreAUsageErrorThatTellsWhichIsWhich)
{
    const Case cases[] = {
        // The second adapter's connection has the first one's device name.
        {args(L"cable-test", L"zt ethernet adapter"), 2, 64,
         [](Machine&) {
             host::setNetConnections({firstConnection(), {disabled, first, 14, 14, {}, "{}"}});
         },
         L"",
         usageError(
             L"'zt ethernet adapter' names 2 ZT adapters; give the device instance id of the one to test: '"
             + instanceId(1) + L"' (the device name of 'ZT Ethernet Adapter'), '" + instanceId(2)
             + L"' (the connection name of 'ZT Ethernet Adapter #2')")},
        // A device name that is another adapter's interface index.
        {args(L"watch", L"12"), 1, 64, [](Machine& m) { m.device(L"12", 22); }, L"",
         usageError(L"'12' names 2 ZT adapters; give the device instance id of the one to watch: '"
                    + instanceId(1) + L"' (the interface index of 'ZT Ethernet Adapter'), '" + instanceId(2)
                    + L"' (the device name of '12')")},
        // Listed, a name that names another adapter too comes with the device instance id.
        {args(L"cable-test"), 1, 64, [](Machine& m) { m.device(L"Ethernet 2", 22); }, L"",
         usageError(L"2 ZT adapters: name the one to test: 'ZT Ethernet Adapter' (connection 'Ethernet 2'), "
                    L"'Ethernet 2' (device instance id '"
                    + instanceId(2) + L"')")},
        // One adapter named by two of its names is one adapter.
        {args(L"cable-test", L"ethernet 2"), 0, 2,
         [](Machine& m) {
             m.device(L"Ethernet 2", 22);
             host::setNetConnections({{L"Ethernet 2", L"Ethernet 2", 12, 12, {}, "{}"}});
         },
         L"", L"ztdiag: Ethernet 2: Device is disabled\n"},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

// What IP Helper doesn't tell is unknown, never a reason to fail.
TEST(Ztdiag, theListingShowsWhatIpHelperTellsOfEachConnection)
{
    const std::wstring disabledUnknown = notWorkingListed(disabled, L"Device is disabled");
    const Case cases[] = {
        {args(), 1, 0, nullptr, firstListed, L""},
        // No IPv4 on the connection: its IPv6 index. No hardware address: unknown.
        {args(), 1, 0,
         [](Machine&) {
             host::setNetConnections({{first, L"Ethernet 2", 0, 15, {}, "{}"}});
         },
         L"Name       : ZT Ethernet Adapter\nConnection : Ethernet 2\nifIndex    : 15\nMAC address: "
         L"<unknown>\n"
         L"State      : Ready\nLink       : Connected, 2.5 Gbps\n"
         L"Health     : Temperature is ok (PHY 54.25\u00B0C, MAC 61\u00B0C)\nFirmware   : 1.5.66\n"
         L"Cable test : Yes\n",
         L""},
        {args(L"--json"), 1, 0,
         [](Machine&) {
             host::setNetConnections({{first, L"", 0, 0, {}, "{}"}});
         },
         LR"({"adapters": [{"name": "ZT Ethernet Adapter", "connectionName": null, "interfaceIndex": null,
           "macAddress": null, "state": "ready", "stateText": "Ready", "problemCode": 0, "link": "connected",
           "speed": 2500000000, "speedText": "2.5 Gbps", "health": "ok", "healthText": "Temperature is ok",
           "phyTemperature": 54.25, "macTemperature": 61.0, "firmware": "1.5.66", "cableTest": true}]})",
         L""},
        // No connection at all, IP Helper failing: the listing and the names it doesn't give stand.
        {args(), 0, 0,
         [](Machine& m) {
             m.device(disabled, 22);
             host::setNetConnections({});
         },
         disabledUnknown, L""},
        {args(), 0, 0,
         [](Machine& m) {
             m.device(disabled, 22);
             host::failGetAdaptersAddresses(ERROR_NOT_ENOUGH_MEMORY);
         },
         disabledUnknown, L""},
        {args(L"cable-test", L"Ethernet 2"), 2, 2,
         [](Machine&) { host::failGetAdaptersAddresses(ERROR_NOT_ENOUGH_MEMORY); }, L"",
         L"ztdiag: no ZT adapter named 'Ethernet 2'; the ZT adapters are 'ZT Ethernet Adapter', "
         L"'ZT Ethernet Adapter #2'\n"},
        {args(L"cable-test", disabled), 2, 2,
         [](Machine&) { host::failGetAdaptersAddresses(ERROR_NOT_ENOUGH_MEMORY); }, L"", disabledChosen},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(Ztdiag, aFailingIpHelperIsTracedOnce)
{
    Machine machine(1);
    host::failGetAdaptersAddresses(ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(run(machine, args()), 0);
    EXPECT_TRUE(traced("[!] GetAdaptersAddresses() failed, code 8: the connections' names are unknown"))
        << testing::PrintToString(tracedMessages());
}

TEST(Ztdiag, aListLongerThanTheFirstBufferIsReadWithTheSizeIpHelperAsksFor)
{
    // Long enough for the first buffer, and longer again after the size was asked.
    std::vector<host::NetConnection> others;
    others.reserve(60);
    for (int i = 0; i < 60; ++i) {
        others.push_back({L"Virtual Adapter " + std::to_wstring(i) + std::wstring(150, L'x'),
                          L"vEthernet " + std::to_wstring(i),
                          static_cast<DWORD>(100 + i),
                          0,
                          {},
                          "{}"});
    }
    for (const bool grows : {false, true}) {
        SCOPED_TRACE(grows ? "grows" : "stays");
        Machine machine(1);
        std::vector<host::NetConnection> listed = others;
        listed.push_back(firstConnection());
        host::setNetConnections(listed);
        if (grows) {
            host::onGetAdaptersAddresses([listed](int call) mutable {
                if (call == 1) {
                    const std::vector<host::NetConnection> more(listed.begin(), listed.end() - 1);
                    listed.insert(listed.begin(), more.begin(), more.end());
                    host::setNetConnections(listed);
                }
            });
        }
        EXPECT_EQ(run(machine, args()), 0);
        EXPECT_EQ(machine.console.outText, firstListed);
        EXPECT_EQ(host::getAdaptersAddressesCalls(), grows ? 3 : 2);
    }
}

// ---- A lean listing ---------------------------------------------------------

TEST(Ztdiag, theListingOpensNoEventSubscription)
{
    const struct {
        std::vector<std::wstring> arguments;
        int subscriptions;  // ExecNotificationQueryAsync calls
    } cases[] = {
        {args(), 0},
        {args(L"--json"), 0},
        {args(L"cable-test"), 4},  // a cable test waits for the link to come back
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        Machine machine(1);
        EXPECT_EQ(run(machine, c.arguments), 0);
        const std::vector<sim::CallRecord> calls = machine.sim.service().calls();
        EXPECT_EQ(std::count_if(
                      calls.begin(), calls.end(),
                      [](const sim::CallRecord& call) { return call.call == "ExecNotificationQueryAsync"; }),
                  c.subscriptions);
        EXPECT_NE(machine.console.outText, L"");
    }
}

// ---- What scripts can trust -------------------------------------------------

void oldFirmware(Machine& m)
{
    m.sim.driver().setFirmware(first, 1, 5, 10);
}

TEST(Ztdiag, quietPrintsNothingAtAllOnlyTheExitCodeTells)
{
    const struct {
        std::vector<std::wstring> arguments;
        int devices;
        int code;
        void (*setup)(Machine&);
    } cases[] = {
        {args(L"--quiet"), 1, 0, nullptr},
        {args(L"--quiet", L"--json"), 0, 2, nullptr},
        {args(L"--quiet"), 1, 3, [](Machine&) { host::failGetClassDevs(ERROR_NOT_ENOUGH_MEMORY); }},
        {args(L"cable-test", L"--quiet"), 1, 0, nullptr},
        {args(L"cable-test", L"--quiet", L"--json"), 1, 1, faultyPairs},
        {args(L"cable-test", L"--quiet"), 1, 2, oldFirmware},
        {args(L"cable-test", L"--quiet", L"--json"), 1, 3, [](Machine& m) { m.sim.revokeLocator(); }},
        {args(L"cable-test", L"--quiet"), 2, 64, nullptr},
        {args(L"watch", L"--quiet"), 1, 0, nullptr},
        {args(L"watch", L"ZT Adapter", L"--quiet", L"--json"), 1, 2, nullptr},
        {args(L"--fast", L"--quiet", L"--json"), 1, 64, nullptr},
        {args(L"--quiet", L"--help"), 0, 0, nullptr},
        {args(L"--version", L"--quiet"), 0, 0, nullptr},
    };
    for (const auto& c : cases) {
        expectCase({c.arguments, c.devices, c.code, c.setup, L"", L""});
    }
}

TEST(Ztdiag, withJsonAnErrorIsAlsoAJsonObjectOnTheOutput)
{
    const auto serviceDown = [](Machine& m) { m.sim.revokeLocator(); };
    const std::wstring unreachable = L"ztdiag: can't connect to the management service (root\\wmi)\n";
    const Case cases[] = {
        // The object written out once; every other row's is checked as expectCase does.
        {args(L"cable-test", L"--json"), 1, 3, serviceDown,
         LR"j({"error": {"code": 3, "message": "can't connect to the management service (root\\wmi)"}})j",
         unreachable},
        {args(L"--json", L"cable-test", L"ZT Adapter"), 1, 2, nullptr, L"",
         L"ztdiag: no ZT adapter named 'ZT Adapter'; the ZT adapters are 'ZT Ethernet Adapter' (connection "
         L"'Ethernet 2')\n"},
        // A usage error: the first line's message; --json is read past the error.
        {args(L"--fast", L"--json"), 1, 64, nullptr, L"", usageError(L"unknown option '--fast'")},
        {args(L"cable-test", L"--json"), 2, 64, nullptr, L"",
         usageError(L"2 ZT adapters: name the one to test: 'ZT Ethernet Adapter' (connection 'Ethernet 2'), "
                    L"'ZT Ethernet Adapter #2'")},
        // The listing that found no adapter is still a listing.
        {args(L"--json"), 0, 2, nullptr,
         LR"j({"adapters": [], "error": {"code": 2, "message": "no ZT adapter found"}})j",
         L"ztdiag: no ZT adapter found\n"},
        // A watch's error is one line, as its events are.
        {args(L"watch", L"--json"), 1, 3, serviceDown, L"", unreachable},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(Ztdiag, aClosedOutputEndsTheCommandAtOnceWithExitCode74)
{
    const std::wstring closed = L"ztdiag: the output was closed\n";
    const std::wstring running = L"\rRunning the cable test on ZT Ethernet Adapter... 0 s";
    const struct {
        std::vector<std::wstring> arguments;
        int devices;
        bool terminal;
        int writes;  // before the output closes
        int code;
        std::wstring out;
        std::wstring err;
    } cases[] = {
        {args(), 1, false, 0, 74, L"", closed},
        {args(L"--json"), 2, false, 0, 74, L"", closed},
        {args(L"cable-test"), 1, false, 0, 74, L"", closed},
        {args(L"cable-test", L"--json"), 1, false, 0, 74, L"", closed},
        // On a terminal: while the running line shows, and as it is erased.
        {args(L"cable-test"), 1, true, 0, 74, L"", closed},
        {args(L"cable-test"), 1, true, 1, 74, running, closed},
        {args(L"--help"), 0, false, 0, 74, L"", closed},
        {args(L"--version"), 0, false, 0, 74, L"", closed},
        // An error is the answer, written or not.
        {args(L"cable-test", L"ZT Adapter", L"--json"), 1, false, 0, 2, L"",
         L"ztdiag: no ZT adapter named 'ZT Adapter'; the ZT adapters are 'ZT Ethernet Adapter' (connection "
         L"'Ethernet 2')\n"},
        {args(L"--json"), 0, false, 0, 2, L"", L"ztdiag: no ZT adapter found\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments) + (c.terminal ? " on a terminal" : ""));
        Machine machine(c.devices);
        machine.console.terminal = c.terminal;
        machine.console.closeOutputAfter(c.writes);
        EXPECT_EQ(run(machine, c.arguments), c.code);
        EXPECT_EQ(machine.console.outText, c.out);
        EXPECT_EQ(machine.console.errText, c.err);
        EXPECT_EQ(machine.console.writesAfterClose(), 1) << "nothing more is written once a write failed";
    }
}

TEST(Ztdiag, ctrlCDuringACableTestWaitsForTheDriversResultAndCtrlCAgainLeavesAtOnce)
{
    const std::wstring stillRunning
        = L"ztdiag: the cable test is still running on ZT Ethernet Adapter: waiting "
          L"for it to end and for the link to come back (Ctrl+C again to leave at "
          L"once)\n";
    const struct {
        int presses;
        void (*setup)(Machine&);
        std::wstring told;  // after stillRunning
    } cases[] = {
        {1, nullptr,
         L"ztdiag: the cable test on ZT Ethernet Adapter was interrupted; link after the test: Connected, "
         L"2.5 "
         L"Gbps\n"},
        {1, [](Machine& m) { m.sim.driver().onLinkRestore([](const std::wstring&) {}); },
         L"ztdiag: the cable test on ZT Ethernet Adapter was interrupted; link after the test: "
         L"Disconnected\n"},
        {2, nullptr,
         L"ztdiag: the cable test on ZT Ethernet Adapter was interrupted before its end; the link may still "
         L"be "
         L"down\n"},
    };
    for (const auto& c : cases) {
        for (const bool asJson : {false, true}) {
            SCOPED_TRACE(testing::PrintToString(c.presses) + (asJson ? " --json" : ""));
            Machine machine(1);
            if (c.setup != nullptr) {
                c.setup(machine);
            }
            machine.sim.driver().holdCableTest(first);
            ZtdiagLimits limits;
            limits.linkReturn = 100ms;
            int code = -1;
            std::thread tool([&] {
                code = ztdiagMain(asJson ? args(L"cable-test", L"--json") : args(L"cable-test"),
                                  machine.console, limits);
            });
            std::function<void()> ctrlC;
            for (int wait = 0; wait < 1000 && !(ctrlC = machine.console.interruptHandler()); ++wait) {
                std::this_thread::sleep_for(10ms);
            }
            EXPECT_TRUE(machine.sim.driver().waitUntilCableTestRunning(first));
            for (int press = 0; ctrlC && press < c.presses; ++press) {
                ctrlC();
            }
            if (c.presses == 2) {
                tool.join();  // while the driver's test goes on
            }
            machine.sim.driver().releaseCableTest(first);
            if (tool.joinable()) {
                tool.join();
            }
            EXPECT_EQ(code, 130);
            EXPECT_EQ(machine.console.errText, stillRunning + c.told);
            EXPECT_FALSE(machine.console.interruptHandler()) << "Ctrl+C ends the program again";
            if (asJson) {
                EXPECT_EQ(parsed(machine.console.outText), errorObject(130, firstLine(c.told)));
            } else {
                EXPECT_EQ(machine.console.outText, L"");
            }
        }
    }
}

TEST(Ztdiag, aUsageErrorComesBeforeAnyCallToTheService)
{
    const std::vector<std::wstring> cases[] = {
        args(L"watch", L"--category", L"6"), args(L"cable-test", L"--category", L"7"),
        args(L"cable-test", L"ZT Ethernet Adapter", L"extra"),
        args(L"cable-test"),  // two adapters
    };
    for (const auto& arguments : cases) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        Machine machine(2);
        EXPECT_EQ(run(machine, arguments), 64);
        EXPECT_TRUE(machine.sim.service().calls().empty());
    }
}

// ---- Metrics for the textfile collectors -------------------------------------

// The samples of an exposition, by name and labels as written.
std::map<std::string, std::string> samples(const std::string& text)
{
    std::map<std::string, std::string> found;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line[0] != '#') {
            const std::size_t value = line.rfind(' ');
            found[line.substr(0, value)] = line.substr(value + 1);
        }
    }
    return found;
}

std::string utf8(const std::wstring& text)
{
    return toUtf8(text);
}

// "name{adapter=...,connection=...,instance_id=...}" for the nth device.
std::string series(const char* name, const std::wstring& adapter, int device, const std::string& more = "")
{
    const std::string connection = device == 1 ? "Ethernet 2" : "";  // as the machine's IP Helper tells
    std::string id;
    for (const char c : utf8(instanceId(device))) {
        id += c == '\\' ? std::string("\\\\") : std::string(1, c);
    }
    return std::string(name) + "{adapter=\"" + utf8(adapter) + "\",connection=\"" + connection
        + "\",instance_id=\"" + id + "\"" + more + "}";
}

// What promtool says of the exposition: empty when it finds nothing wrong.
std::string promtoolCheck(const std::string& text)
{
    const std::string path = testing::TempDir() + "ztdiag-check.prom";
    std::ofstream(path) << text;
    std::string said;
    FILE* pipe = popen(("promtool check metrics < " + path + " 2>&1; echo \"exit $?\"").c_str(), "r");
    if (pipe == nullptr) {
        return "promtool can't be run";
    }
    for (std::array<char, 256> buffer{}; fgets(buffer.data(), buffer.size(), pipe) != nullptr;) {
        said += buffer.data();
    }
    pclose(pipe);
    return said == "exit 0\n" ? "" : said;
}

TEST(ZtdiagMetrics, stateEachAdapterAndLeaveOutWhatIsntKnown)
{
    Machine machine(2);
    addBackup(machine);
    EXPECT_EQ(run(machine, args(L"metrics")), 0);
    EXPECT_EQ(machine.console.errText, L"");
    const std::string text = utf8(machine.console.outText);
    EXPECT_EQ(promtoolCheck(text), "") << text;
    const std::map<std::string, std::string> found = samples(text);
    const std::wstring backup = L"ZT Backup Adapter";
    const std::map<std::string, std::string> expected = {
        {series("ztdiag_adapter_info", first, 1,
                ",firmware=\"1.5.66\",hardware_id=\"PCI\\\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02\","
                "driver_state=\"Ready\""),
         "1"},
        {series("ztdiag_adapter_info", disabled, 2,
                ",firmware=\"\",hardware_id=\"PCI\\\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02\","
                "driver_state=\"Device is disabled\""),
         "1"},
        {series("ztdiag_adapter_problem_code", first, 1), "0"},
        {series("ztdiag_adapter_problem_code", disabled, 2), "22"},
        {series("ztdiag_adapter_problem_code", backup, 3), "0"},
        {series("ztdiag_link_up", first, 1), "1"},
        {series("ztdiag_link_up", backup, 3), "0"},
        {series("ztdiag_link_speed_bytes", first, 1), "312500000"},
        {series("ztdiag_phy_temperature_celsius", first, 1), "54.25"},
        {series("ztdiag_mac_temperature_celsius", first, 1), "61"},
        {series("ztdiag_phy_temperature_celsius", backup, 3), "102.5"},
        {series("ztdiag_mac_temperature_celsius", backup, 3), "105"},
        {series("ztdiag_temperature_health", first, 1, ",state=\"ok\""), "1"},
        {series("ztdiag_temperature_health", first, 1, ",state=\"high\""), "0"},
        {series("ztdiag_temperature_health", first, 1, ",state=\"unknown\""), "0"},
        {series("ztdiag_temperature_health", backup, 3, ",state=\"ok\""), "0"},
        {series("ztdiag_temperature_health", backup, 3, ",state=\"high\""), "1"},
        {series("ztdiag_temperature_health", backup, 3, ",state=\"unknown\""), "0"},
        {series("ztdiag_cable_test_supported", first, 1), "1"},
        {series("ztdiag_cable_test_supported", backup, 3), "0"},
        {series("ztdiag_scrape_success", first, 1), "1"},
        {series("ztdiag_scrape_success", disabled, 2), "1"},
        {series("ztdiag_scrape_success", backup, 3), "1"},
    };
    for (const auto& sample : expected) {
        EXPECT_EQ(found.count(sample.first) != 0 ? found.at(sample.first) : "absent", sample.second)
            << sample.first;
    }
    // The rest are the three scrape durations and the backup's info.
    EXPECT_EQ(found.size(), expected.size() + 4) << text;
    EXPECT_EQ(machine.sim.startedCableTests(), 0);
}

TEST(ZtdiagMetrics, aReadThatFailsIsAFailedScrapeNeverAColdOrDownAdapter)
{
    const struct {
        void (*setup)(Machine&);
        std::wstring err;
    } cases[] = {
        {linkQueryFails,
         L"ztdiag: the management service didn't answer for 'ZT Ethernet Adapter'; the metrics mark the "
         L"scrape as "
         L"failed\n"},
        {[](Machine& m) { m.sim.service().injectFault(sim::Fault::on("ConnectServer", E_FAIL)); },
         L"ztdiag: can't connect to the management service (root\\wmi); the metrics mark every working "
         L"adapter's scrape as failed\n"},
    };
    for (const auto& c : cases) {
        Machine machine(1);
        c.setup(machine);
        EXPECT_EQ(run(machine, args(L"metrics")), 3);
        EXPECT_EQ(machine.console.errText, c.err);
        const std::map<std::string, std::string> found = samples(utf8(machine.console.outText));
        EXPECT_EQ(found.at(series("ztdiag_scrape_success", first, 1)), "0");
        for (const char* left : {"ztdiag_link_up", "ztdiag_link_speed_bytes",
                                 "ztdiag_phy_temperature_celsius", "ztdiag_cable_test_supported"}) {
            EXPECT_EQ(found.count(series(left, first, 1)), 0U) << left;
        }
    }
}

TEST(ZtdiagMetrics, labelValuesAreEscapedAndUtf8)
{
    const std::wstring odd = L"ZT \"Lab\" \\ Adapter \u00C4\u00DF\u20AC";
    Machine machine(0);
    machine.device(odd, 22);
    EXPECT_EQ(run(machine, args(L"metrics")), 0);
    const std::string text = utf8(machine.console.outText);
    EXPECT_EQ(promtoolCheck(text), "") << text;
    EXPECT_EQ(samples(text).count("ztdiag_adapter_problem_code{adapter=\"ZT \\\"Lab\\\" \\\\ Adapter "
                                  "\xC3\x84\xC3\x9F\xE2\x82\xAC\",connection=\"\",instance_id=\""
                                  "PCI\\\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02\\\\4&2F6B3A1&0&00E1\"}"),
              1U)
        << text;
}

std::string fileText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A folder of its own for each test's files.
std::string freshFolder(const char* name)
{
    std::string folder = testing::TempDir() + name;
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder;
}

TEST(ZtdiagMetrics, aFileIsReplacedWholeOrLeftAsItWas)
{
    const std::string folder = freshFolder("ztdiag-metrics");
    const std::string path = folder + "/ztdiag.prom";
    const std::wstring widePath(path.begin(), path.end());
    {
        Machine machine(1);
        EXPECT_EQ(run(machine, args(L"metrics", L"--output", widePath)), 0);
        EXPECT_EQ(machine.console.outText, L"");
        EXPECT_EQ(promtoolCheck(fileText(path)), "");
    }
    const std::string before = fileText(path);
    const struct {
        const char* function;
        DWORD error;
        const wchar_t* step;
    } cases[] = {
        {"CreateFileW", ERROR_ACCESS_DENIED, L"create: error 5"},
        {"WriteFile", ERROR_DISK_FULL, L"write: error 112"},
        {"FlushFileBuffers", ERROR_WRITE_FAULT, L"write: error 29"},
        {"MoveFileExW", ERROR_SHARING_VIOLATION, L"replace: error 32"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.function);
        Machine machine(1);
        machine.sim.heat(9000, 9100);  // what would be new
        host::failFileFunction(c.function, c.error);
        EXPECT_EQ(run(machine, args(L"metrics", L"--output=" + widePath)), 73);
        EXPECT_EQ(machine.console.errText,
                  L"ztdiag: can't write '" + widePath + L"' (" + c.step
                      + L"); the old file is left as it was\n");
        EXPECT_EQ(fileText(path), before);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);  // no new file left
        EXPECT_EQ(host::openFileHandles(), 0);
    }
}

TEST(ZtdiagMetrics, aReaderNeverSeesPartOfAFile)
{
    const std::string path = freshFolder("ztdiag-reader") + "/ztdiag.prom";
    const std::wstring widePath(path.begin(), path.end());
    Machine machine(1);
    ASSERT_EQ(run(machine, args(L"metrics", L"--output", widePath)), 0);
    std::atomic<bool> writing{true};
    int partial = 0;
    std::thread reader([&] {
        while (writing) {
            const std::string text = fileText(path);
            partial += text.empty() || text.back() != '\n'
                || text.find("ztdiag_scrape_success{") == std::string::npos;
        }
    });
    for (int i = 0; i < 50; ++i) {
        machine.sim.heat(5000 + i, 6000 + i);
        EXPECT_EQ(ztdiagMain(args(L"metrics", L"--output", widePath), machine.console), 0);
    }
    writing = false;
    reader.join();
    EXPECT_EQ(partial, 0);
}

// ---- watch: what reaches the tool, in order, until the user or the output ends it

TEST(ZtdiagWatch, eventsTheServiceRefusesEndTheWatchWithExitCode3AndSayWhich)
{
    const Case cases[] = {
        {args(L"watch", first), 1, 3,
         [](Machine& m) {
             m.sim.service().injectFault(sim::Fault::on("ExecNotificationQueryAsync", WBEM_E_ACCESS_DENIED)
                                             .forTarget(L"MSNdis_StatusMediaConnect"));
         },
         L"",
         L"ztdiag: ZT Ethernet Adapter: can't subscribe to its events MSNdis_StatusMediaConnect (error "
         L"0x80041003)\n"},
        {args(L"watch", first, L"--json"), 1, 3,
         [](Machine& m) {
             m.sim.service().injectFault(sim::Fault::on("ExecNotificationQueryAsync", WBEM_E_FAILED));
         },
         L"",
         L"ztdiag: ZT Ethernet Adapter: can't subscribe to its events MSNdis_NotifyAdapterArrival, "
         L"MSNdis_NotifyAdapterRemoval, MSNdis_StatusMediaConnect, MSNdis_StatusMediaDisconnect (error "
         L"0x80041001)\n"},
        // Watching all: the arrival of any adapter is asked for first.
        {args(L"watch"), 2, 3,
         [](Machine& m) {
             m.sim.service().injectFault(sim::Fault::on("ExecNotificationQueryAsync", WBEM_E_ACCESS_DENIED)
                                             .forTarget(L"MSNdis_NotifyAdapterArrival"));
         },
         L"",
         L"ztdiag: can't subscribe to the arrival of new adapters, MSNdis_NotifyAdapterArrival (error "
         L"0x80041003)\n"},
        // The second adapter's removal, after the first's subscriptions stood.
        {args(L"watch"), 2, 3,
         [](Machine& m) {
             m.sim.service().injectFault(sim::Fault::on("ExecNotificationQueryAsync", WBEM_E_ACCESS_DENIED)
                                             .forTarget(L"MSNdis_NotifyAdapterRemoval")
                                             .onlyCall(2));
         },
         L"",
         L"ztdiag: ZT Ethernet Adapter #2: can't subscribe to its events MSNdis_NotifyAdapterRemoval (error "
         L"0x80041003)\n"},
    };
    for (const Case& c : cases) {
        expectCase(c);
    }
}

TEST(ZtdiagWatch, aSpeedNotKnownAtAConnectionIsUnknownNeverZero)
{
    const struct {
        const char* what;
        void (*change)(Machine&);
        std::size_t lines;  // it adds
    } cases[] = {
        {"the speed's query fails",
         [](Machine& m) {
             linkQueryFails(m);
             m.sim.ndis().connect(first);
         },
         1},
        {"NDIS doesn't know it",
         [](Machine& m) {
             m.sim.ndis().setLinkState(first, sim::LinkState::at(speedUnknown));
             m.sim.ndis().connect(first);
         },
         1},
        {"the link is down again when the tool asks",
         [](Machine& m) {
             m.sim.service().setLatency("ExecMethod", 50ms);
             m.sim.ndis().connect(first).wait();
             m.sim.ndis().disconnect(first);
         },
         2},
    };
    for (const auto& c : cases) {
        for (const bool asJson : {false, true}) {
            SCOPED_TRACE(std::string(c.what) + (asJson ? ", --json" : ""));
            Machine machine(1);
            const std::vector<std::wstring> arguments = asJson ? args(L"watch", L"--json") : args(L"watch");
            EXPECT_EQ(watchThrough(machine, arguments, asJson ? 1 : 2, {{31, c.change, c.lines}}), 0);
            if (!asJson) {
                EXPECT_EQ(machine.console.outText,
                          watchingFirst(L"Connected, 2.5 Gbps; Temperature is ok")
                              + watchLine(31, first, L"Connected, <unknown>")
                              + (c.lines > 1 ? watchLine(31, first, L"Disconnected") : L""));
                continue;
            }
            const std::vector<json> lines = documents(machine.console.outText, true);
            ASSERT_EQ(lines.size(), 1 + c.lines);
            EXPECT_EQ(lines[1], json::parse(R"({"time":"2024-05-14T09:31:00.000+00:00",
                "adapter":"ZT Ethernet Adapter","event":"connected","link":"connected","speed":null,
                "speedText":null,"downshift":false,"previousSpeed":null})"));
        }
    }
}

// Times as "2024-05-14T09:30:00.000+01:00", read back.
struct ParsedTime {
    int year, month, day, hour, minute, second, millisecond;
    std::string offset;  // "+01:00", empty when none is given
};
ParsedTime parseTime(const std::string& text)
{
    static const std::regex iso(
        R"((\d{4})-(\d{2})-(\d{2})T(\d{2}):(\d{2}):(\d{2})\.(\d{3})([+-]\d{2}:\d{2})?)");
    std::smatch match;
    EXPECT_TRUE(std::regex_match(text, match, iso)) << text;
    if (match.empty()) {
        return {};
    }
    const auto number = [&match](int i) { return std::stoi(match[i].str()); };
    return {number(1), number(2), number(3), number(4), number(5), number(6), number(7), match[8].str()};
}

TEST(ZtdiagWatch, timesAreIso8601LocalTimeWithTheUtcOffsetInForce)
{
    const struct {
        LONG bias;  // minutes: UTC = local + bias
        DWORD part;  // of the year, as GetTimeZoneInformation answers it
        LONG daylightBias;
        const char* offset;
    } cases[] = {
        {0, TIME_ZONE_ID_UNKNOWN, 0, "+00:00"},
        {-60, TIME_ZONE_ID_STANDARD, -60, "+01:00"},
        {-60, TIME_ZONE_ID_DAYLIGHT, -60, "+02:00"},
        {300, TIME_ZONE_ID_DAYLIGHT, -60, "-04:00"},
        {-330, TIME_ZONE_ID_UNKNOWN, 0, "+05:30"},
        {210, TIME_ZONE_ID_STANDARD, 0, "-03:30"},
        {0, TIME_ZONE_ID_INVALID, 0, ""},  // no zone: local time without an offset
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.offset);
        Machine machine(1);
        host::setTimeZone(c.bias, c.part, 0, c.daylightBias);
        host::setLocalTime({2026, 11, 3, 25, 17, 3, 12, 345});
        EXPECT_EQ(run(machine, args(L"watch", L"--json")), 0);
        const std::vector<json> lines = documents(machine.console.outText, true);
        ASSERT_EQ(lines.size(), 1U);
        const ParsedTime time = parseTime(lines[0]["time"].get<std::string>());
        EXPECT_EQ(std::vector<int>({time.year, time.month, time.day, time.hour, time.minute, time.second,
                                    time.millisecond}),
                  std::vector<int>({2026, 11, 25, 17, 3, 12, 345}));
        EXPECT_EQ(time.offset, c.offset);
    }
}

TEST(ZtdiagWatch, linesFollowTheOrderEventsReachedTheToolWhateverThreadDeliversThem)
{
    // Every stamp a millisecond after the one before; the speed's query slow,
    // so that deliveries overtake the answers; the service's pooled threads
    // deliver several at once.
    Machine machine(1);
    machine.sim.service().setPooledDeliveryThreads(true);
    machine.sim.service().setLatency("ExecMethod", 5ms);
    host::setLocalTimeStep(1);
    constexpr int changes = 24;
    const int code = run(machine, args(L"watch", L"--json"), [&] {
        ASSERT_TRUE(machine.console.waitForLines(1));
        machine.sim.service().holdDeliveries();
        for (int i = 0; i < changes; ++i) {
            if (i % 2 == 0) {
                machine.sim.ndis().disconnect(first);
            } else {
                machine.sim.ndis().connect(first);
            }
        }
        EXPECT_TRUE(machine.sim.service().waitForHeld(sim::WmiService::kDeliveryThreads));
        machine.sim.service().releaseDeliveries();
        EXPECT_TRUE(machine.sim.service().drain(10s));
        EXPECT_TRUE(machine.console.waitForLines(1 + changes));
    });
    EXPECT_EQ(code, 0);
    const std::vector<json> lines = documents(machine.console.outText, true);
    ASSERT_EQ(lines.size(), 1U + changes);
    int connected = 0;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        SCOPED_TRACE(lines[i].dump());
        const ParsedTime before = parseTime(lines[i - 1]["time"].get<std::string>());
        const ParsedTime now = parseTime(lines[i]["time"].get<std::string>());
        EXPECT_LT(std::make_tuple(before.minute, before.second, before.millisecond),
                  std::make_tuple(now.minute, now.second, now.millisecond));
        connected += lines[i]["event"] == "connected" ? 1 : 0;
        // The speed of that connection or unknown: the link was at 2.5 Gbps all along.
        if (lines[i]["event"] == "connected" && !lines[i]["speed"].is_null()) {
            EXPECT_EQ(lines[i]["speed"], 2500000000U);
        }
    }
    EXPECT_EQ(connected, changes / 2);
}

TEST(ZtdiagWatch, anAdapterThatArrivesWhileWatchingAllIsWatchedFromThenOn)
{
    // Arrives at 1 Gbps, hot; the device manager lists it first.
    const auto backupArrives = [](Machine& m) {
        m.device(backup);
        m.sim.driver().addAdapter(backup, {1, 5, 66, 10250, 10500});
        m.sim.ndis().arrive(backup, sim::LinkState::at(gbps1));
    };
    const struct {
        std::vector<std::wstring> arguments;
        std::vector<Step> steps;
        std::wstring out;  // after the first line
    } cases[] = {
        {args(L"watch"),
         {
             // Not a ZT adapter: nothing to say, and its line would come before the next.
             {31, [](Machine& m) { m.sim.ndis().arrive(L"Other Network Adapter"); }, 0},
             {32, backupArrives, 1},
             {33, [](Machine& m) { m.sim.ndis().disconnect(backup); }, 1},
             {34, [](Machine& m) { m.sim.ndis().remove(backup); }, 1},
             {35, [](Machine& m) { m.sim.ndis().arrive(backup, sim::LinkState::at(gbps1)); }, 1},
             {36, [](Machine& m) { m.sim.ndis().connect(backup); }, 1},
         },
         watchLine(32, backup, L"New adapter: Connected, 1.0 Gbps; Temperature is high")
             + watchLine(33, backup, L"Disconnected") + watchLine(34, backup, L"Removed")
             + watchLine(35, backup, L"Arrived") + watchLine(36, backup, L"Connected, 1.0 Gbps")},
        // A named adapter only.
        {args(L"watch", first),
         {
             {32, backupArrives, 0},
             {33, [](Machine& m) { m.sim.ndis().disconnect(backup); }, 0},
             {34, [](Machine& m) { m.sim.unplug(); }, 1},
         },
         watchLine(34, first, L"Disconnected")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        Machine machine(1);
        EXPECT_EQ(watchThrough(machine, c.arguments, 2, c.steps), 0);
        EXPECT_EQ(machine.console.errText, L"");
        EXPECT_EQ(machine.console.outText, watchingFirst(L"Connected, 2.5 Gbps; Temperature is ok") + c.out);
        EXPECT_TRUE(machine.sim.service().subscriptions().empty());
    }
}

TEST(ZtdiagWatch, aChangeOfTheTemperatureHealthIsALine)
{
    const std::vector<Step> steps = {
        {31, [](Machine& m) { m.sim.heat(10250, 10500); }, 1},
        {32, [](Machine& m) { m.sim.driver().setThermalFlags(first, 0); }, 1},
        {33, [](Machine& m) { m.sim.driver().setThermalFlags(first, 12); }, 1},
        {34, [](Machine& m) { m.sim.heat(5425, 6100); }, 1},
    };
    ZtdiagLimits limits;
    limits.healthPeriod = 5ms;
    for (const bool asJson : {false, true}) {
        SCOPED_TRACE(asJson ? "--json" : "text");
        Machine machine(1);
        const std::vector<std::wstring> arguments = asJson ? args(L"watch", L"--json") : args(L"watch");
        EXPECT_EQ(watchThrough(machine, arguments, asJson ? 1 : 2, steps, limits), 0);
        if (!asJson) {
            EXPECT_EQ(machine.console.outText,
                      watchingFirst(L"Connected, 2.5 Gbps; Temperature is ok")
                          + watchLine(31, first, L"Temperature is high")
                          + watchLine(32, first, L"Temperature <unknown>")
                          + watchLine(33, first, L"Temperature is high")
                          + watchLine(34, first, L"Temperature is ok"));
            continue;
        }
        const std::vector<json> lines = documents(machine.console.outText, true);
        ASSERT_EQ(lines.size(), 5U);
        EXPECT_EQ(lines[2], json::parse(R"({"time":"2024-05-14T09:32:00.000+00:00",
            "adapter":"ZT Ethernet Adapter","event":"health","health":"unknown",
            "healthText":"Temperature <unknown>"})"));
    }
}

TEST(ZtdiagWatch, aClosedOutputEndsTheWatchAtOnceAndItsSubscriptions)
{
    const struct {
        std::vector<std::wstring> arguments;
        int texts;  // the output takes these, then is closed
        std::size_t lines;  // what was out before
    } cases[] = {
        {args(L"watch"), 0, 0},  // the first line
        {args(L"watch"), 1, 1},  // the state
        {args(L"watch", L"--json"), 1, 1},  // the first event
        {args(L"watch"), 2, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments) + " closed after " + std::to_string(c.texts));
        Machine machine(1);
        machine.console.closeOutputAfter(c.texts);
        EXPECT_EQ(run(machine, c.arguments,
                      [&] {
                          machine.sim.unplug();
                          // The tool ends on its own, before any Ctrl+C: it gives Ctrl+C back.
                          for (int wait = 0; wait < 1000 && machine.console.interruptHandler(); ++wait) {
                              std::this_thread::sleep_for(10ms);
                          }
                      }),
                  74);
        EXPECT_EQ(machine.console.errText, L"ztdiag: the output was closed\n");
        EXPECT_EQ(static_cast<std::size_t>(
                      std::count(machine.console.outText.begin(), machine.console.outText.end(), L'\n')),
                  c.lines);
        EXPECT_TRUE(machine.sim.service().subscriptions().empty());
        EXPECT_FALSE(machine.console.interruptHandler()) << "Ctrl+C ends the program again";
    }
}

TEST(ZtdiagWatch, aMetricsFileKeepsTheCountersOfABurstOfEventsAndTheLastReadings)
{
    std::vector<Step> burst;
    for (WORD minute = 31; minute < 41; minute += 2) {
        burst.push_back({minute, [](Machine& m) { m.sim.renegotiate(gbps1); }, 2});  // a downshift
        burst.push_back({static_cast<WORD>(minute + 1), [](Machine& m) { m.sim.renegotiate(gbps5); }, 2});
    }
    burst.push_back({41, [](Machine& m) { m.sim.remove(); }, 1});
    burst.push_back({42, [](Machine& m) { m.sim.arrive(); }, 1});
    const struct {
        const char* name;
        std::vector<Step> steps;
        std::chrono::milliseconds healthPeriod;  // long: no reading after the first, so no line unasked
        std::map<std::string, std::string> expected;
    } cases[] = {
        {"a burst, a removal and a return",
         burst,
         std::chrono::hours(1),
         {{series("ztdiag_link_changes_total", first, 1), "20"},
          {series("ztdiag_link_downshifts_total", first, 1), "5"},
          {series("ztdiag_adapter_removals_total", first, 1), "1"},
          {series("ztdiag_link_last_change_timestamp_seconds", first, 1), "1715679600"},
          {series("ztdiag_cable_test_supported", first, 1), "1"},
          {series("ztdiag_scrape_success", first, 1), "1"},
          {series("ztdiag_link_up", first, 1), "absent"},  // back, and no link event since
          {series("ztdiag_phy_temperature_celsius", first, 1), "absent"}}},  // nor a reading
        {"temperatures as last read",
         {{31, [](Machine& m) { m.sim.heat(10250, 10500); }, 1}},
         5ms,
         {{series("ztdiag_link_changes_total", first, 1), "0"},
          {series("ztdiag_link_up", first, 1), "1"},
          {series("ztdiag_phy_temperature_celsius", first, 1), "102.5"},
          {series("ztdiag_temperature_health", first, 1, ",state=\"high\""), "1"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = freshFolder("ztdiag-watch") + "/ztdiag.prom";
        const std::wstring widePath(path.begin(), path.end());
        ZtdiagLimits limits;
        limits.healthPeriod = c.healthPeriod;
        Machine machine(1);
        EXPECT_EQ(watchThrough(machine, args(L"watch", L"--metrics", widePath), 2, c.steps, limits), 0);
        const std::string text = fileText(path);
        EXPECT_EQ(promtoolCheck(text), "") << text;
        const std::map<std::string, std::string> found = samples(text);
        for (const auto& sample : c.expected) {
            EXPECT_EQ(found.count(sample.first) != 0 ? found.at(sample.first) : "absent", sample.second)
                << sample.first;
        }
        EXPECT_EQ(
            std::distance(std::filesystem::directory_iterator(std::filesystem::path(path).parent_path()), {}),
            1);
        EXPECT_EQ(host::openFileHandles(), 0);
    }
}

TEST(ZtdiagWatch, aMetricsFileThatCantBeWrittenEndsTheWatch)
{
    const std::string path = freshFolder("ztdiag-watch-denied") + "/ztdiag.prom";
    const std::wstring widePath(path.begin(), path.end());
    Machine machine(1);
    host::failFileFunction("CreateFileW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(run(machine, args(L"watch", L"--metrics", widePath)), 73);
    EXPECT_EQ(machine.console.errText,
              L"ztdiag: can't write '" + widePath + L"' (create: error 5); the old file is left as it was\n");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(ZtdiagWatch, itsStartCostsOneLinkStateQueryAnAdapterAndOneSubscriptionToArrivalsWhenWatchingAll)
{
    const struct {
        std::vector<std::wstring> arguments;
        int subscriptions;  // ExecNotificationQueryAsync calls
    } cases[] = {
        {args(L"watch"), 5},  // the adapter's four and the arrival of any
        {args(L"watch", first), 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        Machine machine(1);
        EXPECT_EQ(run(machine, c.arguments), 0);
        EXPECT_EQ(machine.sim.ndis().requests().size(), 1U);
        const std::vector<sim::CallRecord> calls = machine.sim.service().calls();
        EXPECT_EQ(std::count_if(
                      calls.begin(), calls.end(),
                      [](const sim::CallRecord& call) { return call.call == "ExecNotificationQueryAsync"; }),
                  c.subscriptions);
    }
}

}  // namespace
