// `ztdiag`: every listed adapter with its connection's names, its state, link,
// health, firmware and whether it can run a cable test.
#include <memory>

#include "nic/ZtNic.h"
#include "wmi/WbemServices.h"
#include "ztdiag/AdapterSelector.h"
#include "ztdiag/Commands.h"
#include "ztdiag/JsonOutput.h"
#include "ztdiag/ServiceThread.h"
#include "ztdiag/TextOutput.h"

namespace {

struct Survey {
    std::vector<AdapterReport> reports;
    bool serviceDown = false;
};

void survey(Survey& survey, const std::vector<ZtAdapterDevice>& adapters,
            const std::vector<AdapterConnection>& connections)
{
    bool serviceNeeded = false;
    for (const ZtAdapterDevice& device : adapters) {
        serviceNeeded = serviceNeeded || device.problemCode == 0;
    }
    if (serviceNeeded && !threadWbemServices().isConnected()) {
        survey.serviceDown = true;
        return;
    }
    for (std::size_t i = 0; i < adapters.size(); ++i) {
        AdapterReport report = surveyAdapter(adapters[i]);
        report.connectionName = connections[i].name;
        report.interfaceIndex = connections[i].interfaceIndex;
        report.macAddress = macAddressText(connections[i].macAddress);
        survey.reports.push_back(std::move(report));
    }
}

}  // namespace

// A device that isn't working isn't asked: its driver has nothing to say, as
// on the page. A reading looks once, so the model subscribes to no event.
AdapterReport surveyAdapter(const ZtAdapterDevice& device)
{
    AdapterReport report;
    report.name = device.name;
    report.problemCode = device.problemCode;
    if (device.problemCode != 0) {
        return report;
    }
    ZtNic nic(device.name, true, NdisEvents::None);
    report.ready = nic.isReady();
    report.media = nic.mediaState();
    report.linkSpeed = nic.linkSpeed();
    report.firmware = nic.fwVersion();
    report.cableTestSupported = nic.isCableDiagSupported();
    if (report.ready) {
        report.thermal = nic.getThermalInfo();
    }
    return report;
}

int listAdapters(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters)
{
    if (adapters.empty()) {
        return context.failEmptyListing(exitNotTestable, L"no ZT adapter found");
    }
    auto result = std::make_shared<Survey>();
    // IP Helper answers from the machine's own tables: no need of the service thread.
    const std::vector<AdapterConnection> connections = findAdapterConnections(adapters);
    ServiceThread thread([result, adapters, connections] { survey(*result, adapters, connections); });
    if (!thread.waitFor(context.limits.service)) {
        return context.timedOut(context.limits.service);
    }
    if (!thread.succeeded()) {
        return context.fail(exitServiceFailed, L"out of memory");
    }
    if (result->serviceDown) {
        return context.fail(exitServiceFailed, L"can't connect to the management service (root\\wmi)");
    }
    const std::wstring text
        = context.command.json ? listingJson(result->reports) : listingText(result->reports);
    return context.console.out(text) ? exitOk : context.outputClosed();
}
