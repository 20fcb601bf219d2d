// What the module's per-thread connection relies on in the host's COM runtime:
// apartments per thread, the factory's references, and each failure's HRESULT
// (the process's one security call shows in the connection's own tests).
#include <gtest/gtest.h>

#include <thread>

#include "host/CountingUnknown.h"
#include "host/HostPlatform.h"

namespace {

const CLSID someClass = {0x12345678, 0x1, 0x2, {3, 4, 5, 6, 7, 8, 9, 10}};

// Hands out its one product; counts its own references.
class CountedFactory final : public IClassFactory {
public:
    virtual ~CountedFactory() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override
    {
        *object = this;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** object) override
    {
        return product.QueryInterface(iid, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

    std::atomic<ULONG> refs{1};
    host::CountingUnknown product;
};

TEST(ComRuntime, CoInitializeEx_countsEachThreadsApartment)
{
    host::reset();
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), RPC_E_CHANGED_MODE);
    EXPECT_EQ(host::comInitDepth(), 2) << "a failed call is not counted";
    std::thread([] {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK) << "apartments are per thread";
        CoUninitialize();
    }).join();
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(host::comInitDepth(), 0);
}

TEST(ComRuntime, CoCreateInstance_asksTheRegisteredFactoryAndBalancesItsReferences)
{
    host::reset();
    CountedFactory factory;
    DWORD cookie = 0;
    ASSERT_EQ(CoRegisterClassObject(someClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
              S_OK);
    void* object = &factory;
    const auto create = [&object](REFCLSID clsid) {
        return CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &object);
    };
    EXPECT_EQ(create(someClass), CO_E_NOTINITIALIZED);
    EXPECT_EQ(object, nullptr);
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(create(someClass), S_OK);
    EXPECT_EQ(object, &factory.product);
    EXPECT_EQ(create(CLSID_WbemLocator), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(factory.product.refs(), 2U);
    EXPECT_EQ(factory.refs, 2U) << "the runtime keeps one reference while registered";
    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
    EXPECT_EQ(factory.refs, 1U);
    EXPECT_EQ(CoRevokeClassObject(cookie), E_INVALIDARG);
    CoUninitialize();
}

}  // namespace
