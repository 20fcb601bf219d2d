// Event delivery: threads, batches, filters, cancel and shutdown with
// deliveries in flight, holds, drain, faults and the reference balance.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <set>
#include <stdexcept>
#include <thread>

#include "RecordingSink.h"
#include "SimClient.h"

namespace simtest {
namespace {

using namespace std::chrono_literals;
using sim::Event;
using sim::EventObject;
using sim::Value;

const wchar_t* const eventClass = L"Sim_Event";
const HRESULT cancelled = static_cast<HRESULT>(WBEM_E_CALL_CANCELLED);
const HRESULT shuttingDown = static_cast<HRESULT>(WBEM_E_SHUTTING_DOWN);
const HRESULT notFound = static_cast<HRESULT>(WBEM_E_NOT_FOUND);

EventObject object(const std::wstring& name, int seq)
{
    return {eventClass, {{L"InstanceName", Value::string(name)}, {L"Seq", Value::uint32(seq)}}, {}};
}

std::string ascii(const std::wstring& text)
{
    std::string out;
    for (const wchar_t c : text) {
        out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    }
    return out;
}

Event event(const std::wstring& name, int seq = 1)
{
    return {eventClass, {object(name, seq)}};
}

class SimEventsTest : public SimTest {
protected:
    void SetUp() override
    {
        SimTest::SetUp();
        service().defineClass(sim::ClassDef(eventClass)
                                  .property(L"InstanceName", CIM_STRING)
                                  .property(L"Active", CIM_BOOLEAN)
                                  .property(L"Seq", CIM_UINT32));
        services_ = connect();
    }
    void TearDown() override
    {
        EXPECT_TRUE(service().drain(10s));
        services_.reset();
        service().shutdown();  // ends what a test left subscribed
        EXPECT_EQ(sink_.references.load(), 1U) << "the service gave every sink reference back";
        EXPECT_EQ(other_.references.load(), 1U);
        SimTest::TearDown();
    }

    HRESULT subscribe(IWbemObjectSink* sink, const std::wstring& query, IWbemServices* on = nullptr)
    {
        const Bstr language(L"WQL");
        const Bstr text(query);
        return (on != nullptr ? on : services_.get())
            ->ExecNotificationQueryAsync(language.get(), text.get(), 0, nullptr, sink);
    }
    void subscribeAll(IWbemObjectSink* sink)
    {
        ASSERT_EQ(subscribe(sink, std::wstring(L"SELECT * FROM ") + eventClass), S_OK);
    }
    HRESULT cancel(IWbemObjectSink* sink) { return services_->CancelAsyncCall(sink); }
    // CancelAsyncCall on another thread, failing the test instead of hanging if it blocks.
    HRESULT cancelPromptly(IWbemObjectSink* sink)
    {
        auto done = std::async(std::launch::async, [&] { return cancel(sink); });
        if (done.wait_for(10s) != std::future_status::ready) {
            ADD_FAILURE() << "CancelAsyncCall waited for deliveries inside Indicate";
            sink_.open();
            other_.open();
        }
        return done.get();
    }
    sim::DeliveryReport fire(const Event& fired) { return service().fire(fired).get(); }

    Ref<IWbemServices> services_;
    RecordingSink sink_;
    RecordingSink other_;
};

TEST_F(SimEventsTest, deliversOnTheServiceThreadsWithObjectsItReleases)
{
    subscribeAll(&sink_);
    const sim::ReferenceCounts before = service().references();

    const sim::DeliveryReport report = fire(event(L"eth 0", 7));

    EXPECT_EQ(report.subscriptions, 1);
    EXPECT_EQ(report.indicated, 1);
    EXPECT_EQ(report.dropped, 0);
    const auto seen = sink_.indicates();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_NE(seen[0].thread, std::this_thread::get_id());
    ASSERT_EQ(seen[0].count, 1);
    EXPECT_EQ(seen[0].objects[0].className, eventClass);
    EXPECT_EQ(seen[0].objects[0].instanceName, L"eth 0");
    EXPECT_EQ(seen[0].objects[0].seq, 7);
    EXPECT_TRUE(service().drain());
    const sim::ReferenceCounts after = service().references();
    EXPECT_EQ(after.liveObjects, before.liveObjects) << "the event object is gone once Indicate returned";
    EXPECT_EQ(after.references, before.references);
    EXPECT_EQ(service().subscriptions().at(0).indications, 1U);
    EXPECT_LE(service().deliveryCounts().threads, sim::WmiService::kDeliveryThreads);

    bool logged = false;
    for (const sim::CallRecord& call : service().calls()) {
        if (call.call == "Indicate") {
            logged = true;
            EXPECT_EQ(call.className, eventClass);
            EXPECT_EQ(call.instance, L"eth 0");
            EXPECT_EQ(call.result, S_OK);
            EXPECT_EQ(call.thread, seen[0].thread);
        }
    }
    EXPECT_TRUE(logged);
}

TEST_F(SimEventsTest, aBatchIsOneIndicateInItsOrder)
{
    subscribeAll(&sink_);
    fire({eventClass, {object(L"a", 1), object(L"b", 2), object(L"c", 3)}});

    const auto seen = sink_.indicates();
    ASSERT_EQ(seen.size(), 1U);
    ASSERT_EQ(seen[0].count, 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(seen[0].objects[i].seq, i + 1);
    }
}

TEST_F(SimEventsTest, filtersMatchClassIgnoringCaseAndInstanceNamesExactly)
{
    const std::wstring tricky = L"PCI\\VEN_8086&DEV_1533 #2 \"x\"";
    const struct {
        const wchar_t* query;
        std::wstring fired;
        bool delivered;
    } cases[] = {
        {L"SELECT * FROM Sim_Event", L"anything", true},
        {L"select * from SIM_EVENT", L"anything", true},
        {L"SELECT * FROM Sim_Event WHERE InstanceName=\"eth 0\"", L"eth 0", true},
        {L"SELECT * FROM Sim_Event WHERE InstanceName=\"eth 0\"", L"ETH 0", false},
        {L"SELECT * FROM Sim_Event WHERE InstanceName=\"eth 0\"", L"eth 0 ", false},
        {L"SELECT * FROM Sim_Event WHERE InstanceName=\"eth 0\"", L"eth", false},
        {L"SELECT * FROM Sim_Event WHERE InstanceName='PCI\\VEN_8086&DEV_1533 #2 \"x\"'", tricky, true},
        {L"SELECT * FROM Sim_Event WHERE InstanceName='PCI\\VEN_8086&DEV_1533 #2 \"x\"'", L"PCI", false},
        {L"SELECT * FROM Sim_Widget", L"anything", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(ascii(c.query));
        RecordingSink sink;
        ASSERT_EQ(subscribe(&sink, c.query), S_OK);
        const sim::DeliveryReport report = fire(event(c.fired));
        EXPECT_EQ(report.indicated, c.delivered ? 1 : 0);
        EXPECT_EQ(sink.indicates().size(), c.delivered ? 1U : 0U);
        ASSERT_EQ(cancel(&sink), S_OK);
        EXPECT_EQ(sink.references.load(), 1U);
    }
}

TEST_F(SimEventsTest, aFilteredSubscriptionGetsItsObjectsOfABatchOnly)
{
    ASSERT_EQ(subscribe(&sink_, L"SELECT * FROM Sim_Event WHERE InstanceName=\"b\""), S_OK);
    subscribeAll(&other_);
    EventObject nameless = object(L"b", 4);
    nameless.missing = {L"InstanceName"};

    const sim::DeliveryReport report
        = fire({eventClass, {object(L"a", 1), object(L"b", 2), object(L"c", 3), nameless, object(L"b", 5)}});

    EXPECT_EQ(report.subscriptions, 2);
    const auto seen = sink_.indicates();
    ASSERT_EQ(seen.size(), 1U);
    ASSERT_EQ(seen[0].count, 2);
    EXPECT_EQ(seen[0].objects[0].seq, 2);
    EXPECT_EQ(seen[0].objects[1].seq, 5);
    ASSERT_EQ(other_.indicates().size(), 1U);
    EXPECT_EQ(other_.indicates()[0].count, 5);

    EXPECT_EQ(fire(event(L"c")).subscriptions, 1) << "no call for a filter nothing matches";
}

TEST_F(SimEventsTest, malformedObjectsLackWhatTheyAreToLack)
{
    subscribeAll(&sink_);
    EventObject classless = object(L"two", 2);
    classless.missing = {L"__CLASS"};
    EventObject nameless = object(L"three", 3);
    nameless.missing = {L"instancename"};

    fire({eventClass, {object(L"one", 1), classless, nameless}});

    const auto seen = sink_.indicates();
    ASSERT_EQ(seen.size(), 1U);
    ASSERT_EQ(seen[0].count, 3);
    EXPECT_EQ(seen[0].objects[0].classRead, S_OK);
    EXPECT_EQ(seen[0].objects[1].classRead, notFound);
    EXPECT_EQ(seen[0].objects[1].nameRead, S_OK);
    EXPECT_EQ(seen[0].objects[1].seq, 2);
    EXPECT_EQ(seen[0].objects[2].classRead, S_OK);
    EXPECT_EQ(seen[0].objects[2].nameRead, notFound);
}

TEST_F(SimEventsTest, cancelWithNothingInFlightEndsEachSubscriptionBeforeReturning)
{
    subscribeAll(&sink_);
    ASSERT_EQ(subscribe(&sink_, L"SELECT * FROM Sim_Event WHERE InstanceName=\"x\""), S_OK);
    subscribeAll(&other_);
    EXPECT_EQ(sink_.references.load(), 3U);

    EXPECT_EQ(cancel(&sink_), S_OK);

    const auto statuses = sink_.statuses();
    ASSERT_EQ(statuses.size(), 2U) << "one SetStatus per cancelled call";
    for (const SeenStatus& status : statuses) {
        EXPECT_EQ(status.flags, static_cast<LONG>(WBEM_STATUS_COMPLETE));
        EXPECT_EQ(status.result, cancelled);
        EXPECT_TRUE(status.paramNull);
        EXPECT_TRUE(status.objectNull);
        EXPECT_EQ(status.thread, std::this_thread::get_id());
        EXPECT_GE(status.referencesBefore, 2U) << "SetStatus comes before the release";
    }
    EXPECT_EQ(sink_.references.load(), 1U);
    EXPECT_EQ(cancel(&sink_), notFound);

    const sim::DeliveryReport report = fire(event(L"x"));
    EXPECT_EQ(report.subscriptions, 1);
    EXPECT_TRUE(sink_.indicates().empty());
    EXPECT_EQ(other_.indicates().size(), 1U);
    EXPECT_TRUE(other_.statuses().empty());
}

TEST_F(SimEventsTest, cancelDoesNotWaitForIndicatesAndEndsTheSubscriptionAfterTheLast)
{
    subscribeAll(&sink_);
    sink_.block();
    std::vector<std::shared_future<sim::DeliveryReport>> fired;
    fired.reserve(3);
    for (int i = 0; i < 3; ++i) {
        fired.push_back(service().fire(event(L"eth", i)));
    }
    ASSERT_TRUE(service().waitForInIndicate(3));
    ASSERT_TRUE(sink_.waitForBlocked(3)) << "three deliveries run at once, to one sink";
    EXPECT_EQ(sink_.running(), 3);

    EXPECT_EQ(cancelPromptly(&sink_), S_OK);

    EXPECT_TRUE(sink_.statuses().empty()) << "no SetStatus while Indicate calls run";
    EXPECT_EQ(sink_.references.load(), 2U) << "the service keeps its reference meanwhile";
    EXPECT_TRUE(service().subscriptions().empty());
    EXPECT_EQ(fire(event(L"eth", 9)).subscriptions, 0);
    sink_.open();
    for (const auto& report : fired) {
        EXPECT_EQ(report.get().indicated, 1);
    }
    ASSERT_TRUE(service().drain());

    const auto statuses = sink_.statuses();
    ASSERT_EQ(statuses.size(), 1U);
    EXPECT_EQ(statuses[0].result, cancelled);
    EXPECT_EQ(statuses[0].indicatesRunning, 0);
    EXPECT_EQ(statuses[0].referencesBefore, 2U);
    EXPECT_NE(statuses[0].thread, std::this_thread::get_id());
    EXPECT_EQ(sink_.references.load(), 1U);
    std::set<std::thread::id> threads;
    for (const SeenIndicate& seen : sink_.indicates()) {
        threads.insert(seen.thread);
    }
    EXPECT_EQ(threads.size(), 3U);
}

TEST_F(SimEventsTest, heldDeliveriesOfACancelledSubscriptionNeverReachIndicate)
{
    subscribeAll(&sink_);
    service().holdDeliveries();
    auto first = service().fire(event(L"a"));
    auto second = service().fire(event(L"b"));
    ASSERT_TRUE(service().waitForHeld(2));
    EXPECT_FALSE(service().drain(20ms)) << "held deliveries are not done";

    EXPECT_EQ(cancel(&sink_), S_OK);
    EXPECT_EQ(sink_.statuses().size(), 1U) << "nothing was inside Indicate";
    service().releaseDeliveries();

    EXPECT_EQ(first.get().dropped, 1);
    EXPECT_EQ(second.get().dropped, 1);
    ASSERT_TRUE(service().drain());
    EXPECT_TRUE(sink_.indicates().empty());
    int refused = 0;
    for (const sim::CallRecord& call : service().calls()) {
        refused += call.call == "Indicate" && call.result == cancelled ? 1 : 0;
    }
    EXPECT_EQ(refused, 2);
}

TEST_F(SimEventsTest, holdInsideIndicateStopsTheSinkAtItsFirstRead)
{
    subscribeAll(&sink_);
    service().holdDeliveries(sim::HoldPoint::insideIndicate);
    auto fired = service().fire(event(L"a"));
    ASSERT_TRUE(service().waitForHeld(1));
    EXPECT_EQ(service().deliveryCounts().inIndicate, 1U);
    EXPECT_EQ(sink_.running(), 1);

    EXPECT_EQ(cancelPromptly(&sink_), S_OK);
    EXPECT_TRUE(sink_.statuses().empty());
    service().releaseDeliveries();

    EXPECT_EQ(fired.get().indicated, 1);
    ASSERT_TRUE(service().drain());
    ASSERT_EQ(sink_.indicates().size(), 1U);
    EXPECT_EQ(sink_.indicates()[0].objects[0].instanceName, L"a");
    ASSERT_EQ(sink_.statuses().size(), 1U);
}

TEST_F(SimEventsTest, aSinkMayCancelItselfFromInsideIndicate)
{
    subscribeAll(&sink_);
    HRESULT cancelledInside = E_FAIL;
    sink_.onIndicate([&] { cancelledInside = cancel(&sink_); });

    EXPECT_EQ(fire(event(L"a")).indicated, 1);
    ASSERT_TRUE(service().drain());

    EXPECT_EQ(cancelledInside, S_OK);
    const auto statuses = sink_.statuses();
    ASSERT_EQ(statuses.size(), 1U);
    EXPECT_EQ(statuses[0].indicatesRunning, 0) << "SetStatus waits for the Indicate it was cancelled from";
    EXPECT_EQ(sink_.references.load(), 1U);
}

TEST_F(SimEventsTest, shutdownEndsSubscriptionsAndDropsWhatIsHeld)
{
    subscribeAll(&sink_);
    service().holdDeliveries();
    auto held = service().fire(event(L"a"));
    ASSERT_TRUE(service().waitForHeld(1));

    service().shutdown();

    EXPECT_EQ(held.get().dropped, 1);
    const auto statuses = sink_.statuses();
    ASSERT_EQ(statuses.size(), 1U);
    EXPECT_EQ(statuses[0].result, shuttingDown);
    EXPECT_EQ(sink_.references.load(), 1U);
    EXPECT_EQ(fire(event(L"a")).subscriptions, 0);
    EXPECT_EQ(service().deliveryCounts().threads, 0U);
    EXPECT_EQ(subscribe(&sink_, L"SELECT * FROM Sim_Event"), shuttingDown);
}

TEST_F(SimEventsTest, sinkAnswersFaultsAndUnknownClasses)
{
    subscribeAll(&sink_);
    sink_.answer = static_cast<HRESULT>(WBEM_E_FAILED);
    service().injectFault(sim::Fault::on("Indicate", E_FAIL).forInstance(L"lost"));

    const sim::DeliveryReport lost = fire(event(L"lost"));
    const sim::DeliveryReport kept = fire(event(L"kept"));

    EXPECT_EQ(lost.dropped, 1);
    EXPECT_EQ(kept.indicated, 1);
    EXPECT_EQ(kept.answers, std::vector<HRESULT>{static_cast<HRESULT>(WBEM_E_FAILED)});
    ASSERT_EQ(sink_.indicates().size(), 1U);
    EXPECT_EQ(sink_.indicates()[0].objects[0].instanceName, L"kept");
    EXPECT_THROW(service().fire(Event::of(L"No_Such_Event", L"x")), std::invalid_argument);
}

// Several threads fire while others subscribe and cancel: every delivery ends,
// indicated or dropped, and every reference comes back.
TEST_F(SimEventsTest, concurrentFiringSubscribingAndCancellingBalances)
{
    subscribeAll(&other_);
    constexpr int firers = 3;
    constexpr int perFirer = 150;
    std::atomic<int> scheduled{0};
    std::atomic<int> ended{0};
    std::atomic<int> indicated{0};
    std::vector<std::thread> threads;
    threads.reserve(firers + 1);
    for (int t = 0; t < firers; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < perFirer; ++i) {
                EventObject one = object(i % 2 == 0 ? L"even" : L"odd", i);
                const sim::DeliveryReport report = service().fire({eventClass, {one, object(L"x", t)}}).get();
                scheduled += report.subscriptions;
                ended += report.indicated + report.dropped;
                indicated += report.indicated;
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < 40; ++i) {
            EXPECT_EQ(subscribe(&sink_,
                                i % 2 == 0 ? L"SELECT * FROM Sim_Event WHERE InstanceName=\"even\""
                                           : L"SELECT * FROM Sim_Event"),
                      S_OK);
            EXPECT_EQ(cancel(&sink_), S_OK);
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(service().drain());

    EXPECT_EQ(scheduled.load(), ended.load());
    EXPECT_EQ(other_.indicates().size(), static_cast<std::size_t>(firers * perFirer));
    EXPECT_EQ(static_cast<std::size_t>(indicated.load()),
              other_.indicates().size() + sink_.indicates().size());
    EXPECT_EQ(sink_.statuses().size(), 40U);
    EXPECT_EQ(sink_.references.load(), 1U);
    const sim::DeliveryCounts counts = service().deliveryCounts();
    EXPECT_EQ(counts.pending, 0U);
    EXPECT_EQ(counts.inIndicate, 0U);
    EXPECT_EQ(counts.indicated + counts.dropped, static_cast<std::uint64_t>(scheduled.load()));
}

}  // namespace
}  // namespace simtest
