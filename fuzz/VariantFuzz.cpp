// Any VARIANT tag and value through variantToString and the owner's clear,
// and simulated objects of such values through WbemClassObject's snapshot,
// lookups and typed getters, with an embedded object as "thermalInfo" is.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cwctype>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Check.h"
#include "FuzzInput.h"
#include "Variants.h"
#include "host/HostPlatform.h"
#include "trace/Trace.h"
#include "wmi/WbemClassObject.h"
#include "wmi/variant.h"

namespace {

const wchar_t* const names[] = {L"flags",        L"phyTemperature", L"macTemperature", L"thermalInfo",
                                L"InstanceName", L"Active",         L"__Class",        L"Flags"};

std::wstring readName(FuzzInput& in)
{
    const std::uint8_t pick = in.byte();
    return pick < 0xE0 ? names[pick % std::size(names)] : in.wideText(6);
}

bool sameName(const std::wstring& a, const std::wstring& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towlower(static_cast<std::wint_t>(x))
                   == std::towlower(static_cast<std::wint_t>(y));
           });
}

struct Filled {
    IWbemClassObject* object = nullptr;
    std::vector<std::pair<std::wstring, VARTYPE>> added;  // as given
    std::vector<std::pair<std::wstring, VARTYPE>> held;  // a later name replaces one equal ignoring case
    bool beginFails = false;
    std::size_t limit = static_cast<std::size_t>(-1);
};

// An object of class `className` and 0 to 5 properties; "thermalInfo" may hold `embedded`.
Filled fill(sim::WmiService& service, FuzzInput& in, VariantArena& arena, IUnknown* embedded,
            const wchar_t* className)
{
    Filled filled;
    sim::Object made{className, {}};
    const std::size_t count = in.byte() % 6;
    for (std::size_t i = 0; i < count; ++i) {
        const std::wstring name = readName(in);
        const VARIANT value = makeVariant(in, arena, name == L"thermalInfo" ? embedded : nullptr);
        arena.keep(value);
        filled.added.emplace_back(name, value.vt);
        made.properties.emplace_back(name, sim::Value::raw(value));
        const auto same = std::find_if(filled.held.begin(), filled.held.end(),
                                       [&](const auto& held) { return sameName(held.first, name); });
        if (same != filled.held.end()) {
            same->second = value.vt;
        } else {
            filled.held.emplace_back(name, value.vt);
        }
    }
    const std::uint8_t failures = in.byte();
    if (failures == 1) {
        service.injectFault(sim::Fault::on("BeginEnumeration", WBEM_E_FAILED).forTarget(className));
        filled.beginFails = true;
    } else if (failures == 2) {
        filled.limit = in.byte() % 4;
        const HRESULT end = in.flag() ? WBEM_E_FAILED : WBEM_S_FALSE;
        service.injectFault(
            sim::Fault::on("Next", end).forTarget(className).fromCall(static_cast<int>(filled.limit) + 1));
    }
    filled.object = service.makeObject(made);
    return filled;
}

// The snapshot holds each name the enumeration gave, but never "InstanceName"
// or "Active", each with the tag it was given last.
void checkSnapshot(const Filled& filled, const WbemClassObject& object)
{
    std::map<std::wstring, VARTYPE> expected;
    if (!filled.beginFails) {
        std::size_t given = 0;
        for (const auto& [name, tag] : filled.held) {
            if (name.rfind(L"__", 0) == 0) {
                continue;
            }
            if (given++ >= filled.limit) {
                break;
            }
            if (name != L"InstanceName" && name != L"Active") {
                expected.emplace(name, tag);
            }
        }
    }
    for (const auto& [name, tag] : filled.added) {
        const auto found = expected.find(name);
        const VARTYPE want = found != expected.end() ? found->second : static_cast<VARTYPE>(VT_EMPTY);
        if (object[name].vartype() != want) {
            std::fprintf(stderr, "property '%ls': tag %#x, expected %#x\n", name.c_str(),
                         static_cast<unsigned>(object[name].vartype()), static_cast<unsigned>(want));
        }
        fuzzCheck(object[name].vartype() == want, "a lookup gives the snapshot's value or emptyVariant");
    }
}

void readTyped(const WbemClassObject& object)
{
    std::uint8_t byte = 0xA5;
    const bool byteFound = object.getByteProperty(L"flags", byte);
    fuzzCheck(byteFound == (object[L"flags"].vartype() == VT_UI1), "getByteProperty wants exactly VT_UI1");
    fuzzCheck(byteFound ? byte == object[L"flags"].get().bVal : byte == 0xA5, "written only when found");
    for (const wchar_t* name : {L"phyTemperature", L"macTemperature"}) {
        std::int32_t value = 0x5A5A;
        const bool found = object.getIntProperty(name, value);
        fuzzCheck(found == (object[name].vartype() == VT_I4), "getIntProperty wants exactly VT_I4");
        fuzzCheck(found ? value == object[name].get().lVal : value == 0x5A5A, "written only when found");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput in(data, size);
    traceLevel = (in.byte() & 1) != 0 ? 5 : 0;
    VariantArena arena;

    // One value on its own: its text, and its end through the owner.
    {
        VARIANT original = makeVariant(in, arena);
        {
            variant value;
            sim::copyVariant(*value.put(), original);
            const std::wstring text = variantToString(value);
            if (original.vt == VT_BSTR) {
                const std::wstring expected = original.bstrVal != nullptr ? original.bstrVal : L"";
                fuzzCheck(text == expected, "a string's text is the string up to its first zero");
            }
            variant moved(std::move(value));
            // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): the moved-from state
            fuzzCheck(value.vartype() == VT_EMPTY, "a moved-from owner is empty");
            // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
            fuzzCheck(variantToString(value) == L"<empty>", "an empty owner reads <empty>");
            if (moved.vartype() != (VT_BYREF | VT_DISPATCH) && moved.vartype() != (VT_BYREF | VT_UNKNOWN)) {
                moved = static_cast<std::int32_t>(in.u32());
                fuzzCheck(moved.vartype() == VT_I4, "an assigned integer is VT_I4");
            }
        }
        endVariant(original);
    }

    // An object with an embedded one, read as getThermalInfo reads it.
    sim::WmiService& service = freshService();
    const Filled inner = fill(service, in, arena, nullptr, L"Fuzz_Inner");
    const Filled outer = fill(service, in, arena, inner.object, L"Fuzz_Outer");
    {
        const WbemClassObject object(outer.object, false);
        checkSnapshot(outer, object);
        readTyped(object);
        IUnknown* unknown = nullptr;
        const bool found = object.getObjectProperty(L"thermalInfo", &unknown);
        fuzzCheck(found == (object[L"thermalInfo"].vartype() == VT_UNKNOWN), "VT_UNKNOWN exactly");
        WbemClassObject thermal;
        if (found && unknown != nullptr && embeddedObject(unknown, thermal)) {
            checkSnapshot(inner, thermal);
            readTyped(thermal);
        }
    }
    inner.object->Release();
    host::clearDebugOutput();
    return 0;
}
