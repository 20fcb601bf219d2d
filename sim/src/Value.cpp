#include "sim/Value.h"

#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>

namespace sim {

struct Value::Impl {
    explicit Impl(VARTYPE vt) { variant.vt = vt; }
    ~Impl() { VariantClear(&variant); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    VARIANT variant{};
    std::optional<Object> object;
    bool absent = false;
    bool wide = false;  // 64-bit
};

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

}  // namespace

void copyVariant(VARIANT& target, const VARIANT& source)
{
    VariantInit(&target);
    if (FAILED(VariantCopy(&target, const_cast<VARIANT*>(&source)))) {  // the SDK takes it non-const
        target = source;
    }
}

Value::Value() : impl_(std::make_shared<Impl>(VT_NULL))
{
}

Value::Value(std::shared_ptr<const Impl> impl) : impl_(std::move(impl))
{
}

Value Value::null64()
{
    auto impl = std::make_shared<Impl>(VT_NULL);
    impl->wide = true;
    return Value(std::move(impl));
}

Value Value::absent()
{
    auto impl = std::make_shared<Impl>(VT_EMPTY);
    impl->absent = true;
    return Value(std::move(impl));
}

Value Value::string(const std::wstring& text)
{
    auto impl = std::make_shared<Impl>(VT_EMPTY);
    impl->variant.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (impl->variant.bstrVal == nullptr) {
        throw std::bad_alloc();
    }
    impl->variant.vt = VT_BSTR;
    return Value(std::move(impl));
}

Value Value::boolean(bool value)
{
    auto impl = std::make_shared<Impl>(VT_BOOL);
    impl->variant.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return Value(std::move(impl));
}

Value Value::uint64(std::uint64_t value)
{
    Value text = string(std::to_wstring(value));
    std::const_pointer_cast<Impl>(text.impl_)->wide = true;
    return text;
}

Value Value::integer(VARTYPE vt, std::uint64_t bits)
{
    if (integerSize(vt) == 0) {
        throw std::invalid_argument("sim::Value::integer: not an integer VARIANT type");
    }
    auto impl = std::make_shared<Impl>(vt);
    impl->variant.ullVal = bits;  // the union's low bytes are each narrower member (little-endian)
    return Value(std::move(impl));
}

Value Value::array(VARTYPE elementType, const std::vector<std::uint64_t>& words)
{
    const std::size_t size = integerSize(elementType);
    SAFEARRAY* array
        = size == 0 ? nullptr : SafeArrayCreateVector(elementType, 0, static_cast<ULONG>(words.size()));
    if (array == nullptr) {
        throw std::invalid_argument("sim::Value::array: not an integer element type");
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::memcpy(static_cast<unsigned char*>(array->pvData) + i * size, &words[i], size);
    }
    auto impl = std::make_shared<Impl>(static_cast<VARTYPE>(VT_ARRAY | elementType));
    impl->variant.parray = array;
    return Value(std::move(impl));
}

Value Value::object(Object object)
{
    auto impl = std::make_shared<Impl>(VT_EMPTY);
    impl->object = std::move(object);
    return Value(std::move(impl));
}

Value Value::raw(const VARIANT& value)
{
    auto impl = std::make_shared<Impl>(VT_EMPTY);
    copyVariant(impl->variant, value);
    return Value(std::move(impl));
}

bool Value::isAbsent() const
{
    return impl_->absent;
}

bool Value::is64() const
{
    return impl_->wide;
}

const VARIANT& Value::variant() const
{
    return impl_->variant;
}

const Object* Value::embedded() const
{
    return impl_->object ? &*impl_->object : nullptr;
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
