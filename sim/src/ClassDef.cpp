#include "sim/ClassDef.h"

#include <algorithm>
#include <stdexcept>

#include "Text.h"

namespace sim {

ClassDef::ClassDef(std::wstring name) : name_(std::move(name))
{
    if (name_.empty() || name_.rfind(L"__", 0) == 0) {
        throw std::invalid_argument("ClassDef: a class needs a name not starting with \"__\"");
    }
}

ClassDef& ClassDef::property(std::wstring name, CIMTYPE type, Value defaultValue)
{
    if (name.empty() || name.rfind(L"__", 0) == 0 || findProperty(name) != nullptr) {
        throw std::invalid_argument("ClassDef::property: empty, system or duplicate name");
    }
    properties_.push_back({std::move(name), type, std::move(defaultValue)});
    return *this;
}

ClassDef& ClassDef::method(std::wstring name, std::vector<Parameter> in, std::vector<Parameter> out)
{
    if (name.empty() || findMethod(name) != nullptr) {
        throw std::invalid_argument("ClassDef::method: empty or duplicate name");
    }
    methods_.push_back({std::move(name), std::move(in), std::move(out)});
    return *this;
}

const PropertyDef* ClassDef::findProperty(const std::wstring& name) const
{
    const auto found = std::find_if(properties_.begin(), properties_.end(),
                                    [&](const PropertyDef& p) { return equalsNoCase(p.name, name); });
    return found == properties_.end() ? nullptr : &*found;
}

const MethodDef* ClassDef::findMethod(const std::wstring& name) const
{
    const auto found = std::find_if(methods_.begin(), methods_.end(),
                                    [&](const MethodDef& m) { return equalsNoCase(m.name, name); });
    return found == methods_.end() ? nullptr : &*found;
}

}  // namespace sim
