// The event sink of one NDIS monitor: turns NDIS event objects into calls of
// its owner's handlers on the delivering thread. Deliveries may run on several
// threads at once; after detachOwner() none reaches the owner any more.
#pragma once

#include <string>

#include "platform.h"
#include "wmi/CallGate.h"
#include "wmi/NdisEventsOwner.h"
#include "wmi/WbemSinkBase.h"

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release ends it
class NdisEventsSink : public WbemSinkBase {
public:
    explicit NdisEventsSink(NdisEventsOwner* owner) : owner_(owner) { }

    // Lets no exception out: one drops the rest of the batch, with a trace line.
    HRESULT STDMETHODCALLTYPE Indicate(LONG objectCount, IWbemClassObject** objects) override;
    HRESULT STDMETHODCALLTYPE SetStatus(LONG flags, HRESULT result, BSTR param,
                                        IWbemClassObject* object) override;

    // The owner is going: returns once no delivery is inside its handlers, and
    // no later delivery reads it. Not to be called from a handler.
    void detachOwner() { ownerGate_.close(); }

private:
    ~NdisEventsSink() override = default;
    HRESULT indicate_(LONG objectCount, IWbemClassObject** objects);
    void dispatch_(const std::wstring& className, const std::wstring& instanceName, IWbemClassObject* object);

    NdisEventsOwner* const owner_;
    CallGate ownerGate_;
};
