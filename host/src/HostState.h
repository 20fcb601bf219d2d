// Internal: the stand-in platform's process-wide state, one lock for all of it.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform.h"

namespace host {

struct PropertyKey {
    DWORD devInst;
    GUID fmtid;
    DEVPROPID pid;
    bool operator<(const PropertyKey& other) const;
};

struct StoredProperty {
    DEVPROPTYPE type = 0;
    std::vector<BYTE> bytes;
};

struct State {
    std::mutex lock;
    std::vector<std::string> debugOutput;
    std::map<PropertyKey, StoredProperty> properties;
    std::function<void(const DEVPROPKEY&, int)> propertyHook;
    int propertyCalls = 0;
    std::map<DWORD, std::vector<BYTE>> classInstallParams;
    DWORD getParamsError = 0;
    DWORD setParamsError = 0;
    int getParamsCalls = 0;
    int setParamsCalls = 0;
    std::vector<INITCOMMONCONTROLSEX> initCommonControls;
    std::vector<HPROPSHEETPAGE> livePages;
};

State& state();

}  // namespace host
