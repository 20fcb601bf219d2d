// Fault injection, latency, the call log and the reference balance.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <set>
#include <thread>

#include "SimClient.h"
#include "host/HostPlatform.h"

namespace simtest {
namespace {

using sim::Fault;

class SimObservationTest : public SimTest {
protected:
    HRESULT getObject(IWbemServices* services, const std::wstring& path, Ref<IWbemClassObject>& object)
    {
        const Bstr text(path);
        return services->GetObject(text.get(), 0, nullptr, object.put(), nullptr);
    }
    using SimTest::getObject;
};

// Each call fails with the scripted result and hands out nothing.
TEST_F(SimObservationTest, everyCallCanBeMadeToFail)
{
    const HRESULT scripted = WBEM_E_PROVIDER_FAILURE;
    const auto services = connect();
    const auto instance = getObject(services.get(), widgetPath(firstName));
    const auto classObject = getObject(services.get(), widget);
    service().onMethod(widget, L"Ping", [](sim::MethodCall&) { return S_OK; });

    const struct {
        const char* call;
        std::function<HRESULT()> make;
    } cases[] = {
        {"CreateInstance",
         [] {
             Ref<IWbemLocator> locator;
             const HRESULT hr = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER,
                                                 IID_IWbemLocator, reinterpret_cast<void**>(locator.put()));
             EXPECT_FALSE(locator);
             return hr;
         }},
        {"ConnectServer",
         [] {
             Ref<IWbemLocator> locator;
             CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                              reinterpret_cast<void**>(locator.put()));
             const Bstr ns(L"root\\wmi");
             Ref<IWbemServices> connected;
             const HRESULT hr = locator->ConnectServer(ns.get(), nullptr, nullptr, nullptr, 0, nullptr,
                                                       nullptr, connected.put());
             EXPECT_FALSE(connected);
             return hr;
         }},
        {"GetObject",
         [&] {
             Ref<IWbemClassObject> object;
             const HRESULT hr = getObject(services.get(), widget, object);
             EXPECT_FALSE(object);
             return hr;
         }},
        {"SpawnInstance",
         [&] {
             Ref<IWbemClassObject> spawned;
             const HRESULT hr = classObject->SpawnInstance(0, spawned.put());
             EXPECT_FALSE(spawned);
             return hr;
         }},
        {"GetMethod",
         [&] {
             Ref<IWbemClassObject> in;
             const HRESULT hr = classObject->GetMethod(L"Reset", 0, in.put(), nullptr);
             EXPECT_FALSE(in);
             return hr;
         }},
        {"Get",
         [&] {
             Var value;
             const HRESULT hr = instance->Get(L"Count", 0, &value, nullptr, nullptr);
             EXPECT_EQ(value->vt, VT_EMPTY);
             return hr;
         }},
        {"Put",
         [&] {
             Var value;
             (&value)->vt = VT_I4;
             return instance->Put(L"Count", 0, &value, 0);
         }},
        {"BeginEnumeration", [&] { return instance->BeginEnumeration(WBEM_FLAG_NONSYSTEM_ONLY); }},
        {"Next",
         [&] {
             EXPECT_EQ(instance->BeginEnumeration(0), S_OK);
             BSTR name = nullptr;
             Var value;
             const HRESULT hr = instance->Next(0, &name, &value, nullptr, nullptr);
             EXPECT_EQ(name, nullptr);
             EXPECT_EQ(value->vt, VT_EMPTY);
             return hr;
         }},
        {"ExecMethod",
         [&] {
             const Bstr path(widgetPath(firstName));
             const Bstr method(L"Ping");
             Ref<IWbemClassObject> out;
             const HRESULT hr
                 = services->ExecMethod(path.get(), method.get(), 0, nullptr, nullptr, out.put(), nullptr);
             EXPECT_FALSE(out);
             return hr;
         }},
        {"ExecNotificationQueryAsync",
         [&] {
             const Bstr language(L"WQL");
             const Bstr query(L"SELECT * FROM Sim_Widget");
             CountingSink sink;
             const HRESULT hr
                 = services->ExecNotificationQueryAsync(language.get(), query.get(), 0, nullptr, &sink);
             EXPECT_EQ(sink.references, 1U) << "a failed subscription keeps no sink";
             return hr;
         }},
        {"CancelAsyncCall",
         [&] {
             CountingSink sink;
             const Bstr language(L"WQL");
             const Bstr query(L"SELECT * FROM Sim_Widget");
             EXPECT_EQ(services->ExecNotificationQueryAsync(language.get(), query.get(), 0, nullptr, &sink),
                       S_OK);
             const HRESULT hr = services->CancelAsyncCall(&sink);
             EXPECT_EQ(sink.references, 2U) << "a failed cancel keeps the sink";
             service().shutdown();  // gives it back before the sink goes
             return hr;
         }},
    };
    for (const auto& c : cases) {
        service().injectFault(Fault::on(c.call, scripted));
        EXPECT_EQ(c.make(), scripted) << c.call;
        service().clearFaults();
    }
}

TEST_F(SimObservationTest, aFaultCanStartAtTheNthCallAndLastSomeTimes)
{
    const auto services = connect();
    service().injectFault(Fault::on("GetObject", WBEM_E_ACCESS_DENIED).fromCall(2).times(2));
    std::vector<HRESULT> results;
    for (int i = 0; i < 5; ++i) {
        Ref<IWbemClassObject> object;
        results.push_back(getObject(services.get(), widget, object));
    }
    EXPECT_EQ(results, (std::vector<HRESULT>{S_OK, WBEM_E_ACCESS_DENIED, WBEM_E_ACCESS_DENIED, S_OK, S_OK}));
}

TEST_F(SimObservationTest, aFaultCanBeLimitedToAClassTargetOrInstance)
{
    const auto services = connect();
    service().injectFault(Fault::on("GetObject", WBEM_E_FAILED).forTarget(L"sim_version"));
    service().injectFault(Fault::on("GetObject", WBEM_E_NOT_FOUND).forInstance(secondName).onlyCall(1));
    service().onMethod(widget, L"Ping", [](sim::MethodCall&) { return S_OK; });
    service().injectFault(Fault::on("ExecMethod", WBEM_E_TRANSPORT_FAILURE).forTarget(L"Sim_Widget.Ping"));
    Ref<IWbemClassObject> object;
    EXPECT_EQ(getObject(services.get(), L"Sim_Version", object), WBEM_E_FAILED);
    EXPECT_EQ(getObject(services.get(), widget, object), S_OK);
    EXPECT_EQ(getObject(services.get(), widgetPath(firstName), object), S_OK);
    EXPECT_EQ(getObject(services.get(), widgetPath(secondName), object), WBEM_E_NOT_FOUND);
    EXPECT_EQ(getObject(services.get(), widgetPath(secondName), object), S_OK) << "only once";

    const Bstr path(widgetPath(firstName));
    const Bstr ping(L"Ping");
    const Bstr reset(L"Reset");
    EXPECT_EQ(services->ExecMethod(path.get(), ping.get(), 0, nullptr, nullptr, nullptr, nullptr),
              WBEM_E_TRANSPORT_FAILURE);
    EXPECT_EQ(services->ExecMethod(path.get(), reset.get(), 0, nullptr, nullptr, nullptr, nullptr),
              WBEM_E_NOT_SUPPORTED)
        << "another method of the class";
}

TEST_F(SimObservationTest, latencyDelaysTheAnswer)
{
    const auto services = connect();
    service().setLatency("GetObject", std::chrono::milliseconds(60));
    const auto start = std::chrono::steady_clock::now();
    const auto object = getObject(services.get(), widget);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
    service().setLatency("GetObject", std::chrono::milliseconds(0));
    const auto quick = std::chrono::steady_clock::now();
    const auto again = getObject(services.get(), widget);
    EXPECT_LT(std::chrono::steady_clock::now() - quick, std::chrono::milliseconds(60));
}

TEST_F(SimObservationTest, theLogListsCallsInOrderWithTargetsResultsAndThreads)
{
    const auto services = connect();
    {
        const auto classObject = getObject(services.get(), widget);
        Ref<IWbemClassObject> in;
        ASSERT_EQ(classObject->GetMethod(L"Reset", 0, in.put(), nullptr), S_OK);
        Ref<IWbemClassObject> object;
        EXPECT_EQ(getObject(services.get(), widgetPath(L"Third"), object), WBEM_E_NOT_FOUND);
    }
    const auto calls = service().calls();
    const struct {
        const char* call;
        std::wstring target;
        HRESULT result;
    } expected[] = {
        {"CreateInstance", L"", S_OK},
        {"ConnectServer", L"root\\wmi", S_OK},
        {"GetObject", widget, S_OK},
        {"GetMethod", L"Sim_Widget.Reset", S_OK},
        {"GetObject", widgetPath(L"Third"), WBEM_E_NOT_FOUND},
    };
    ASSERT_EQ(calls.size(), std::size(expected));
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i].call, expected[i].call) << i;
        EXPECT_EQ(calls[i].target, expected[i].target) << i;
        EXPECT_EQ(calls[i].result, expected[i].result) << i;
        EXPECT_EQ(calls[i].thread, std::this_thread::get_id()) << i;
    }
    EXPECT_EQ(calls[4].instance, L"Third");
    service().clearCalls();
    EXPECT_TRUE(service().calls().empty());
}

TEST_F(SimObservationTest, aLeakedReferenceIsReported)
{
    const auto services = connect();
    IWbemClassObject* leaked = getObject(services.get(), widgetPath(secondName)).detach();
    const sim::ReferenceCounts counts = service().references();
    EXPECT_EQ(counts.liveObjects, 2);  // the connection and the leaked object
    EXPECT_EQ(counts.references, 2);
    const auto live = service().liveObjects();
    EXPECT_EQ(std::count(live.begin(), live.end(), "ClassObject Sim_Widget (instance Second) refs=1"), 1);
    forgive(leaked);
}

TEST_F(SimObservationTest, clientsOnSeveralThreadsEachWithTheirConnection)
{
    service().onMethod(widget, L"Ping", [](sim::MethodCall& call) {
        call.setOutput(L"ReturnValue", sim::Value::uint32(1));
        return S_OK;
    });
    constexpr int threads = 4;
    constexpr int rounds = 25;
    std::vector<std::thread> clients;
    clients.reserve(threads);
    std::atomic<int> failures{0};
    for (int t = 0; t < threads; ++t) {
        clients.emplace_back([&] {
            if (CoInitializeEx(nullptr, COINIT_MULTITHREADED) != S_OK) {
                ++failures;
                return;
            }
            {
                const auto services = connect();
                const Bstr path(widgetPath(firstName));
                const Bstr ping(L"Ping");
                for (int i = 0; i < rounds; ++i) {
                    Ref<IWbemClassObject> object;
                    Ref<IWbemClassObject> out;
                    Var count;
                    if (services->GetObject(path.get(), 0, nullptr, object.put(), nullptr) != S_OK
                        || object->Get(L"Count", 0, &count, nullptr, nullptr) != S_OK
                        || services->ExecMethod(path.get(), ping.get(), 0, nullptr, nullptr, out.put(),
                                                nullptr)
                            != S_OK) {
                        ++failures;
                    }
                }
            }
            CoUninitialize();
        });
    }
    for (auto& client : clients) {
        client.join();
    }
    EXPECT_EQ(failures, 0);
    std::set<std::thread::id> seen;
    for (const sim::CallRecord& record : service().calls()) {
        seen.insert(record.thread);
    }
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(threads));
    EXPECT_EQ(service().calls().size(), static_cast<std::size_t>(threads * (2 + 3 * rounds)));
}

}  // namespace
}  // namespace simtest
