#include "wmi/WbemServices.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <tuple>

#include "WmiFixture.h"
#include "trace/Trace.h"

namespace {

const wchar_t* const adapterPath = L"Test_Adapter.InstanceName=\"eth 0 #1\"";
const HRESULT accessDenied = static_cast<HRESULT>(0x80070005);

class WbemServicesTest : public WmiFixture { };

TEST_F(WbemServicesTest, oneConnectionPerThreadMadeAtTheFirstCallEndedOnRequestBeforeCom)
{
    long objectsAtUninitialize = 0;
    host::onCoUninitialize([&] { objectsAtUninitialize += service_.references().liveObjects; });
    onNewThread([&] {
        WbemServices& first = threadWbemServices();
        EXPECT_EQ(&first, &threadWbemServices());
        EXPECT_TRUE(first.isConnected());
        EXPECT_EQ(tracedMessages(), Messages{}) << "a sound connection traces nothing";
        first.getObject(adapterPath);
        endThreadWbemServices();
        EXPECT_EQ(service_.references().liveObjects, 0);
        EXPECT_EQ(host::comInitDepth(), 0);
        EXPECT_TRUE(threadWbemServices().isConnected()) << "a later use starts afresh";
    });
    EXPECT_EQ(host::coInitializeExCalls(), 2);
    EXPECT_EQ(callsOf("ConnectServer"), 2);
    EXPECT_EQ(host::coSetProxyBlanketCalls(), 2);
    EXPECT_EQ(host::coUninitializeCalls(), 2);
    EXPECT_EQ(objectsAtUninitialize, 0) << "at each CoUninitialize the connection is already released";
}

TEST_F(WbemServicesTest, eachThreadHasItsOwnConnection)
{
    std::atomic<IWbemServices*> seen[2] = {};
    std::atomic<int> ready{0};
    auto body = [&](int i) {
        seen[i] = threadWbemServices().get();
        ++ready;
        while (ready < 2) {
            std::this_thread::yield();  // both connections alive together
        }
        endThreadWbemServices();
    };
    std::thread a(body, 0);
    std::thread b(body, 1);
    a.join();
    b.join();
    EXPECT_NE(seen[0].load(), nullptr);
    EXPECT_NE(seen[0].load(), seen[1].load());
    EXPECT_EQ(callsOf("ConnectServer"), 2);
}

TEST_F(WbemServicesTest, comAlreadyInitialisedOnTheThread)
{
    // what, the apartment, lines traced, uninitialisations: the test's own, and the module's if it owes one
    const std::tuple<const char*, DWORD, Messages, int> cases[] = {
        {"same apartment: S_FALSE, balanced", COINIT_MULTITHREADED, {}, 2},
        {"other apartment: RPC_E_CHANGED_MODE",
         COINIT_APARTMENTTHREADED,
         {"/!\\ CoInitializeEx() failed w/status 0x80010106",
          "Don't uninitialize COM since we didn't initialize it"},
         1},
    };
    for (const auto& [what, model, lines, uninitializes] : cases) {
        host::clearDebugOutput();
        const int before = host::coUninitializeCalls();
        bool read = false;
        onNewThread([&read, model = model] {
            ASSERT_EQ(CoInitializeEx(nullptr, model), S_OK);
            read = !threadWbemServices().getObject(adapterPath).isEmpty();
            endThreadWbemServices();
            CoUninitialize();
        });
        EXPECT_TRUE(read) << what << ": the connection works in either apartment";
        EXPECT_EQ(tracedStartingWith({"/!\\ CoInitializeEx", "Don't uninitialize COM"}), lines) << what;
        EXPECT_EQ(host::coUninitializeCalls() - before, uninitializes) << what;
    }
}

TEST_F(WbemServicesTest, failedComInitialisationStillTriesToConnect)
{
    host::failCoInitializeEx(E_OUTOFMEMORY);
    onNewThread([&] {
        EXPECT_FALSE(threadWbemServices().isConnected());
        EXPECT_EQ(threadWbemServices().getObject(adapterPath).isEmpty(), true);
    });
    EXPECT_EQ(tracedMessages(),
              (Messages{
                  "/!\\ CoInitializeEx() failed w/status 0x8007000e",
                  "[!] Couldn't get WbemLocator",
                  "[!] WbemServices: not initialized!",
                  "Don't uninitialize COM since we didn't initialize it",
              }));
    EXPECT_EQ(host::coCreateInstanceCalls(), 1);
    EXPECT_EQ(host::coUninitializeCalls(), 0);
}

TEST_F(WbemServicesTest, failedConnectionStaysFailedForTheThread)
{
    service_.injectFault(sim::Fault::on("ConnectServer", WBEM_E_ACCESS_DENIED));
    onNewThread([&] {
        WbemServices& services = threadWbemServices();
        EXPECT_TRUE(services.getObject(adapterPath).isEmpty());
        WbemClassObject out;
        EXPECT_EQ(services.execMethod(adapterPath, L"Reset", nullptr, &out), E_FAIL);
        EXPECT_EQ(services.execNotificationQueryAsync(L"SELECT * FROM Test_Adapter", nullptr), E_FAIL);
        EXPECT_FALSE(services.createInstance(L"Test_Adapter"));
        EXPECT_FALSE(threadWbemServices().isConnected());
    });
    EXPECT_EQ(callsOf("ConnectServer"), 1) << "one attempt per thread";
    EXPECT_EQ(tracedMessages(),
              (Messages{
                  "[!] Connect to namespace failed w/status 0x80041003",
                  "[!] WbemServices: not initialized!",
                  "[!] WbemServices: not initialized!",
                  "[!] WbemServices: not initialized!",
              }));
}

TEST_F(WbemServicesTest, connectionSurvivesSecurityAndBlanketFailures)
{
    traceLevel = 3;  // without the property lines
    host::failCoSetProxyBlanket(accessDenied);
    onNewThread([] { threadWbemServices(); });
    onNewThread([&] { EXPECT_FALSE(threadWbemServices().getObject(adapterPath).isEmpty()); });
    EXPECT_EQ(
        tracedMessages(),
        (Messages{
            "[!] set_proxy_blanket() failed w/status 0x80070005",
            "[!] CoInitializeSecurity() failed w/status 0x80010119",  // the process's security is set by now
            "[!] set_proxy_blanket() failed w/status 0x80070005",
            "GetObject(Test_Adapter.InstanceName=\"eth 0 #1\") -> 0",
        }));
}

TEST_F(WbemServicesTest, createInstanceSpawnsFromTheClassObject)
{
    onNewThread([&] {
        WbemServices& services = threadWbemServices();
        com_ptr<IWbemClassObject> instance = services.createInstance(L"Test_Adapter");
        ASSERT_TRUE(instance);
        EXPECT_TRUE(services.getObject(L"Nope").isEmpty()) << "a failed read hands over nothing";
        host::clearDebugOutput();
        service_.clearCalls();
        EXPECT_FALSE(services.createInstance(L"Nope"));
        EXPECT_EQ(callsOf("SpawnInstance"), 0);
        service_.injectFault(sim::Fault::on("SpawnInstance", WBEM_E_OUT_OF_MEMORY));
        EXPECT_FALSE(services.createInstance(L"Test_Adapter"));
    });
    EXPECT_EQ(tracedMessages(),
              (Messages{
                  "/!\\ GetObject(Nope) class -> 0x80041010",
                  "/!\\ SpawnInstance() of class Test_Adapter -> 0x80041006",
              }));
}

TEST_F(WbemServicesTest, execMethodReplacesTheOutputOnlyOnSuccess)
{
    service_.onMethod(L"Test_Adapter", L"Probe", [](sim::MethodCall&) { return WBEM_E_FAILED; });
    onNewThread([&] {
        WbemServices& services = threadWbemServices();
        const WbemClassObject input = services.getObject(L"Test_Adapter").getMethod(L"Reset");
        variant level;
        level = static_cast<std::int32_t>(3);
        ASSERT_EQ(input.get()->Put(L"Level", 0, const_cast<VARIANT*>(&level.get()), 0), S_OK);
        host::clearDebugOutput();

        WbemClassObject out;
        EXPECT_EQ(services.execMethod(adapterPath, L"Reset", input.get(), &out), S_OK);
        EXPECT_EQ(variantToString(out[L"ReturnValue"]), L"3");
        EXPECT_EQ(services.execMethod(adapterPath, L"Probe", nullptr, &out), WBEM_E_FAILED);
        EXPECT_EQ(variantToString(out[L"ReturnValue"]), L"3") << "the earlier output stays";
        EXPECT_EQ(services.execMethod(adapterPath, L"Reset", input.get(), nullptr), S_OK)
            << "no output asked";
    });
    EXPECT_TRUE(traced("ExecMethod(Test_Adapter.InstanceName=\"eth 0 #1\":Probe) -> 0x80041001"));
}

TEST_F(WbemServicesTest, borrowedThreadEndsOnlyTheConnectionItsScopeMade)
{
    onNewThread([&] {
        {
            const BorrowedThreadScope borrowed;
            EXPECT_FALSE(threadWbemServices().getObject(adapterPath).isEmpty());
        }
        EXPECT_EQ(service_.references().liveObjects, 0) << "ended with the scope";
        EXPECT_EQ(host::comInitDepth(), 0);

        WbemServices& own = threadWbemServices();
        {
            const BorrowedThreadScope borrowed;
            EXPECT_EQ(&threadWbemServices(), &own);
        }
        EXPECT_TRUE(own.isConnected()) << "a connection the thread had before stays";
    });
    EXPECT_EQ(callsOf("ConnectServer"), 2);
}

}  // namespace
