#include "ndis/NdisWmi.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <tuple>

#include "EventLog.h"
#include "WmiFixture.h"
#include "sim/Ndis.h"
#include "wmi/WbemServices.h"

namespace {

using namespace std::chrono_literals;

const wchar_t* const adapter = L"ZT 10G Network Adapter #2";

// What the monitor's callbacks saw.
using Seen = EventLog<std::wstring>;

void bind(NdisWmi& monitor, Seen& seen)
{
    monitor.bindCallbacks([&](const std::wstring& name) { seen.add(L"arrived " + name); },
                          [&](const std::wstring& name) { seen.add(L"removed " + name); },
                          [&](const std::wstring& name, MediaConnectState state) {
                              seen.add(L"media " + name + L" " + std::to_wstring(static_cast<int>(state)));
                          });
}

class NdisWmiTest : public WmiFixture {
protected:
    // WmiQueryLinkState answers this LinkState: an object with these values, or any value.
    void answerLinkState(const sim::PropertyValues& linkState)
    {
        answerLinkState(sim::Value::object({L"MSNdis_LinkStateData", linkState}));
    }
    void answerLinkState(const sim::Value& linkState)
    {
        service_.onMethod(L"MSNdis_LinkState", L"WmiQueryLinkState", [linkState](sim::MethodCall& call) {
            call.setOutput(L"LinkState", linkState);
            return S_OK;
        });
    }
};

TEST_F(NdisWmiTest, subscribesToTheEventClassesItHearsOfItsAdapterAndStillQueries)
{
    const std::wstring ours = L" WHERE InstanceName=\"ZT 10G Network Adapter #2\"";
    const std::vector<std::wstring> all
        = {L"NotifyAdapterArrival", L"NotifyAdapterRemoval", L"StatusMediaConnect", L"StatusMediaDisconnect"};
    // the instance, the events asked for, the classes subscribed to, the queries' condition
    const std::tuple<std::wstring, NdisEvents, std::vector<std::wstring>, std::wstring> cases[] = {
        {adapter, NdisEvents::Subscribe, all, ours},
        {L"Lab \"uplink\" \\ #3", NdisEvents::Subscribe, all,
         L" WHERE InstanceName=\"Lab \"uplink\" \\ #3\""},
        {L"", NdisEvents::Subscribe, all, L""},
        {adapter, NdisEvents::Arrivals, {L"NotifyAdapterArrival"}, ours},
        {adapter, NdisEvents::None, {}, ours},
    };
    ndis_->setLinkState(adapter, sim::LinkState::at(2500000000ULL));
    for (const auto& [instance, events, classes, where] : cases) {
        service_.clearCalls();
        std::uint64_t speed = 1;
        onNewThread([&speed, instance = instance, events = events] {
            speed = NdisWmi(instance.c_str(), events).linkSpeed();
        });
        EXPECT_EQ(speed, instance == adapter ? 2500000000ULL : 0U) << "whatever it hears";
        std::vector<std::wstring> expected;
        for (const auto& eventClass : classes) {
            expected.push_back(L"SELECT * FROM MSNdis_" + eventClass);
            expected.back() += where;
        }
        EXPECT_EQ(targetsOf("ExecNotificationQueryAsync"), expected);
        EXPECT_EQ(callsOf("CancelAsyncCall"), classes.empty() ? 0 : 1) << "one cancel ends them all";
        EXPECT_TRUE(service_.subscriptions().empty());
    }
    EXPECT_TRUE(traced("ExecNotificationQueryAsync(SELECT * FROM MSNdis_StatusMediaConnect WHERE "
                       "InstanceName=\"ZT 10G Network Adapter #2\") -> 0"));
}

TEST_F(NdisWmiTest, aFailedRegistrationIsTracedAndTheOthersGoOn)
{
    service_.injectFault(sim::Fault::on("ExecNotificationQueryAsync", WBEM_E_INVALID_CLASS).onlyCall(2));
    onNewThread([&] {
        const NdisWmi monitor(adapter);
        EXPECT_EQ(service_.subscriptions().size(), 3U);
    });
    EXPECT_EQ(callsOf("ExecNotificationQueryAsync"), 4);
    EXPECT_EQ(
        tracedStartingWith({"[!]"}),
        Messages{"[!] NdisWmi: register 'MSNdis_NotifyAdapterRemoval' notification failed -> 0x80041010"});
}

TEST_F(NdisWmiTest, linkStateQuerySendsTheFixedRecords)
{
    ndis_->setLinkState(adapter, sim::LinkState::at(2500000000ULL));
    onNewThread([&] {
        const NdisWmi monitor(adapter);
        EXPECT_EQ(monitor.linkSpeed(), 2500000000ULL);
    });
    const auto requests = ndis_->requests();
    ASSERT_EQ(requests.size(), 1U);
    const auto& r = requests[0];
    EXPECT_EQ(r.instanceName, adapter);
    // each record's name, what it received, the type and number it should hold
    const std::tuple<const char*, const sim::ReceivedValue&, VARTYPE, std::int64_t> fields[] = {
        {"Revision", r.revision, VT_UI1, 1},  {"Type", r.type, VT_UI1, 2},
        {"Size", r.size, VT_I4, 65535},       {"NetLuid (64 bits: held as text)", r.netLuid, VT_BSTR, 0},
        {"Padding", r.padding, VT_I4, 0},     {"PortNumber", r.portNumber, VT_I4, 0},
        {"RequestId", r.requestId, VT_I4, 0}, {"Timeout", r.timeout, VT_I4, 5},
    };
    for (const auto& [name, value, type, number] : fields) {
        EXPECT_TRUE(value.present) << name;
        EXPECT_EQ(value.type, type) << name;
        EXPECT_EQ(value.number.value_or(-1), number) << name;
    }
    EXPECT_EQ(r.objectHeader.className, L"MSNdis_ObjectHeader");
    EXPECT_EQ(r.header.className, L"MSNdis_WmiMethodHeader");
}

TEST_F(NdisWmiTest, linkSpeedIsTheTransmitSpeedParsedFromTextAndMediaStateTheLow16Bits)
{
    using sim::Value;
    struct Case {
        const char* what;
        sim::PropertyValues linkState;
        std::uint64_t speed = 0;
        MediaConnectState state = MediaConnectState::Unknown;
    };
    const Case cases[] = {
        {"above 32 bits", {{L"XmitLinkSpeed", Value::uint64(2500000000ULL)}}, 2500000000ULL},
        {"10 Gbps", {{L"XmitLinkSpeed", Value::uint64(10000000000ULL)}}, 10000000000ULL},
        {"leading blanks", {{L"XmitLinkSpeed", Value::string(L"  1000000000")}}, 1000000000ULL},
        {"digits up to a non-digit", {{L"XmitLinkSpeed", Value::string(L"100Mbps")}}, 100ULL},
        {"no digits", {{L"XmitLinkSpeed", Value::string(L"fast")}}},
        {"empty text", {{L"XmitLinkSpeed", Value::string(L"")}}},
        {"overflow", {{L"XmitLinkSpeed", Value::string(L"18446744073709551616")}}},
        {"largest", {{L"XmitLinkSpeed", Value::string(L"18446744073709551614")}}, 18446744073709551614ULL},
        {"NDIS_LINK_SPEED_UNKNOWN", {{L"XmitLinkSpeed", Value::string(L"18446744073709551615")}}},
        {"null speed", {{L"XmitLinkSpeed", Value::null()}}},
        {"speed not text", {{L"XmitLinkSpeed", Value::sint32(1000)}}},
        {"connected", {{L"MediaConnectState", Value::uint32(1)}}, 0, MediaConnectState::Connected},
        {"disconnected", {{L"MediaConnectState", Value::uint32(2)}}, 0, MediaConnectState::Disconnected},
        {"high bits", {{L"MediaConnectState", Value::uint32(65538)}}, 0, MediaConnectState::Disconnected},
        {"state 0", {{L"MediaConnectState", Value::uint32(0)}}},
        {"null state", {{L"MediaConnectState", Value::null()}}},
    };
    for (const auto& c : cases) {
        answerLinkState(c.linkState);
        onNewThread([&] {
            const NdisWmi monitor(adapter);
            EXPECT_EQ(monitor.linkSpeed(), c.speed) << c.what;
            EXPECT_EQ(monitor.mediaConnectState(), c.state) << c.what;
        });
    }
}

TEST_F(NdisWmiTest, failedQueriesGiveNoSpeedAndUnknownState)
{
    struct Case {
        const char* what;
        std::function<void()> script;
        Messages lines;  // of each of the two queries: failures, warnings and the method's result
        bool executed;
        const wchar_t* instance = adapter;
    };
    const std::string method
        = "ExecMethod(MSNdis_LinkState.InstanceName=\"ZT 10G Network Adapter #2\":WmiQueryLinkState)";
    const Messages noLinkState = {method + " -> 0", "[!] Property 'LinkState' not found"};
    const Case cases[] = {
        {"Put of Timeout fails",
         failing("Put", L"MSNdis_WmiMethodHeader.Timeout", WBEM_E_TYPE_MISMATCH),
         {},
         false},
        {"Put of Header on the input fails",
         failing("Put", L"__PARAMETERS.Header", WBEM_E_TYPE_MISMATCH),
         {"/!\\ Put(Header) failed -> 0x80041005"},
         false},
        {"no LinkState in the output",
         [&] {
             service_.onMethod(L"MSNdis_LinkState", L"WmiQueryLinkState",
                               [](sim::MethodCall&) { return S_OK; });
         },
         noLinkState, true},
        {"LinkState holding no interface", [&] { answerLinkState(noInterface()); }, noLinkState, true},
        {"LinkState of another type", [&] { answerLinkState(sim::Value::string(L"up")); }, noLinkState, true},
        {"the adapter is gone", [&] { ndis_->remove(adapter).wait(); }, {method + " -> 0x80041002"}, true},
        {"no instance name", [] {}, {"/!\\ NdisWmi: instance is not set"}, false, L""},
    };
    for (const auto& c : cases) {
        service_.clearFaults();
        c.script();
        Messages lines;
        onNewThread([&] {
            const NdisWmi monitor(c.instance);
            service_.clearCalls();
            host::clearDebugOutput();
            EXPECT_EQ(monitor.linkSpeed(), 0U) << c.what;
            EXPECT_EQ(monitor.mediaConnectState(), MediaConnectState::Unknown) << c.what;
            lines = tracedStartingWith({"[!]", "/!\\", "ExecMethod("});
        });
        EXPECT_EQ(callsOf("ExecMethod") > 0, c.executed) << c.what;
        Messages expected = c.lines;
        expected.insert(expected.end(), c.lines.begin(), c.lines.end());
        EXPECT_EQ(lines, expected) << c.what;
    }
}

TEST_F(NdisWmiTest, eventsReachTheBoundCallbacks)
{
    Seen seen;
    onNewThread([&] {
        NdisWmi monitor(adapter);
        ndis_->disconnect(adapter).wait();  // before any callback is bound: only traced
        bind(monitor, seen);
        ndis_->connect(adapter).wait();
        ndis_->disconnect(adapter).wait();
        ndis_->remove(adapter).wait();
        ndis_->arrive(adapter).wait();
        ndis_->addAdapter(L"another adapter");
        ndis_->connect(L"another adapter").wait();  // not this monitor's
    });
    const std::wstring name = adapter;
    EXPECT_EQ(seen.get(),
              (std::vector<std::wstring>{L"media " + name + L" 1", L"media " + name + L" 2",
                                         L"removed " + name, L"arrived " + name}));
}

TEST_F(NdisWmiTest, sinkIgnoresClassesItHasNoRowForAndKeepsAHandlersExceptionIn)
{
    // Delivered straight to a sink: the monitor doesn't subscribe to the first two.
    Seen seen;
    onNewThread([&] {
        NdisWmi monitor(adapter);
        bind(monitor, seen);
        const com_ptr<NdisEventsSink> sink(new NdisEventsSink(&monitor), false);
        const auto indicate = [&](const wchar_t* eventClass) {
            com_ptr<IWbemClassObject> event = threadWbemServices().createInstance(eventClass);
            ASSERT_TRUE(event) << "the provider defines it";
            IWbemClassObject* batch[] = {event.get()};
            EXPECT_EQ(sink->Indicate(1, batch), WBEM_S_NO_ERROR);
        };
        indicate(L"MSNdis_StatusLinkSpeedChange");
        indicate(L"MSNdis_StatusOperationalStatus");
        EXPECT_EQ(sink->Indicate(0, nullptr), WBEM_S_NO_ERROR);
        EXPECT_EQ(sink->Indicate(-1, nullptr), WBEM_S_NO_ERROR);
        EXPECT_TRUE(seen.get().empty());
        monitor.bindCallbacks(nullptr, nullptr, [](const std::wstring&, MediaConnectState) {
            throw std::bad_alloc();  // as an allocation in a callback does
        });
        host::clearDebugOutput();
        indicate(L"MSNdis_StatusMediaConnect");
        EXPECT_EQ(tracedMessages().back(), "[!] NdisEventSink: out of memory, batch dropped");
    });
}

TEST_F(NdisWmiTest, batchStopsAtAnObjectWithoutClass)
{
    Seen seen;
    sim::Delivery report;
    onNewThread([&] {
        NdisWmi monitor(L"");  // no WHERE clause: objects of any adapter
        bind(monitor, seen);
        const std::wstring connect = L"MSNdis_StatusMediaConnect";
        const std::wstring disconnect = L"MSNdis_StatusMediaDisconnect";
        report = service_.fire(
            {connect,
             {{connect, {{L"InstanceName", sim::Value::string(L"one")}}},
              {connect, {{L"InstanceName", sim::Value::string(L"two")}, {L"__Class", sim::Value::absent()}}},
              {connect, {{L"InstanceName", sim::Value::string(L"three")}}}}});
        report.wait();
        VARIANT nullText{};
        nullText.vt = VT_BSTR;  // a null BSTR is the empty string
        const sim::Event nameless{disconnect,
                                  {{disconnect, {{L"InstanceName", sim::Value::absent()}}},
                                   {disconnect, {{L"InstanceName", sim::Value::raw(nullText)}}}}};
        service_.fire(nameless).wait();
    });
    EXPECT_EQ(seen.get(), (std::vector<std::wstring>{L"media one 1", L"media  2", L"media  2"}));
    ASSERT_EQ(report.get().answers.size(), 1U);
    EXPECT_EQ(report.get().answers[0], WBEM_E_NOT_FOUND) << "the failing code goes back";
    EXPECT_TRUE(traced("[!] NdisEventSink: couldn't get '__Class' property -> 0x80041002"));
}

TEST_F(NdisWmiTest, noCallbackRunsOnceTheMonitorIsGoneEvenWithDeliveriesInFlight)
{
    // Deliveries are held inside Indicate while the monitor is destroyed; when
    // they go on, none may reach the monitor or its callbacks.
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> gone{false};
        std::atomic<int> lateCalls{0};
        onNewThread([&] {
            auto monitor = std::make_unique<NdisWmi>(adapter);
            auto late = [&] { lateCalls += gone ? 1 : 0; };
            monitor->bindCallbacks([=](const std::wstring&) { late(); }, [=](const std::wstring&) { late(); },
                                   [=](const std::wstring&, MediaConnectState) { late(); });
            service_.holdDeliveries(sim::HoldPoint::insideIndicate);
            ndis_->connect(adapter);
            ndis_->disconnect(adapter);
            ASSERT_TRUE(service_.waitForHeld(2, 10s));
            monitor.reset();
            gone = true;
            service_.releaseDeliveries();
        });
        ASSERT_TRUE(service_.drain(10s));
        EXPECT_EQ(lateCalls, 0) << "round " << round;
    }
}

TEST_F(NdisWmiTest, destructionWaitsForACallbackThatIsRunning)
{
    std::promise<void> entered;
    std::promise<void> mayLeave;
    std::atomic<bool> destroyed{false};
    std::atomic<bool> destroyedWhileInside{false};
    onNewThread([&] {
        auto monitor = std::make_unique<NdisWmi>(adapter);
        monitor->bindCallbacks({}, {}, [&](const std::wstring&, MediaConnectState) {
            entered.set_value();
            mayLeave.get_future().wait();
            destroyedWhileInside = destroyed.load();
        });
        ndis_->connect(adapter);
        entered.get_future().wait();
        std::thread releaser([&] {
            std::this_thread::sleep_for(50ms);  // give the destructor time to (wrongly) finish
            mayLeave.set_value();
        });
        monitor.reset();
        destroyed = true;
        releaser.join();
    });
    EXPECT_FALSE(destroyedWhileInside) << "the destructor returned while a callback still ran";
}

TEST_F(NdisWmiTest, destroyedOnAnotherThreadItCancelsOnTheConnectionThatSubscribed)
{
    std::unique_ptr<NdisWmi> monitor;
    onNewThread([&] { monitor = std::make_unique<NdisWmi>(adapter); });
    EXPECT_EQ(service_.subscriptions().size(), 4U);
    onNewThread([&] { monitor.reset(); });
    EXPECT_TRUE(service_.subscriptions().empty()) << "no subscription is left behind";
    EXPECT_TRUE(traced("CancelAsyncCall() -> 0"));
}

}  // namespace
