// A property value as the simulated WMI service delivers it: built from a CIM
// type in the VARIANT shape real WMI uses, or any raw VARIANT for malformed shapes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform.h"

namespace sim {

struct Object;

// Immutable and cheap to copy; safe to share between threads.
class Value {
public:
    Value();  // null (VT_NULL)
    static Value null() { return {}; }
    static Value string(const std::wstring& text);  // CIM_STRING: VT_BSTR
    static Value boolean(bool value);  // VT_BOOL
    static Value sint8(std::int8_t value);  // VT_I2
    static Value uint8(std::uint8_t value);  // VT_UI1
    static Value sint16(std::int16_t value);  // VT_I2
    static Value uint16(std::uint16_t value);  // VT_I4
    static Value sint32(std::int32_t value);  // VT_I4
    static Value uint32(std::uint32_t value);  // VT_I4 holding the bit pattern
    static Value sint64(std::int64_t value);  // VT_BSTR, decimal text
    static Value uint64(std::uint64_t value);  // VT_BSTR, decimal text
    static Value real32(float value);  // VT_R4
    static Value real64(double value);  // VT_R8
    // CIM_OBJECT: each delivery is a new IWbemClassObject instance (VT_UNKNOWN).
    static Value object(Object object);
    static Value objects(std::vector<Object> objects);  // VT_ARRAY|VT_UNKNOWN
    // VT_ARRAY of the element type's shape; every element must be of that CIM type.
    static Value array(CIMTYPE elementType, const std::vector<Value>& elements);
    static Value bytes(const std::vector<std::uint8_t>& bytes);  // VT_ARRAY|VT_UI1
    static Value strings(const std::vector<std::wstring>& strings);  // VT_ARRAY|VT_BSTR
    // Exactly this VARIANT (copied), whatever the property's type says.
    static Value raw(const VARIANT& value);

    // The CIM type it was built as; CIM_EMPTY for null, CIM_ILLEGAL for raw.
    CIMTYPE cimType() const;
    bool isNull() const;
    // The VARIANT shape; for objects a VT_NULL placeholder (see objects()).
    const VARIANT& variant() const;
    // The embedded objects of object()/objects(), else empty.
    const std::vector<Object>& embedded() const;
    bool isObject() const;
    bool isObjectArray() const;

    // Readers for handlers and tests: nullopt when the shape doesn't fit.
    std::optional<std::wstring> asString() const;  // VT_BSTR
    std::optional<std::int64_t> asInteger() const;  // integer VTs, or decimal VT_BSTR
    std::optional<bool> asBoolean() const;  // VT_BOOL

    struct Impl;  // opaque

private:
    explicit Value(std::shared_ptr<const Impl> impl);
    std::shared_ptr<const Impl> impl_;
};

// Property values by name, in the order given.
using PropertyValues = std::vector<std::pair<std::wstring, Value>>;

// An embedded object: an instance of `className` (its defaults, then `values`).
struct Object {
    std::wstring className;
    PropertyValues values;
};

}  // namespace sim
