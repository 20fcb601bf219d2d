#include "sim/Value.h"

#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>

namespace sim {

namespace {

// The size of an integer VARTYPE, 0 for the others.
std::size_t integerSize(VARTYPE vt)
{
    switch (vt) {
    case VT_I1:
    case VT_UI1:
        return 1;
    case VT_I2:
    case VT_UI2:
        return 2;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
        return 4;
    case VT_I8:
    case VT_UI8:
        return 8;
    default:
        return 0;
    }
}

VARIANT typed(VARTYPE vt)
{
    VARIANT v{};
    v.vt = vt;
    return v;
}

}  // namespace

void copyVariant(VARIANT& target, const VARIANT& source)
{
    VariantInit(&target);
    if (FAILED(VariantCopy(&target, const_cast<VARIANT*>(&source)))) {  // the SDK takes it non-const
        target = source;
    }
}

Value::Value() : Value(typed(VT_NULL))
{
}

Value::Value(const VARIANT& owned)
    : variant_(new VARIANT(owned), [](const VARIANT* v) {
          VariantClear(const_cast<VARIANT*>(v));
          delete v;
      })
{
}

Value Value::null64()
{
    Value value;
    value.wide_ = true;
    return value;
}

Value Value::absent()
{
    Value value(typed(VT_EMPTY));
    value.absent_ = true;
    return value;
}

Value Value::string(const std::wstring& text)
{
    VARIANT v = typed(VT_BSTR);
    v.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (v.bstrVal == nullptr) {
        throw std::bad_alloc();
    }
    return Value(v);
}

Value Value::boolean(bool value)
{
    VARIANT v = typed(VT_BOOL);
    v.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return Value(v);
}

Value Value::uint64(std::uint64_t value)
{
    Value text = string(std::to_wstring(value));
    text.wide_ = true;
    return text;
}

Value Value::integer(VARTYPE vt, std::uint64_t bits)
{
    if (integerSize(vt) == 0) {
        throw std::invalid_argument("sim::Value::integer: not an integer VARIANT type");
    }
    VARIANT v = typed(vt);
    v.ullVal = bits;  // the union's low bytes are each narrower member (little-endian)
    return Value(v);
}

Value Value::array(VARTYPE elementType, const std::vector<std::uint64_t>& words)
{
    const std::size_t size = integerSize(elementType);
    VARIANT v = typed(static_cast<VARTYPE>(VT_ARRAY | elementType));
    v.parray = size == 0 ? nullptr : SafeArrayCreateVector(elementType, 0, static_cast<ULONG>(words.size()));
    if (v.parray == nullptr) {
        throw std::invalid_argument("sim::Value::array: not an integer element type");
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::memcpy(static_cast<unsigned char*>(v.parray->pvData) + i * size, &words[i], size);
    }
    return Value(v);
}

Value Value::object(Object object)
{
    Value value(typed(VT_EMPTY));
    value.object_ = std::make_shared<const Object>(std::move(object));
    return value;
}

Value Value::raw(const VARIANT& value)
{
    VARIANT copy;
    copyVariant(copy, value);
    return Value(copy);
}

std::optional<std::wstring> Value::asString() const
{
    const VARIANT& v = variant();
    if (v.vt != VT_BSTR) {
        return std::nullopt;
    }
    return std::wstring(v.bstrVal == nullptr ? L"" : v.bstrVal, SysStringLen(v.bstrVal));
}

std::optional<std::int64_t> Value::asInteger() const
{
    const VARIANT& v = variant();
    if (const std::size_t size = integerSize(v.vt)) {
        const bool isSigned
            = v.vt == VT_I1 || v.vt == VT_I2 || v.vt == VT_I4 || v.vt == VT_INT || v.vt == VT_I8;
        const unsigned shift = 64U - 8U * static_cast<unsigned>(size);
        const std::uint64_t bits = v.ullVal << shift;  // the value's bytes at the top
        return isSigned ? static_cast<std::int64_t>(bits) >> shift : static_cast<std::int64_t>(bits >> shift);
    }
    const auto digits = asString();
    if (!digits || digits->empty() || digits->find_first_not_of(L"0123456789") != std::wstring::npos) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(std::wcstoull(digits->c_str(), nullptr, 10));
}

}  // namespace sim
