// What the module's COM owners and the tests' leak checks rely on in the host's
// BSTR, VARIANT and SAFEARRAY: who owns what, what a copy is, what a failure says.
#include <gtest/gtest.h>

#include <string>

#include "host/CountingUnknown.h"
#include "host/HostPlatform.h"

namespace {

// A value of type `vt` whose pointer is `pointer`; zeroed, it starts as VT_EMPTY.
VARIANT holding(VARTYPE vt, void* pointer)
{
    VARIANT v{};
    v.vt = vt;
    v.byref = pointer;
    return v;
}

TEST(Bstr, holdsItsLengthAndTheTextIsZeroTerminated)
{
    const long before = host::liveBstrs();
    const std::wstring withZero(L"a\0b", 3);
    const struct {
        BSTR text;
        std::wstring expected;
    } cases[] = {
        {SysAllocString(L"abc"), L"abc"},
        {SysAllocString(L""), L""},
        {SysAllocStringLen(withZero.c_str(), 3), withZero},
        {SysAllocStringLen(L"abcdef", 2), L"ab"},
        {SysAllocStringLen(nullptr, 2), std::wstring(2, L'\0')},
    };
    EXPECT_EQ(host::liveBstrs(), before + 5);
    for (const auto& c : cases) {
        EXPECT_EQ(std::wstring(c.text, SysStringLen(c.text)), c.expected);
        EXPECT_EQ(c.text[c.expected.size()], L'\0');
        SysFreeString(c.text);
    }
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(host::liveBstrs(), before);
}

TEST(VariantClear, freesWhatTheValueOwnsAndNothingByReference)
{
    const long strings = host::liveBstrs();
    const long arrays = host::liveSafeArrays();
    host::CountingUnknown object;
    object.AddRef();
    BSTR kept = SysAllocString(L"kept");
    VARIANT values[] = {holding(VT_UNKNOWN, &object), holding(VT_BSTR, SysAllocString(L"gone")),
                        holding(VT_ARRAY | VT_BSTR, SafeArrayCreateVector(VT_BSTR, 0, 2)),
                        holding(VT_BYREF | VT_BSTR, &kept)};
    static_cast<BSTR*>(values[2].parray->pvData)[1] = SysAllocString(L"element");
    for (VARIANT& v : values) {
        EXPECT_EQ(VariantClear(&v), S_OK);
        EXPECT_EQ(v.vt, VT_EMPTY);
    }
    EXPECT_EQ(object.refs(), 1U);
    EXPECT_EQ(std::wstring(kept), L"kept");
    SysFreeString(kept);
    EXPECT_EQ(host::liveBstrs(), strings);
    EXPECT_EQ(host::liveSafeArrays(), arrays);
}

TEST(VariantClear, failuresKeepTheValue)
{
    for (const VARTYPE tag : {VARTYPE{15}, VARTYPE(VT_VECTOR | VT_I4), VARTYPE(VT_BYREF | VT_NULL)}) {
        VARIANT v = holding(tag, nullptr);
        EXPECT_EQ(VariantClear(&v), DISP_E_BADVARTYPE) << tag;
        EXPECT_EQ(v.vt, tag);
    }
    VARIANT locked = holding(VT_ARRAY | VT_I4, SafeArrayCreateVector(VT_I4, 0, 1));
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(locked.parray, &data), S_OK);
    EXPECT_EQ(VariantClear(&locked), DISP_E_ARRAYISLOCKED);
    SafeArrayUnaccessData(locked.parray);
    EXPECT_EQ(VariantClear(&locked), S_OK);
}

TEST(VariantCopy, copiesDeepAndClearsTheDestinationFirst)
{
    const long strings = host::liveBstrs();
    host::CountingUnknown object;
    VARIANT destination = holding(VT_BSTR, SysAllocString(L"old"));
    VARIANT text = holding(VT_BSTR, SysAllocString(L"new"));
    ASSERT_EQ(VariantCopy(&destination, &text), S_OK);
    EXPECT_NE(destination.bstrVal, text.bstrVal);
    EXPECT_EQ(std::wstring(destination.bstrVal), L"new");
    EXPECT_EQ(host::liveBstrs(), strings + 2) << "the old text was freed";

    const VARIANT unknown = holding(VT_UNKNOWN, &object);
    ASSERT_EQ(VariantCopy(&destination, &unknown), S_OK);
    EXPECT_EQ(object.refs(), 2U);

    VARIANT array = holding(VT_ARRAY | VT_BSTR, SafeArrayCreateVector(VT_BSTR, 3, 1));
    static_cast<BSTR*>(array.parray->pvData)[0] = SysAllocString(L"element");
    ASSERT_EQ(VariantCopy(&destination, &array), S_OK);
    EXPECT_EQ(object.refs(), 1U);
    const BSTR copied = static_cast<BSTR*>(destination.parray->pvData)[0];
    EXPECT_NE(copied, static_cast<BSTR*>(array.parray->pvData)[0]);
    EXPECT_EQ(std::wstring(copied), L"element");

    for (VARIANT* v : {&destination, &array, &text}) {
        VariantClear(v);
    }
    EXPECT_EQ(host::liveBstrs(), strings);
}

}  // namespace
