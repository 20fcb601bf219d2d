// The link state query: NDIS's "WmiQueryLinkState" method, run on the
// adapter's instance with a method header that holds an object header.
#include "ndis/NdisWmi.h"
#include "trace/Trace.h"
#include "wmi/WbemServices.h"
#include "wmi/variant.h"

namespace {

bool put(IWbemClassObject* object, const wchar_t* name, variant& value)
{
    return SUCCEEDED(object->Put(name, 0, const_cast<VARIANT*>(&value.get()), 0));
}

}  // namespace

com_ptr<IWbemClassObject> createNdisObjectHeader()
{
    com_ptr<IWbemClassObject> header = threadWbemServices().createInstance(L"MSNdis_ObjectHeader");
    if (!header) {
        return {};
    }
    // A format towards the provider: the size is this constant, not a record's.
    variant value;
    value = static_cast<std::uint8_t>(1);
    if (!put(header.get(), L"Revision", value)) {
        return {};
    }
    value = static_cast<std::uint8_t>(2);
    if (!put(header.get(), L"Type", value)) {
        return {};
    }
    value = static_cast<std::int32_t>(0xFFFF);
    if (!put(header.get(), L"Size", value)) {
        return {};
    }
    return header;
}

com_ptr<IWbemClassObject> createWmiMethodHeader()
{
    com_ptr<IWbemClassObject> objectHeader = createNdisObjectHeader();
    if (!objectHeader) {
        return {};
    }
    com_ptr<IWbemClassObject> methodHeader = threadWbemServices().createInstance(L"MSNdis_WmiMethodHeader");
    if (!methodHeader) {
        return {};
    }
    variant value;
    value = static_cast<IUnknown*>(objectHeader.get());
    if (!put(methodHeader.get(), L"Header", value)) {
        return {};
    }
    value = static_cast<std::int32_t>(0);
    for (const wchar_t* name : {L"NetLuid", L"Padding", L"PortNumber", L"RequestId"}) {
        if (!put(methodHeader.get(), name, value)) {
            return {};
        }
    }
    value = static_cast<std::int32_t>(5);
    if (!put(methodHeader.get(), L"Timeout", value)) {
        return {};
    }
    return methodHeader;
}

WbemClassObject NdisWmi::getLinkStateData_() const
{
    const com_ptr<IWbemClassObject> methodHeader = createWmiMethodHeader();
    if (!methodHeader) {
        return {};
    }
    WbemServices& services = threadWbemServices();
    const WbemClassObject linkStateClass = services.getObject(L"MSNdis_LinkState");
    const WbemClassObject input = linkStateClass.getMethod(L"WmiQueryLinkState");
    if (input.isEmpty()) {
        return {};
    }
    variant header;
    header = static_cast<IUnknown*>(methodHeader.get());
    const HRESULT hr = input.get()->Put(L"Header", 0, const_cast<VARIANT*>(&header.get()), 0);
    if (FAILED(hr)) {
        ZT_TRACE(2, "/!\\ Put(Header) failed -> %#x", static_cast<unsigned>(hr));
        return {};
    }
    const std::wstring path = objectInstancePath(L"MSNdis_LinkState", instance_);
    WbemClassObject output;
    if (FAILED(services.execMethod(path, L"WmiQueryLinkState", input.get(), &output))) {
        return {};
    }
    const variant& linkState = output[L"LinkState"];
    // Here a link state that holds no interface is as missing as one of another type.
    WbemClassObject embedded;
    if (linkState.vartype() != VT_UNKNOWN || linkState.get().punkVal == nullptr
        || !embeddedObject(linkState.get().punkVal, embedded)) {
        ZT_TRACE(0, "[!] Property 'LinkState' not found");
        return {};
    }
    return embedded;
}
