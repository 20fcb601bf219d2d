#include "wmi/variant.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <memory>
#include <tuple>

#include "TraceCapture.h"
#include "host/CountingUnknown.h"
#include "host/HostPlatform.h"

namespace {

SCODE failure = static_cast<SCODE>(0x80004005);

TEST(VariantToString, numbersTextsAndTagsWithoutARow)
{
    // what, how the value is made, its text
    const std::tuple<const char*, void (*)(VARIANT&), const wchar_t*> cases[] = {
        {"empty", [](VARIANT&) {}, L"<empty>"},
        {"null", [](VARIANT& v) { v.vt = VT_NULL; }, L"<null>"},
        {"i2", [](VARIANT& v) { v.vt = VT_I2, v.iVal = -32768; }, L"-32768"},
        {"i4", [](VARIANT& v) { v.vt = VT_I4, v.lVal = INT_MIN; }, L"-2147483648"},
        {"r4", [](VARIANT& v) { v.vt = VT_R4, v.fltVal = 0.25F; }, L"0.250000"},
        {"r8", [](VARIANT& v) { v.vt = VT_R8, v.dblVal = 1.5; }, L"1.500000"},
        {"cy unscaled", [](VARIANT& v) { v.vt = VT_CY, v.cyVal.int64 = 15000; }, L"15000"},
        {"bstr with zero inside",
         [](VARIANT& v) { v.vt = VT_BSTR, v.bstrVal = SysAllocStringLen(L"ab\0cd", 5); }, L"ab"},
        {"error", [](VARIANT& v) { v.vt = VT_ERROR, v.scode = failure; }, L"error -2147467259"},
        {"error by reference", [](VARIANT& v) { v.vt = VT_BYREF | VT_ERROR, v.pscode = &failure; },
         L"error -2147467259"},
        {"bool 0", [](VARIANT& v) { v.vt = VT_BOOL, v.boolVal = VARIANT_FALSE; }, L"false"},
        {"unknown null", [](VARIANT& v) { v.vt = VT_UNKNOWN, v.punkVal = nullptr; }, L"[IUnknown]"},
        {"i1 from 200", [](VARIANT& v) { v.vt = VT_I1, v.bVal = 200; }, L"-56"},
        {"ui2", [](VARIANT& v) { v.vt = VT_UI2, v.uiVal = 65535; }, L"65535"},
        {"ui4", [](VARIANT& v) { v.vt = VT_UI4, v.ulVal = 4294967295U; }, L"4294967295"},
        {"i8 min", [](VARIANT& v) { v.vt = VT_I8, v.llVal = LLONG_MIN; }, L"-9223372036854775808"},
        {"ui8 max", [](VARIANT& v) { v.vt = VT_UI8, v.ullVal = ULLONG_MAX; }, L"18446744073709551615"},
        {"int", [](VARIANT& v) { v.vt = VT_INT, v.intVal = -7; }, L"-7"},
        {"uint", [](VARIANT& v) { v.vt = VT_UINT, v.uintVal = 7; }, L"7"},
        {"void", [](VARIANT& v) { v.vt = VT_VOID; }, L"[void]"},
        {"hresult", [](VARIANT& v) { v.vt = VT_HRESULT, v.lVal = failure; }, L"-2147467259"},
        {"lpwstr", [](VARIANT& v) { v.vt = VT_LPWSTR, v.byref = const_cast<wchar_t*>(L"wide"); }, L"wide"},
        {"int_ptr low bits", [](VARIANT& v) { v.vt = VT_INT_PTR, v.llVal = 0x1FFFFFFFFLL; }, L"-1"},
        {"uint_ptr low bits", [](VARIANT& v) { v.vt = VT_UINT_PTR, v.ullVal = 0x1FFFFFFFFULL; },
         L"4294967295"},
        {"bare array bit", [](VARIANT& v) { v.vt = VT_ARRAY; }, L"[SAFEARRAY*]"},
        {"real array of ui1",
         [](VARIANT& v) { v.vt = VT_ARRAY | VT_UI1, v.parray = SafeArrayCreateVector(VT_UI1, 0, 3); },
         L"<unknown> (8209)"},
        {"tag 15", [](VARIANT& v) { v.vt = 15; }, L"<unknown> (15)"},
        {"by-reference i4 finds the i4 row", [](VARIANT& v) { v.vt = VT_BYREF | VT_I4, v.lVal = 12; }, L"12"},
        {"by-reference unknown tag", [](VARIANT& v) { v.vt = VT_BYREF | 99; }, L"<unknown> (99)"},
    };
    host::reset();
    for (const auto& [what, fill, expected] : cases) {
        {
            variant value;
            fill(*value.put());
            EXPECT_EQ(variantToString(value), expected) << what;
        }
        EXPECT_EQ(host::liveBstrs(), 0) << what << ": the owner ends what it holds";
        EXPECT_EQ(host::liveSafeArrays(), 0) << what;
    }
}

// Found by fuzzing: a by-reference string was printed by reading the address
// of the string as text, which ran past the 8 bytes of the pointer.
TEST(VariantToString, byReferenceStringsAreReadThroughTheirPointer)
{
    BSTR text = SysAllocString(L"by reference");
    wchar_t wide[] = L"wide by reference";
    // Exactly as large as the pointers, so that reading past them is caught.
    auto bstrSlot = std::make_unique<BSTR>(text);
    auto wideSlot = std::make_unique<wchar_t*>(wide);
    auto nullSlot = std::make_unique<BSTR>(nullptr);
    const std::tuple<VARTYPE, void*, const wchar_t*> cases[] = {
        {VT_BYREF | VT_BSTR, bstrSlot.get(), L"by reference"},
        {VT_BYREF | VT_LPWSTR, wideSlot.get(), L"wide by reference"},
        {VT_BYREF | VT_BSTR, nullSlot.get(), L""},
        {VT_BYREF | VT_BSTR, nullptr, L""},
        {VT_BYREF | VT_LPWSTR, nullptr, L""},
    };
    for (const auto& [tag, target, expected] : cases) {
        variant value;
        value.put()->vt = tag;
        const_cast<VARIANT&>(value.get()).byref = target;
        EXPECT_EQ(variantToString(value), expected) << tag;
    }
    SysFreeString(text);
}

// Any other by-reference tag is cleared, and what it points to is left alone.
TEST(Variant, clearRefusesTheTwoByReferenceInterfaceTagsOnly)
{
    for (const int tag : {VT_BYREF | VT_DISPATCH, VT_BYREF | VT_UNKNOWN, VT_BYREF | VT_BSTR}) {
        const bool refused = tag != (VT_BYREF | VT_BSTR);
        TraceAll capture;
        host::CountingUnknown target;
        IUnknown* slot = &target;
        variant value;
        value.put()->vt = static_cast<VARTYPE>(tag);
        const_cast<VARIANT&>(value.get()).ppunkVal = &slot;
        EXPECT_EQ(value.clear(), S_OK);
        EXPECT_EQ(value.vartype(), refused ? tag : VT_EMPTY);
        EXPECT_EQ(tracedMessages(),
                  refused ? Messages{"/!\\ variant doesn't cleared because of type"} : Messages{});
        EXPECT_EQ(target.refs(), 1U);
    }
}

TEST(Variant, moveHandsTheValueOverOnce)
{
    host::reset();
    {
        variant source;
        VARIANT* raw = source.put();
        raw->vt = VT_BSTR;
        raw->bstrVal = SysAllocString(L"InstanceName");
        variant target(std::move(source));
        EXPECT_EQ(variantToString(target), L"InstanceName");
        EXPECT_EQ(variantToString(source), L"<empty>");  // NOLINT(bugprone-use-after-move)
        variant assigned;
        assigned.put()->vt = VT_BSTR;
        const_cast<VARIANT&>(assigned.get()).bstrVal = SysAllocString(L"old");
        assigned = std::move(target);
        EXPECT_EQ(variantToString(assigned), L"InstanceName");
        EXPECT_EQ(host::liveBstrs(), 1) << "the string held before is ended";
    }
    EXPECT_EQ(host::liveBstrs(), 0) << "ended exactly once";
}

TEST(Variant, assignmentsEndTheOldValueAndHoldTheNew)
{
    host::reset();
    host::CountingUnknown object;
    {
        variant value;
        EXPECT_TRUE(value.isEmpty());
        value = static_cast<std::int32_t>(-5);
        EXPECT_EQ(value.vartype(), VT_I4);
        EXPECT_EQ(variantToString(value), L"-5");
        value = &object;
        EXPECT_EQ(value.vartype(), VT_UNKNOWN);
        EXPECT_EQ(object.refs(), 2U) << "the variant holds a reference of its own";
        value = static_cast<std::uint8_t>(200);
        EXPECT_EQ(object.refs(), 1U) << "assignment over an interface releases it";
        EXPECT_EQ(variantToString(value), L"200");
        value.put()->vt = VT_NULL;
        EXPECT_TRUE(value.isEmpty());
        value = &object;
        EXPECT_FALSE(value.isEmpty());
        EXPECT_FALSE(value.isByRef());
    }
    EXPECT_EQ(object.refs(), 1U) << "the destructor released the variant's reference";
    // Each way in frees a string held before.
    const std::function<void(variant&)> assignments[]
        = {[](variant& v) { v = static_cast<std::int32_t>(1); },
           [](variant& v) { v = static_cast<std::uint8_t>(2); }, [&object](variant& v) { v = &object; },
           [](variant& v) { v.put(); }};
    for (const auto& assign : assignments) {
        variant value;
        VARIANT* raw = value.put();
        raw->vt = VT_BSTR;
        raw->bstrVal = SysAllocString(L"text");
        assign(value);
        EXPECT_EQ(host::liveBstrs(), 0);
    }
}

}  // namespace
