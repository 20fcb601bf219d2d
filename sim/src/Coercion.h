// Internal: the VARIANT shapes of the CIM types as WMI delivers them, and the
// conversion IWbemClassObject::Put applies to a client's VARIANT.
#pragma once

#include "platform.h"
#include "sim/Value.h"

namespace sim {

// The VARTYPE a scalar of `type` (no array flag) is delivered as; VT_EMPTY when unknown.
VARTYPE deliveredVarType(CIMTYPE type);

// The CIM type a stored VARIANT most likely came from, for properties nobody declared.
CIMTYPE cimTypeOf(const Value& value);

// `value` converted to the shape of `type`; WBEM_E_TYPE_MISMATCH when it can't be.
HRESULT coerce(CIMTYPE type, const VARIANT& value, Value& converted);

}  // namespace sim
