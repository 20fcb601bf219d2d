// Any batch of event objects through NdisEventsSink::Indicate: classes,
// instance names and the operational status of any shape, missing or failing
// properties, null entries, any count. The owner's handlers must be called
// exactly for the objects the sink's table names, in array order, and a
// failing "__Class" must end the batch with its code.
#include <cstdint>
#include <string>
#include <vector>

#include "Check.h"
#include "FuzzInput.h"
#include "Variants.h"
#include "host/HostPlatform.h"
#include "ndis/NdisWmi.h"
#include "trace/Trace.h"
#include "wmi/NdisEventsSink.h"
#include "wmi/WbemServices.h"

namespace {

const wchar_t* const classes[] = {
    L"MSNdis_StatusMediaDisconnect", L"MSNdis_StatusMediaConnect",    L"MSNdis_NotifyAdapterRemoval",
    L"MSNdis_NotifyAdapterArrival",  L"MSNdis_StatusLinkSpeedChange", L"MSNdis_StatusOperationalStatus",
    L"msndis_statusmediaconnect",    L"MSNdis_StatusMediaConnect ",   L"",
};

std::vector<std::wstring>& handled()
{
    static std::vector<std::wstring> events;
    return events;
}

NdisWmi& owner()
{
    // One monitor for the process; with no service registered its
    // subscriptions fail, which leaves it working for direct deliveries.
    static NdisWmi* ndis = [] {
        auto* made = new NdisWmi(L"ZT 10G Network Adapter #2");
        made->bindCallbacks([](const std::wstring& name) { handled().push_back(L"arrived " + name); },
                            [](const std::wstring& name) { handled().push_back(L"removed " + name); },
                            [](const std::wstring& name, MediaConnectState state) {
                                handled().push_back(L"media " + std::to_wstring(static_cast<int>(state))
                                                    + L" " + name);
                            });
        endThreadWbemServices();  // its failed connection attempt is all this thread does with WMI
        return made;
    }();
    return *ndis;
}

std::wstring textOf(const VARIANT& value)
{
    return value.vt == VT_BSTR && value.bstrVal != nullptr ? std::wstring(value.bstrVal) : std::wstring();
}

// The handler call the sink's table gives for a class, or nothing.
std::wstring eventFor(const std::wstring& className, const std::wstring& name)
{
    if (className == L"MSNdis_StatusMediaDisconnect") {
        return L"media 2 " + name;
    }
    if (className == L"MSNdis_StatusMediaConnect") {
        return L"media 1 " + name;
    }
    if (className == L"MSNdis_NotifyAdapterRemoval") {
        return L"removed " + name;
    }
    if (className == L"MSNdis_NotifyAdapterArrival") {
        return L"arrived " + name;
    }
    return {};
}

VARIANT textVariant(const std::wstring& text)
{
    VARIANT value{};
    VariantInit(&value);
    value.vt = VT_BSTR;
    value.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput in(data, size);
    NdisWmi& ndis = owner();
    traceLevel = in.byte() % 6;
    VariantArena arena;
    sim::WmiService& service = freshService();
    handled().clear();

    std::vector<IWbemClassObject*> objects(in.byte() % 7, nullptr);
    std::vector<std::wstring> expected;
    HRESULT expectedResult = WBEM_S_NO_ERROR;
    bool stopped = false;
    for (auto& slot : objects) {
        const std::uint8_t shape = in.byte();
        if (shape == 0xFF) {
            continue;  // a null entry
        }
        // Each object is of a class of its own, so a scripted failure is its alone.
        sim::Object made{L"Fuzz_Event" + std::to_wstring(&slot - objects.data()), {}};
        const auto add = [&](const wchar_t* name, const VARIANT& value) {
            arena.keep(value);
            made.properties.emplace_back(name, sim::Value::raw(value));
        };
        const auto failGet = [&](const wchar_t* name, HRESULT result) {
            service.injectFault(sim::Fault::on("Get", result).forTarget(made.className + L"." + name));
        };
        // "__Class": a name of the table, any text, any value, missing or failing.
        std::wstring className;
        VARIANT classValue{};
        VariantInit(&classValue);
        const int classShape = shape & 0x07;
        if (classShape < 4) {
            className = classes[in.below(std::size(classes))];
            classValue = textVariant(className);
        } else if (classShape == 4) {
            className = in.wideText(32, true);
            classValue = textVariant(className);
            className = className.substr(0, className.find(L'\0'));
        } else if (classShape == 5) {
            classValue = makeVariant(in, arena);
            className = textOf(classValue);
        }
        HRESULT classRead = WBEM_S_NO_ERROR;
        if (classShape == 6) {
            classRead = WBEM_E_NOT_FOUND;  // missing
            made.properties.emplace_back(L"__Class", sim::Value::absent());
        } else if (classShape == 7) {
            classRead = static_cast<HRESULT>(0x80000000U | in.u16());
            failGet(L"__Class", classRead);
        } else {
            add(L"__Class", classValue);
        }
        // "InstanceName": text, any value, missing or failing.
        std::wstring name;
        const int nameShape = (shape >> 3) & 0x03;
        if (nameShape == 0) {
            name = in.wideText(24);
            add(L"InstanceName", textVariant(name));
        } else if (nameShape == 1) {
            const VARIANT value = makeVariant(in, arena);
            name = textOf(value);
            add(L"InstanceName", value);
        } else if (nameShape == 2) {
            failGet(L"InstanceName", WBEM_E_FAILED);
        }
        if ((shape & 0x20) != 0) {
            add(L"NdisOperationalStatusStatusIndication", makeVariant(in, arena));
        }
        slot = service.makeObject(made);
        if (stopped) {
            continue;
        }
        if (FAILED(classRead)) {
            expectedResult = classRead;
            stopped = true;
            continue;
        }
        const std::wstring event = eventFor(className, name);
        if (!event.empty()) {
            expected.push_back(event);
        }
    }

    auto* sink = new NdisEventsSink(&ndis);
    const std::uint8_t countShape = in.byte();
    LONG count = static_cast<LONG>(objects.size());
    if (countShape == 0xFF) {
        count = -static_cast<LONG>(in.u16());
    }
    const HRESULT result = sink->Indicate(count, count > 0 ? objects.data() : nullptr);
    if (count <= 0) {
        expected.clear();
        expectedResult = WBEM_S_NO_ERROR;
    }
    fuzzCheck(result == expectedResult, "0, or the failing code of the first unreadable __Class");
    fuzzCheck(handled() == expected, "the owner hears exactly the table's classes, in order");
    sink->Release();
    for (IWbemClassObject* object : objects) {
        if (object != nullptr) {
            object->Release();
        }
    }
    host::clearDebugOutput();
    return 0;
}
