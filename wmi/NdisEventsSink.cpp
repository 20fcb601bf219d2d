#include "wmi/NdisEventsSink.h"

#include "trace/Trace.h"
#include "wmi/WbemServices.h"
#include "wmi/variant.h"

namespace {

std::wstring textOf(const variant& value)
{
    return value.vartype() == VT_BSTR && value.get().bstrVal != nullptr ? std::wstring(value.get().bstrVal)
                                                                        : std::wstring();
}

}  // namespace

HRESULT STDMETHODCALLTYPE NdisEventsSink::Indicate(LONG objectCount, IWbemClassObject** objects)
{
    if (objectCount < 1 || objects == nullptr) {
        return WBEM_S_NO_ERROR;
    }
    // The handlers may query the service on this thread, which belongs to the
    // service: their connection ends with this delivery.
    const BorrowedThreadScope borrowed;
    try {
        return indicate_(objectCount, objects);
    } catch (...) {
        // Only allocation can throw (names, callbacks); the service must not see it.
        ZT_TRACE(0, "[!] NdisEventSink: out of memory, batch dropped");
        return WBEM_S_NO_ERROR;
    }
}

HRESULT NdisEventsSink::indicate_(LONG objectCount, IWbemClassObject** objects)
{
    for (LONG i = 0; i < objectCount; ++i) {
        IWbemClassObject* object = objects[i];
        if (object == nullptr) {
            continue;
        }
        variant value;
        CIMTYPE type = 0;
        const HRESULT classRead = object->Get(L"__Class", 0, value.put(), &type, nullptr);
        if (FAILED(classRead)) {
            ZT_TRACE(0, "[!] NdisEventSink: couldn't get '__Class' property -> %#x",
                     static_cast<unsigned>(classRead));
            return classRead;
        }
        const std::wstring className = textOf(value);
        value.clear();

        std::wstring instanceName;
        const HRESULT nameRead = object->Get(L"InstanceName", 0, value.put(), nullptr, nullptr);
        if (FAILED(nameRead)) {
            ZT_TRACE(2, "/!\\ NdisEventSink: couldn't get 'InstanceName' property -> %#x",
                     static_cast<unsigned>(nameRead));
        } else {
            instanceName = textOf(value);
        }
        ZT_TRACE(5, "NdisEventSink: got %S notification", className.c_str());
        dispatch_(className, instanceName, object);
    }
    return WBEM_S_NO_ERROR;
}

void NdisEventsSink::dispatch_(const std::wstring& className, const std::wstring& instanceName,
                               IWbemClassObject* object)
{
    if (className == L"MSNdis_StatusLinkSpeedChange") {
        return;  // not subscribed; the speed is read anew when the link comes up
    }
    if (className == L"MSNdis_StatusOperationalStatus") {
        variant status;
        const HRESULT hr
            = object->Get(L"NdisOperationalStatusStatusIndication", 0, status.put(), nullptr, nullptr);
        ZT_TRACE(1, "NdisEventSink: operational status %S (hr = %#x)", variantToString(status).c_str(),
                 static_cast<unsigned>(hr));
        return;
    }
    const GatePass pass(ownerGate_);
    if (!pass) {
        return;  // the owner is gone or going
    }
    if (className == L"MSNdis_StatusMediaDisconnect") {
        owner_->onMediaDisconnected(instanceName);
    } else if (className == L"MSNdis_StatusMediaConnect") {
        owner_->onMediaConnected(instanceName);
    } else if (className == L"MSNdis_NotifyAdapterRemoval") {
        owner_->onAdapterRemoved(instanceName);
    } else if (className == L"MSNdis_NotifyAdapterArrival") {
        owner_->onAdapterArrived(instanceName);
    }
}

HRESULT STDMETHODCALLTYPE NdisEventsSink::SetStatus(LONG /*flags*/, HRESULT /*result*/, BSTR /*param*/,
                                                    IWbemClassObject* /*object*/)
{
    return WBEM_S_NO_ERROR;
}
