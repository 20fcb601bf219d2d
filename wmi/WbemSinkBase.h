// Reference-counted IWbemObjectSink whose deliveries do nothing. The object
// starts with one reference and frees itself at the last Release, on whichever
// thread makes it.
#pragma once

#include <atomic>

#include "platform.h"

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): Release deletes derived sinks through this base
class WbemSinkBase : public IWbemObjectSink {
public:
    WbemSinkBase() = default;
    WbemSinkBase(const WbemSinkBase&) = delete;
    WbemSinkBase& operator=(const WbemSinkBase&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE Indicate(LONG objectCount, IWbemClassObject** objects) override;
    HRESULT STDMETHODCALLTYPE SetStatus(LONG flags, HRESULT result, BSTR param,
                                        IWbemClassObject* object) override;

protected:
    // Only Release ends the object.
    virtual ~WbemSinkBase() = default;

private:
    std::atomic<LONG> refCount_{1};
};
