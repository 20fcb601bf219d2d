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

// A device the stand-in's device manager knows: its setup class, whether it
// is present, and its instance id. Its properties are kept by devInst in
// State::properties.
struct HostDevice {
    DWORD devInst;
    GUID classGuid;
    bool present;
    std::wstring instanceId;
};

class ClassRegistration;  // ole32.cpp

struct State {
    std::mutex lock;
    std::vector<std::string> debugOutput;
    std::map<PropertyKey, StoredProperty> properties;
    std::vector<HostDevice> devices;  // in the order they were added
    // Device information sets made by SetupDiGetClassDevsW and not destroyed:
    // their devices, by the set's token.
    std::map<std::uintptr_t, std::vector<DWORD>> deviceSets;
    std::uintptr_t nextDeviceSet = 1;
    DWORD getClassDevsError = 0;
    DWORD getInstanceIdError = 0;
    std::function<void(const DEVPROPKEY&, int)> propertyHook;
    int propertyCalls = 0;
    std::map<DWORD, std::vector<BYTE>> classInstallParams;
    DWORD getParamsError = 0;
    DWORD setParamsError = 0;
    int getParamsCalls = 0;
    int setParamsCalls = 0;
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
