#include "HostState.h"

#include <cstring>
#include <tuple>

#include "ActivationState.h"
#include "WindowSystem.h"
#include "host/HostPlatform.h"

namespace host {

bool PropertyKey::operator<(const PropertyKey& other) const
{
    const int byGuid = std::memcmp(&fmtid, &other.fmtid, sizeof fmtid);
    return std::tie(devInst, pid) < std::tie(other.devInst, other.pid)
        || (devInst == other.devInst && pid == other.pid && byGuid < 0);
}

State& state()
{
    static State instance;
    return instance;
}

void reset()
{
    destroyAllPropertySheetPages();
    resetCom();
    resetActivation();
    resetWindows();
    resetIcons();
    resetThreads();
    resetFiles();
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.debugOutput.clear();
    s.properties.clear();
    s.devices.clear();
    s.deviceSets.clear();
    s.getClassDevsError = 0;
    s.getInstanceIdError = 0;
    s.propertyHook = nullptr;
    s.propertyCalls = 0;
    s.classInstallParams.clear();
    s.getParamsError = 0;
    s.setParamsError = 0;
    s.getParamsCalls = 0;
    s.setParamsCalls = 0;
    s.netConnections.clear();
    s.getAdaptersAddressesError = 0;
    s.adaptersAddressesHook = nullptr;
    s.adaptersAddressesCalls = 0;
    s.initCommonControls.clear();
    s.createPageError = 0;
    s.timeZone = {};
    s.timeZoneAnswer = TIME_ZONE_ID_UNKNOWN;
}

}  // namespace host
