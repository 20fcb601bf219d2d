// The event sink of one NdisWmi: turns NDIS event objects into calls of the
// owner's handlers on the delivering thread. Deliveries may run on several
// threads at once; after detachOwner() none reaches the owner any more.
#pragma once

#include <string>

#include "ndis/CallGate.h"
#include "platform.h"
#include "wmi/WbemSinkBase.h"

class NdisWmi;

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release ends it
class NdisEventsSink : public WbemSinkBase {
public:
    explicit NdisEventsSink(NdisWmi* owner) : owner_(owner) { }

    HRESULT STDMETHODCALLTYPE Indicate(LONG objectCount, IWbemClassObject** objects) override;
    HRESULT STDMETHODCALLTYPE SetStatus(LONG flags, HRESULT result, BSTR param,
                                        IWbemClassObject* object) override;

    // The owner is going: returns once no delivery is inside its handlers, and
    // no later delivery reads it. Not to be called from a handler.
    void detachOwner() { ownerGate_.close(); }

private:
    ~NdisEventsSink() override = default;
    void dispatch_(const std::wstring& className, const std::wstring& instanceName, IWbemClassObject* object);

    NdisWmi* const owner_;
    CallGate ownerGate_;
};
