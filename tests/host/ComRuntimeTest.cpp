#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ComDoubles.h"
#include "host/HostPlatform.h"

namespace {

const CLSID someClass = {0x12345678, 0x1, 0x2, {3, 4, 5, 6, 7, 8, 9, 10}};
constexpr HRESULT accessDenied = static_cast<HRESULT>(0x80070005);

class ComRuntime : public ::testing::Test {
protected:
    void SetUp() override { host::reset(); }
    void TearDown() override { host::reset(); }

    // Runs `body` on a thread of its own, which starts with no COM.
    template <typename Body> static void onNewThread(Body body) { std::thread(body).join(); }
};

TEST_F(ComRuntime, CoInitializeEx_countsEachThreadsApartmentAsThePlatformDoes)
{
    const struct {
        DWORD model;
        HRESULT expected;
        int depth;
    } calls[] = {
        {COINIT_MULTITHREADED, S_OK, 1},
        {COINIT_MULTITHREADED | COINIT_DISABLE_OLE1DDE, S_FALSE, 2},
        {COINIT_APARTMENTTHREADED, RPC_E_CHANGED_MODE, 2},
    };
    for (const auto& c : calls) {
        EXPECT_EQ(CoInitializeEx(nullptr, c.model), c.expected) << c.model;
        EXPECT_EQ(host::comInitDepth(), c.depth);
    }
    onNewThread([] {
        EXPECT_EQ(host::comInitDepth(), 0);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK) << "apartments are per thread";
        CoUninitialize();
    });
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(host::comInitDepth(), 0);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK) << "a fresh start takes any model";
    EXPECT_EQ(host::coInitializeExCalls(), 5);
}

TEST_F(ComRuntime, CoInitializeEx_scriptedFailureHitsEveryThreadWithoutInitialising)
{
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    host::failCoInitializeEx(E_OUTOFMEMORY);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), E_OUTOFMEMORY);
    EXPECT_EQ(host::comInitDepth(), 1);
    onNewThread([] {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), E_OUTOFMEMORY);
        EXPECT_EQ(host::comInitDepth(), 0);
    });
    host::reset();
    EXPECT_EQ(host::comInitDepth(), 0) << "reset leaves threads uninitialised";
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
}

TEST_F(ComRuntime, CoUninitialize_hookRunsOnlyAtTheBalancingCallWhileStillInitialised)
{
    std::vector<int> depthsSeen;
    host::onCoUninitialize([&depthsSeen] { depthsSeen.push_back(host::comInitDepth()); });
    CoUninitialize();  // nothing to balance
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), RPC_E_CHANGED_MODE);
    CoUninitialize();
    EXPECT_TRUE(depthsSeen.empty());
    CoUninitialize();
    EXPECT_EQ(depthsSeen, std::vector<int>{1});
    EXPECT_EQ(host::comInitDepth(), 0);
    CoUninitialize();
    EXPECT_EQ(depthsSeen.size(), 1U);
    EXPECT_EQ(host::coUninitializeCalls(), 4);
}

TEST_F(ComRuntime, CoInitializeSecurity_succeedsOncePerProcess)
{
    const auto call = [] {
        return CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                    RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    };
    host::failCoInitializeSecurity(accessDenied);
    EXPECT_EQ(call(), accessDenied);
    host::failCoInitializeSecurity(S_OK);
    EXPECT_EQ(call(), S_OK) << "a failed call does not use up the first";
    onNewThread([&call] { EXPECT_EQ(call(), RPC_E_TOO_LATE); });
    host::reset();
    EXPECT_EQ(call(), S_OK);
    EXPECT_EQ(host::coInitializeSecurityCalls(), 1);
}

TEST_F(ComRuntime, CoSetProxyBlanket_refusesNoProxyAndFollowsTheScript)
{
    CountedObject proxy;
    const auto call = [](IUnknown* p) {
        return CoSetProxyBlanket(p, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                 RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    };
    EXPECT_EQ(call(&proxy), S_OK);
    EXPECT_EQ(call(nullptr), E_INVALIDARG);
    host::failCoSetProxyBlanket(E_FAIL);
    EXPECT_EQ(call(&proxy), E_FAIL);
    EXPECT_EQ(host::coSetProxyBlanketCalls(), 3);
}

TEST_F(ComRuntime, CoCreateInstance_asksTheRegisteredFactoryOfAnInitialisedThread)
{
    CountedFactory factory;
    DWORD cookie = 0;
    ASSERT_EQ(CoRegisterClassObject(someClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
              S_OK);
    EXPECT_EQ(factory.refs(), 2U) << "the runtime keeps a reference";

    void* object = &factory;
    const auto create = [&object](REFCLSID clsid, IUnknown* outer, DWORD context) {
        return CoCreateInstance(clsid, outer, context, IID_IUnknown, &object);
    };
    EXPECT_EQ(create(someClass, nullptr, CLSCTX_INPROC_SERVER), CO_E_NOTINITIALIZED);
    EXPECT_EQ(object, nullptr);
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);

    const struct {
        const char* what;
        const CLSID& clsid;
        IUnknown* outer;
        DWORD context;
        HRESULT expected;
    } cases[] = {
        {"registered", someClass, nullptr, CLSCTX_ALL, S_OK},
        {"not registered", CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, REGDB_E_CLASSNOTREG},
        {"not in process", someClass, nullptr, CLSCTX_LOCAL_SERVER, REGDB_E_CLASSNOTREG},
        {"aggregated", someClass, &factory, CLSCTX_INPROC_SERVER, CLASS_E_NOAGGREGATION},
    };
    for (const auto& c : cases) {
        object = &factory;
        EXPECT_EQ(create(c.clsid, c.outer, c.context), c.expected) << c.what;
        EXPECT_EQ(object, c.expected == S_OK ? &factory.product() : nullptr) << c.what;
    }
    EXPECT_EQ(factory.created(), 1);
    EXPECT_EQ(factory.product().refs(), 2U);
    EXPECT_EQ(factory.refs(), 2U) << "the runtime's own references are balanced";

    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
    EXPECT_EQ(factory.refs(), 1U);
    EXPECT_EQ(create(someClass, nullptr, CLSCTX_INPROC_SERVER), REGDB_E_CLASSNOTREG) << "revoked";
    EXPECT_EQ(CoRevokeClassObject(cookie), E_INVALIDARG);
    EXPECT_EQ(host::coCreateInstanceCalls(), 6);
    CoUninitialize();
}

TEST_F(ComRuntime, CoCreateInstance_racesWithRevokeSafely)
{
    CountedFactory factory;
    std::atomic<bool> stop{false};
    std::thread creator([&factory, &stop] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        while (!stop) {
            void* object = nullptr;
            if (SUCCEEDED(
                    CoCreateInstance(someClass, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &object))) {
                factory.product().Release();
            }
        }
        CoUninitialize();
    });
    for (int i = 0; i < 200; ++i) {
        DWORD cookie = 0;
        ASSERT_EQ(
            CoRegisterClassObject(someClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
            S_OK);
        EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
    }
    stop = true;
    creator.join();
    EXPECT_EQ(factory.refs(), 1U);
    EXPECT_EQ(factory.product().refs(), 1U);
}

TEST_F(ComRuntime, reset_releasesRegisteredFactories)
{
    CountedFactory factory;
    DWORD cookie = 0;
    ASSERT_EQ(CoRegisterClassObject(someClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
              S_OK);
    host::reset();
    EXPECT_EQ(factory.refs(), 1U);
}

}  // namespace
