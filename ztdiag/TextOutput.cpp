#include "ztdiag/TextOutput.h"

#include "nic/AdapterTexts.h"
#include "trace/FormatString.h"
#include "ztdiag/CommandLine.h"

namespace {

void addField(std::wstring& text, const wchar_t* label, const std::wstring& value)
{
    text += formatString(L"%-11s: %s\n", label, value.c_str());
}

std::wstring orUnknown(const std::wstring& value)
{
    return value.empty() ? std::wstring(unknownText) : value;
}

// "54.25°C", or "<unknown>" for a temperature the driver doesn't report.
std::wstring temperature(const ZtThermalInfo& thermal, std::uint8_t validFlag, double value)
{
    return (thermal.flags & validFlag) != 0 ? temperatureText(true, value) : std::wstring(unknownText);
}

std::wstring healthText(const AdapterReport& adapter)
{
    const ZtThermalInfo& thermal = adapter.thermal;
    const TemperatureHealth health = temperatureHealth(thermal);
    std::wstring text = temperatureHealthText(health);
    if (health != TemperatureHealth::Unknown) {
        text += L" (PHY " + temperature(thermal, ZtThermalInfo::phyValid, thermal.phyTemperature) + L", MAC "
            + temperature(thermal, ZtThermalInfo::macValid, thermal.macTemperature) + L")";
    }
    return text;
}

// Why no length can be given, after "Unable to determine cable length"; null
// when the link allows one.
const wchar_t* noLinkReason(const CableTestReport& report)
{
    if (report.media == MediaConnectState::Disconnected) {
        return L": no link";
    }
    if (!isLinkKnown(report.media)) {
        return L": link <unknown>";
    }
    // Whether the length needs the category's correction depends on the speed.
    return report.linkSpeed == 0 ? L": link speed <unknown>" : nullptr;
}

std::wstring cableTestAbility(const AdapterReport& adapter)
{
    if (!adapter.ready) {
        return L"No, the device isn't ready";
    }
    return adapter.cableTestSupported ? L"Yes" : L"No, firmware older than 1.5.66";
}

}  // namespace

std::wstring adapterStateText(const AdapterReport& adapter)
{
    return adapter.ready ? L"Ready" : deviceStatusText(adapter.problemCode, ProblemCodeNumber::Unsigned);
}

std::wstring linkText(MediaConnectState media, std::uint64_t linkSpeed)
{
    if (!isLinkKnown(media)) {
        return unknownText;
    }
    std::wstring text = mediaStateText(media);
    if (media == MediaConnectState::Connected) {
        text += L", ";
        text += linkSpeedText(linkSpeed);
    }
    return text;
}

std::wstring timestampText(const WatchTime& time)
{
    const SYSTEMTIME& t = time.local;
    std::wstring text
        = formatString(L"%04u-%02u-%02uT%02u:%02u:%02u.%03u", static_cast<unsigned>(t.wYear),
                       static_cast<unsigned>(t.wMonth), static_cast<unsigned>(t.wDay),
                       static_cast<unsigned>(t.wHour), static_cast<unsigned>(t.wMinute),
                       static_cast<unsigned>(t.wSecond), static_cast<unsigned>(t.wMilliseconds));
    if (time.offsetKnown) {
        const int offset = time.utcOffsetMinutes < 0 ? -time.utcOffsetMinutes : time.utcOffsetMinutes;
        text += formatString(L"%c%02d:%02d", time.utcOffsetMinutes < 0 ? L'-' : L'+', offset / 60,
                             offset % 60);
    }
    return text;
}

std::wstring listingText(const std::vector<AdapterReport>& adapters)
{
    std::wstring text;
    for (const AdapterReport& adapter : adapters) {
        if (!text.empty()) {
            text += L"\n";
        }
        addField(text, L"Name", adapter.name);
        addField(text, L"Connection", orUnknown(adapter.connectionName));
        addField(text, L"ifIndex",
                 adapter.interfaceIndex != 0 ? std::to_wstring(adapter.interfaceIndex)
                                             : std::wstring(unknownText));
        addField(text, L"MAC address", orUnknown(adapter.macAddress));
        addField(text, L"State", adapterStateText(adapter));
        addField(text, L"Link", linkText(adapter.media, adapter.linkSpeed));
        addField(text, L"Health", healthText(adapter));
        addField(text, L"Firmware", adapter.firmware.major != 0 ? adapter.firmware.toString() : L"<unknown>");
        addField(text, L"Cable test", cableTestAbility(adapter));
    }
    return text;
}

std::wstring cableTestText(const CableTestReport& report)
{
    std::wstring text = L"Cable test on " + report.adapter + L"\n";
    for (const ZtPairInfo& pair : report.pairs) {
        text += pairResultText(pair) + L"\n";
    }
    if (!hasFaultyPair(report.pairs)) {
        text += cableGoodText;
        text += L"\n";
    }
    const wchar_t* const noLink = noLinkReason(report);
    if (noLink != nullptr || report.cableLength == 0) {
        text += cableLengthUnknownText;
        text += noLink != nullptr ? noLink : L"";
        text += L"\n";
    } else if (report.corrected) {
        text += cableLengthText(report.cableLength)
            + formatString(L" (category %s at %s)\n", categoryName(report.category),
                           linkSpeedText(report.linkSpeed));
    } else {
        text += cableLengthText(report.cableLength) + L"\n";
    }
    return text;
}

namespace {

// "Connected, 1.0 Gbps (downshift from 2.5 Gbps)".
std::wstring downshiftText(const WatchEvent& event)
{
    return event.downshift ? formatString(L" (downshift from %s)", linkSpeedText(event.previousSpeed))
                           : std::wstring();
}

// Where an adapter stands: its device state, or its link and temperature health.
std::wstring standingText(const WatchEvent& event)
{
    if (event.problemCode != 0) {
        return deviceStatusText(event.problemCode, ProblemCodeNumber::Unsigned);
    }
    return linkText(event.media, event.linkSpeed) + L"; " + temperatureHealthText(event.health);
}

}  // namespace

std::wstring watchText(const WatchEvent& event)
{
    std::wstring what;
    switch (event.kind) {
    case WatchEvent::State:
        what = standingText(event);
        break;
    case WatchEvent::Added:
        what = L"New adapter: " + standingText(event);
        break;
    case WatchEvent::Connected:
        what = linkText(MediaConnectState::Connected, event.linkSpeed) + downshiftText(event);
        break;
    case WatchEvent::Disconnected:
        what = mediaStateText(MediaConnectState::Disconnected);
        break;
    case WatchEvent::Speed:
        what = std::wstring(L"Speed ") + linkSpeedText(event.linkSpeed) + downshiftText(event);
        break;
    case WatchEvent::Removed:
        what = L"Removed";
        break;
    case WatchEvent::Arrived:
        what = L"Arrived";
        break;
    case WatchEvent::Health:
        what = temperatureHealthText(event.health);
        break;
    }
    return timestampText(event.time) + L"  " + event.adapter + L"  " + what + L"\n";
}
