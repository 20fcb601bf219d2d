#include "ztdiag/MetricsOutput.h"

#include <functional>

#include "nic/AdapterTexts.h"
#include "ztdiag/MetricsText.h"
#include "ztdiag/TextOutput.h"

namespace {

using Labels = MetricsText::Labels;

// What names an adapter on every series: its device name, its connection name
// and the device manager's instance id.
Labels identity(const AdapterMetrics& adapter)
{
    return {{"adapter", adapter.report.name},
            {"connection", adapter.connectionName},
            {"instance_id", adapter.instanceId}};
}

Labels with(Labels labels, const char* name, const std::wstring& value)
{
    labels.emplace_back(name, value);
    return labels;
}

// A family with a sample for each adapter that has a value: `value` returns
// false for an adapter whose value isn't known.
void addFamily(MetricsText& text, const std::vector<AdapterMetrics>& adapters, const char* name,
               const char* type, const char* help,
               const std::function<bool(const AdapterMetrics&, double&)>& value)
{
    text.family(name, type, help);
    for (const AdapterMetrics& adapter : adapters) {
        double sample = 0;
        if (value(adapter, sample)) {
            text.sample(identity(adapter), sample);
        }
    }
}

bool working(const AdapterMetrics& adapter)
{
    return adapter.report.problemCode == 0 && adapter.scrapeSucceeded;
}

bool linkKnown(const AdapterMetrics& adapter)
{
    return working(adapter) && isLinkKnown(adapter.report.media);
}

bool connected(const AdapterMetrics& adapter)
{
    return linkKnown(adapter) && adapter.report.media == MediaConnectState::Connected;
}

const wchar_t* healthState(TemperatureHealth health)
{
    switch (health) {
    case TemperatureHealth::Ok:
        return L"ok";
    case TemperatureHealth::High:
        return L"high";
    case TemperatureHealth::Unknown:
        break;
    }
    return L"unknown";
}

void addInfo(MetricsText& text, const std::vector<AdapterMetrics>& adapters)
{
    text.family("ztdiag_adapter_info", "gauge",
                "A ZT adapter: its firmware version (empty: unknown), its most specific hardware id and its "
                "state as the listing words it.");
    for (const AdapterMetrics& adapter : adapters) {
        const AdapterReport& report = adapter.report;
        const bool firmwareKnown = report.firmware.packed() != 0;
        Labels labels = with(identity(adapter), "firmware", firmwareKnown ? report.firmware.toString() : L"");
        labels = with(labels, "hardware_id", adapter.hardwareId);
        labels = with(labels, "driver_state", adapterStateText(report));
        text.sample(labels, 1);
    }
}

void addHealth(MetricsText& text, const std::vector<AdapterMetrics>& adapters)
{
    text.family("ztdiag_temperature_health", "gauge",
                "The temperature health as the diagnostics page shows it: 1 for the adapter's state.");
    const TemperatureHealth states[]
        = {TemperatureHealth::Ok, TemperatureHealth::High, TemperatureHealth::Unknown};
    for (const AdapterMetrics& adapter : adapters) {
        if (!working(adapter)) {
            continue;
        }
        const TemperatureHealth health = temperatureHealth(adapter.report.thermal);
        for (const TemperatureHealth state : states) {
            text.sample(with(identity(adapter), "state", healthState(state)), state == health ? 1 : 0);
        }
    }
}

void addScrape(MetricsText& text, const std::vector<AdapterMetrics>& adapters)
{
    addFamily(text, adapters, "ztdiag_scrape_duration_seconds", "gauge", "How long reading the adapter took.",
              [](const AdapterMetrics& a, double& v) {
                  v = a.scrapeSeconds;
                  return true;
              });
    addFamily(text, adapters, "ztdiag_scrape_success", "gauge",
              "1 if the management service answered for the adapter, 0 if a read failed.",
              [](const AdapterMetrics& a, double& v) {
                  v = a.scrapeSucceeded ? 1 : 0;
                  return true;
              });
}

void addWatchCounters(MetricsText& text, const std::vector<AdapterMetrics>& all)
{
    std::vector<AdapterMetrics> watched;
    for (const AdapterMetrics& adapter : all) {
        if (adapter.watched) {
            watched.push_back(adapter);
        }
    }
    if (watched.empty()) {
        return;
    }
    addFamily(text, watched, "ztdiag_link_changes_total", "counter",
              "Link changes (connected, disconnected, another speed) since the watch began.",
              [](const AdapterMetrics& a, double& v) {
                  v = static_cast<double>(a.linkChanges);
                  return true;
              });
    addFamily(text, watched, "ztdiag_link_downshifts_total", "counter",
              "Connections at a lower speed than the adapter's previous one since the watch began.",
              [](const AdapterMetrics& a, double& v) {
                  v = static_cast<double>(a.downshifts);
                  return true;
              });
    addFamily(text, watched, "ztdiag_adapter_removals_total", "counter",
              "Removals of the adapter since the watch began.", [](const AdapterMetrics& a, double& v) {
                  v = static_cast<double>(a.removals);
                  return true;
              });
    addFamily(text, watched, "ztdiag_link_last_change_timestamp_seconds", "gauge",
              "When the link last changed, in seconds since 1970 (left out until a change is seen).",
              [](const AdapterMetrics& a, double& v) {
                  v = a.lastChangeSeconds;
                  return a.lastChangeSeconds != 0;
              });
}

}  // namespace

std::string metricsText(const std::vector<AdapterMetrics>& adapters)
{
    MetricsText text;
    addInfo(text, adapters);
    addFamily(text, adapters, "ztdiag_adapter_problem_code", "gauge",
              "The device's problem code as Device Manager shows it; 0 when it works.",
              [](const AdapterMetrics& a, double& v) {
                  v = a.report.problemCode;
                  return true;
              });
    addFamily(text, adapters, "ztdiag_link_up", "gauge", "1 if the link is connected, 0 if not.",
              [](const AdapterMetrics& a, double& v) {
                  v = connected(a) ? 1 : 0;
                  return linkKnown(a);
              });
    addFamily(text, adapters, "ztdiag_link_speed_bytes", "gauge",
              "The link's speed in bytes per second, while connected.",
              [](const AdapterMetrics& a, double& v) {
                  v = static_cast<double>(a.report.linkSpeed) / 8;
                  return connected(a) && a.report.linkSpeed != 0;
              });
    addFamily(text, adapters, "ztdiag_phy_temperature_celsius", "gauge", "The PHY's temperature.",
              [](const AdapterMetrics& a, double& v) {
                  v = a.report.thermal.phyTemperature;
                  return working(a) && (a.report.thermal.flags & ZtThermalInfo::phyValid) != 0;
              });
    addFamily(text, adapters, "ztdiag_mac_temperature_celsius", "gauge", "The MAC's temperature.",
              [](const AdapterMetrics& a, double& v) {
                  v = a.report.thermal.macTemperature;
                  return working(a) && (a.report.thermal.flags & ZtThermalInfo::macValid) != 0;
              });
    addHealth(text, adapters);
    addFamily(text, adapters, "ztdiag_cable_test_supported", "gauge",
              "1 if the adapter's firmware can run the cable test, 0 if it is too old.",
              [](const AdapterMetrics& a, double& v) {
                  v = a.report.cableTestSupported ? 1 : 0;
                  return working(a) && a.report.firmware.packed() != 0;
              });
    addScrape(text, adapters);
    addWatchCounters(text, adapters);
    return text.text();
}
