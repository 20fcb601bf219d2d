#include "sim/Value.h"

#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>

namespace sim {

namespace {

struct IntegerType {
    unsigned size;
    VARTYPE vt;
    bool isSigned;
};
constexpr IntegerType integerTypes[] = {
    {1, VT_I1, true},   {1, VT_UI1, false}, {2, VT_I2, true}, {2, VT_UI2, false}, {4, VT_I4, true},
    {4, VT_UI4, false}, {4, VT_INT, true},  {8, VT_I8, true}, {8, VT_UI8, false}, {4, VT_UINT, false},
};

// The integer VARTYPE's size and sign; null for the other types.
const IntegerType* integerType(VARTYPE vt)
{
    for (const IntegerType& type : integerTypes) {
        if (type.vt == vt) {
            return &type;
        }
    }
    return nullptr;
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
    if (integerType(vt) == nullptr) {
        throw std::invalid_argument("sim::Value::integer: not an integer VARIANT type");
    }
    VARIANT v = typed(vt);
    v.ullVal = bits;  // the union's low bytes are each narrower member (little-endian)
    return Value(v);
}

Value Value::array(VARTYPE elementType, const std::vector<std::uint64_t>& words)
{
    const IntegerType* type = integerType(elementType);
    const std::size_t size = type != nullptr ? type->size : 0;
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
    VARIANT copy{};
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
    if (const IntegerType* type = integerType(v.vt)) {
        const unsigned shift = 64U - 8U * type->size;
        const std::uint64_t bits = v.ullVal << shift;  // the value's bytes at the top
        return type->isSigned ? static_cast<std::int64_t>(bits) >> shift
                              : static_cast<std::int64_t>(bits >> shift);
    }
    const auto digits = asString();
    if (!digits || digits->empty() || digits->find_first_not_of(L"0123456789") != std::wstring::npos) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(std::wcstoull(digits->c_str(), nullptr, 10));
}

}  // namespace sim
