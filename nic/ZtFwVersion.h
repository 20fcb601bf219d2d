// The adapter's firmware version; all zero while none is known.
#pragma once

#include <cstdint>
#include <string>

struct ZtFwVersion {
    std::uint8_t major = 0;
    std::uint8_t minor = 0;
    std::uint16_t revision = 0;

    // "major.minor.revision"
    std::wstring toString() const;
    // major << 24 | minor << 16 | revision
    std::uint32_t packed() const
    {
        return static_cast<std::uint32_t>(major) << 24 | static_cast<std::uint32_t>(minor) << 16 | revision;
    }
};
