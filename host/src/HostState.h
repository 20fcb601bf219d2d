// Internal: the stand-in platform's process-wide state, one lock for all of it.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/HostPlatform.h"
#include "platform.h"
#include "sim/devices/DeviceTable.h"

namespace host {

class ClassRegistration;  // ole32.cpp

struct State {
    std::mutex lock;
    std::vector<std::string> debugOutput;
    sim::DeviceTable devices;  // SetupAPI's devices, their sets and class install parameters
    std::function<void(const DEVPROPKEY&, int)> propertyHook;
    std::vector<NetConnection> netConnections;
    ULONG getAdaptersAddressesError = 0;
    std::function<void(int)> adaptersAddressesHook;
    int adaptersAddressesCalls = 0;
    std::vector<INITCOMMONCONTROLSEX> initCommonControls;
    DWORD createPageError = 0;
    TIME_ZONE_INFORMATION timeZone{};
    DWORD timeZoneAnswer = TIME_ZONE_ID_UNKNOWN;
    std::vector<HPROPSHEETPAGE> livePages;

    // COM runtime. Each thread's apartment lives in the thread; bumping
    // comGeneration makes every thread's apartment stale, i.e. uninitialised.
    unsigned comGeneration = 0;
    HRESULT coInitializeExFailure = S_OK;
    HRESULT coSetProxyBlanketFailure = S_OK;
    bool securityInitialized = false;
    // Shared so that a copy can be called outside the lock.
    std::shared_ptr<const std::function<void()>> coUninitializeHook;
    // By cookie; shared so that a caller keeps a revoked class object alive.
    std::map<DWORD, std::shared_ptr<ClassRegistration>> classObjects;
    DWORD nextCookie = 1;
    int coInitializeExCalls = 0;
    int coUninitializeCalls = 0;
    int coCreateInstanceCalls = 0;
    int coSetProxyBlanketCalls = 0;

    // Automation memory: facts about the heap, so reset() leaves them alone.
    std::atomic<long> liveBstrs{0};
    std::atomic<long> liveSafeArrays{0};
};

State& state();

// Clears the COM runtime's part of the state; releases the class objects
// and the hook after the lock is dropped, as their code may call back in.
void resetCom();

}  // namespace host
