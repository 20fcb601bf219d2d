// Rows of the console tool's listing: the WMI round trips it costs per
// adapter, counted in the simulated service's call log, against the least
// the adapter model's design needs.
#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "Rows.h"
#include "ServiceCalls.h"
#include "host/HostPlatform.h"
#include "ztdiag/Ztdiag.h"

namespace {

// Per working adapter: its firmware and the driver's control class (2), the
// media state and the link speed, each a full link state query (2 x 4), and
// its temperatures (1). Once per listing: the service thread's connection.
constexpr int perAdapter = 2 + 2 * 4 + 1;
constexpr int perListing = 1;

class SilentConsole : public Console {
public:
    bool out(const std::wstring&) override { return true; }
    void err(const std::wstring&) override { }
    bool isTerminal() const override { return false; }
    void onInterrupt(std::function<void()>) override { }
};

// Devices of this group only, taken out of the listing (not present) when it is done.
constexpr DWORD firstDevice = 100;

// Runs `ztdiag ARGUMENTS` on `count` working adapters, each of its own name;
// -1 round trips if it failed.
ServiceCalls listing(int count, const std::vector<std::wstring>& arguments = {}, double* seconds = nullptr)
{
    sim::AdapterSettings settings = benchAdapter();
    settings.locatorThread = true;
    sim::SimAdapter adapter(settings);
    for (int i = 1; i <= count; ++i) {
        const std::wstring name
            = i == 1 ? adapter.name() : adapter.name() + L" (" + std::to_wstring(i) + L")";
        if (i > 1) {
            adapter.ndis().addAdapter(name, sim::LinkState::at(settings.linkSpeed));
            adapter.driver().addAdapter(name, settings.driver);
        }
        host::addDevice(firstDevice + static_cast<DWORD>(i), GUID_DEVCLASS_NET);
        const SP_DEVINFO_DATA device = host::makeDevice(firstDevice + static_cast<DWORD>(i));
        host::setDeviceStringList(device, DEVPKEY_Device_HardwareIds,
                                  {L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02"});
        host::setDeviceString(device, DEVPKEY_Device_FriendlyName, name);
        host::setDeviceUint32(device, DEVPKEY_Device_ProblemCode, 0);
    }
    adapter.service().clearCalls();
    SilentConsole console;
    const auto start = std::chrono::steady_clock::now();
    const int code = ztdiagMain(arguments, console);
    if (seconds != nullptr) {
        *seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    adapter.service().drain();
    ServiceCalls calls = serviceCalls(adapter.service());
    if (code != 0) {
        calls.roundTrips = -1;
    }
    adapter.stop();
    for (int i = 1; i <= count; ++i) {
        host::addDevice(firstDevice + static_cast<DWORD>(i), GUID_DEVCLASS_NET, false);
    }
    return calls;
}

std::vector<Row> listingRows()
{
    const ServiceCalls one = listing(1);
    const ServiceCalls three = listing(3);
    const int each = (three.roundTrips - one.roundTrips) / 2;
    const int fixed = one.roundTrips - each;
    return {
        {"ztdiag listing: WMI round trips per working adapter", std::to_string(each),
         std::to_string(perAdapter), verdict(one.roundTrips >= 0 && each <= perAdapter),
         "the adapter model's least, shared with the page: firmware, control class, media state and "
         "link speed each a full link state query (4), temperatures. The least of all is 3 (firmware, "
         "temperatures, one link state query), with the 4 classes fetched once a thread"},
        {"ztdiag listing: WMI round trips once per listing", std::to_string(fixed),
         std::to_string(perListing), verdict(one.roundTrips >= 0 && fixed <= perListing),
         "the service thread's connection"},
    };
}

// One scrape of `ztdiag metrics`: the listing's reading, so its least too.
std::vector<Row> metricsRows()
{
    const ServiceCalls one = listing(1, {L"metrics"});
    const ServiceCalls three = listing(3, {L"metrics"});
    const int each = (three.roundTrips - one.roundTrips) / 2;
    std::vector<double> times;
    for (int i = 0; i < 21; ++i) {
        double seconds = 0;
        listing(1, {L"metrics"}, &seconds);
        times.push_back(seconds * 1000);
    }
    std::sort(times.begin(), times.end());
    return {
        {"ztdiag metrics: WMI round trips per working adapter", std::to_string(each),
         std::to_string(perAdapter), verdict(one.roundTrips >= 0 && each <= perAdapter),
         "no event subscription; the listing's reading (see above)"},
        {"ztdiag metrics: one scrape of one adapter on the simulated service",
         fixed(times[times.size() / 2], 3) + " ms median", "", "",
         "the whole command: device list, IP Helper, the service thread and its connection, the text"},
    };
}

const RowGroup listingGroup("35 ztdiag", listingRows);
const RowGroup metricsGroup("36 ztdiag metrics", metricsRows);

}  // namespace
