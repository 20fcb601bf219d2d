// The adapter's media (link) state as NDIS reports it. A queried value is kept
// as it came, so states other than these three can occur.
#pragma once

#include <cstdint>

enum class MediaConnectState : std::int32_t {
    Unknown = 0,
    Connected = 1,
    Disconnected = 2,
};
