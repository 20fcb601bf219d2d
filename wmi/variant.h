// Owner of one VARIANT: the value is ended with VariantClear when the owner
// ends. Movable, not copyable; belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "platform.h"

class variant {
public:
    variant() noexcept;
    variant(variant&& other) noexcept;
    variant& operator=(variant&& other) noexcept;
    variant(const variant&) = delete;
    variant& operator=(const variant&) = delete;
    ~variant();

    // Ends the value: VariantClear's result, or 0 for the two by-reference
    // interface tags, which are refused and left as they are.
    HRESULT clear();

    VARTYPE vartype() const { return v_.vt; }
    bool isByRef() const { return (v_.vt & VT_BYREF) != 0; }
    bool isEmpty() const { return v_.vt == VT_EMPTY || v_.vt == VT_NULL; }

    // Holds `p` as VT_UNKNOWN with a reference of its own; `p` is not null.
    variant& operator=(IUnknown* p);
    variant& operator=(std::uint8_t value);
    variant& operator=(std::int32_t value);

    const VARIANT& get() const { return v_; }
    // Ends the value and hands out the VARIANT for a call that fills it.
    VARIANT* put();

private:
    void prepareAssign_();

    VARIANT v_;
};

// The text of a value, for trace lines.
std::wstring variantToString(const variant& value);
