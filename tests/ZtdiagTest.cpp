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
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
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
const wchar_t* const backup = L"ZT Backup Adapter";
constexpr std::uint64_t gbps1 = 1000000000;
constexpr std::uint64_t gbps5 = 5000000000;
// NDIS_LINK_SPEED_UNKNOWN on a connected link.
constexpr std::uint64_t speedUnknown = ~0ULL;

// The device instance id of the machine's nth network device (from 1).
std::wstring instanceId(int n)
{
    return L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02\\4&2F6B3A1&0&00E" + std::to_wstring(n);
}

// Until `done` answers true, 10 s at most.
void waitUntil(const std::function<bool()>& done)
{
    for (int wait = 0; wait < 1000 && !done(); ++wait) {
        std::this_thread::sleep_for(10ms);
    }
}

// Records what the tool writes and the handler it leaves for Ctrl+C; its
// output can be closed, as a pipe whose reader went away.
class RecordingConsole : public Console {
public:
    bool out(const std::wstring& text) override
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (textsTaken_ == textsBeforeClose) {
            ++writesAfterClose;
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
    int textsBeforeClose = -1;  // the output takes this many texts, then is closed; -1: never
    std::atomic<int> writesAfterClose{0};  // writes refused once the output was closed

private:
    std::mutex lock_;
    std::condition_variable wrote_;
    int textsTaken_ = 0;
    std::function<void()> interrupt_;
};

// An IP Helper entry: the adapter, its connection's name and index, its MAC address's last byte.
host::NetConnection connection(const wchar_t* adapter, const wchar_t* name, DWORD index, BYTE mac,
                               const char* guid)
{
    return {adapter, name, index, index, {0x00, 0x1B, 0x21, 0x3A, 0x4F, mac}, guid};
}
// `first`'s connection, and one of another maker's adapter.
host::NetConnection firstConnection()
{
    return connection(first, L"Ethernet 2", 12, 0x5C, "{5A1C7D2E-0B3F-4E61-9C8A-2D4F6B1E3A70}");
}
host::NetConnection otherMakers()
{
    return connection(L"Onboard Gigabit Ethernet", L"Ethernet", 7, 0x60,
                      "{0E4B9A53-7C21-4D8F-A6B0-3F5E2C9D1B84}");
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
        waitUntil([] { return ServiceThread::running() == 0; });
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

// A second working adapter: no link, hot, firmware too old for a cable test.
void addBackup(Machine& m)
{
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

// The service's `call` answers `error` (for `target` only if given); only its `nth` such call if given.
std::function<void(Machine&)> fails(const char* call, HRESULT error, const wchar_t* target = L"", int nth = 0)
{
    const sim::Fault fault = sim::Fault::on(call, error).forTarget(target);
    return [=](Machine& m) { m.sim.service().injectFault(nth == 0 ? fault : fault.onlyCall(nth)); };
}
std::function<void(Machine&)> all(const std::vector<std::function<void(Machine&)>>& setups)
{
    return [setups](Machine& m) {
        for (const auto& setup : setups) {
            setup(m);
        }
    };
}
std::function<void(Machine&)> withDevice(const std::wstring& name, DWORD problemCode = 0)
{
    return [=](Machine& m) { m.device(name, problemCode); };
}
std::function<void(Machine&)> connectionsAre(const std::vector<host::NetConnection>& listed)
{
    return [listed](Machine&) { host::setNetConnections(listed); };
}
std::function<void(Machine&)> linkIs(const sim::LinkState& state)
{
    return [state](Machine& m) { m.sim.ndis().setLinkState(first, state); };
}
void connects(Machine& m)
{
    m.sim.ndis().connect(first);
}
void linkQueryFails(Machine& m)
{
    fails("ExecMethod", WBEM_E_FAILED, L"MSNdis_LinkState.WmiQueryLinkState")(m);
}

std::wstring usageError(const std::wstring& message)
{
    return L"ztdiag: " + message
        + L"\nUsage: ztdiag [cable-test [ADAPTER] [--category 5e|6|6a] | watch [ADAPTER] [--metrics FILE]"
          L" | metrics [ADAPTER] [--output FILE]] [--json] [--quiet] (ztdiag --help tells more)\n";
}

// The listing's lines of an adapter: its fields from Name to Cable test.
std::wstring listed(std::initializer_list<std::wstring> fields)
{
    static const wchar_t* const labels[]
        = {L"Name       ", L"Connection ", L"ifIndex    ", L"MAC address", L"State      ",
           L"Link       ", L"Health     ", L"Firmware   ", L"Cable test "};
    const wchar_t* const* label = labels;
    std::wstring text;
    for (const std::wstring& field : fields) {
        text += *label++ + (L": " + field) + L"\n";
    }
    return text;
}
const wchar_t* const healthOk = L"Temperature is ok (PHY 54.25\u00B0C, MAC 61\u00B0C)";
// The listing of `first`, with this link and health.
std::wstring firstListed(const std::wstring& link = L"Connected, 2.5 Gbps",
                         const std::wstring& health = healthOk)
{
    return listed(
        {first, L"Ethernet 2", L"12", L"00-1B-21-3A-4F-5C", L"Ready", link, health, L"1.5.66", L"Yes"});
}
// A device that isn't working, as the listing shows it; `first` with its connection.
std::wstring notWorkingListed(const std::wstring& name, const std::wstring& state)
{
    const bool known = name == first;
    return listed({name, known ? L"Ethernet 2" : L"<unknown>", known ? L"12" : L"<unknown>",
                   known ? L"00-1B-21-3A-4F-5C" : L"<unknown>", state, L"<unknown>", L"Temperature <unknown>",
                   L"<unknown>", L"No, the device isn't ready"});
}

// `first` in the listing's JSON, with these values.
json firstJson(const json& link = "connected", const json& speed = 2500000000U,
               const json& speedText = "2.5 Gbps", const json& phy = 54.25)
{
    json adapter = json::parse(R"({"name": "ZT Ethernet Adapter", "connectionName": "Ethernet 2",
        "interfaceIndex": 12, "macAddress": "00-1B-21-3A-4F-5C", "state": "ready", "stateText": "Ready",
        "problemCode": 0, "health": "ok", "healthText": "Temperature is ok", "macTemperature": 61.0,
        "firmware": "1.5.66", "cableTest": true})");
    adapter.update({{"link", link}, {"speed", speed}, {"speedText", speedText}, {"phyTemperature", phy}});
    return adapter;
}
// `adapter` in the listing's JSON with no connection IP Helper tells of.
json unconnected(json adapter)
{
    adapter.update(json::parse(R"({"connectionName": null, "interfaceIndex": null, "macAddress": null})"));
    return adapter;
}
// A device that isn't working in the listing's JSON; `first` with its connection.
json notWorkingJson(const std::string& name, const char* state, const std::string& stateText,
                    unsigned problemCode)
{
    json adapter = firstJson(nullptr, nullptr, nullptr, nullptr);
    adapter.update(
        json::parse(R"({"health": "unknown", "healthText": "Temperature <unknown>", "firmware": null,
        "macTemperature": null, "cableTest": false})"));
    adapter.update(
        {{"name", name}, {"state", state}, {"stateText", stateText}, {"problemCode", problemCode}});
    return name == "ZT Ethernet Adapter" ? adapter : unconnected(adapter);
}
std::wstring listingJson(const std::vector<json>& adapters)
{
    return fromUtf8(json{{"adapters", adapters}}.dump());
}

const wchar_t* const goodPairs = L"Cable test on ZT Ethernet Adapter\nPair A: OK\nPair B: OK\nPair C: OK\n"
                                 L"Pair D: OK\nThe overall status of cable is good\n";
// A cable test's JSON on `first` with four good pairs and these values.
std::wstring goodPairsJson(const json& link, const json& speed, const json& speedText,
                           const json& cableLength, const json& category)
{
    json pairs = json::array();
    for (const std::string pair : {"A", "B", "C", "D"}) {
        pairs.push_back(json::parse(R"({"status": 0, "verdict": "OK", "distance": null, "partner": null})"));
        pairs.back().update({{"pair", pair}, {"text", "Pair " + pair + ": OK"}});
    }
    json report = {{"adapter", "ZT Ethernet Adapter"}, {"good", true}, {"pairs", pairs}, {"link", link}};
    report.update(
        {{"speed", speed}, {"speedText", speedText}, {"cableLength", cableLength}, {"category", category}});
    return fromUtf8(report.dump());
}

// A line of `watch` at 09:`minute` (UTC, as the host's zone is after reset).
std::wstring watchLine(int minute, const std::wstring& adapter, const std::wstring& text)
{
    return L"2024-05-14T09:" + std::to_wstring(minute) + L":00.000+00:00  " + adapter + L"  " + text + L"\n";
}
// What `watch` prints first for `first` alone, at the host's clock (09:30).
std::wstring watchingFirst(const std::wstring& state = L"Connected, 2.5 Gbps; Temperature is ok")
{
    return L"Watching ZT Ethernet Adapter; press Ctrl+C to stop.\n" + watchLine(30, first, state);
}
// The first line of `watch --json` for `first`: its state when all is well but for `changes`, at the
// host's clock unless given.
std::wstring watchingFirstJson(const json& changes = json::object(),
                               const std::string& time = "2024-05-14T09:30:00.000+00:00")
{
    json line = json::parse(R"({"adapter": "ZT Ethernet Adapter", "event": "state", "problemCode": 0,
        "link": "connected", "speed": 2500000000, "speedText": "2.5 Gbps", "health": "ok",
        "healthText": "Temperature is ok"})");
    line["time"] = time;
    line.update(changes);
    return fromUtf8(line.dump());
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
    waitUntil([&] { return !watch || ended || (ctrlC = machine.console.interruptHandler()); });
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
        return {json::parse(toUtf8(text))};
    }
    std::vector<json> lines;
    std::wistringstream in(text);
    for (std::wstring line; std::getline(in, line);) {
        lines.push_back(json::parse(toUtf8(line)));
    }
    return lines;
}

struct Case {
    std::vector<std::wstring> arguments;
    int devices;  // as Machine takes them
    int code;
    std::function<void(Machine&)> setup;  // may be null
    std::wstring out{};  // with --json the documents, compared parsed; `watch`'s one a line
    std::wstring err{};
    int writes = -1;  // the output takes these, then is closed; -1: never
    bool terminal = false;
    std::function<void(Machine&)> watching{};  // before Ctrl+C ends a watch
};

// The usage error of `message` on a machine of `devices`.
Case usage(const std::vector<std::wstring>& arguments, int devices, const std::wstring& message)
{
    return {arguments, devices, exitUsage, nullptr, L"", usageError(message)};
}

// The error object that --json adds to an error: its code and the message of
// the error's first line, without "ztdiag: ".
json errorObject(int code, const std::wstring& err)
{
    const std::wstring prefix = L"ztdiag: ";
    EXPECT_EQ(err.rfind(prefix, 0), 0U) << testing::PrintToString(err);
    const std::wstring message = err.substr(prefix.size(), err.find(L'\n') - prefix.size());
    return {{"error", {{"code", code}, {"message", toUtf8(message)}}}};
}

// An error with --json and no `out` of its own prints only the error object,
// from the first line on the error stream. A usage error comes before any call
// to the service.
void expectCases(const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        Machine machine(c.devices);
        machine.console.terminal = c.terminal;
        machine.console.textsBeforeClose = c.writes;
        if (c.setup != nullptr) {
            c.setup(machine);
        }
        const auto watching = [&] { c.watching(machine); };
        EXPECT_EQ(run(machine, c.arguments, c.watching ? std::function<void()>(watching) : nullptr), c.code);
        EXPECT_EQ(machine.console.errText, c.err);
        const std::wstring& out = machine.console.outText;
        const bool asJson = has(c.arguments, L"--json") && !has(c.arguments, L"--quiet");
        if (asJson && !c.out.empty()) {
            const bool perLine = has(c.arguments, L"watch");
            EXPECT_EQ(documents(out, perLine), documents(c.out, perLine)) << testing::PrintToString(out);
        } else if (asJson && c.writes < 0 && c.code > exitCableFault) {
            EXPECT_EQ(out.find(L'\n'), out.size() - 1) << "one line: " << testing::PrintToString(out);
            EXPECT_EQ(documents(out, false), std::vector<json>{errorObject(c.code, c.err)})
                << testing::PrintToString(out);
        } else {
            EXPECT_EQ(out, c.out);
        }
        if (c.code == exitUsage) {
            EXPECT_TRUE(machine.sim.service().calls().empty());
        }
        if (c.writes >= 0) {
            EXPECT_EQ(machine.console.writesAfterClose, 1) << "nothing more is written once a write failed";
        }
        EXPECT_TRUE(!has(c.arguments, L"watch") || machine.sim.service().subscriptions().empty());
        EXPECT_FALSE(machine.console.interruptHandler()) << "Ctrl+C ends the program again";
    }
}

TEST(Ztdiag, printsWhatTheUserAskedForAndExitsWithItsCode)
{
    const auto noLength = [](Machine& m) { m.sim.driver().setCableLength(first, 0); };
    const auto unreadable = [](Machine& m) {
        m.device(first);
        host::removeDeviceProperty(host::makeDevice(1), DEVPKEY_Device_ProblemCode);
    };
    expectCases({
        {args(), 1, 0, addBackup,
         firstListed() + L"\n"
             + listed({backup, L"<unknown>", L"<unknown>", L"<unknown>", L"Ready", L"Disconnected",
                       L"Temperature is high (PHY 102.5\u00B0C, MAC 105\u00B0C)", L"1.5.10",
                       L"No, firmware older than 1.5.66"})},
        // A device that isn't working needs no service.
        {args(), 0, 0, all({withDevice(disabled, 22), [](Machine& m) { m.sim.revokeLocator(); }}),
         notWorkingListed(disabled, L"Device is disabled")},
        {args(L"--json"), 2, 0, nullptr,
         listingJson(
             {firstJson(), notWorkingJson("ZT Ethernet Adapter #2", "disabled", "Device is disabled", 22)})},
        // A problem code is the unsigned number Windows shows.
        {args(), 0, 0, unreadable, notWorkingListed(first, L"Device has a problem (code 4294967295)")},
        {args(L"--json"), 0, 0, unreadable,
         listingJson({notWorkingJson("ZT Ethernet Adapter", "problem",
                                     "Device has a problem (code 4294967295)", 4294967295U)})},
        {args(L"cable-test"), 0, 2, [](Machine& m) { m.device(first, 0x80000000); }, L"",
         L"ztdiag: ZT Ethernet Adapter: Device has a problem (code 2147483648)\n"},
        {args(L"watch"), 0, 0, unreadable, watchingFirst(L"Device has a problem (code 4294967295)")},
        {args(L"watch", L"--json"), 0, 0, [](Machine& m) { m.device(first, 28); },
         watchingFirstJson(json::parse(R"({"problemCode": 28, "link": null, "speed": null, "speedText": null,
             "health": "unknown", "healthText": "Temperature <unknown>"})"))},
        // The cable test; the length is corrected for the category at 2.5 and 5 Gbps only.
        {args(L"cable-test"), 1, 0, [](Machine& m) { m.sim.renegotiate(gbps1); },
         goodPairs + std::wstring(L"Approx cable length: 100 meters\n")},
        // On a terminal, a line tells that it runs, and is erased before the report.
        {args(L"cable-test"), 1, 0, nullptr,
         L"\rRunning the cable test on ZT Ethernet Adapter... 0 s\r" + std::wstring(52, L' ') + L"\r"
             + goodPairs + L"Approx cable length: 144 meters (category 5e at 2.5 Gbps)\n",
         L"", -1, true},
        {args(L"cable-test"), 1, 0, [](Machine& m) { m.sim.renegotiate(gbps5); },
         goodPairs + std::wstring(L"Approx cable length: 101 meters (category 5e at 5.0 Gbps)\n")},
        {args(L"cable-test", L"--category=6A"), 1, 0, [](Machine& m) { m.sim.renegotiate(gbps5); },
         goodPairs + std::wstring(L"Approx cable length: 121 meters (category 6a at 5.0 Gbps)\n")},
        {args(L"cable-test", first, L"--category", L"6"), 1, 1, faultyPairs,
         L"Cable test on ZT Ethernet Adapter\nPair A: OK\nPair B: open circuit, distance 12 meters\n"
         L"Pair C: connected to another pair (A), distance 3 meters\n"
         L"Pair D: short circuit, distance 30 meters\nApprox cable length: 153 meters (category 6 at 2.5 "
         L"Gbps)\n"},
        {args(L"cable-test", L"--json", L"--category", L"6"), 1, 1, faultyPairs,
         LR"j({"adapter": "ZT Ethernet Adapter", "good": false, "link": "connected", "speed": 2500000000,
          "speedText": "2.5 Gbps", "cableLength": 153, "category": "6", "pairs": [
          {"pair": "A", "status": 0, "verdict": "OK", "distance": null, "partner": null,
           "text": "Pair A: OK"},
          {"pair": "B", "status": 7, "verdict": "open circuit", "distance": 12, "partner": null,
           "text": "Pair B: open circuit, distance 12 meters"}, {"pair": "C", "status": 2, "distance": 3,
           "verdict": "connected to another pair (A)", "partner": "A",
           "text": "Pair C: connected to another pair (A), distance 3 meters"}, {"pair": "D", "status": 4,
           "verdict": "short circuit", "distance": 30, "partner": null,
           "text": "Pair D: short circuit, distance 30 meters"}]})j"},
        {args(L"cable-test"), 1, 0, [](Machine& m) { m.sim.unplug(); },
         goodPairs + std::wstring(L"Unable to determine cable length: no link\n")},
        // The category is the one asked for wherever it applies, with a length or not.
        {args(L"cable-test", L"--category", L"6", L"--json"), 1, 0, noLength,
         goodPairsJson("connected", 2500000000U, "2.5 Gbps", nullptr, "6")},
        {args(L"cable-test", L"--json"), 1, 0, all({noLength, [](Machine& m) { m.sim.renegotiate(gbps5); }}),
         goodPairsJson("connected", 5000000000U, "5.0 Gbps", nullptr, "5e")},
        {args(L"cable-test", L"--category", L"6", L"--json"), 1, 0,
         [](Machine& m) { m.sim.renegotiate(gbps1); },
         goodPairsJson("connected", 1000000000U, "1.0 Gbps", 100, nullptr)},
        {args(L"cable-test", L"--category", L"6"), 1, 0, noLength,
         goodPairs + std::wstring(L"Unable to determine cable length\n")},
        // The adapter isn't there or can't be tested.
        {args(L"--json", L"cable-test", L"ZT Adapter"), 2, 2, nullptr, L"",
         L"ztdiag: no ZT adapter named 'ZT Adapter'; the ZT adapters are 'ZT Ethernet Adapter' (connection "
         L"'Ethernet 2'), 'ZT Ethernet Adapter #2'\n"},
        {args(L"watch", L"ZT Adapter"), 0, 2, nullptr, L"",
         L"ztdiag: no ZT adapter named 'ZT Adapter': there is no ZT adapter\n"},
        {args(L"cable-test"), 1, 2, [](Machine& m) { m.sim.driver().setFirmware(first, 1, 5, 10); }, L"",
         L"ztdiag: ZT Ethernet Adapter: Current version of firmware doesn't support cable diagnostics "
         L"(firmware 1.5.10, cable tests need 1.5.66)\n"},
        // The device manager or the management service fails.
        {args(), 1, 3, [](Machine&) { host::failGetClassDevs(ERROR_NOT_ENOUGH_MEMORY); }, L"",
         L"ztdiag: can't list the network adapters (SetupAPI error 8)\n"},
        {args(), 1, 3, fails("ConnectServer", E_FAIL), L"",
         L"ztdiag: can't connect to the management service (root\\wmi)\n"},
        {args(L"cable-test"), 1, 3, fails("ExecMethod", WBEM_E_FAILED, L"Zt_NetAdapter.ExecCableDiag"), L"",
         L"ztdiag: ZT Ethernet Adapter: the driver's cable test failed\n"},
        // A cable test without pair results is an error, never a good cable.
        {args(L"cable-test"), 1, 3, [](Machine& m) { m.sim.driver().setPairs(first, {}); }, L"",
         L"ztdiag: ZT Ethernet Adapter: the driver's cable test gave no result for any wire pair\n"},
        {args(L"cable-test"), 1, 3,
         [](Machine& m) { m.sim.driver().removeField(first, sim::ZtField::pairs); }, L"",
         L"ztdiag: ZT Ethernet Adapter: the driver's cable test failed\n"},
        // Usage errors, and the version; a lone "-" is a word, not an option.
        usage(args(L"-"), 1, L"unknown command '-'; the commands are cable-test, watch and metrics"),
        usage(args(L"metrics", L"--metrics", L"x.prom"), 1, L"--metrics goes with watch only"),
        usage(args(L"watch", L"--output=x.prom"), 1, L"--output goes with metrics only"),
        usage(args(L"watch", L"--category", L"6"), 2, L"--category goes with cable-test only"),
        usage(args(L"watch", L"--metrics"), 1, L"--metrics needs a file name"),
        usage(args(L"metrics", L"--output="), 1, L"an empty file name for --output"),
        usage(args(L"metrics", L"--json"), 1,
              L"metrics are written in the Prometheus text format, never as JSON"),
        usage(args(L"cable-test", L"--category", L"7"), 2,
              L"unknown cable category '7'; the categories are 5e, 6 and 6a"),
        usage(args(L"cable-test", L"--category=", L"6"), 2,
              L"unknown cable category ''; the categories are 5e, 6 and 6a"),
        usage(args(L"cable-test", first, L"extra"), 2,
              L"one adapter at a time: 'ZT Ethernet Adapter' and 'extra' (put a name with blanks in quotes)"),
        {args(L"--version"), 1, 0, nullptr, L"ztdiag " ZTPROP_VERSION_TEXT L"\n"},
    });
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

TEST(Ztdiag, aCableTestEndsAsTheLinkComesBackNotWhenTheWaitForItRunsOut)
{
    Machine machine(1);
    // The link's return reaches the tool once it waits for it.
    machine.sim.driver().onLinkRestore([&machine](const std::wstring& name) {
        machine.sim.service().holdDeliveries();
        machine.sim.ndis().connect(name);
    });
    ZtdiagLimits limits;
    limits.cableTest = 5s;  // far longer than the run, and shorter than the wait for the link
    limits.linkReturn = 8s;
    std::thread tool([&] { EXPECT_EQ(ztdiagMain({L"cable-test"}, machine.console, limits), 0); });
    EXPECT_TRUE(machine.sim.service().waitForHeld(1));
    std::this_thread::sleep_for(100ms);  // the tool has the driver's answer
    machine.sim.service().releaseDeliveries();
    tool.join();
    EXPECT_EQ(machine.console.errText, L"");
}

// A change made at its minute once the lines before it are out; it adds `lines` lines.
struct Step {
    WORD minute;
    std::function<void(Machine&)> change;
    std::size_t lines;
};

// Runs `watch` through `steps` once its first `lines` are out, Ctrl+C once theirs are; gives its code.
int watchThrough(Machine& m, const std::vector<std::wstring>& arguments, std::size_t lines,
                 const std::vector<Step>& steps, const ZtdiagLimits& limits = {})
{
    return run(
        m, arguments,
        [&] {
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

// A line of `watch`, as text and as JSON but the time and the adapter (null: the JSON not checked).
struct WatchLine {
    int minute;
    const wchar_t* adapter;
    const wchar_t* text;
    const char* json = nullptr;
};

// `watch` and `watch --json` on `devices` (the `named` one only if given) through `steps` print
// `lines` after "Watching ...".
void expectWatch(int devices, const std::vector<Step>& steps, const std::vector<WatchLine>& lines,
                 const ZtdiagLimits& limits = {}, const wchar_t* named = nullptr)
{
    std::wstring text = std::wstring(L"Watching ZT Ethernet Adapter")
        + (devices == 2 ? L", ZT Ethernet Adapter #2" : L"") + L"; press Ctrl+C to stop.\n";
    for (const WatchLine& line : lines) {
        text += watchLine(line.minute, line.adapter, line.text);
    }
    const auto initial = static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [](const WatchLine& line) { return line.minute == 30; }));
    for (const bool asJson : {false, true}) {
        SCOPED_TRACE(asJson ? "--json" : "text");
        Machine machine(devices);
        std::vector<std::wstring> arguments = asJson ? args(L"watch", L"--json") : args(L"watch");
        if (named != nullptr) {
            arguments.push_back(named);
        }
        EXPECT_EQ(watchThrough(machine, arguments, initial + (asJson ? 0 : 1), steps, limits), 0);
        EXPECT_EQ(machine.console.errText, L"");
        EXPECT_FALSE(machine.console.interruptHandler()) << "Ctrl+C ends the program again";
        EXPECT_TRUE(machine.sim.service().subscriptions().empty());
        if (!asJson) {
            EXPECT_EQ(machine.console.outText, text);
            continue;
        }
        const std::vector<json> got = documents(machine.console.outText, true);
        ASSERT_EQ(got.size(), lines.size());
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].json != nullptr) {
                json expected = json::parse(lines[i].json);
                expected["time"] = "2024-05-14T09:" + std::to_string(lines[i].minute) + ":00.000+00:00";
                expected["adapter"] = toUtf8(lines[i].adapter);
                EXPECT_EQ(got[i], expected);
            }
        }
    }
}

TEST(Ztdiag, watchPrintsATimestampedLineForEachLinkEventUntilCtrlC)
{
    // Each change at its own minute, its lines out before the next.
    expectWatch(
        2,
        {{31, [](Machine& m) { m.sim.unplug(); }, 1},
         {32, [](Machine& m) { m.sim.plug(); }, 1},
         {33, [](Machine& m) { m.sim.renegotiate(gbps1); }, 2},
         // Another speed with no drop between.
         {34, all({linkIs(sim::LinkState::at(gbps5)), connects}), 1},
         {35, [](Machine& m) { m.sim.remove(); }, 1},
         {36, [](Machine& m) { m.sim.arrive(); }, 1}},
        {{30, first, L"Connected, 2.5 Gbps; Temperature is ok",
          R"({"event":"state","problemCode":0,"link":"connected","speed":2500000000,"speedText":"2.5 Gbps",
              "health":"ok","healthText":"Temperature is ok"})"},
         {30, disabled, L"Device is disabled",
          R"({"event":"state","problemCode":22,"link":null,"speed":null,"speedText":null,
              "health":"unknown","healthText":"Temperature <unknown>"})"},
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
         {36, first, L"Arrived", R"({"event":"arrived"})"}});
}

TEST(ZtdiagWatch, aSpeedNotKnownAtAConnectionIsUnknownNeverZero)
{
    const std::vector<WatchLine> lines
        = {{30, first, L"Connected, 2.5 Gbps; Temperature is ok"},
           {31, first, L"Connected, <unknown>",
            R"({"event":"connected","link":"connected","speed":null,"speedText":null,
                "downshift":false,"previousSpeed":null})"}};
    // The speed's query fails; NDIS doesn't know it; the link is down again when the tool asks.
    expectWatch(1, {{31, all({linkQueryFails, connects}), 1}}, lines);
    expectWatch(1, {{31, all({linkIs(sim::LinkState::at(speedUnknown)), connects}), 1}}, lines);
    const auto downAgain = [](Machine& m) {
        m.sim.service().setLatency("ExecMethod", 50ms);
        m.sim.ndis().connect(first).wait();
        m.sim.ndis().disconnect(first);
    };
    expectWatch(1, {{31, downAgain, 2}}, {lines[0], lines[1], {31, first, L"Disconnected"}});
}

TEST(ZtdiagWatch, aChangeOfTheTemperatureHealthIsALine)
{
    ZtdiagLimits limits;
    limits.healthPeriod = 5ms;
    expectWatch(1,
                {{31, [](Machine& m) { m.sim.heat(10250, 10500); }, 1},
                 {32, [](Machine& m) { m.sim.driver().setThermalFlags(first, 0); }, 1},
                 {33, [](Machine& m) { m.sim.driver().setThermalFlags(first, 12); }, 1},
                 {34, [](Machine& m) { m.sim.heat(5425, 6100); }, 1}},
                {{30, first, L"Connected, 2.5 Gbps; Temperature is ok"},
                 {31, first, L"Temperature is high"},
                 {32, first, L"Temperature <unknown>",
                  R"({"event":"health","health":"unknown","healthText":"Temperature <unknown>"})"},
                 {33, first, L"Temperature is high"},
                 {34, first, L"Temperature is ok"}},
                limits);
}

// ---- What the tool doesn't know it never shows as fact ---------------------

// The link comes back from a cable test at a speed NDIS doesn't know.
void speedUnknownAfterTest(Machine& m)
{
    m.sim.driver().onLinkRestore([&m](const std::wstring& name) {
        m.sim.ndis().setLinkState(name, sim::LinkState::at(speedUnknown));
        m.sim.ndis().connect(name);
    });
}
// The link state can't be read, and no link event tells it either.
void linkNeverKnown(Machine& m)
{
    linkQueryFails(m);
    m.sim.driver().onLinkDrop([](const std::wstring&) {});
    m.sim.driver().onLinkRestore([](const std::wstring&) {});
}

TEST(Ztdiag, aLinkStateSpeedOrTemperatureThatCantBeReadIsUnknownNeverDisconnectedOrZero)
{
    const std::wstring unknownLink = firstListed(L"<unknown>");
    expectCases({
        {args(), 1, 0, linkQueryFails, unknownLink},
        {args(L"--json"), 1, 0, linkQueryFails, listingJson({firstJson(nullptr, nullptr, nullptr)})},
        {args(), 1, 0, linkIs({0, sim::ndis::duplexFull, gbps1, gbps1}), unknownLink},
        {args(L"--json"), 1, 0, linkIs({7, sim::ndis::duplexFull, gbps1, gbps1}),
         listingJson({firstJson(nullptr, nullptr, nullptr)})},
        {args(), 1, 0, linkIs(sim::LinkState::at(speedUnknown)), firstListed(L"Connected, <unknown>")},
        {args(L"--json"), 1, 0,
         // The speed's query, after the state's.
         fails("ExecMethod", WBEM_E_FAILED, L"MSNdis_LinkState.WmiQueryLinkState", 2),
         listingJson({firstJson("connected", nullptr, nullptr)})},
        {args(), 1, 0, [](Machine& m) { m.sim.driver().setThermalFlags(first, 4); },
         firstListed(L"Connected, 2.5 Gbps", L"Temperature is ok (PHY 54.25\u00B0C, MAC <unknown>)")},
        {args(), 1, 0, [](Machine& m) { m.sim.driver().setThermalFlags(first, 8); },
         firstListed(L"Connected, 2.5 Gbps", L"Temperature is ok (PHY <unknown>, MAC 61\u00B0C)")},
        {args(L"--json"), 1, 0, [](Machine& m) { m.sim.driver().setThermalFlags(first, 8); },
         listingJson({firstJson("connected", 2500000000U, "2.5 Gbps", nullptr)})},
        // The state `watch` starts from.
        {args(L"watch"), 1, 0, linkQueryFails, watchingFirst(L"<unknown>; Temperature is ok")},
        {args(L"watch", L"--json"), 1, 0, linkQueryFails,
         watchingFirstJson({{"link", nullptr}, {"speed", nullptr}, {"speedText", nullptr}})},
        {args(L"watch"), 1, 0, linkIs(sim::LinkState::at(speedUnknown)),
         watchingFirst(L"Connected, <unknown>; Temperature is ok")},
        // The cable test's report: with no link state there is no length, nor
        // with no speed, which tells whether the length needs the category.
        {args(L"cable-test"), 1, 0, linkNeverKnown,
         goodPairs + std::wstring(L"Unable to determine cable length: link <unknown>\n")},
        {args(L"cable-test", L"--json"), 1, 0, linkNeverKnown,
         goodPairsJson(nullptr, nullptr, nullptr, nullptr, nullptr)},
        {args(L"cable-test"), 1, 0, speedUnknownAfterTest,
         goodPairs + std::wstring(L"Unable to determine cable length: link speed <unknown>\n")},
        {args(L"cable-test", L"--json", L"--category", L"6"), 1, 0, speedUnknownAfterTest,
         goodPairsJson("connected", nullptr, nullptr, nullptr, nullptr)},
    });
}

// ---- Which adapter: never one picked silently ------------------------------

// `disabled`'s connection besides `first`'s, and a third ZT adapter without one.
void connections(Machine& m)
{
    host::setNetConnections(
        {otherMakers(), firstConnection(),
         connection(disabled, L"Verbindung \u00C4", 14, 0x5D, "{9D3E61A0-4C7B-4F25-8E19-6A0B2D5C7F43}")});
    m.device(L"ZT Spare Adapter", 22);
}
// The usage error of words that name two adapters, for a command that does `what`.
std::wstring namesTwo(const std::wstring& words, const std::wstring& what, const std::wstring& which)
{
    return usageError(L"'" + words + L"' names 2 ZT adapters; give the device instance id of the one to "
                      + what + L": " + which);
}

TEST(Ztdiag, anAdapterIsNamedByAnyOfItsNamesInAnyCaseAndWordsThatNameNoneOrSeveralAreAnError)
{
    const std::wstring ids = L"'" + instanceId(1) + L"', '" + instanceId(2) + L"'";
    const std::wstring bothListed = L"'ZT Ethernet Adapter' (device instance id '" + instanceId(1)
        + L"'), 'ZT Ethernet Adapter' (device instance id '" + instanceId(2) + L"')";
    const auto twoAlike = all({withDevice(first), withDevice(first)});
    // Both named `first`; the second one is disabled, so each answer tells which one was taken.
    const auto twoAlikeSecondDisabled = all({withDevice(first), withDevice(first, 22)});
    const std::wstring disabledChosen = L"ztdiag: ZT Ethernet Adapter #2: Device is disabled\n";
    const std::wstring spareChosen = L"ztdiag: ZT Spare Adapter: Device is disabled\n";
    std::vector<Case> cases = {
        // Several adapters named alike.
        {args(L"cable-test", first), 0, 64, twoAlike, L"", namesTwo(first, L"test", ids)},
        {args(L"watch", L"zt ethernet adapter"), 0, 64, twoAlike, L"",
         namesTwo(L"zt ethernet adapter", L"watch", ids)},
        {args(L"cable-test", first, L"--json"), 0, 64,
         all({twoAlike, [](Machine&) { host::failGetDeviceInstanceId(ERROR_INVALID_HANDLE); }}), L"",
         namesTwo(first, L"test", L"<unknown>, <unknown>")},
        {args(L"cable-test"), 0, 64, twoAlike, L"",
         usageError(L"2 ZT adapters: name the one to test: " + bothListed)},
        {args(L"cable-test", L"ZT Adapter"), 0, 2, all({twoAlike, withDevice(disabled, 22)}), L"",
         L"ztdiag: no ZT adapter named 'ZT Adapter'; the ZT adapters are " + bothListed
             + L", 'ZT Ethernet Adapter #2'\n"},
        // Given empty, ADAPTER names no adapter: it isn't "the only one".
        usage(args(L"cable-test", L""), 1,
              L"an empty adapter name; the ZT adapters are 'ZT Ethernet Adapter' (connection 'Ethernet 2')"),
        usage(args(L"watch", L""), 0, L"an empty adapter name; there is no ZT adapter"),
        // Case doesn't matter, character by character as the platform compares: the exact spelling wins
        // nothing, and there is no linguistic folding of "\u00DF" into "SS".
        {args(L"cable-test", L"zt ethernet adapter \u00E4"), 0, 2,
         [](Machine& m) { m.device(L"ZT Ethernet Adapter \u00C4", 22); }, L"",
         L"ztdiag: ZT Ethernet Adapter \u00C4: Device is disabled\n"},
        {args(L"cable-test", L"ZT Ethernet Adapter \u00C4"), 0, 64,
         all({withDevice(L"ZT Ethernet Adapter \u00C4", 22), withDevice(L"zt ethernet adapter \u00E4", 22)}),
         L"", namesTwo(L"ZT Ethernet Adapter \u00C4", L"test", ids)},
        {args(L"cable-test", L"ZT STRASSE"), 0, 2, [](Machine& m) { m.device(L"ZT Stra\u00DFe", 22); }, L"",
         L"ztdiag: no ZT adapter named 'ZT STRASSE'; the ZT adapters are 'ZT Stra\u00DFe'\n"},
        // By the device instance id.
        {args(L"cable-test", instanceId(1)), 0, 0, twoAlikeSecondDisabled,
         goodPairs + std::wstring(L"Approx cable length: 144 meters (category 5e at 2.5 Gbps)\n")},
        {args(L"cable-test", L"pci\\ven_7e5c&dev_c3e1&subsys_0b217e5c&rev_02\\4&2f6b3a1&0&00e2"), 0, 2,
         twoAlikeSecondDisabled, L"", L"ztdiag: ZT Ethernet Adapter: Device is disabled\n"},
        {args(L"watch", instanceId(2)), 0, 0, twoAlikeSecondDisabled, watchingFirst(L"Device is disabled")},
        // By the connection's name, index or MAC address; an adapter IP Helper doesn't list as before.
        {args(L"watch", L"ethernet 2"), 2, 0, connections, watchingFirst()},
        {args(L"cable-test", instanceId(2)), 2, 2, connections, L"", disabledChosen},
        {args(L"cable-test", L"zt spare adapter"), 2, 2, connections, L"", spareChosen},
        {args(L"cable-test", instanceId(3)), 2, 2, connections, L"", spareChosen},
        // Words that name several adapters in different ways tell which is which: the second adapter's
        // connection has the first one's device name; a device name is another adapter's interface index.
        {args(L"cable-test", L"zt ethernet adapter"), 2, 64,
         connectionsAre({firstConnection(), {disabled, first, 14, 14, {}, "{}"}}), L"",
         namesTwo(L"zt ethernet adapter", L"test",
                  L"'" + instanceId(1) + L"' (the device name of 'ZT Ethernet Adapter'), '" + instanceId(2)
                      + L"' (the connection name of 'ZT Ethernet Adapter #2')")},
        {args(L"watch", L"12"), 1, 64, [](Machine& m) { m.device(L"12", 22); }, L"",
         namesTwo(L"12", L"watch",
                  L"'" + instanceId(1) + L"' (the interface index of 'ZT Ethernet Adapter'), '"
                      + instanceId(2) + L"' (the device name of '12')")},
        // Listed, a name that names another adapter too comes with the device instance id.
        {args(L"cable-test"), 1, 64, [](Machine& m) { m.device(L"Ethernet 2", 22); }, L"",
         usageError(L"2 ZT adapters: name the one to test: 'ZT Ethernet Adapter' (connection 'Ethernet 2'), "
                    L"'Ethernet 2' (device instance id '"
                    + instanceId(2) + L"')")},
        // One adapter named by two of its names is one adapter.
        {args(L"cable-test", L"ethernet 2"), 0, 2,
         all({withDevice(L"Ethernet 2", 22),
              connectionsAre({{L"Ethernet 2", L"Ethernet 2", 12, 12, {}, "{}"}})}),
         L"", L"ztdiag: Ethernet 2: Device is disabled\n"},
    };
    for (const wchar_t* word : {L"ZT ETHERNET ADAPTER #2", L"Verbindung \u00C4", L"VERBINDUNG \u00E4", L"14",
                                L"00-1B-21-3A-4F-5D", L"00:1b:21:3a:4f:5d", L"001B213a4F5d"}) {
        cases.push_back({args(L"cable-test", word), 2, 2, connections, L"", disabledChosen});
    }
    // Other makers' connections, index 0, other forms of numbers name none.
    for (const std::wstring word :
         {L"Ethernet", L"7", L"0", L"0x0E", L"00-1B:21-3A-4F-5D", L"001B.213A.4F5D"}) {
        cases.push_back(
            {args(L"cable-test", word), 2, 2, connections, L"",
             L"ztdiag: no ZT adapter named '" + word
                 + L"'; the ZT adapters are 'ZT Ethernet Adapter' "
                   L"(connection 'Ethernet 2'), 'ZT Ethernet Adapter #2' (connection 'Verbindung \u00C4'), "
                   L"'ZT Spare Adapter'\n"});
    }
    expectCases(cases);
}

// What IP Helper doesn't tell is unknown, never a reason to fail.
TEST(Ztdiag, theListingShowsWhatIpHelperTellsOfEachConnection)
{
    const std::wstring disabledUnknown = notWorkingListed(disabled, L"Device is disabled");
    const auto ipHelperFails = [](Machine&) { host::failGetAdaptersAddresses(ERROR_NOT_ENOUGH_MEMORY); };
    expectCases({
        // No IPv4 on the connection: its IPv6 index. No hardware address: unknown.
        {args(), 1, 0, connectionsAre({{first, L"Ethernet 2", 0, 15, {}, "{}"}}),
         listed({first, L"Ethernet 2", L"15", L"<unknown>", L"Ready", L"Connected, 2.5 Gbps", healthOk,
                 L"1.5.66", L"Yes"})},
        {args(L"--json"), 1, 0, connectionsAre({{first, L"", 0, 0, {}, "{}"}}),
         listingJson({unconnected(firstJson())})},
        // No connection at all, IP Helper failing: the listing and the names it doesn't give stand.
        {args(), 0, 0, all({withDevice(disabled, 22), connectionsAre({})}), disabledUnknown},
        {args(), 0, 0, all({withDevice(disabled, 22), ipHelperFails}), disabledUnknown},
        {args(L"cable-test", L"Ethernet 2"), 2, 2, ipHelperFails, L"",
         L"ztdiag: no ZT adapter named 'Ethernet 2'; the ZT adapters are 'ZT Ethernet Adapter', "
         L"'ZT Ethernet Adapter #2'\n"},
        {args(L"cable-test", disabled), 2, 2, ipHelperFails, L"",
         L"ztdiag: ZT Ethernet Adapter #2: Device is disabled\n"},
    });
}

// Once; a machine without any connection is no failure.
TEST(Ztdiag, aFailingIpHelperIsTracedOnce)
{
    for (const bool fails : {true, false}) {
        Machine machine(1);
        connectionsAre({})(machine);
        if (fails) {
            host::failGetAdaptersAddresses(ERROR_NOT_ENOUGH_MEMORY);
        }
        EXPECT_EQ(run(machine, args()), 0);
        EXPECT_EQ(
            tracedStartingWith({"[!] GetAdapters"}),
            fails ? Messages{"[!] GetAdaptersAddresses() failed, code 8: the connections' names are unknown"}
                  : Messages{});
    }
}

TEST(Ztdiag, aListLongerThanTheFirstBufferIsReadWithTheSizeIpHelperAsksFor)
{
    // Long enough for the first buffer, and longer again after the size was asked.
    std::vector<host::NetConnection> listed;
    for (DWORD i = 0; i < 60; ++i) {
        const std::wstring n = std::to_wstring(i);
        listed.push_back(
            {L"Virtual Adapter " + n + std::wstring(150, L'x'), L"vEthernet " + n, 100 + i, 0, {}, "{}"});
    }
    listed.push_back(firstConnection());
    for (const bool grows : {false, true}) {
        SCOPED_TRACE(grows ? "grows" : "stays");
        Machine machine(1);
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
        EXPECT_EQ(machine.console.outText, firstListed());
        EXPECT_EQ(host::getAdaptersAddressesCalls(), grows ? 3 : 2);
    }
}

// ---- A lean start -----------------------------------------------------------

TEST(Ztdiag, eachCommandSubscribesOnlyToTheEventsItNeedsAndWatchReadsEachLinkStateOnce)
{
    const auto subscribes = [](const std::vector<std::wstring>& arguments, int subscriptions) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        Machine machine(1);
        EXPECT_EQ(run(machine, arguments), 0);
        EXPECT_NE(machine.console.outText, L"");
        const std::vector<sim::CallRecord> calls = machine.sim.service().calls();
        EXPECT_EQ(std::count_if(
                      calls.begin(), calls.end(),
                      [](const sim::CallRecord& call) { return call.call == "ExecNotificationQueryAsync"; }),
                  subscriptions);
        if (has(arguments, L"watch")) {
            EXPECT_EQ(machine.sim.ndis().requests().size(), 1U);
        }
    };
    subscribes(args(), 0);
    subscribes(args(L"cable-test"), 4);  // a cable test waits for the link to come back
    subscribes(args(L"watch"), 5);  // the adapter's four and the arrival of any
    subscribes(args(L"watch", first), 4);
}

// ---- What scripts can trust -------------------------------------------------

TEST(Ztdiag, quietPrintsNothingAtAllOnlyTheExitCodeTells)
{
    expectCases({
        {args(L"--quiet", L"--json"), 0, 2, nullptr},
        {args(L"--quiet"), 1, 3, [](Machine&) { host::failGetClassDevs(ERROR_NOT_ENOUGH_MEMORY); }},
        {args(L"cable-test", L"--quiet", L"--json"), 1, 1, faultyPairs},
        {args(L"watch", L"--quiet"), 1, 0, nullptr},
        {args(L"--fast", L"--quiet", L"--json"), 1, 64, nullptr},
        {args(L"--quiet", L"--help"), 0, 0, nullptr},
    });
}

TEST(Ztdiag, withJsonAnErrorIsAlsoAJsonObjectOnTheOutput)
{
    const auto serviceDown = [](Machine& m) { m.sim.revokeLocator(); };
    const std::wstring unreachable = L"ztdiag: can't connect to the management service (root\\wmi)\n";
    expectCases({
        // The object written out once; every other row's is checked as expectCases does.
        {args(L"cable-test", L"--json"), 1, 3, serviceDown,
         LR"j({"error": {"code": 3, "message": "can't connect to the management service (root\\wmi)"}})j",
         unreachable},
        // A usage error: the first line's message; --json is read past the error.
        usage(args(L"--fast", L"--json"), 1, L"unknown option '--fast'"),
        usage(args(L"cable-test", L"--json"), 2,
              L"2 ZT adapters: name the one to test: 'ZT Ethernet Adapter' (connection 'Ethernet 2'), "
              L"'ZT Ethernet Adapter #2'"),
        // The listing that found no adapter is still a listing.
        {args(L"--json"), 0, 2, nullptr,
         LR"j({"adapters": [], "error": {"code": 2, "message": "no ZT adapter found"}})j",
         L"ztdiag: no ZT adapter found\n"},
        // A watch's error is one line, as its events are.
        {args(L"watch", L"--json"), 1, 3, serviceDown, L"", unreachable},
    });
}

TEST(Ztdiag, aClosedOutputEndsTheCommandAtOnceWithExitCode74)
{
    const std::wstring closed = L"ztdiag: the output was closed\n";
    // The tool ends before any Ctrl+C, and gives Ctrl+C back.
    const auto unplugged = [](Machine& m) {
        m.sim.unplug();
        waitUntil([&] { return !m.console.interruptHandler(); });
    };
    expectCases({
        {args(), 1, 74, nullptr, L"", closed, 0},
        {args(L"--json"), 2, 74, nullptr, L"", closed, 0},
        {args(L"cable-test"), 1, 74, nullptr, L"", closed, 0},
        {args(L"cable-test", L"--json"), 1, 74, nullptr, L"", closed, 0},
        // On a terminal: while the running line shows, and as it is erased.
        {args(L"cable-test"), 1, 74, nullptr, L"", closed, 0, true},
        {args(L"cable-test"), 1, 74, nullptr, L"\rRunning the cable test on ZT Ethernet Adapter... 0 s",
         closed, 1, true},
        {args(L"--help"), 0, 74, nullptr, L"", closed, 0},
        {args(L"--version"), 0, 74, nullptr, L"", closed, 0},
        // An error is the answer, written or not.
        {args(L"cable-test", L"ZT Adapter", L"--json"), 1, 2, nullptr, L"",
         L"ztdiag: no ZT adapter named 'ZT Adapter'; the ZT adapters are 'ZT Ethernet Adapter' (connection "
         L"'Ethernet 2')\n",
         0},
        {args(L"--json"), 0, 2, nullptr, L"", L"ztdiag: no ZT adapter found\n", 0},
        // A watch ends at once, on its own: the first line, the state, the first event.
        {args(L"watch"), 1, 74, nullptr, L"", closed, 0, false, unplugged},
        {args(L"watch"), 1, 74, nullptr, L"Watching ZT Ethernet Adapter; press Ctrl+C to stop.\n", closed, 1,
         false, unplugged},
        {args(L"watch", L"--json"), 1, 74, nullptr, watchingFirstJson(), closed, 1, false, unplugged},
    });
}

TEST(Ztdiag, ctrlCDuringACableTestWaitsForTheDriversResultAndCtrlCAgainLeavesAtOnce)
{
    const std::wstring interrupted = L"ztdiag: the cable test on ZT Ethernet Adapter was interrupted";
    ZtdiagLimits limits;
    limits.linkReturn = 100ms;
    // `told` after the line that the test is still running.
    const auto interrupt = [&](int presses, void (*setup)(Machine&), const std::wstring& told) {
        SCOPED_TRACE(presses);
        Machine machine(1);
        setup(machine);
        machine.sim.driver().holdCableTest(first);
        int code = -1;
        std::thread tool([&] { code = ztdiagMain(args(L"cable-test", L"--json"), machine.console, limits); });
        std::function<void()> ctrlC;
        waitUntil([&] { return bool(ctrlC = machine.console.interruptHandler()); });
        EXPECT_TRUE(machine.sim.driver().waitUntilCableTestRunning(first));
        for (int press = 0; ctrlC && press < presses; ++press) {
            ctrlC();
        }
        if (presses == 2) {
            tool.join();  // while the driver's test goes on
        }
        machine.sim.driver().releaseCableTest(first);
        if (tool.joinable()) {
            tool.join();
        }
        EXPECT_EQ(code, 130);
        EXPECT_EQ(
            machine.console.errText,
            L"ztdiag: the cable test is still running on ZT Ethernet Adapter: waiting for it to end and "
            L"for the link to come back (Ctrl+C again to leave at once)\n"
                + told);
        EXPECT_FALSE(machine.console.interruptHandler()) << "Ctrl+C ends the program again";
        EXPECT_EQ(json::parse(toUtf8(machine.console.outText)), errorObject(130, told));
    };
    const auto asIs = [](Machine&) {};
    interrupt(1, asIs, interrupted + L"; link after the test: Connected, 2.5 Gbps\n");
    interrupt(
        1, [](Machine& m) { m.sim.driver().onLinkRestore([](const std::wstring&) {}); },
        interrupted + L"; link after the test: Disconnected\n");
    interrupt(2, asIs, interrupted + L" before its end; the link may still be down\n");
}

// ---- Metrics for the textfile collectors -------------------------------------

// "name{adapter=...,connection=...,instance_id=...}" for the nth device.
std::string series(const char* name, const std::wstring& adapter, int device, const std::string& more = "")
{
    const std::string connection = device == 1 ? "Ethernet 2" : "";  // as the machine's IP Helper tells
    std::string id;
    for (const char c : toUtf8(instanceId(device))) {
        id += c == '\\' ? std::string("\\\\") : std::string(1, c);
    }
    return std::string(name) + "{adapter=\"" + toUtf8(adapter) + "\",connection=\"" + connection
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

// Each of `expected` as the exposition `text` holds it ("absent": left out), once promtool found
// nothing wrong with it; gives how many samples it holds besides.
std::size_t expectSamples(const std::string& text, const std::map<std::string, std::string>& expected)
{
    EXPECT_EQ(promtoolCheck(text), "") << text;
    std::map<std::string, std::string> found;  // by name and labels as written
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line[0] != '#') {
            const std::size_t value = line.rfind(' ');
            found[line.substr(0, value)] = line.substr(value + 1);
        }
    }
    for (const auto& sample : expected) {
        EXPECT_EQ(found.count(sample.first) != 0 ? found.at(sample.first) : "absent", sample.second)
            << sample.first;
        found.erase(sample.first);
    }
    return found.size();
}

TEST(ZtdiagMetrics, stateEachAdapterAndLeaveOutWhatIsntKnown)
{
    Machine machine(2);
    addBackup(machine);
    EXPECT_EQ(run(machine, args(L"metrics")), 0);
    EXPECT_EQ(machine.console.errText, L"");
    const std::string text = toUtf8(machine.console.outText);
    const std::string hardwareId = ",hardware_id=\"PCI\\\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02\"";
    std::map<std::string, std::string> expected = {
        {series("ztdiag_adapter_info", first, 1,
                ",firmware=\"1.5.66\"" + hardwareId + ",driver_state=\"Ready\""),
         "1"},
        {series("ztdiag_adapter_info", disabled, 2,
                ",firmware=\"\"" + hardwareId + ",driver_state=\"Device is disabled\""),
         "1"},
    };
    // Each metric of `first`, `disabled` and the backup (devices 1 to 3).
    const struct {
        const char* name;
        const char* labels;  // besides the adapter's
        std::array<const char*, 3> values;
    } metrics[] = {
        {"ztdiag_adapter_problem_code", "", {"0", "22", "0"}},
        {"ztdiag_link_up", "", {"1", "absent", "0"}},
        {"ztdiag_link_speed_bytes", "", {"312500000", "absent", "absent"}},
        {"ztdiag_phy_temperature_celsius", "", {"54.25", "absent", "102.5"}},
        {"ztdiag_mac_temperature_celsius", "", {"61", "absent", "105"}},
        {"ztdiag_temperature_health", ",state=\"ok\"", {"1", "absent", "0"}},
        {"ztdiag_temperature_health", ",state=\"high\"", {"0", "absent", "1"}},
        {"ztdiag_temperature_health", ",state=\"unknown\"", {"0", "absent", "0"}},
        {"ztdiag_cable_test_supported", "", {"1", "absent", "0"}},
        {"ztdiag_scrape_success", "", {"1", "1", "1"}},
    };
    for (const auto& metric : metrics) {
        for (int device = 1; device <= 3; ++device) {
            const wchar_t* const adapter = std::array<const wchar_t*, 3>{first, disabled, backup}[device - 1];
            expected[series(metric.name, adapter, device, metric.labels)] = metric.values[device - 1];
        }
    }
    // The rest are the three scrape durations and the backup's info.
    EXPECT_EQ(expectSamples(text, expected), 4U) << text;
    EXPECT_EQ(machine.sim.startedCableTests(), 0);
}

TEST(ZtdiagMetrics, aReadThatFailsIsAFailedScrapeNeverAColdOrDownAdapter)
{
    const auto scrapeFails = [](const std::function<void(Machine&)>& setup, const std::wstring& err) {
        Machine machine(1);
        setup(machine);
        EXPECT_EQ(run(machine, args(L"metrics")), 3);
        EXPECT_EQ(machine.console.errText, err);
        std::map<std::string, std::string> expected = {{series("ztdiag_scrape_success", first, 1), "0"}};
        for (const char* left : {"ztdiag_link_up", "ztdiag_link_speed_bytes",
                                 "ztdiag_phy_temperature_celsius", "ztdiag_cable_test_supported"}) {
            expected[series(left, first, 1)] = "absent";
        }
        expectSamples(toUtf8(machine.console.outText), expected);
    };
    scrapeFails(linkQueryFails,
                L"ztdiag: the management service didn't answer for 'ZT Ethernet Adapter'; the "
                L"metrics mark the scrape as failed\n");
    scrapeFails(
        fails("ConnectServer", E_FAIL),
        L"ztdiag: can't connect to the management service (root\\wmi); the metrics mark every working "
        L"adapter's scrape as failed\n");
}

TEST(ZtdiagMetrics, labelValuesAreEscapedAndUtf8)
{
    const std::wstring odd = L"ZT \"Lab\" \\ Adapter \u00C4\u00DF\u20AC\U00100000";
    Machine machine(0);
    machine.device(odd, 22);
    EXPECT_EQ(run(machine, args(L"metrics")), 0);
    expectSamples(toUtf8(machine.console.outText),
                  {{"ztdiag_adapter_problem_code{adapter=\"ZT \\\"Lab\\\" \\\\ Adapter "
                    "\xC3\x84\xC3\x9F\xE2\x82\xAC\xF4\x80\x80\x80\",connection=\"\",instance_id=\""
                    "PCI\\\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02\\\\4&2F6B3A1&0&00E1\"}",
                    "22"}});
}

std::string fileText(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A file in a folder of its own for each test's files.
std::filesystem::path freshFile(const char* folder)
{
    std::filesystem::path path = std::filesystem::path(testing::TempDir()) / folder / "ztdiag.prom";
    std::filesystem::remove_all(path.parent_path());
    std::filesystem::create_directories(path.parent_path());
    return path;
}

TEST(ZtdiagMetrics, aFileIsReplacedWholeOrLeftAsItWas)
{
    const std::filesystem::path path = freshFile("ztdiag-metrics");
    {
        Machine machine(1);
        host::failFileFunction("MoveFileExW", ERROR_ACCESS_DENIED, 9);  // a reader holding it: tried again
        EXPECT_EQ(run(machine, args(L"metrics", L"--output", path.wstring())), 0);
        EXPECT_EQ(machine.console.outText, L"");
        EXPECT_EQ(promtoolCheck(fileText(path)), "");
    }
    const std::string before = fileText(path);
    // `step` as the user is told.
    const auto failing = [&](const char* function, const wchar_t* step, DWORD error, int failures = -1) {
        SCOPED_TRACE(function);
        Machine machine(1);
        machine.sim.heat(9000, 9100);  // what would be new
        host::failFileFunction(function, error, failures);
        EXPECT_EQ(run(machine, args(L"metrics", L"--output=" + path.wstring())), 73);
        EXPECT_EQ(machine.console.errText,
                  L"ztdiag: can't write '" + path.wstring() + L"' (" + step
                      + L"); the old file is left as it was\n");
        EXPECT_EQ(fileText(path), before);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path.parent_path()), {}), 1)
            << "no new file";
        EXPECT_EQ(host::openFileHandles(), 0);
    };
    failing("CreateFileW", L"create: error 5", ERROR_ACCESS_DENIED);
    failing("WriteFile", L"write: error 112", ERROR_DISK_FULL);
    failing("FlushFileBuffers", L"write: error 29", ERROR_WRITE_FAULT);
    failing("MoveFileExW", L"replace: error 32", ERROR_SHARING_VIOLATION, 10);  // the tenth try is the last
    failing("MoveFileExW", L"replace: error 3", ERROR_PATH_NOT_FOUND, 1);  // once: a second try would succeed
}

TEST(ZtdiagMetrics, aReaderNeverSeesPartOfAFile)
{
    const std::filesystem::path path = freshFile("ztdiag-reader");
    Machine machine(1);
    ASSERT_EQ(run(machine, args(L"metrics", L"--output", path.wstring())), 0);
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
        EXPECT_EQ(ztdiagMain(args(L"metrics", L"--output", path.wstring()), machine.console), 0);
    }
    writing = false;
    reader.join();
    EXPECT_EQ(partial, 0);
}

// ---- watch: what reaches the tool, in order, until the user or the output ends it

TEST(ZtdiagWatch, eventsTheServiceRefusesEndTheWatchWithExitCode3AndSayWhich)
{
    const char* const subscribe = "ExecNotificationQueryAsync";
    expectCases({
        {args(L"watch", first), 1, 3, fails(subscribe, WBEM_E_ACCESS_DENIED, L"MSNdis_StatusMediaConnect"),
         L"",
         L"ztdiag: ZT Ethernet Adapter: can't subscribe to its events MSNdis_StatusMediaConnect (error "
         L"0x80041003)\n"},
        {args(L"watch", first, L"--json"), 1, 3, fails(subscribe, WBEM_E_FAILED), L"",
         L"ztdiag: ZT Ethernet Adapter: can't subscribe to its events MSNdis_NotifyAdapterArrival, "
         L"MSNdis_NotifyAdapterRemoval, MSNdis_StatusMediaConnect, MSNdis_StatusMediaDisconnect (error "
         L"0x80041001)\n"},
        // Watching all: the arrival of any adapter is asked for first.
        {args(L"watch"), 2, 3, fails(subscribe, WBEM_E_ACCESS_DENIED, L"MSNdis_NotifyAdapterArrival"), L"",
         L"ztdiag: can't subscribe to the arrival of new adapters, MSNdis_NotifyAdapterArrival (error "
         L"0x80041003)\n"},
        // The second adapter's removal, after the first's subscriptions stood.
        {args(L"watch"), 2, 3, fails(subscribe, WBEM_E_ACCESS_DENIED, L"MSNdis_NotifyAdapterRemoval", 2), L"",
         L"ztdiag: ZT Ethernet Adapter #2: can't subscribe to its events MSNdis_NotifyAdapterRemoval (error "
         L"0x80041003)\n"},
    });
}

TEST(ZtdiagWatch, timesAreIso8601LocalTimeWithTheUtcOffsetInForce)
{
    // 17:03:12.345 on 25 November 2026 in a zone of `bias` minutes (UTC = local + bias) at `part` of the
    // year, as GetTimeZoneInformation answers them.
    const auto at = [](LONG bias, DWORD part, LONG standardBias, LONG daylightBias, const char* offset) {
        const auto zone = [=](Machine&) {
            host::setTimeZone(bias, part, standardBias, daylightBias);
            host::setLocalTime({2026, 11, 3, 25, 17, 3, 12, 345});
        };
        return Case{args(L"watch", L"--json"), 1, 0, zone,
                    watchingFirstJson(json::object(), std::string("2026-11-25T17:03:12.345") + offset)};
    };
    expectCases({
        at(-60, TIME_ZONE_ID_STANDARD, 0, -60, "+01:00"), at(300, TIME_ZONE_ID_DAYLIGHT, 0, -60, "-04:00"),
        at(-330, TIME_ZONE_ID_UNKNOWN, -60, -60, "+05:30"),  // neither part's bias applies
        at(210, TIME_ZONE_ID_STANDARD, -30, 0, "-03:00"),
        at(0, TIME_ZONE_ID_INVALID, 0, 0, ""),  // no zone: local time without an offset
    });
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
        for (int i = 0; i < changes; i += 2) {
            machine.sim.ndis().disconnect(first);
            machine.sim.ndis().connect(first);
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
        // All in one format: in order as text.
        EXPECT_LT(lines[i - 1]["time"].get<std::string>(), lines[i]["time"].get<std::string>());
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
    const WatchLine watching = {30, first, L"Connected, 2.5 Gbps; Temperature is ok"};
    expectWatch(1,
                {// Not a ZT adapter: nothing to say, and its line would come before the next.
                 {31, [](Machine& m) { m.sim.ndis().arrive(L"Other Network Adapter"); }, 0},
                 {32, backupArrives, 1},
                 {33, [](Machine& m) { m.sim.ndis().disconnect(backup); }, 1},
                 {34, [](Machine& m) { m.sim.ndis().remove(backup); }, 1},
                 {35, [](Machine& m) { m.sim.ndis().arrive(backup, sim::LinkState::at(gbps1)); }, 1},
                 {36, [](Machine& m) { m.sim.ndis().connect(backup); }, 1}},
                {watching,
                 {32, backup, L"New adapter: Connected, 1.0 Gbps; Temperature is high"},
                 {33, backup, L"Disconnected"},
                 {34, backup, L"Removed"},
                 {35, backup, L"Arrived"},
                 {36, backup, L"Connected, 1.0 Gbps"}});
    // A named adapter only.
    expectWatch(1,
                {{32, backupArrives, 0},
                 {33, [](Machine& m) { m.sim.ndis().disconnect(backup); }, 0},
                 {34, [](Machine& m) { m.sim.unplug(); }, 1}},
                {watching, {34, first, L"Disconnected"}}, {}, first);
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
    // Each of `expected` in the file once the watch went through `steps`.
    const auto expectMetrics = [](const std::vector<Step>& steps, std::chrono::milliseconds healthPeriod,
                                  const std::map<std::string, std::string>& expected) {
        const std::filesystem::path path = freshFile("ztdiag-watch");
        ZtdiagLimits limits;
        limits.healthPeriod = healthPeriod;
        Machine machine(1);
        EXPECT_EQ(watchThrough(machine, args(L"watch", L"--metrics", path.wstring()), 2, steps, limits), 0);
        expectSamples(fileText(path), expected);
        EXPECT_EQ(host::openFileHandles(), 0);
    };
    // A burst, a removal and a return; a long health period: no reading after the first, so no line unasked.
    expectMetrics(burst, std::chrono::hours(1),
                  {{series("ztdiag_link_changes_total", first, 1), "20"},
                   {series("ztdiag_link_downshifts_total", first, 1), "5"},
                   {series("ztdiag_adapter_removals_total", first, 1), "1"},
                   {series("ztdiag_link_last_change_timestamp_seconds", first, 1), "1715679600"},
                   {series("ztdiag_cable_test_supported", first, 1), "1"},
                   {series("ztdiag_scrape_success", first, 1), "1"},
                   {series("ztdiag_link_up", first, 1), "absent"},  // back, and no link event since
                   {series("ztdiag_phy_temperature_celsius", first, 1), "absent"}});  // nor a reading
    // Temperatures as last read.
    expectMetrics({{31, [](Machine& m) { m.sim.heat(10250, 10500); }, 1}}, 5ms,
                  {{series("ztdiag_link_changes_total", first, 1), "0"},
                   {series("ztdiag_link_up", first, 1), "1"},
                   {series("ztdiag_phy_temperature_celsius", first, 1), "102.5"},
                   {series("ztdiag_temperature_health", first, 1, ",state=\"high\""), "1"}});
    // The same temperatures no longer valid, and the link lost on a leap day.
    const auto leapDay = [](Machine&) { host::setLocalTime({2004, 2, 0, 29, 9, 32, 0, 0}); };
    expectMetrics({{31, [](Machine& m) { m.sim.driver().setThermalFlags(first, 0); }, 1},
                   {32, all({leapDay, [](Machine& m) { m.sim.unplug(); }}), 1}},
                  5ms,
                  {{series("ztdiag_phy_temperature_celsius", first, 1), "absent"},
                   {series("ztdiag_temperature_health", first, 1, ",state=\"unknown\""), "1"},
                   {series("ztdiag_link_last_change_timestamp_seconds", first, 1), "1078047120"}});
}

TEST(ZtdiagWatch, aMetricsFileIsRewrittenForAChangeAndAsTheWatchEndsAndAWriteThatFailsEndsIt)
{
    const std::filesystem::path path = freshFile("ztdiag-watch-rewrite");
    ZtdiagLimits limits;
    limits.healthPeriod = 5ms;
    Machine machine(1);
    const auto watching = [&] {
        waitUntil([&] { return std::filesystem::exists(path); });
        std::filesystem::remove(path);  // as a collector's clean-up would
        // A few readings of the same temperatures, the service's only calls meanwhile.
        const std::size_t calls = machine.sim.service().calls().size();
        waitUntil([&] { return machine.sim.service().calls().size() >= calls + 20; });
        EXPECT_FALSE(std::filesystem::exists(path)) << "the same readings: nothing to rewrite";
        machine.sim.heat(5500, 6200);  // no other change: the file is news at once, not at the next period
        waitUntil([&] { return std::filesystem::exists(path); });
        EXPECT_TRUE(std::filesystem::exists(path));
        host::failFileFunction("CreateFileW", ERROR_ACCESS_DENIED);  // for the write at the end
    };
    EXPECT_EQ(run(machine, args(L"watch", L"--metrics", path.wstring()), watching, limits), 73);
    EXPECT_EQ(machine.console.errText,
              L"ztdiag: can't write '" + path.wstring()
                  + L"' (create: error 5); the old file is left as it was\n");
}

}  // namespace
