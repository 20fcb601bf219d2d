#include "nic/AdapterTexts.h"

#include "trace/FormatString.h"

namespace {

constexpr double temperatureLimit = 100.0;
constexpr std::uint32_t problemDisabled = 22;  // CM_PROB_DISABLED

}  // namespace

const wchar_t* const unknownText = L"<unknown>";
const wchar_t* const cableGoodText = L"The overall status of cable is good";
const wchar_t* const cableLengthUnknownText = L"Unable to determine cable length";
const wchar_t* const firmwareUnsupportedText
    = L"Current version of firmware doesn't support cable diagnostics";

const wchar_t* mediaStateText(MediaConnectState state)
{
    return state == MediaConnectState::Connected ? L"Connected" : L"Disconnected";
}

const wchar_t* linkSpeedText(std::uint64_t speed)
{
    static constexpr struct {
        std::uint64_t speed;
        const wchar_t* text;
    } speeds[] = {
        {10000000ULL, L"10.0 Mbps"},  {100000000ULL, L"100.0 Mbps"}, {1000000000ULL, L"1.0 Gbps"},
        {2500000000ULL, L"2.5 Gbps"}, {5000000000ULL, L"5.0 Gbps"},  {10000000000ULL, L"10.0 Gbps"},
    };
    for (const auto& entry : speeds) {
        if (entry.speed == speed) {
            return entry.text;
        }
    }
    return unknownText;
}

std::wstring deviceStatusText(std::uint32_t problemCode, ProblemCodeNumber number)
{
    if (problemCode == problemDisabled) {
        return L"Device is disabled";
    }
    if (problemCode == 0) {
        return L"Unable to query device";
    }
    const std::wstring code = number == ProblemCodeNumber::Unsigned
        ? formatString(L"%u", static_cast<unsigned>(problemCode))
        : formatString(L"%d", static_cast<int>(problemCode));
    return L"Device has a problem (code " + code + L")";
}

TemperatureHealth temperatureHealth(const ZtThermalInfo& thermal)
{
    if ((thermal.flags & (ZtThermalInfo::phyValid | ZtThermalInfo::macValid)) == 0) {
        return TemperatureHealth::Unknown;  // not ready, or the read failed: that isn't "high"
    }
    // An absent temperature is +infinity, so a present one alone decides.
    if (thermal.macTemperature <= temperatureLimit || thermal.phyTemperature <= temperatureLimit) {
        return TemperatureHealth::Ok;
    }
    return TemperatureHealth::High;
}

const wchar_t* temperatureHealthText(TemperatureHealth health)
{
    switch (health) {
    case TemperatureHealth::Ok:
        return L"Temperature is ok";
    case TemperatureHealth::High:
        return L"Temperature is high";
    case TemperatureHealth::Unknown:
        break;
    }
    return L"Temperature <unknown>";
}

std::wstring temperatureText(bool present, double value)
{
    return present ? formatString(L"%g\u00B0C", value) : std::wstring(L"<?>\u00B0C");
}

bool hasFaultyPair(const std::vector<ZtPairInfo>& pairs)
{
    for (const ZtPairInfo& pair : pairs) {
        if (pair.status != ZtPairInfo::good) {
            return true;
        }
    }
    return false;
}

std::wstring pairResultText(const ZtPairInfo& pair)
{
    const std::wstring name = pair.pairName();
    const std::wstring status = pair.statusString();
    std::wstring line = formatString(L"Pair %s: %s", name.c_str(), status.c_str());
    if (pair.status != ZtPairInfo::good) {
        line += formatString(L", distance %d meters", static_cast<int>(pair.distance));
    }
    return line;
}

std::wstring cableLengthText(std::uint32_t meters)
{
    return formatString(L"Approx cable length: %d meters", static_cast<int>(meters));
}
