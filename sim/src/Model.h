// Internal: a property as an object carries it (name, declared type, value),
// and how objects get their properties from a class and scripted values.
#pragma once

#include <string>
#include <vector>

#include "platform.h"
#include "sim/ClassDef.h"
#include "sim/Value.h"

namespace sim {

struct Slot {
    std::wstring name;
    CIMTYPE type;
    Value value;
};
using Slots = std::vector<Slot>;

// The class's properties with their defaults, in declaration order.
Slots defaultSlots(const ClassDef& definition);
// Parameters as properties, all null.
Slots parameterSlots(const std::vector<Parameter>& parameters);
Slot* findSlot(Slots& slots, const std::wstring& name);
const Slot* findSlot(const Slots& slots, const std::wstring& name);
// Sets each named value; names not present are appended with the value's type.
void applyValues(Slots& slots, const PropertyValues& values);

}  // namespace sim
