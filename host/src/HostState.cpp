#include "HostState.h"

#include "ActivationState.h"
#include "WindowSystem.h"
#include "host/HostPlatform.h"

namespace host {

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
    s.devices.clear();
    s.propertyHook = nullptr;
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
