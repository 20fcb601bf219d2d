// `ztdiag metrics`: one scrape of the adapters for the Prometheus textfile
// collectors, to the output stream or into a file replaced at once. A scrape
// only reads: it never runs a cable test, which takes the link down.
#include <chrono>
#include <memory>

#include "trace/Trace.h"
#include "wmi/WbemServices.h"
#include "ztdiag/AdapterSelector.h"
#include "ztdiag/AtomicFile.h"
#include "ztdiag/Commands.h"
#include "ztdiag/MetricsOutput.h"
#include "ztdiag/ServiceThread.h"
#include "ztdiag/Utf8.h"

namespace {

struct Scrape {
    std::vector<AdapterMetrics> adapters;
    bool serviceDown = false;
};

// On the service thread.
void scrape(Scrape& result, const std::vector<ZtAdapterDevice>& devices,
            const std::vector<AdapterConnection>& connections)
{
    bool serviceNeeded = false;
    for (const ZtAdapterDevice& device : devices) {
        serviceNeeded = serviceNeeded || device.problemCode == 0;
    }
    result.serviceDown = serviceNeeded && !threadWbemServices().isConnected();
    for (std::size_t i = 0; i < devices.size(); ++i) {
        result.adapters.push_back(result.serviceDown ? unscrapedAdapter(devices[i], connections[i])
                                                     : scrapeAdapter(devices[i], connections[i]));
    }
}

}  // namespace

AdapterMetrics unscrapedAdapter(const ZtAdapterDevice& device, const AdapterConnection& connection)
{
    AdapterMetrics adapter;
    adapter.report.name = device.name;
    adapter.report.problemCode = device.problemCode;
    adapter.instanceId = device.instanceId;
    adapter.hardwareId = device.hardwareId;
    adapter.connectionName = connection.name;
    adapter.scrapeSucceeded = device.problemCode != 0;
    return adapter;
}

AdapterMetrics scrapeAdapter(const ZtAdapterDevice& device, const AdapterConnection& connection)
{
    AdapterMetrics adapter = unscrapedAdapter(device, connection);
    if (device.problemCode == 0) {
        const auto start = std::chrono::steady_clock::now();
        adapter.report = surveyAdapter(device);
        adapter.scrapeSeconds
            = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        adapter.scrapeSucceeded = adapter.report.ready && isLinkKnown(adapter.report.media);
    }
    return adapter;
}

int writeMetricsText(const CommandContext& context, const std::wstring& path, const std::string& text)
{
    if (path.empty()) {
        return context.console.out(fromUtf8(text)) ? exitOk : context.outputClosed();
    }
    FileReplaceError error;
    if (!replaceFileContent(path, text, error)) {
        ZT_TRACE(0, "[!] replaceFileContent(%S) failed at %S, code %u", path.c_str(), error.step,
                 static_cast<unsigned>(error.code));
        return context.fail(exitCantWrite,
                            L"can't write '" + path + L"' (" + error.step + L": error "
                                + std::to_wstring(error.code) + L"); the old file is left as it was");
    }
    return exitOk;
}

namespace {

std::wstring failedNames(const std::vector<AdapterMetrics>& adapters)
{
    std::wstring names;
    for (const AdapterMetrics& adapter : adapters) {
        if (!adapter.scrapeSucceeded) {
            names += (names.empty() ? L"'" : L", '") + adapter.report.name + L"'";
        }
    }
    return names;
}

}  // namespace

int writeMetrics(const CommandContext& context, const std::vector<ZtAdapterDevice>& devices)
{
    auto result = std::make_shared<Scrape>();
    // IP Helper answers from the machine's own tables: no need of the service thread.
    const std::vector<AdapterConnection> connections = findAdapterConnections(devices);
    ServiceThread thread([result, devices, connections] { scrape(*result, devices, connections); });
    std::vector<AdapterMetrics> adapters;
    const bool answered = thread.waitFor(context.limits.service) && thread.succeeded();
    if (answered) {
        adapters = result->adapters;
    } else {
        // The file still says what is known, and that the service didn't answer.
        for (std::size_t i = 0; i < devices.size(); ++i) {
            adapters.push_back(unscrapedAdapter(devices[i], connections[i]));
        }
    }
    const int written = writeMetricsText(context, context.command.metricsFile, metricsText(adapters));
    if (written != exitOk) {
        return written;
    }
    if (!answered) {
        return thread.waitFor(std::chrono::milliseconds(0))
            ? context.fail(exitServiceFailed, L"out of memory")
            : context.timedOut(context.limits.service);
    }
    if (result->serviceDown) {
        return context.fail(exitServiceFailed,
                            L"can't connect to the management service (root\\wmi); "
                            L"the metrics mark every working adapter's scrape as failed");
    }
    const std::wstring failed = failedNames(adapters);
    if (!failed.empty()) {
        return context.fail(exitServiceFailed,
                            L"the management service didn't answer for " + failed
                                + L"; the metrics mark the scrape as failed");
    }
    if (devices.empty()) {
        return context.fail(exitNotTestable, L"no ZT adapter found");
    }
    return exitOk;
}
