// The PHY and MAC temperatures as the driver last reported them, in degrees
// Celsius; a temperature the driver marks as not valid is +infinity.
#pragma once

#include <cstdint>
#include <limits>

struct ZtThermalInfo {
    static constexpr std::uint8_t phyValid = 4;
    static constexpr std::uint8_t macValid = 8;

    ZtThermalInfo() = default;
    // The raw temperatures are signed hundredths of a degree.
    ZtThermalInfo(std::uint8_t flags, std::int32_t phyRaw, std::int32_t macRaw);

    std::uint8_t flags = 0;
    double phyTemperature = std::numeric_limits<double>::infinity();
    double macTemperature = std::numeric_limits<double>::infinity();
};
