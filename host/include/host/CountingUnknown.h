// A COM object for tests and fuzz targets that counts its references and
// answers only IUnknown. Its owner ends it: Release never deletes.
#pragma once

#include <atomic>

#include "platform.h"

namespace host {

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

    // Starts at 1, the owner's; "gone" means none is left.
    ULONG refs() const { return refs_; }

private:
    std::atomic<ULONG> refs_{1};
};

}  // namespace host
