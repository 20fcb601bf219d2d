#include "sim/MethodCall.h"

#include "Text.h"

namespace sim {

Value MethodCall::input(const std::wstring& name) const
{
    for (const auto& [parameter, value] : in) {
        if (equalsNoCase(parameter, name)) {
            return value;
        }
    }
    return Value();
}

void MethodCall::setOutput(const std::wstring& name, Value value)
{
    for (auto& [parameter, current] : out) {
        if (equalsNoCase(parameter, name)) {
            current = std::move(value);
            return;
        }
    }
    out.emplace_back(name, std::move(value));
}

}  // namespace sim
