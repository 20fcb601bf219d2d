// A property value as the simulated service keeps it: a VARIANT in the shape
// WMI hands out, embedded objects (new ones in every object made), or absent.
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

// Immutable, cheap to copy, safe to share between threads.
class Value {
public:
    Value();  // VT_NULL
    static Value null() { return {}; }
    // Null, in a property WMI declares 64-bit: a Put of an integer stores its decimal text.
    static Value null64();
    // Leaves the property out of the object (a class default or "__CLASS" included).
    static Value absent();
    static Value string(const std::wstring& text);  // VT_BSTR
    static Value boolean(bool value);  // VT_BOOL
    static Value uint8(std::uint8_t value) { return integer(VT_UI1, value); }
    static Value sint32(std::int32_t value) { return integer(VT_I4, static_cast<std::uint32_t>(value)); }
    static Value uint32(std::uint32_t value) { return integer(VT_I4, value); }  // uint16 too
    static Value uint64(std::uint64_t value);  // VT_BSTR, decimal text; 64-bit as null64()
    // Any integer type (VT_I1 ... VT_UI8, VT_INT, VT_UINT) holding the low bits.
    static Value integer(VARTYPE vt, std::uint64_t bits);
    // VT_ARRAY|elementType (an integer type), each element the low bits of its word.
    static Value array(VARTYPE elementType, const std::vector<std::uint64_t>& words);
    static Value object(Object object);  // VT_UNKNOWN
    // A copy of `value`: VariantCopy, or the bits as they are for what it refuses
    // (their pointers stay with whoever made `value`, who ends it after the objects).
    static Value raw(const VARIANT& value);

    bool isNull() const { return variant().vt == VT_NULL; }
    bool isAbsent() const { return absent_; }
    bool is64() const { return wide_; }
    // The VARIANT; VT_EMPTY for an embedded object and an absent value.
    const VARIANT& variant() const { return *variant_; }
    const Object* embedded() const { return object_.get(); }  // the embedded object, or null

    // Readers for method handlers: nullopt when the shape doesn't fit.
    std::optional<std::wstring> asString() const;  // VT_BSTR
    std::optional<std::int64_t> asInteger() const;  // integer VTs, or decimal VT_BSTR

private:
    explicit Value(const VARIANT& owned);  // takes it over

    std::shared_ptr<const VARIANT> variant_;  // cleared when the last copy goes
    std::shared_ptr<const Object> object_;
    bool absent_ = false;
    bool wide_ = false;  // 64-bit
};

// Property values by name (ignoring case), in order.
using PropertyValues = std::vector<std::pair<std::wstring, Value>>;

// An object: an instance of `className`, with the class's defaults when the
// service defines it, then `properties` (each replacing one of the same name).
struct Object {
    std::wstring className;
    PropertyValues properties;
};

// A copy of `source` into `target` (uninitialised): VariantCopy, or the bits as they are.
void copyVariant(VARIANT& target, const VARIANT& source);

}  // namespace sim
