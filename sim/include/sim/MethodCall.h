// What a scripted method handler sees of an ExecMethod call, and the out
// parameters it fills ("ReturnValue" among them when the method declares it).
#pragma once

#include <functional>
#include <string>

#include "platform.h"
#include "sim/Value.h"

namespace sim {

struct MethodCall {
    std::wstring className;
    std::wstring instanceName;  // empty for a call on the class path
    std::wstring method;
    PropertyValues in;  // every declared in-parameter, VT_NULL when not given
    PropertyValues out;  // to fill; names not declared as out-parameters are added too

    // The in-parameter `name` (ignoring case); null when absent.
    Value input(const std::wstring& name) const;
    void setOutput(const std::wstring& name, Value value);
};

// Answers the call; a failure is ExecMethod's result, with no out object.
using MethodHandler = std::function<HRESULT(MethodCall& call)>;

}  // namespace sim
