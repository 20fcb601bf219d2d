#include "wmi/variant.h"

#include <cstring>
#include <utility>

#include "trace/FormatString.h"
#include "trace/Trace.h"

namespace {

// VT_BYREF|VT_DISPATCH and VT_BYREF|VT_UNKNOWN, and no other tag.
bool isRefusedTag(VARTYPE vt)
{
    return ((static_cast<unsigned>(vt) - 0x4009U) & 0xFFFBU) == 0;
}

}  // namespace

variant::variant() noexcept : v_()
{
    VariantInit(&v_);
}

variant::variant(variant&& other) noexcept : v_(other.v_)
{
    VariantInit(&other.v_);
}

variant& variant::operator=(variant&& other) noexcept
{
    if (this != &other) {
        clear();
        v_ = other.v_;
        VariantInit(&other.v_);
    }
    return *this;
}

variant::~variant()
{
    clear();
}

HRESULT variant::clear()
{
    if (isRefusedTag(v_.vt)) {
        ZT_TRACE(2, "/!\\ variant doesn't cleared because of type");
        return 0;
    }
    return VariantClear(&v_);
}

void variant::prepareAssign_()
{
    if (v_.vt > VT_NULL) {
        clear();
    }
}

variant& variant::operator=(IUnknown* p)
{
    prepareAssign_();
    p->AddRef();
    v_.punkVal = p;
    v_.vt = VT_UNKNOWN;
    return *this;
}

variant& variant::operator=(std::uint8_t value)
{
    prepareAssign_();
    v_.bVal = value;
    v_.vt = VT_UI1;
    return *this;
}

variant& variant::operator=(std::int32_t value)
{
    prepareAssign_();
    v_.lVal = value;
    v_.vt = VT_I4;
    return *this;
}

VARIANT* variant::put()
{
    clear();
    return &v_;
}

namespace {

const wchar_t* fixedText(unsigned tag)
{
    switch (tag) {
    case VT_EMPTY:
        return L"<empty>";
    case VT_NULL:
        return L"<null>";
    case VT_DATE:
        return L"[date]";
    case VT_DISPATCH:
        return L"[IDispatch*]";
    case VT_VARIANT:
        return L"[VARIANT]";
    case VT_UNKNOWN:
        return L"[IUnknown]";
    case VT_DECIMAL:
        return L"[decimal]";
    case VT_VOID:
        return L"[void]";
    case VT_PTR:
        return L"[pointer]";
    case VT_SAFEARRAY:
        return L"[safe array]";
    case VT_CARRAY:
        return L"[C-style array]";
    case VT_USERDEFINED:
        return L"[used-defined]";
    case VT_LPSTR:
        return L"[null-terminated string]";
    case VT_RECORD:
        return L"[RECORD]";
    case VT_FILETIME:
        return L"[FILETIME]";
    case VT_BLOB:
        return L"[blob]";
    case VT_STREAM:
        return L"[stream]";
    case VT_STORAGE:
        return L"[storage]";
    case VT_STREAMED_OBJECT:
        return L"[streamed object]";
    case VT_STORED_OBJECT:
        return L"[stored object]";
    case VT_BLOB_OBJECT:
        return L"[blob object]";
    case VT_CF:
        return L"[clipboard format]";
    case VT_CLSID:
        return L"[CLSID]";
    case VT_VERSIONED_STREAM:
        return L"[versioned stream]";
    case VT_BSTR_BLOB:
        return L"[bstr blob]";
    case VT_VECTOR:
        return L"[vector]";
    case VT_ARRAY:
        return L"[SAFEARRAY*]";
    default:
        return nullptr;
    }
}

std::wstring textUpToZero(const wchar_t* text)
{
    return text != nullptr ? std::wstring(text) : std::wstring();
}

}  // namespace

std::wstring variantToString(const variant& value)
{
    const VARIANT& v = value.get();
    const unsigned tag = v.vt & ~static_cast<unsigned>(VT_BYREF);
    if (const wchar_t* text = fixedText(tag)) {
        return text;
    }
    // By reference, VT_ERROR and the two strings are read through their
    // pointer; other tags print the row's reading of the stored bits. None
    // occurs in what the service hands out.
    switch (tag) {
    case VT_I2:
        return std::to_wstring(v.iVal);
    case VT_I4:
    case VT_INT:
        return std::to_wstring(v.lVal);
    case VT_R4:
        return formatString(L"%f", static_cast<double>(v.fltVal));
    case VT_R8:
        return formatString(L"%f", v.dblVal);
    case VT_CY:
        return std::to_wstring(v.cyVal.int64);
    case VT_BSTR:
        if (value.isByRef()) {
            return textUpToZero(v.pbstrVal != nullptr ? *v.pbstrVal : nullptr);
        }
        return textUpToZero(v.bstrVal);
    case VT_LPWSTR:
        if (value.isByRef()) {
            return textUpToZero(v.byref != nullptr ? *static_cast<const wchar_t* const*>(v.byref) : nullptr);
        }
        return textUpToZero(static_cast<const wchar_t*>(v.byref));
    case VT_ERROR: {
        const SCODE code = value.isByRef() ? (v.pscode != nullptr ? *v.pscode : 0) : v.scode;
        return L"error " + std::to_wstring(code);
    }
    case VT_BOOL:
        return v.boolVal != 0 ? L"true" : L"false";
    case VT_I1:
        return std::to_wstring(static_cast<int>(static_cast<signed char>(v.cVal)));
    case VT_UI1:
        return std::to_wstring(static_cast<unsigned>(v.bVal));
    case VT_UI2:
        return std::to_wstring(v.uiVal);
    case VT_UI4:
    case VT_UINT:
        return std::to_wstring(v.ulVal);
    case VT_I8:
        return std::to_wstring(v.llVal);
    case VT_UI8:
        return std::to_wstring(v.ullVal);
    case VT_HRESULT:
        return std::to_wstring(v.lVal);
    case VT_INT_PTR:
        return std::to_wstring(static_cast<std::int32_t>(static_cast<std::uint32_t>(v.ullVal)));
    case VT_UINT_PTR:
        return std::to_wstring(static_cast<std::uint32_t>(v.ullVal));
    default:
        return L"<unknown> (" + std::to_wstring(tag) + L")";
    }
}
