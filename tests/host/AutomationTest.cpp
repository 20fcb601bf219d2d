#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ComDoubles.h"
#include "host/HostPlatform.h"

namespace {

std::uint32_t prefixOf(BSTR text)
{
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, reinterpret_cast<const BYTE*>(text) - sizeof bytes, sizeof bytes);
    return bytes;
}

VARIANT holding(VARTYPE vt, void* pointer)
{
    VARIANT v{};
    VariantInit(&v);
    v.vt = vt;
    v.byref = pointer;
    return v;
}

TEST(Bstr, prefixHoldsTheByteLengthAndTheTextIsZeroTerminated)
{
    const std::wstring withZero(L"a\0b", 3);
    const struct {
        const char* what;
        BSTR text;
        std::wstring expected;
    } cases[] = {
        {"plain", SysAllocString(L"abc"), L"abc"},
        {"empty", SysAllocString(L""), L""},
        {"embedded zero kept", SysAllocStringLen(withZero.c_str(), 3), withZero},
        {"prefix of a longer text", SysAllocStringLen(L"abcdef", 2), L"ab"},
        {"no text gives zeros", SysAllocStringLen(nullptr, 2), std::wstring(2, L'\0')},
    };
    for (const auto& c : cases) {
        ASSERT_NE(c.text, nullptr) << c.what;
        EXPECT_EQ(prefixOf(c.text), c.expected.size() * sizeof(WCHAR)) << c.what;
        EXPECT_EQ(SysStringLen(c.text), c.expected.size()) << c.what;
        EXPECT_EQ(std::wstring(c.text, SysStringLen(c.text)), c.expected) << c.what;
        EXPECT_EQ(c.text[c.expected.size()], L'\0') << c.what;
        SysFreeString(c.text);
    }
}

TEST(Bstr, nullIsNoStringAndLiveCountTracksFrees)
{
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0U);
    SysFreeString(nullptr);
    const long before = host::liveBstrs();
    BSTR a = SysAllocString(L"x");
    BSTR b = SysAllocStringLen(nullptr, 0);
    EXPECT_EQ(host::liveBstrs(), before + 2);
    SysFreeString(a);
    SysFreeString(b);
    EXPECT_EQ(host::liveBstrs(), before);
}

TEST(VariantClear, releasesFreesAndDestroysWhatTheValueOwns)
{
    CountedObject object;
    object.AddRef();
    VARIANT unknown = holding(VT_UNKNOWN, &object);
    EXPECT_EQ(VariantClear(&unknown), S_OK);
    EXPECT_EQ(object.refs(), 1U);
    EXPECT_EQ(unknown.vt, VT_EMPTY);

    const long strings = host::liveBstrs();
    const long arrays = host::liveSafeArrays();
    VARIANT text = holding(VT_BSTR, SysAllocString(L"gone"));
    VARIANT array = holding(VT_ARRAY | VT_BSTR, SafeArrayCreateVector(VT_BSTR, 0, 2));
    static_cast<BSTR*>(array.parray->pvData)[1] = SysAllocString(L"element");
    EXPECT_EQ(VariantClear(&text), S_OK);
    EXPECT_EQ(VariantClear(&array), S_OK);
    EXPECT_EQ(host::liveBstrs(), strings);
    EXPECT_EQ(host::liveSafeArrays(), arrays);
}

TEST(VariantClear, leavesWhatByRefValuesPointAtAlone)
{
    CountedObject object;
    IUnknown* slot = &object;
    BSTR text = SysAllocString(L"kept");
    VARIANT byRefUnknown = holding(VT_BYREF | VT_UNKNOWN, &slot);
    VARIANT byRefText = holding(VT_BYREF | VT_BSTR, &text);
    EXPECT_EQ(VariantClear(&byRefUnknown), S_OK);
    EXPECT_EQ(VariantClear(&byRefText), S_OK);
    EXPECT_EQ(byRefText.vt, VT_EMPTY);
    EXPECT_EQ(object.refs(), 1U);
    EXPECT_EQ(std::wstring(text), L"kept");
    SysFreeString(text);
}

TEST(VariantClear, refusesTagsItDoesNotKnowAndKeepsTheValue)
{
    const VARTYPE tags[]
        = {15, 0x7F, VT_VECTOR | VT_I4, VT_ARRAY | VT_EMPTY, VT_BYREF | VT_NULL, VT_RESERVED | VT_I4};
    for (const VARTYPE tag : tags) {
        VARIANT v = holding(tag, nullptr);
        EXPECT_EQ(VariantClear(&v), DISP_E_BADVARTYPE) << tag;
        EXPECT_EQ(v.vt, tag);
    }
}

TEST(VariantClear, lockedArrayIsNotDestroyed)
{
    VARIANT v = holding(VT_ARRAY | VT_I4, SafeArrayCreateVector(VT_I4, 0, 1));
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(v.parray, &data), S_OK);
    EXPECT_EQ(VariantClear(&v), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(v.vt, VT_ARRAY | VT_I4);
    SafeArrayUnaccessData(v.parray);
    EXPECT_EQ(VariantClear(&v), S_OK);
}

TEST(VariantCopy, copiesDeepAndClearsTheDestinationFirst)
{
    const long strings = host::liveBstrs();
    CountedObject object;
    VARIANT destination = holding(VT_BSTR, SysAllocString(L"old"));
    const VARIANT text = holding(VT_BSTR, SysAllocString(L"new"));
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
    LONG lower = 0;
    EXPECT_EQ(SafeArrayGetLBound(destination.parray, 1, &lower), S_OK);
    EXPECT_EQ(lower, 3);

    VARIANT original = text;
    VARIANT byRef = holding(VT_BYREF | VT_VARIANT, &original);
    ASSERT_EQ(VariantCopy(&destination, &byRef), S_OK);
    EXPECT_EQ(destination.pvarVal, &original) << "by-ref values copy the pointer";

    VariantClear(&array);
    VariantClear(&original);
    EXPECT_EQ(host::liveBstrs(), strings);
}

TEST(SafeArray, vectorsHaveThePlatformsElementSizesAndFeatures)
{
    const struct {
        VARTYPE vt;
        USHORT features;
        ULONG size;
    } cases[] = {
        {VT_UI1, FADF_HAVEVARTYPE, 1},
        {VT_I1, FADF_HAVEVARTYPE, 1},
        {VT_I2, FADF_HAVEVARTYPE, 2},
        {VT_UI2, FADF_HAVEVARTYPE, 2},
        {VT_BOOL, FADF_HAVEVARTYPE, 2},
        {VT_I4, FADF_HAVEVARTYPE, 4},
        {VT_UI4, FADF_HAVEVARTYPE, 4},
        {VT_INT, FADF_HAVEVARTYPE, 4},
        {VT_UINT, FADF_HAVEVARTYPE, 4},
        {VT_R4, FADF_HAVEVARTYPE, 4},
        {VT_ERROR, FADF_HAVEVARTYPE, 4},
        {VT_I8, FADF_HAVEVARTYPE, 8},
        {VT_UI8, FADF_HAVEVARTYPE, 8},
        {VT_R8, FADF_HAVEVARTYPE, 8},
        {VT_BSTR, FADF_HAVEVARTYPE | FADF_BSTR, sizeof(BSTR)},
        {VT_UNKNOWN, FADF_HAVEIID | FADF_UNKNOWN, sizeof(void*)},
        {VT_DISPATCH, FADF_HAVEIID | FADF_DISPATCH, sizeof(void*)},
        {VT_VARIANT, FADF_HAVEVARTYPE | FADF_VARIANT, sizeof(VARIANT)},
    };
    constexpr USHORT publicFeatures = 0x0FFF;
    for (const auto& c : cases) {
        SAFEARRAY* array = SafeArrayCreateVector(c.vt, 0, 3);
        ASSERT_NE(array, nullptr) << c.vt;
        EXPECT_EQ(SafeArrayGetElemsize(array), c.size) << c.vt;
        EXPECT_EQ(SafeArrayGetDim(array), 1U) << c.vt;
        EXPECT_EQ(array->fFeatures & publicFeatures, c.features) << c.vt;
        VARTYPE vt = VT_EMPTY;
        EXPECT_EQ(SafeArrayGetVartype(array, &vt), S_OK) << c.vt;
        EXPECT_EQ(vt, c.vt);
        DWORD hidden = 0;  // where the platform keeps the type, right before the descriptor
        std::memcpy(&hidden, reinterpret_cast<const BYTE*>(array) - sizeof hidden, sizeof hidden);
        EXPECT_TRUE((c.features & FADF_HAVEIID) != 0 || hidden == c.vt) << c.vt;
        const std::string zeros(std::size_t{3} * c.size, '\0');
        EXPECT_EQ(std::memcmp(array->pvData, zeros.data(), zeros.size()), 0) << c.vt;
        EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    }
    EXPECT_EQ(SafeArrayCreateVector(VT_EMPTY, 0, 1), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_RECORD, 0, 1), nullptr);
}

TEST(SafeArray, boundsOfTheOnlyDimension)
{
    SAFEARRAY* array = SafeArrayCreateVector(VT_I4, -2, 5);
    LONG bound = 0;
    EXPECT_EQ(SafeArrayGetLBound(array, 1, &bound), S_OK);
    EXPECT_EQ(bound, -2);
    EXPECT_EQ(SafeArrayGetUBound(array, 1, &bound), S_OK);
    EXPECT_EQ(bound, 2);
    EXPECT_EQ(SafeArrayGetLBound(array, 0, &bound), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetUBound(array, 2, &bound), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetLBound(nullptr, 1, &bound), E_INVALIDARG);
    EXPECT_EQ(SafeArrayGetUBound(array, 1, nullptr), E_INVALIDARG);
    SafeArrayDestroy(array);
}

TEST(SafeArray, eachAccessLocksUntilItsUnaccess)
{
    SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 4);
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
    EXPECT_EQ(data, array->pvData);
    ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
    EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED) << "one lock is left";
    EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(SafeArrayUnaccessData(array), E_UNEXPECTED);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(SafeArray, destroyFreesStringsReleasesInterfacesAndClearsVariants)
{
    const long strings = host::liveBstrs();
    const long arrays = host::liveSafeArrays();
    CountedObject object;
    SAFEARRAY* texts = SafeArrayCreateVector(VT_BSTR, 0, 2);
    static_cast<BSTR*>(texts->pvData)[0] = SysAllocString(L"a");
    SAFEARRAY* objects = SafeArrayCreateVector(VT_UNKNOWN, 0, 2);
    static_cast<IUnknown**>(objects->pvData)[1] = &object;
    object.AddRef();
    SAFEARRAY* values = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    static_cast<VARIANT*>(values->pvData)[0] = holding(VT_BSTR, SysAllocString(L"b"));

    SAFEARRAY* copy = nullptr;
    ASSERT_EQ(SafeArrayCopy(values, &copy), S_OK);
    EXPECT_EQ(host::liveBstrs(), strings + 3) << "the copy has its own string";

    for (SAFEARRAY* array : {texts, objects, values, copy}) {
        EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    }
    EXPECT_EQ(object.refs(), 1U);
    EXPECT_EQ(host::liveBstrs(), strings);
    EXPECT_EQ(host::liveSafeArrays(), arrays);
}

}  // namespace
