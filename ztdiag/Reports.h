// What a command's service work hands to the main thread, which prints it:
// plain copies of what the adapter model said, no object of the service.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ndis/MediaConnectState.h"
#include "nic/AdapterTexts.h"
#include "nic/CableCategory.h"
#include "nic/ZtFwVersion.h"
#include "nic/ZtPairInfo.h"
#include "nic/ZtThermalInfo.h"
#include "platform.h"

// What the tool states as the link: connected or disconnected as NDIS said it.
// Any other state (no answer, a value NDIS doesn't define, a device that isn't
// working and so wasn't asked) is unknown. A link speed of 0 is unknown too.
inline bool isLinkKnown(MediaConnectState media)
{
    return media == MediaConnectState::Connected || media == MediaConnectState::Disconnected;
}

// One adapter of the listing.
struct AdapterReport {
    std::wstring name;
    // Its network connection as IP Helper tells it (AdapterSelector.h): each may be unknown.
    std::wstring connectionName;  // empty: unknown
    std::uint32_t interfaceIndex = 0;  // 0: unknown
    std::wstring macAddress;  // "00-1B-21-3A-4F-5C"; empty: unknown
    std::uint32_t problemCode = 0;  // as found by the device manager
    bool ready = false;  // the device works and its driver answers
    MediaConnectState media = MediaConnectState::Unknown;
    std::uint64_t linkSpeed = 0;  // bits per second; the last known while connected; 0: unknown
    ZtThermalInfo thermal;  // read only from a ready adapter
    ZtFwVersion firmware;  // all zero: unknown
    bool cableTestSupported = false;
};

// A cable test that ran.
struct CableTestReport {
    std::wstring adapter;
    std::vector<ZtPairInfo> pairs;
    MediaConnectState media = MediaConnectState::Unknown;  // once the link is back (or not)
    std::uint64_t linkSpeed = 0;
    std::uint32_t cableLength = 0;  // meters; 0: none could be determined
    // Connected at 2.5 or 5 Gbps, where a length is corrected for `category`.
    bool corrected = false;
    CableCategory category = Cat5e;  // as asked for
};

// A moment as the watch tells it: local time and the offset from UTC then.
struct WatchTime {
    SYSTEMTIME local{};
    int utcOffsetMinutes = 0;  // local time minus UTC: +60 for UTC+01:00
    bool offsetKnown = true;  // false: the platform didn't tell the time zone
};

// One line of `watch`.
struct WatchEvent {
    enum Kind {
        State,  // where the adapter stands when the watch begins
        Connected,
        Disconnected,
        Speed,  // connected again, at another speed
        Removed,
        Arrived,  // a watched adapter came back
        Added,  // an adapter that arrived after the watch began, from now on watched; where it stands
        Health,  // the temperature health changed
    };
    Kind kind = State;
    WatchTime time;
    std::wstring adapter;
    MediaConnectState media = MediaConnectState::Unknown;  // State, Added
    std::uint64_t linkSpeed = 0;  // State, Added, Connected, Speed; 0: unknown
    std::uint32_t problemCode = 0;  // State, Added: a device that isn't working is told as such
    TemperatureHealth health = TemperatureHealth::Unknown;  // State, Added, Health
    // Connected, Speed: slower than the adapter's previous connection, at `previousSpeed`.
    bool downshift = false;
    std::uint64_t previousSpeed = 0;
};
