#include "sim/Value.h"

#include <new>
#include <stdexcept>

#include "Coercion.h"

namespace sim {

struct Value::Impl {
    CIMTYPE type = CIM_EMPTY;
    VARIANT variant{};
    std::vector<Object> objects;
    bool objectArray = false;

    Impl() { VariantInit(&variant); }
    ~Impl() { VariantClear(&variant); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
};

namespace {

// Takes a freshly filled VARIANT; a null BSTR or array from a failed allocation is an exception.
std::shared_ptr<Value::Impl> holding(CIMTYPE type, const VARIANT& filled)
{
    auto impl = std::make_shared<Value::Impl>();
    impl->type = type;
    impl->variant = filled;
    if ((filled.vt == VT_BSTR && filled.bstrVal == nullptr)
        || ((filled.vt & VT_ARRAY) != 0 && filled.parray == nullptr)) {
        throw std::bad_alloc();
    }
    return impl;
}

VARIANT typed(VARTYPE vt)
{
    VARIANT v{};
    VariantInit(&v);
    v.vt = vt;
    return v;
}

BSTR allocString(const std::wstring& text)
{
    return SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
}

}  // namespace

Value::Value()
    : impl_([] {
          auto impl = std::make_shared<Impl>();
          impl->variant.vt = VT_NULL;
          return impl;
      }())
{
}

Value::Value(std::shared_ptr<const Impl> impl) : impl_(std::move(impl))
{
}

Value Value::string(const std::wstring& text)
{
    VARIANT v = typed(VT_BSTR);
    v.bstrVal = allocString(text);
    return Value(holding(CIM_STRING, v));
}

Value Value::boolean(bool value)
{
    VARIANT v = typed(VT_BOOL);
    v.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return Value(holding(CIM_BOOLEAN, v));
}

Value Value::sint8(std::int8_t value)
{
    VARIANT v = typed(VT_I2);
    // Sign-extended, as WMI widens sint8 (spelled out: the linter distrusts signed char).
    const auto bits = static_cast<std::uint8_t>(value);
    v.iVal = static_cast<SHORT>(bits < 0x80 ? bits : bits - 0x100);
    return Value(holding(CIM_SINT8, v));
}

Value Value::uint8(std::uint8_t value)
{
    VARIANT v = typed(VT_UI1);
    v.bVal = value;
    return Value(holding(CIM_UINT8, v));
}

Value Value::sint16(std::int16_t value)
{
    VARIANT v = typed(VT_I2);
    v.iVal = value;
    return Value(holding(CIM_SINT16, v));
}

Value Value::uint16(std::uint16_t value)
{
    VARIANT v = typed(VT_I4);
    v.lVal = value;
    return Value(holding(CIM_UINT16, v));
}

Value Value::sint32(std::int32_t value)
{
    VARIANT v = typed(VT_I4);
    v.lVal = value;
    return Value(holding(CIM_SINT32, v));
}

Value Value::uint32(std::uint32_t value)
{
    VARIANT v = typed(VT_I4);
    v.lVal = static_cast<LONG>(value);
    return Value(holding(CIM_UINT32, v));
}

Value Value::sint64(std::int64_t value)
{
    VARIANT v = typed(VT_BSTR);
    v.bstrVal = allocString(std::to_wstring(value));
    return Value(holding(CIM_SINT64, v));
}

Value Value::uint64(std::uint64_t value)
{
    VARIANT v = typed(VT_BSTR);
    v.bstrVal = allocString(std::to_wstring(value));
    return Value(holding(CIM_UINT64, v));
}

Value Value::real32(float value)
{
    VARIANT v = typed(VT_R4);
    v.fltVal = value;
    return Value(holding(CIM_REAL32, v));
}

Value Value::real64(double value)
{
    VARIANT v = typed(VT_R8);
    v.dblVal = value;
    return Value(holding(CIM_REAL64, v));
}

Value Value::object(Object object)
{
    auto impl = std::make_shared<Impl>();
    impl->type = CIM_OBJECT;
    impl->variant.vt = VT_NULL;
    impl->objects.push_back(std::move(object));
    return Value(std::move(impl));
}

Value Value::objects(std::vector<Object> objects)
{
    auto impl = std::make_shared<Impl>();
    impl->type = CIM_OBJECT | CIM_FLAG_ARRAY;
    impl->variant.vt = VT_NULL;
    impl->objects = std::move(objects);
    impl->objectArray = true;
    return Value(std::move(impl));
}

Value Value::array(CIMTYPE elementType, const std::vector<Value>& elements)
{
    const VARTYPE vt = deliveredVarType(elementType);
    if (vt == VT_EMPTY || vt == VT_UNKNOWN) {
        throw std::invalid_argument("Value::array: a scalar CIM type other than CIM_OBJECT (use objects())");
    }
    for (const Value& element : elements) {
        if (element.cimType() != elementType) {
            throw std::invalid_argument("Value::array: an element of another CIM type");
        }
    }
    VARIANT v = typed(static_cast<VARTYPE>(VT_ARRAY | vt));
    v.parray = SafeArrayCreateVector(vt, 0, static_cast<ULONG>(elements.size()));
    auto impl = holding(elementType | CIM_FLAG_ARRAY, v);  // owns the array from here
    void* data = nullptr;
    if (FAILED(SafeArrayAccessData(v.parray, &data))) {
        throw std::bad_alloc();
    }
    for (std::size_t i = 0; i < elements.size(); ++i) {
        const VARIANT& e = elements[i].variant();
        switch (vt) {
        case VT_I2:
            static_cast<SHORT*>(data)[i] = e.iVal;
            break;
        case VT_I4:
            static_cast<LONG*>(data)[i] = e.lVal;
            break;
        case VT_UI1:
            static_cast<BYTE*>(data)[i] = e.bVal;
            break;
        case VT_R4:
            static_cast<FLOAT*>(data)[i] = e.fltVal;
            break;
        case VT_R8:
            static_cast<DOUBLE*>(data)[i] = e.dblVal;
            break;
        case VT_BOOL:
            static_cast<VARIANT_BOOL*>(data)[i] = e.boolVal;
            break;
        default:  // VT_BSTR
            static_cast<BSTR*>(data)[i] = SysAllocStringLen(e.bstrVal, SysStringLen(e.bstrVal));
            break;
        }
    }
    SafeArrayUnaccessData(v.parray);
    return Value(std::move(impl));
}

Value Value::bytes(const std::vector<std::uint8_t>& bytes)
{
    std::vector<Value> elements;
    elements.reserve(bytes.size());
    for (const std::uint8_t b : bytes) {
        elements.push_back(uint8(b));
    }
    return array(CIM_UINT8, elements);
}

Value Value::strings(const std::vector<std::wstring>& strings)
{
    std::vector<Value> elements;
    elements.reserve(strings.size());
    for (const std::wstring& s : strings) {
        elements.push_back(string(s));
    }
    return array(CIM_STRING, elements);
}

Value Value::raw(const VARIANT& value)
{
    auto impl = std::make_shared<Impl>();
    impl->type = CIM_ILLEGAL;
    const HRESULT copied = VariantCopy(&impl->variant, const_cast<VARIANT*>(&value));
    if (copied == E_OUTOFMEMORY) {
        throw std::bad_alloc();
    }
    if (FAILED(copied)) {
        throw std::invalid_argument("Value::raw: VariantCopy failed");
    }
    return Value(std::move(impl));
}

CIMTYPE Value::cimType() const
{
    return impl_->type;
}

bool Value::isNull() const
{
    return !isObject() && !isObjectArray() && impl_->variant.vt == VT_NULL;
}

const VARIANT& Value::variant() const
{
    return impl_->variant;
}

const std::vector<Object>& Value::embedded() const
{
    return impl_->objects;
}

bool Value::isObject() const
{
    return impl_->type == CIM_OBJECT && !impl_->objectArray;
}

bool Value::isObjectArray() const
{
    return impl_->objectArray;
}

std::optional<std::wstring> Value::asString() const
{
    const VARIANT& v = impl_->variant;
    if (v.vt != VT_BSTR) {
        return std::nullopt;
    }
    return std::wstring(v.bstrVal == nullptr ? L"" : v.bstrVal, SysStringLen(v.bstrVal));
}

std::optional<std::int64_t> Value::asInteger() const
{
    const VARIANT& v = impl_->variant;
    if (v.vt != VT_BSTR) {
        return integerOf(v);
    }
    try {
        std::size_t used = 0;
        const auto text = *asString();
        const long long n = std::stoll(text, &used);
        return used == text.size() ? std::optional<std::int64_t>(n) : std::nullopt;
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}

std::optional<bool> Value::asBoolean() const
{
    const VARIANT& v = impl_->variant;
    if (v.vt != VT_BOOL) {
        return std::nullopt;
    }
    return v.boolVal != VARIANT_FALSE;
}

}  // namespace sim
