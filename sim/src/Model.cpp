#include "Model.h"

#include <algorithm>

#include "Coercion.h"
#include "Text.h"

namespace sim {

Slots defaultSlots(const ClassDef& definition)
{
    Slots slots;
    slots.reserve(definition.properties().size());
    for (const PropertyDef& property : definition.properties()) {
        slots.push_back({property.name, property.type, property.defaultValue});
    }
    return slots;
}

Slots parameterSlots(const std::vector<Parameter>& parameters)
{
    Slots slots;
    slots.reserve(parameters.size());
    for (const Parameter& parameter : parameters) {
        slots.push_back({parameter.name, parameter.type, Value()});
    }
    return slots;
}

Slot* findSlot(Slots& slots, const std::wstring& name)
{
    const auto found = std::find_if(slots.begin(), slots.end(),
                                    [&](const Slot& slot) { return equalsNoCase(slot.name, name); });
    return found == slots.end() ? nullptr : &*found;
}

const Slot* findSlot(const Slots& slots, const std::wstring& name)
{
    return findSlot(const_cast<Slots&>(slots), name);
}

void applyValues(Slots& slots, const PropertyValues& values)
{
    for (const auto& [name, value] : values) {
        if (Slot* slot = findSlot(slots, name)) {
            slot->value = value;
        } else {
            slots.push_back({name, cimTypeOf(value), value});
        }
    }
}

}  // namespace sim
