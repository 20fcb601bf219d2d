// COM objects for the host layer's tests: one that counts its references, and
// a class factory that hands it out.
#pragma once

#include <atomic>

#include "host/CountingUnknown.h"
#include "platform.h"

// A test's local: Release never deletes, the count is what tests look at.
using CountedObject = host::CountingUnknown;

class CountedFactory final : public IClassFactory {
public:
    virtual ~CountedFactory() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        *object = nullptr;
        if (iid != IID_IUnknown && iid != IID_IClassFactory) {
            return E_NOINTERFACE;
        }
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs_; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override
    {
        ++created_;
        return outer != nullptr ? CLASS_E_NOAGGREGATION : product_.QueryInterface(iid, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL /*lock*/) override { return S_OK; }

    ULONG refs() const { return refs_; }
    int created() const { return created_; }
    CountedObject& product() { return product_; }

private:
    std::atomic<ULONG> refs_{1};
    std::atomic<int> created_{0};
    CountedObject product_;
};
