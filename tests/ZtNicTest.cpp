#include "nic/ZtNic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <future>

#include "EventLog.h"
#include "WmiFixture.h"
#include "sim/Ndis.h"
#include "sim/ZtDriver.h"
#include "wmi/WbemServices.h"

namespace {

using sim::ZtDriver;
using sim::ZtField;

const wchar_t* const adapter = L"ZT 10G Network Adapter #2";
const char* const adapterPath = "\"ZT 10G Network Adapter #2\"";

Messages levelZeroAndTwo()
{
    Messages out = tracedStartingWith({"[!]", "/!\\"});
    // Every thread after the first is told that the process's security is set
    // already; that line says nothing about the adapter.
    out.erase(
        std::remove_if(out.begin(), out.end(),
                       [](const std::string& m) { return m.rfind("[!] CoInitializeSecurity()", 0) == 0; }),
        out.end());
    return out;
}

// What subscribers of the adapter object were told, in order.
using Told = EventLog<std::string>;

class ZtNicTest : public WmiFixture {
protected:
    ZtNicTest() : WmiFixture({adapter, true, true, 5000000000ULL}) { }
    static void subscribe(ZtNic& nic, Told& told)
    {
        nic.nicChanged.add(L"test", [&](bool added) { told.add(added ? "added" : "removed"); });
        nic.nicMediaChanged.add(L"test",
                                [&](MediaConnectState s) { told.add("media " + std::to_string(int(s))); });
    }
    // Scripts for a case: a driver field set or left out.
    std::function<void()> setting(ZtField f, const sim::Value& v)
    {
        return [=] { driver_->setField(adapter, f, v); };
    }
    std::function<void()> removing(const std::vector<ZtField>& fields)
    {
        return [=] {
            for (ZtField f : fields) {
                driver_->removeField(adapter, f);
            }
        };
    }
    // Runs `body` with a ready adapter object on a thread of its own: what it
    // traced at level 0 and 2 after the object was made.
    template <typename Body> Messages failuresOf(Body&& body)
    {
        Messages lines;
        onNewThread([&] {
            ZtNic nic(adapter, true);
            host::clearDebugOutput();
            body(nic);
            lines = levelZeroAndTwo();
        });
        return lines;
    }
    std::ptrdiff_t driverObjectReads() const
    {
        const auto paths = targetsOf("GetObject");
        return std::count_if(paths.begin(), paths.end(),
                             [](const auto& p) { return p.rfind(L"Zt_", 0) == 0; });
    }
};

TEST_F(ZtNicTest, initialisedFromTheDriverAndNdisOnlyWhenTheDeviceIsReady)
{
    for (const bool ready : {true, false}) {
        host::clearDebugOutput();
        service_.clearCalls();
        onNewThread([&] {
            const ZtNic nic(adapter, ready);
            EXPECT_EQ(nic.isReady(), ready);
            EXPECT_EQ(nic.mediaState(), ready ? MediaConnectState::Connected : MediaConnectState::Unknown);
            EXPECT_EQ(nic.linkSpeed(), ready ? 5000000000ULL : 0U);
            EXPECT_EQ(nic.fwVersion().toString(), ready ? L"1.5.66" : L"0.0.0");
            EXPECT_EQ(nic.isCableDiagSupported(), ready);
            EXPECT_EQ(service_.subscriptions().size(), 4U) << "the monitor runs all the same";
        });
        EXPECT_EQ(driverObjectReads() > 0, ready);
        EXPECT_EQ(levelZeroAndTwo(),
                  ready ? Messages{} : Messages{"/!\\ ZtNic() device not ready -> suppress initialization"});
    }
}

TEST_F(ZtNicTest, initialisationFailuresAndWhatSurvivesThem)
{
    struct Case {
        const char* what;
        std::function<void()> script;
        Messages lines;
        bool ready = true;
        bool supported = true;
        std::uint64_t speed = 5000000000ULL;
    };
    const Case cases[] = {
        {"no firmware object",
         failing("GetObject", ZtDriver::firmwareClass, WBEM_E_NOT_FOUND),
         {"/!\\ get object 'Zt_FirmwareVersion.InstanceName=" + std::string(adapterPath) + "' failed!",
          "[!] Couldn't obtain FW version"},
         true,
         false},
        {"no control class",
         failing("GetObject", ZtDriver::adapterClass, WBEM_E_NOT_FOUND),
         {"[!] Couldn't obtain control class -> initialization FAILED"},
         false},
        {"firmware fields absent",
         removing({ZtField::major, ZtField::minor}),
         {"[!] Couldn't obtain FW version"},
         true,
         false},
        {"link down: no speed read",
         [&] { ndis_->setLinkState(adapter, {sim::ndis::mediaDisconnected}); },
         {},
         true,
         true,
         0},
    };
    for (const auto& c : cases) {
        service_.clearFaults();
        driver_->resetField(adapter, ZtField::major);
        driver_->resetField(adapter, ZtField::minor);
        ndis_->setLinkState(adapter, sim::LinkState::at(5000000000ULL));
        c.script();
        host::clearDebugOutput();
        onNewThread([&] {
            const ZtNic nic(adapter, true);
            EXPECT_EQ(nic.isReady(), c.ready) << c.what;
            EXPECT_EQ(nic.isCableDiagSupported(), c.supported) << c.what;
            EXPECT_EQ(nic.linkSpeed(), c.speed) << c.what;
        });
        EXPECT_EQ(levelZeroAndTwo(), c.lines) << c.what;
    }
}

TEST_F(ZtNicTest, firmwareGateFrom1_5_66)
{
    const std::tuple<std::uint8_t, std::uint8_t, std::uint16_t, bool> cases[] = {
        {1, 5, 66, true}, {1, 5, 65, false}, {1, 6, 0, true},     {2, 0, 0, true},
        {0, 9, 9, false}, {0, 0, 0, false},  {1, 4, 4660, false}, {1, 5, 4660, true},
    };
    for (const auto& [major, minor, revision, supported] : cases) {
        driver_->setFirmware(adapter, major, minor, revision);
        bool found = false;
        onNewThread([&found] { found = ZtNic(adapter, true).isCableDiagSupported(); });
        EXPECT_EQ(found, supported) << int(major) << "." << int(minor) << "." << revision;
    }
}

TEST_F(ZtNicTest, mediaEventsKeepTheLastSpeedWhenTheLinkGoesDown)
{
    Told told;
    onNewThread([&] {
        ZtNic nic(adapter, true);
        subscribe(nic, told);
        ndis_->disconnect(adapter).wait();
        EXPECT_EQ(nic.mediaState(), MediaConnectState::Disconnected);
        EXPECT_EQ(nic.linkSpeed(), 5000000000ULL);
        ndis_->setLinkState(adapter, sim::LinkState::at(2500000000ULL));
        ndis_->connect(adapter).wait();
        EXPECT_EQ(nic.linkSpeed(), 2500000000ULL) << "read anew when the link comes up";
    });
    EXPECT_EQ(told.get(), (std::vector<std::string>{"media 2", "media 1"}));
    EXPECT_TRUE(traced("ZtNic: media state changed 1 -> 2"));
}

TEST_F(ZtNicTest, removalClearsAndArrivalReadsAgain)
{
    Told told;
    onNewThread([&] {
        ZtNic nic(adapter, true);
        subscribe(nic, told);
        service_.clearCalls();
        ndis_->arrive(adapter).wait();  // already ready: nothing to do
        EXPECT_EQ(driverObjectReads(), 0);
        ndis_->remove(adapter).wait();
        EXPECT_FALSE(nic.isReady());
        EXPECT_EQ(nic.fwVersion().major, 0);
        EXPECT_EQ(nic.mediaState(), MediaConnectState::Unknown);
        EXPECT_EQ(nic.linkSpeed(), 0U);
        EXPECT_FALSE(nic.isCableDiagSupported());
        ndis_->arrive(adapter, sim::LinkState::at(5000000000ULL)).wait();
        EXPECT_TRUE(nic.isReady());
        EXPECT_EQ(nic.linkSpeed(), 5000000000ULL);
        EXPECT_EQ(nic.fwVersion().toString(), L"1.5.66");
    });
    EXPECT_EQ(told.get(), (std::vector<std::string>{"added", "removed", "added"}));
    EXPECT_EQ(tracedStartingWith({"ZtNic: initialization", "ZtNic: trying"}),
              (Messages{"ZtNic: initialization DONE!", "ZtNic: trying to initialize... (5)",
                        "ZtNic: initialization DONE!"}));
}

TEST_F(ZtNicTest, arrivalRetriesUntilTheDriverAnswers)
{
    // the reads that fail before the driver answers, the tries traced, the verdict, whether it ends ready
    const std::tuple<int, Messages, const char*, bool> cases[] = {
        {2, {"(5)", "(4)", "(3)"}, "ZtNic: initialization DONE!", true},
        {5, {"(5)", "(4)", "(3)", "(2)", "(1)"}, "/!\\ ZtNic: initialization FAILED!", false},
    };
    for (const auto& [failures, tries, verdict, ready] : cases) {
        service_.clearFaults();
        service_.injectFault(
            sim::Fault::on("GetObject", WBEM_E_INVALID_CLASS).forTarget(L"Zt_NetAdapter").times(failures));
        host::clearDebugOutput();
        Told told;
        bool readyAfter = false;
        onNewThread([&] {
            ZtNic nic(adapter, false);
            subscribe(nic, told);
            ndis_->arrive(adapter).wait();
            readyAfter = nic.isReady();
        });
        EXPECT_EQ(readyAfter, ready);
        Messages expected;
        for (const auto& t : tries) {
            expected.push_back("ZtNic: trying to initialize... " + t);
        }
        expected.emplace_back(verdict);
        EXPECT_EQ(
            tracedStartingWith({"ZtNic: trying", "ZtNic: initialization", "/!\\ ZtNic: initialization"}),
            expected);
        EXPECT_EQ(told.get(), std::vector<std::string>{"added"}) << "told of the arrival either way";
    }
}

TEST_F(ZtNicTest, cableTestRefusesWhatItCannotTrust)
{
    const std::string badPairs = "/!\\ field 'pairs' has unexpected type";
    const std::string noPairs = "[!] 'pairs' property not found";
    const std::string noDiagRes = "[!] 'diagRes' property not found or has invalid type";
    // what, the script, the lines at level 0 and 2
    const std::tuple<const char*, std::function<void()>, Messages> cases[] = {
        {"pairs of 2-byte elements",
         setting(ZtField::pairs, sim::Value::array(VT_I2, {1, 2, 3, 4})),
         {badPairs}},
        {"pairs not an array", setting(ZtField::pairs, sim::Value::integer(VT_I4, 7)), {badPairs}},
        {"pairs absent", removing({ZtField::pairs}), {noPairs}},
        {"diagRes not an object", setting(ZtField::diagRes, sim::Value::string(L"pairs")), {noDiagRes}},
        {"diagRes absent", removing({ZtField::diagRes}), {noDiagRes}},
        {"diagRes holding no interface", setting(ZtField::diagRes, noInterface()), {noPairs}},
        {"the method fails",
         failing("ExecMethod", L"Zt_NetAdapter.ExecCableDiag", WBEM_E_FAILED),
         {"[!] failed to execute method 'ExecCableDiag', hr = 0x80041001"}},
        {"firmware too old",
         [&] { driver_->setFirmware(adapter, 1, 5, 65); },
         {"[!] performCableDiag(): cable diagnostics is not supported by FW!"}},
        {"no control class",
         failing("GetObject", ZtDriver::adapterClass, WBEM_E_INVALID_CLASS),
         {"[!] performCableDiag(): class object is nullptr"}},
    };
    for (const auto& [what, script, lines] : cases) {
        service_.clearFaults();
        driver_->setFirmware(adapter, 1, 5, 66);
        driver_->resetField(adapter, ZtField::pairs);
        driver_->resetField(adapter, ZtField::diagRes);
        script();
        std::vector<ZtPairInfo> results;
        bool done = true;
        EXPECT_EQ(failuresOf([&](ZtNic& nic) { done = nic.performCableDiag(results); }), lines) << what;
        EXPECT_FALSE(done) << what;
        EXPECT_TRUE(results.empty()) << what;
    }
}

TEST_F(ZtNicTest, cableTestOnAWorkerWhileTheDriverTakesTheLinkDownAndUp)
{
    driver_->onLinkDrop([&](const std::wstring& name) { ndis_->disconnect(name).wait(); });
    driver_->onLinkRestore([&](const std::wstring& name) { ndis_->connect(name).wait(); });
    Told told;
    onNewThread([&] {
        ZtNic nic(adapter, true);
        subscribe(nic, told);
        driver_->holdCableTest(adapter);
        std::vector<ZtPairInfo> results;
        std::future<bool> run = std::async(std::launch::async, [&] {
            const bool done = nic.performCableDiag(results);
            endThreadWbemServices();
            return done;
        });
        ASSERT_TRUE(driver_->waitUntilCableTestRunning(adapter));
        EXPECT_EQ(nic.mediaState(), MediaConnectState::Disconnected) << "the link is down during the run";
        EXPECT_TRUE(std::isinf(nic.getThermalInfo().phyTemperature) == false) << "the dialog thread goes on";
        driver_->releaseCableTest(adapter);
        EXPECT_TRUE(run.get());
        EXPECT_EQ(results.size(), 4U);
        EXPECT_EQ(nic.mediaState(), MediaConnectState::Connected);
    });
    EXPECT_EQ(told.get(), (std::vector<std::string>{"media 2", "media 1"}));
}

TEST_F(ZtNicTest, cableLengthIsCorrectedAt2_5And5Gbps)
{
    // link speed, the length the driver measured, the cable's category, the estimate
    const std::tuple<std::uint64_t, std::uint32_t, int, std::uint32_t> cases[] = {
        {5000000000ULL, 100, Cat5e, 101}, {5000000000ULL, 100, Cat6, 115}, {5000000000ULL, 100, Cat6a, 121},
        {2500000000ULL, 100, Cat5e, 144}, {2500000000ULL, 100, Cat6, 153}, {2500000000ULL, 100, Cat6a, 161},
        {5000000000ULL, 7, Cat5e, 0},     {5000000000ULL, 8, Cat5e, 0},    {2500000000ULL, 15, Cat5e, 0},
        {2500000000ULL, 15, Cat6, 0},     {2500000000ULL, 15, Cat6a, 0},   {1000000000ULL, 100, Cat6, 100},
        {10000000000ULL, 100, 7, 100},    {5000000000ULL, 100, -1, 100},   {5000000000ULL, 0, Cat6, 0},
    };
    for (const auto& [speed, raw, category, expected] : cases) {
        ndis_->setLinkState(adapter, sim::LinkState::at(speed));
        driver_->setCableLength(adapter, raw);
        std::pair<std::uint32_t, std::uint32_t> read;
        onNewThread([&read, category = category] {
            ZtNic nic(adapter, true);
            read = {nic.getCableLength(), nic.estimateCableLength(category)};
        });
        EXPECT_EQ(read, std::make_pair(raw, expected)) << "speed " << speed << ", category " << category;
    }
}

TEST_F(ZtNicTest, cableLengthRefusesAnUnknownCategoryAndARemovedAdapter)
{
    driver_->setCableLength(adapter, 100);
    EXPECT_EQ(failuresOf([](ZtNic& nic) { EXPECT_EQ(nic.estimateCableLength(3), 100U); }),
              Messages{"/!\\ estimateCableLength(): invalid cable category 3"});
    EXPECT_EQ(failuresOf([&](ZtNic& nic) {
                  ndis_->remove(adapter).wait();
                  EXPECT_EQ(nic.estimateCableLength(Cat5e), 0U) << "no firmware after removal";
              }),
              Messages{"[!] getCableLength(): cable diagnostics is not supported by FW!"});
}

TEST_F(ZtNicTest, temperaturesOrTheDefaultRecord)
{
    struct Case {
        const char* what;
        std::function<void()> script;
        Messages lines;
        double phy = INFINITY;  // the default record's
        double mac = INFINITY;
    };
    const Case cases[] = {
        {"both valid", [] {}, {}, 45.0, 50.0},
        {"no macTemperature",
         removing({ZtField::macTemperature}),
         {"[!] property 'macTemperature' not found"}},
        {"phyTemperature of another integer type",
         setting(ZtField::phyTemperature, sim::Value::integer(VT_I2, 4500)),
         {"[!] property 'phyTemperature' has invalid type (2)"}},
        {"flags of another type",
         setting(ZtField::thermalFlags, sim::Value::integer(VT_I4, 12)),
         {"[!] property 'flags' has invalid type (3)"}},
        {"thermalInfo absent",
         removing({ZtField::thermalInfo}),
         {"[!] property 'thermalInfo' not found", "[!] Couldn't get thermalInfo object"}},
        {"thermalInfo holding no interface",
         setting(ZtField::thermalInfo, noInterface()),
         {"[!] property 'flags' not found"}},
        {"diagnostics object missing",
         failing("GetObject", ZtDriver::diagnosticsClass, WBEM_E_NOT_FOUND),
         {"/!\\ get object 'Zt_DiagnosticsData.InstanceName=" + std::string(adapterPath) + "' failed!",
          "[!] Faild to create DiagDataObject"}},
    };
    for (const auto& c : cases) {
        service_.clearFaults();
        for (ZtField f : {ZtField::thermalInfo, ZtField::thermalFlags, ZtField::phyTemperature,
                          ZtField::macTemperature}) {
            driver_->resetField(adapter, f);
        }
        c.script();
        ZtThermalInfo info;
        EXPECT_EQ(failuresOf([&](ZtNic& nic) { info = nic.getThermalInfo(); }), c.lines) << c.what;
        EXPECT_DOUBLE_EQ(info.phyTemperature, c.phy) << c.what;
        EXPECT_DOUBLE_EQ(info.macTemperature, c.mac) << c.what;
    }
}

}  // namespace
