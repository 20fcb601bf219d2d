// What the module's tests rely on in the simulated service: every read a copy
// the client owns, the reference balance, the code of each failure, delivery
// on the service's threads, and cancel and shutdown with deliveries in flight.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "WmiFixture.h"
#include "host/HostWindows.h"
#include "wmi/bstr.h"
#include "wmi/com_ptr.h"
#include "wmi/variant.h"

namespace {

using namespace std::chrono_literals;

const wchar_t* const adapterPath = L"Test_Adapter.InstanceName=\"eth 0 #1\"";
const wchar_t* const adapter = L"ZT 10G Network Adapter #2";

// Records what the service did to it; Indicate reads each object's __CLASS.
class Sink final : public IWbemObjectSink {
public:
    struct Status {
        HRESULT result;
        std::thread::id thread;
        bool duringIndicate;
    };
    virtual ~Sink() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID /*iid*/, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE Indicate(LONG count, IWbemClassObject** objects) override
    {
        ++inIndicate;
        for (LONG i = 0; i < count; ++i) {
            variant className;
            objects[i]->Get(L"__CLASS", 0, className.put(), nullptr, nullptr);
            const std::lock_guard<std::mutex> guard(lock);
            seen.emplace_back(variantToString(className), std::this_thread::get_id());
        }
        --inIndicate;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetStatus(LONG flags, HRESULT result, BSTR param,
                                        IWbemClassObject* object) override
    {
        EXPECT_EQ(flags, WBEM_STATUS_COMPLETE);
        EXPECT_EQ(param, nullptr);
        EXPECT_EQ(object, nullptr);
        const std::lock_guard<std::mutex> guard(lock);
        statuses.push_back({result, std::this_thread::get_id(), inIndicate > 0});
        return S_OK;
    }

    std::atomic<ULONG> references{1};  // the test's own
    std::atomic<int> inIndicate{0};
    std::mutex lock;
    std::vector<std::pair<std::wstring, std::thread::id>> seen;  // class and thread of each object
    std::vector<Status> statuses;
};

class SimServiceTest : public WmiFixture {
protected:
    void SetUp() override
    {
        WmiFixture::SetUp();
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        bstrsBefore_ = host::liveBstrs();
        ASSERT_EQ(connect(L"\\\\.\\ROOT\\wmi", services_), S_OK);
    }
    void TearDown() override
    {
        services_.reset();
        CoUninitialize();
        EXPECT_TRUE(service_.drain());
        EXPECT_EQ(host::liveBstrs(), bstrsBefore_) << "every string handed out is freed";
        WmiFixture::TearDown();
        EXPECT_EQ(sink_.references, 1U) << "the service gave its sink references back";
    }

    static HRESULT connect(const wchar_t* ns, com_ptr<IWbemServices>& services)
    {
        com_ptr<IWbemLocator> locator;
        EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                   reinterpret_cast<void**>(locator.put())),
                  S_OK);
        return locator->ConnectServer(bstr(ns).get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                      services.put());
    }
    HRESULT getObject(const std::wstring& path, com_ptr<IWbemClassObject>& object)
    {
        return services_->GetObject(bstr(path.c_str()).get(), 0, nullptr, object.put(), nullptr);
    }
    HRESULT subscribe(const std::wstring& query, const wchar_t* language = L"WQL")
    {
        return services_->ExecNotificationQueryAsync(bstr(language).get(), bstr(query.c_str()).get(), 0,
                                                     nullptr, &sink_);
    }

    com_ptr<IWbemServices> services_;
    Sink sink_;
    long bstrsBefore_ = 0;
};

TEST_F(SimServiceTest, everyReadIsACopyTheClientOwns)
{
    com_ptr<IWbemClassObject> object;
    ASSERT_EQ(getObject(adapterPath, object), S_OK);
    variant first;
    variant second;
    ASSERT_EQ(object->Get(L"name", 0, first.put(), nullptr, nullptr), S_OK) << "names ignore case";
    ASSERT_EQ(object->Get(L"Name", 0, second.put(), nullptr, nullptr), S_OK);
    EXPECT_NE(first.get().bstrVal, second.get().bstrVal) << "a BSTR of its own each time";
    first.clear();
    EXPECT_EQ(variantToString(second), L"ZT 10G");

    // A value put is copied in; the caller's stays the caller's.
    VARIANT given{};
    given.vt = VT_BSTR;
    given.bstrVal = SysAllocString(L"put");
    ASSERT_EQ(object->Put(L"Name", 0, &given, 0), S_OK);
    VariantClear(&given);
    ASSERT_EQ(object->Get(L"Name", 0, first.put(), nullptr, nullptr), S_OK);
    EXPECT_EQ(variantToString(first), L"put");

    // An embedded object is handed out with a reference added; a snapshot is new each time.
    const long references = service_.references().references;
    variant details;
    ASSERT_EQ(object->Get(L"Details", 0, details.put(), nullptr, nullptr), S_OK);
    ASSERT_EQ(details.vartype(), VT_UNKNOWN);
    EXPECT_EQ(service_.references().references, references + 1);
    details.clear();
    EXPECT_EQ(service_.references().references, references);
    com_ptr<IWbemClassObject> again;
    ASSERT_EQ(getObject(adapterPath, again), S_OK);
    ASSERT_EQ(again->Get(L"Name", 0, first.put(), nullptr, nullptr), S_OK);
    EXPECT_EQ(variantToString(first), L"ZT 10G") << "a Put changes the snapshot only";
}

TEST_F(SimServiceTest, theBalanceCountsEveryReferenceHandedOut)
{
    const sim::ReferenceCounts before = service_.references();
    com_ptr<IWbemClassObject> object;
    ASSERT_EQ(getObject(L"Test_Details", object), S_OK);
    object->AddRef();
    EXPECT_EQ(service_.references().liveObjects, before.liveObjects + 1);
    EXPECT_EQ(service_.references().references, before.references + 2);
    EXPECT_EQ(service_.liveObjects().size(), static_cast<std::size_t>(before.liveObjects + 1));
    object->Release();
    object.reset();
    EXPECT_EQ(service_.references().liveObjects, before.liveObjects);
    EXPECT_EQ(service_.references().references, before.references);
}

TEST_F(SimServiceTest, eachFailureAnswersItsCodeAndHandsOutNothing)
{
    com_ptr<IWbemClassObject> classObject;
    ASSERT_EQ(getObject(L"Test_Adapter", classObject), S_OK);
    const auto get = [&](const std::wstring& path) {
        com_ptr<IWbemClassObject> object;
        const HRESULT hr = getObject(path, object);
        EXPECT_FALSE(object) << path;
        return hr;
    };
    const auto exec = [&](const wchar_t* path, const wchar_t* method) {
        com_ptr<IWbemClassObject> out;
        const HRESULT hr = services_->ExecMethod(bstr(path).get(), bstr(method).get(), 0, nullptr, nullptr,
                                                 out.put(), nullptr);
        EXPECT_FALSE(out);
        return hr;
    };
    com_ptr<IWbemServices> other;
    EXPECT_EQ(connect(L"root\\cimv2", other), WBEM_E_INVALID_NAMESPACE);
    EXPECT_FALSE(other);
    EXPECT_EQ(get(L"Nope"), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(get(L"Test_Adapter.InstanceName=\"eth 9\""), WBEM_E_NOT_FOUND);
    EXPECT_EQ(get(L"Test_Adapter.Name=1"), WBEM_E_INVALID_OBJECT_PATH);
    EXPECT_EQ(exec(adapterPath, L"Nope"), WBEM_E_INVALID_METHOD);
    EXPECT_EQ(exec(L"Test_Adapter.InstanceName=\"eth 9\"", L"Reset"), WBEM_E_NOT_FOUND);
    EXPECT_EQ(exec(adapterPath, L"Probe"), WBEM_E_NOT_SUPPORTED) << "a method without handler";
    EXPECT_EQ(subscribe(L"SELECT * FROM Test_Adapter", L"SQL"), WBEM_E_INVALID_QUERY_TYPE);
    EXPECT_EQ(subscribe(L"SELECT Name FROM Test_Adapter"), WBEM_E_INVALID_QUERY);
    EXPECT_EQ(subscribe(L"SELECT * FROM Nope"), WBEM_E_INVALID_CLASS);
    EXPECT_EQ(services_->CancelAsyncCall(&sink_), WBEM_E_NOT_FOUND) << "a sink never subscribed";
    variant value;
    EXPECT_EQ(classObject->Get(L"Nope", 0, value.put(), nullptr, nullptr), WBEM_E_NOT_FOUND);
    EXPECT_EQ(value.vartype(), VT_EMPTY);
    EXPECT_EQ(classObject->Put(L"Nope", 0, value.put(), 0), WBEM_E_NOT_FOUND);
    EXPECT_EQ(classObject->Next(0, nullptr, value.put(), nullptr, nullptr), static_cast<HRESULT>(0x8004101D))
        << "Next outside an enumeration";
    EXPECT_EQ(value.vartype(), VT_EMPTY);
    com_ptr<IWbemClassObject> object;
    EXPECT_EQ(classObject->GetMethod(L"Nope", 0, object.put(), nullptr), WBEM_E_NOT_FOUND);
    EXPECT_FALSE(object);

    // A scripted fault answers the one call it names.
    service_.injectFault(
        sim::Fault::on("GetObject", WBEM_E_ACCESS_DENIED).forTarget(L"Test_Adapter").onlyCall(2));
    EXPECT_EQ(getObject(adapterPath, object), S_OK);
    EXPECT_EQ(get(adapterPath), WBEM_E_ACCESS_DENIED);
    EXPECT_EQ(getObject(adapterPath, object), S_OK);
    // Shutdown ends every subscription, then refuses every call.
    ASSERT_EQ(subscribe(L"SELECT * FROM MSNdis_NotifyAdapterArrival"), S_OK);
    service_.shutdown();
    ASSERT_EQ(sink_.statuses.size(), 1U);
    EXPECT_EQ(sink_.statuses[0].result, WBEM_E_SHUTTING_DOWN);
    EXPECT_EQ(get(adapterPath), WBEM_E_SHUTTING_DOWN);
    EXPECT_EQ(subscribe(L"SELECT * FROM MSNdis_NotifyAdapterArrival"), WBEM_E_SHUTTING_DOWN);
    EXPECT_EQ(callsOf("GetObject"), 8) << "every call logged, failures included";
}

TEST_F(SimServiceTest, deliveriesRunOnTheServiceThreadsWithObjectsItReleases)
{
    ASSERT_EQ(subscribe(std::wstring(L"select * from MSNdis_StatusMediaConnect where InstanceName = \"")
                        + adapter + L"\""),
              S_OK);
    const sim::ReferenceCounts before = service_.references();
    const sim::DeliveryReport report = ndis_->connect(adapter).get();
    EXPECT_EQ(report.indicated, 1);
    EXPECT_EQ(service_.fire(sim::Event::of(L"MSNdis_StatusMediaConnect", L"another")).get().subscriptions, 0)
        << "the filter";
    ASSERT_EQ(sink_.seen.size(), 1U);
    EXPECT_EQ(sink_.seen[0].first, L"MSNdis_StatusMediaConnect");
    EXPECT_NE(sink_.seen[0].second, std::this_thread::get_id());
    EXPECT_TRUE(service_.drain());
    EXPECT_EQ(service_.references().liveObjects, before.liveObjects) << "the event object is gone";
    EXPECT_EQ(services_->CancelAsyncCall(&sink_), S_OK);
}

TEST_F(SimServiceTest, pooledDeliveryThreadsEndWhenIdleAndLaterEventsGetNewOnes)
{
    ASSERT_EQ(subscribe(L"SELECT * FROM MSNdis_StatusMediaConnect"), S_OK);
    const int threadsBefore = host::createThreadCalls();  // the service's are made by fire()
    service_.setPooledDeliveryThreads(true);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(ndis_->connect(adapter).get().indicated, 1) << "event " << i;
        ASSERT_TRUE(service_.drain());
        // Idle, every thread leaves, though not at once.
        for (int wait = 0; wait < 1000 && service_.deliveryThreads() != 0; ++wait) {
            std::this_thread::sleep_for(10ms);
        }
        ASSERT_EQ(service_.deliveryThreads(), 0U) << "event " << i;
    }
    EXPECT_EQ(sink_.seen.size(), 3U);
    // Without the pool's end, the first event's three threads would have served all three.
    EXPECT_GT(host::createThreadCalls() - threadsBefore, 3) << "threads that left were replaced";
    EXPECT_EQ(services_->CancelAsyncCall(&sink_), S_OK);
}

TEST_F(SimServiceTest, forbiddenCallsAreRecordedWhileThePredicateHolds)
{
    std::atomic<bool> forbidden{false};
    service_.watchForbiddenCalls([&forbidden] { return forbidden.load(); });
    com_ptr<IWbemClassObject> object;
    ASSERT_EQ(getObject(adapterPath, object), S_OK);
    EXPECT_TRUE(service_.forbiddenCalls().empty());
    forbidden = true;
    object.reset();
    EXPECT_TRUE(FAILED(getObject(L"Test_Nothing", object)));
    forbidden = false;
    EXPECT_EQ(service_.forbiddenCalls(),
              (std::vector<std::string>{"Release ClassObject Test_Adapter eth 0 #1",
                                        "Release ClassObject Test_Details", "GetObject Test_Nothing"}));
}

TEST_F(SimServiceTest, cancelAdmitsNoMoreDeliveriesAndEndsTheSubscriptionAfterTheLastOne)
{
    ASSERT_EQ(subscribe(L"SELECT * FROM MSNdis_StatusMediaConnect"), S_OK);
    service_.holdDeliveries(sim::HoldPoint::insideIndicate);
    const auto inFlight = ndis_->connect(adapter);
    ASSERT_TRUE(service_.waitForHeld(1));
    EXPECT_EQ(services_->CancelAsyncCall(&sink_), S_OK) << "without waiting for Indicate";
    EXPECT_TRUE(sink_.statuses.empty());
    EXPECT_EQ(sink_.references, 2U) << "kept while Indicate runs";
    EXPECT_EQ(ndis_->connect(adapter).get().subscriptions, 0) << "none admitted after the cancel";
    service_.releaseDeliveries();
    EXPECT_EQ(inFlight.get().indicated, 1);
    ASSERT_TRUE(service_.drain());
    ASSERT_EQ(sink_.statuses.size(), 1U);
    EXPECT_EQ(sink_.statuses[0].result, WBEM_E_CALL_CANCELLED);
    EXPECT_EQ(sink_.statuses[0].thread, sink_.seen[0].second) << "on the thread of the last delivery";
    EXPECT_FALSE(sink_.statuses[0].duringIndicate);

    // Nothing in flight: ended on the cancelling thread, before CancelAsyncCall returns.
    ASSERT_EQ(subscribe(L"SELECT * FROM MSNdis_StatusMediaConnect"), S_OK);
    service_.holdDeliveries(sim::HoldPoint::beforeIndicate);
    const auto held = ndis_->connect(adapter);
    ASSERT_TRUE(service_.waitForHeld(1));
    EXPECT_EQ(services_->CancelAsyncCall(&sink_), S_OK);
    ASSERT_EQ(sink_.statuses.size(), 2U);
    EXPECT_EQ(sink_.statuses[1].thread, std::this_thread::get_id());
    EXPECT_EQ(sink_.references, 1U);
    service_.releaseDeliveries();
    EXPECT_EQ(held.get().dropped, 1) << "a held delivery of a cancelled subscription";
}

}  // namespace
