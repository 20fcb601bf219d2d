// Internal: the VARIANT shapes of the CIM types as WMI delivers them, and the
// conversion IWbemClassObject::Put applies to a client's VARIANT.
#pragma once

#include <cstdint>
#include <optional>

#include "platform.h"
#include "sim/Value.h"

namespace sim {

// The VARTYPE a scalar of `type` (no array flag) is delivered as; VT_EMPTY when unknown.
VARTYPE deliveredVarType(CIMTYPE type);

// The CIM type a stored VARIANT most likely came from, for properties nobody declared.
CIMTYPE cimTypeOf(const Value& value);

// Integer content of the integer VARTYPEs; UI8 above INT64_MAX doesn't fit.
std::optional<std::int64_t> integerOf(const VARIANT& v);

// `value` converted to the shape of `type`; WBEM_E_TYPE_MISMATCH when it can't be.
HRESULT coerce(CIMTYPE type, const VARIANT& value, Value& converted);

}  // namespace sim
