#include "Coercion.h"

#include <cwctype>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

#include "Codes.h"

namespace sim {

namespace {

bool inRange(std::int64_t value, std::int64_t low, std::int64_t high)
{
    return value >= low && value <= high;
}

// Decimal text as WMI writes 64-bit integers: optional '-', digits only.
std::optional<std::wstring> decimalText(const VARIANT& v, bool allowNegative)
{
    if (v.vt != VT_BSTR || v.bstrVal == nullptr) {
        return std::nullopt;
    }
    const std::wstring text(v.bstrVal, SysStringLen(v.bstrVal));
    std::size_t digits = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool sign = i == 0 && text[i] == L'-' && allowNegative;
        if (!sign && std::iswdigit(static_cast<std::wint_t>(text[i])) == 0) {
            return std::nullopt;
        }
        digits += sign ? 0 : 1;
    }
    if (digits == 0) {
        return std::nullopt;
    }
    try {
        if (allowNegative) {
            (void)std::stoll(text);
        } else {
            (void)std::stoull(text);
        }
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
    return text;
}

HRESULT coerceInteger(CIMTYPE type, const VARIANT& v, Value& out)
{
    constexpr std::int64_t int32Min = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t int32Max = std::numeric_limits<std::int32_t>::max();
    if (type == CIM_SINT64 || type == CIM_UINT64) {
        const bool isSigned = type == CIM_SINT64;
        if (const auto text = decimalText(v, isSigned)) {
            out = isSigned ? Value::sint64(std::stoll(*text)) : Value::uint64(std::stoull(*text));
            return S_OK;
        }
        if (!isSigned && v.vt == VT_UI8) {
            out = Value::uint64(v.ullVal);
            return S_OK;
        }
    }
    const auto n = integerOf(v);
    if (!n) {
        return codes::typeMismatch;
    }
    switch (type) {
    case CIM_SINT8:
        return inRange(*n, -128, 127) ? (out = Value::sint8(static_cast<std::int8_t>(*n)), S_OK)
                                      : codes::typeMismatch;
    case CIM_UINT8:
        return inRange(*n, 0, 255) ? (out = Value::uint8(static_cast<std::uint8_t>(*n)), S_OK)
                                   : codes::typeMismatch;
    case CIM_SINT16:
        return inRange(*n, -32768, 32767) ? (out = Value::sint16(static_cast<std::int16_t>(*n)), S_OK)
                                          : codes::typeMismatch;
    case CIM_CHAR16:  // delivered as VT_I2 holding the code unit
        return inRange(*n, -32768, 65535) ? (out = Value::sint16(static_cast<std::int16_t>(*n)), S_OK)
                                          : codes::typeMismatch;
    case CIM_UINT16:
        return inRange(*n, 0, 65535) ? (out = Value::uint16(static_cast<std::uint16_t>(*n)), S_OK)
                                     : codes::typeMismatch;
    case CIM_SINT32:
        return inRange(*n, int32Min, int32Max) ? (out = Value::sint32(static_cast<std::int32_t>(*n)), S_OK)
                                               : codes::typeMismatch;
    case CIM_UINT32:  // VT_I4 is its own shape, so negative VT_I4 values are bit patterns
        return inRange(*n, int32Min, 0xFFFFFFFFLL)
            ? (out = Value::uint32(static_cast<std::uint32_t>(*n)), S_OK)
            : codes::typeMismatch;
    case CIM_SINT64:
        out = Value::sint64(*n);
        return S_OK;
    case CIM_UINT64:
        return *n >= 0 ? (out = Value::uint64(static_cast<std::uint64_t>(*n)), S_OK) : codes::typeMismatch;
    default:
        return codes::typeMismatch;
    }
}

bool isWbemObject(IUnknown* unknown)
{
    if (unknown == nullptr) {
        return false;
    }
    void* object = nullptr;
    if (FAILED(unknown->QueryInterface(IID_IWbemClassObject, &object)) || object == nullptr) {
        return false;
    }
    static_cast<IWbemClassObject*>(object)->Release();
    return true;
}

}  // namespace

std::optional<std::int64_t> integerOf(const VARIANT& v)
{
    switch (v.vt) {
    case VT_I1:
        return v.cVal;
    case VT_UI1:
        return v.bVal;
    case VT_I2:
        return v.iVal;
    case VT_UI2:
        return v.uiVal;
    case VT_I4:
        return v.lVal;
    case VT_UI4:
        return v.ulVal;
    case VT_INT:
        return v.intVal;
    case VT_UINT:
        return v.uintVal;
    case VT_I8:
        return v.llVal;
    case VT_UI8:
        if (v.ullVal <= static_cast<ULONGLONG>(std::numeric_limits<std::int64_t>::max())) {
            return static_cast<std::int64_t>(v.ullVal);
        }
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

VARTYPE deliveredVarType(CIMTYPE type)
{
    switch (type) {
    case CIM_SINT8:
    case CIM_SINT16:
    case CIM_CHAR16:
        return VT_I2;
    case CIM_UINT8:
        return VT_UI1;
    case CIM_UINT16:
    case CIM_SINT32:
    case CIM_UINT32:
        return VT_I4;
    case CIM_SINT64:
    case CIM_UINT64:
    case CIM_STRING:
    case CIM_DATETIME:
    case CIM_REFERENCE:
        return VT_BSTR;
    case CIM_REAL32:
        return VT_R4;
    case CIM_REAL64:
        return VT_R8;
    case CIM_BOOLEAN:
        return VT_BOOL;
    case CIM_OBJECT:
        return VT_UNKNOWN;
    default:
        return VT_EMPTY;
    }
}

CIMTYPE cimTypeOf(const Value& value)
{
    if (value.cimType() != CIM_ILLEGAL && value.cimType() != CIM_EMPTY) {
        return value.cimType();
    }
    const VARTYPE vt = value.variant().vt;
    const CIMTYPE array = (vt & VT_ARRAY) != 0 ? CIM_FLAG_ARRAY : 0;
    switch (vt & ~VT_ARRAY) {
    case VT_I2:
        return CIM_SINT16 | array;
    case VT_UI1:
        return CIM_UINT8 | array;
    case VT_I4:
        return CIM_SINT32 | array;
    case VT_R4:
        return CIM_REAL32 | array;
    case VT_R8:
        return CIM_REAL64 | array;
    case VT_BOOL:
        return CIM_BOOLEAN | array;
    case VT_UNKNOWN:
        return CIM_OBJECT | array;
    default:
        return CIM_STRING | array;
    }
}

HRESULT coerce(CIMTYPE type, const VARIANT& value, Value& converted)
{
    if (value.vt == VT_NULL || value.vt == VT_EMPTY) {
        converted = Value::null();
        return S_OK;
    }
    if ((type & CIM_FLAG_ARRAY) != 0) {
        const VARTYPE element = deliveredVarType(type & ~CIM_FLAG_ARRAY);
        if (element == VT_EMPTY || value.vt != (VT_ARRAY | element) || value.parray == nullptr
            || SafeArrayGetDim(value.parray) != 1) {
            return codes::typeMismatch;
        }
        converted = Value::raw(value);
        return S_OK;
    }
    switch (type) {
    case CIM_STRING:
    case CIM_DATETIME:
    case CIM_REFERENCE:
        if (value.vt != VT_BSTR) {
            return codes::typeMismatch;
        }
        converted = Value::raw(value);
        return S_OK;
    case CIM_BOOLEAN:
        if (value.vt != VT_BOOL) {
            return codes::typeMismatch;
        }
        converted = Value::boolean(value.boolVal != VARIANT_FALSE);
        return S_OK;
    case CIM_REAL32:
    case CIM_REAL64: {
        double real = 0;
        if (value.vt == VT_R4) {
            real = value.fltVal;
        } else if (value.vt == VT_R8) {
            real = value.dblVal;
        } else if (const auto n = integerOf(value)) {
            real = static_cast<double>(*n);
        } else {
            return codes::typeMismatch;
        }
        converted = type == CIM_REAL32 ? Value::real32(static_cast<float>(real)) : Value::real64(real);
        return S_OK;
    }
    case CIM_OBJECT:
        if ((value.vt != VT_UNKNOWN && value.vt != VT_DISPATCH)
            || !isWbemObject(value.vt == VT_UNKNOWN ? value.punkVal
                                                    : reinterpret_cast<IUnknown*>(value.pdispVal))) {
            return codes::typeMismatch;
        }
        converted = Value::raw(value);
        return S_OK;
    default:
        return coerceInteger(type, value, converted);
    }
}

}  // namespace sim
