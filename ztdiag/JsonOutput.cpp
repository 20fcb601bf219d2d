#include "ztdiag/JsonOutput.h"

#include <nlohmann/json.hpp>

#include "nic/AdapterTexts.h"
#include "ztdiag/CommandLine.h"
#include "ztdiag/TextOutput.h"
#include "ztdiag/Utf8.h"

namespace {

// Fields in the order they are added, as the README lists them.
using Json = nlohmann::ordered_json;

Json text(const std::wstring& value)
{
    return toUtf8(value);
}

std::wstring document(const Json& json, int indent)
{
    return fromUtf8(json.dump(indent, ' ', false, Json::error_handler_t::replace)) + L"\n";
}

const char* stateName(const AdapterReport& adapter)
{
    if (adapter.ready) {
        return "ready";
    }
    if (adapter.problemCode == 22) {
        return "disabled";
    }
    return adapter.problemCode == 0 ? "unresponsive" : "problem";
}

const char* healthName(TemperatureHealth health)
{
    switch (health) {
    case TemperatureHealth::Ok:
        return "ok";
    case TemperatureHealth::High:
        return "high";
    case TemperatureHealth::Unknown:
        break;
    }
    return "unknown";
}

Json temperature(const ZtThermalInfo& thermal, std::uint8_t validFlag, double value)
{
    return (thermal.flags & validFlag) != 0 ? Json(value) : Json(nullptr);
}

// Null for what isn't known: the link (isLinkKnown), the speed without a link or unread.
void addLink(Json& json, MediaConnectState media, std::uint64_t linkSpeed)
{
    const bool connected = media == MediaConnectState::Connected;
    json["link"] = !isLinkKnown(media) ? Json(nullptr) : connected ? "connected" : "disconnected";
    const bool speedKnown = connected && linkSpeed != 0;
    json["speed"] = speedKnown ? Json(linkSpeed) : Json(nullptr);
    json["speedText"] = speedKnown ? text(linkSpeedText(linkSpeed)) : Json(nullptr);
}

Json error(int code, const std::wstring& message)
{
    Json json;
    json["code"] = code;
    json["message"] = text(message);
    return json;
}

const char* eventName(WatchEvent::Kind kind)
{
    switch (kind) {
    case WatchEvent::State:
        return "state";
    case WatchEvent::Connected:
        return "connected";
    case WatchEvent::Disconnected:
        return "disconnected";
    case WatchEvent::Speed:
        return "speed";
    case WatchEvent::Removed:
        return "removed";
    case WatchEvent::Arrived:
        return "arrived";
    case WatchEvent::Added:
        return "added";
    case WatchEvent::Health:
        return "health";
    }
    return "?";
}

}  // namespace

std::wstring listingJson(const std::vector<AdapterReport>& adapters)
{
    Json list = Json::array();
    for (const AdapterReport& adapter : adapters) {
        Json json;
        json["name"] = text(adapter.name);
        json["connectionName"]
            = adapter.connectionName.empty() ? Json(nullptr) : text(adapter.connectionName);
        json["interfaceIndex"] = adapter.interfaceIndex != 0 ? Json(adapter.interfaceIndex) : Json(nullptr);
        json["macAddress"] = adapter.macAddress.empty() ? Json(nullptr) : text(adapter.macAddress);
        json["state"] = stateName(adapter);
        json["stateText"] = text(adapterStateText(adapter));
        json["problemCode"] = adapter.problemCode;
        addLink(json, adapter.media, adapter.linkSpeed);
        const TemperatureHealth health = temperatureHealth(adapter.thermal);
        json["health"] = healthName(health);
        json["healthText"] = text(temperatureHealthText(health));
        json["phyTemperature"]
            = temperature(adapter.thermal, ZtThermalInfo::phyValid, adapter.thermal.phyTemperature);
        json["macTemperature"]
            = temperature(adapter.thermal, ZtThermalInfo::macValid, adapter.thermal.macTemperature);
        json["firmware"] = adapter.firmware.major != 0 ? text(adapter.firmware.toString()) : Json(nullptr);
        json["cableTest"] = adapter.ready && adapter.cableTestSupported;
        list.push_back(std::move(json));
    }
    Json json;
    json["adapters"] = std::move(list);
    return document(json, 2);
}

std::wstring cableTestJson(const CableTestReport& report)
{
    Json json;
    json["adapter"] = text(report.adapter);
    json["good"] = !hasFaultyPair(report.pairs);
    Json pairs = Json::array();
    for (const ZtPairInfo& pair : report.pairs) {
        Json entry;
        const bool good = pair.status == ZtPairInfo::good;
        const std::wstring partner = pair.partnerName();
        entry["pair"] = text(pair.pairName());
        entry["status"] = pair.status;
        entry["verdict"] = text(pair.statusString());
        entry["distance"] = good ? Json(nullptr) : Json(pair.distance);
        entry["partner"] = partner.empty() ? Json(nullptr) : text(partner);
        entry["text"] = text(pairResultText(pair));
        pairs.push_back(std::move(entry));
    }
    json["pairs"] = std::move(pairs);
    addLink(json, report.media, report.linkSpeed);
    const bool known
        = report.media == MediaConnectState::Connected && report.linkSpeed != 0 && report.cableLength != 0;
    json["cableLength"] = known ? Json(report.cableLength) : Json(nullptr);
    // The category asked for wherever it applies, a length or not.
    json["category"] = report.corrected ? text(categoryName(report.category)) : Json(nullptr);
    return document(json, 2);
}

std::wstring watchJson(const WatchEvent& event)
{
    Json json;
    json["time"] = text(timestampText(event.time));
    json["adapter"] = text(event.adapter);
    json["event"] = eventName(event.kind);
    switch (event.kind) {
    case WatchEvent::State:
    case WatchEvent::Added:
        json["problemCode"] = event.problemCode;
        addLink(json, event.media, event.linkSpeed);
        json["health"] = healthName(event.health);
        json["healthText"] = text(temperatureHealthText(event.health));
        break;
    case WatchEvent::Connected:
    case WatchEvent::Speed:
        addLink(json, MediaConnectState::Connected, event.linkSpeed);
        json["downshift"] = event.downshift;
        json["previousSpeed"] = event.downshift ? Json(event.previousSpeed) : Json(nullptr);
        break;
    case WatchEvent::Disconnected:
        addLink(json, MediaConnectState::Disconnected, 0);
        break;
    case WatchEvent::Health:
        json["health"] = healthName(event.health);
        json["healthText"] = text(temperatureHealthText(event.health));
        break;
    case WatchEvent::Removed:
    case WatchEvent::Arrived:
        break;
    }
    return document(json, -1);
}

std::wstring errorJson(int code, const std::wstring& message)
{
    Json json;
    json["error"] = error(code, message);
    return document(json, -1);
}

std::wstring emptyListingJson(int code, const std::wstring& message)
{
    Json json;
    json["adapters"] = Json::array();
    json["error"] = error(code, message);
    return document(json, -1);
}
