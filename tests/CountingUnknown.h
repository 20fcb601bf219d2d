// A COM object for tests that counts its references and says when it is gone.
#pragma once

#include <atomic>

#include "platform.h"

class CountingUnknown : public IUnknown {
public:
    CountingUnknown() = default;
    CountingUnknown(const CountingUnknown&) = delete;
    CountingUnknown& operator=(const CountingUnknown&) = delete;
    virtual ~CountingUnknown() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        *object = nullptr;
        if (iid != IID_IUnknown) {
            return E_NOINTERFACE;
        }
        *object = this;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs_; }

    // The object is a test's local; "gone" means no reference is left.
    ULONG refs() const { return refs_; }

private:
    std::atomic<ULONG> refs_{1};
};
