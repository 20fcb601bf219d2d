// A scripted failure of one of the service's calls: which call, optionally only
// for one class/target or instance, from the Nth matching call, how many times.
#pragma once

#include <string>

#include "platform.h"

namespace sim {

// Calls are named as the COM methods: "CreateInstance" (the locator factory),
// "ConnectServer", "GetObject", "ExecMethod", "ExecNotificationQueryAsync",
// "CancelAsyncCall", "SpawnInstance", "Get", "Put", "GetMethod",
// "BeginEnumeration", "Next", "EndEnumeration", "Clone", "GetNames".
// A failing call answers `result` and hands out nothing.
struct Fault {
    std::string call;
    HRESULT result = E_FAIL;
    std::wstring target;  // empty: any; else equal (ignoring case) to the call's class or target
    std::wstring instance;  // empty: any; else the instance the call is about
    int first = 1;  // the first matching call (1-based) that fails
    int count = -1;  // how many matching calls fail from there; -1: all

    static Fault on(std::string call, HRESULT result);
    Fault forTarget(std::wstring text) const;
    Fault forInstance(std::wstring name) const;
    Fault fromCall(int n) const;
    Fault times(int n) const;
    Fault onlyCall(int n) const { return fromCall(n).times(1); }
};

}  // namespace sim
