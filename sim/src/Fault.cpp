#include "sim/Fault.h"

#include "Text.h"

namespace sim {

Fault Fault::on(std::string call, HRESULT result)
{
    Fault fault;
    fault.call = std::move(call);
    fault.result = result;
    return fault;
}

Fault Fault::forTarget(std::wstring text) const
{
    Fault copy = *this;
    copy.target = std::move(text);
    return copy;
}

Fault Fault::forInstance(std::wstring name) const
{
    Fault copy = *this;
    copy.instance = std::move(name);
    return copy;
}

Fault Fault::fromCall(int n) const
{
    Fault copy = *this;
    copy.first = n;
    return copy;
}

Fault Fault::times(int n) const
{
    Fault copy = *this;
    copy.count = n;
    return copy;
}

}  // namespace sim
