// Rows of the page: the WMI round trips of what the user does on an open page,
// and whether the temperature timer's ticks leave anything behind on the heap.
#include <malloc.h>
#include <string>
#include <vector>

#include "../tests/PageHarness.h"
#include "Allocations.h"
#include "Rows.h"
#include "SimAdapter.h"
#include "host/HostPlatform.h"
#include "resources/resource.h"
#include "wmi/WbemServices.h"

namespace {

const wchar_t* const listedId = L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02";

Row tripsRow(const std::string& what, const SimAdapter::Calls& calls, int least, const std::string& why)
{
    std::string measured
        = std::to_string(calls.roundTrips) + (calls.roundTrips == 1 ? " round trip" : " round trips");
    const bool met = calls.roundTrips <= least;
    std::string note = why;
    if (!met) {
        note += "; surplus " + std::to_string(calls.roundTrips - least);
    }
    return {what, measured, std::to_string(least), verdict(met), note};
}

std::size_t liveHeapBytes()
{
    return mallinfo2().uordblks;
}

std::vector<Row> pageRows()
{
    std::vector<Row> rows;
    SimAdapter adapter;
    sim::WmiService& service = adapter.service();
    SP_DEVINFO_DATA device = host::makeDevice(7);
    host::setDeviceStringList(device, DEVPKEY_Device_HardwareIds, {listedId});
    host::setDeviceString(device, DEVPKEY_Device_FriendlyName, SimAdapter::name);
    host::setDeviceUint32(device, DEVPKEY_Device_ProblemCode, 0);
    onNewThread([&] {
        service.clearCalls();
        {
            PageSheet sheet(host::deviceInfoSet(), device);
            rows.push_back(tripsRow("page opened on a connected adapter (5 Gbps)", adapter.calls(), 17,
                                    "the adapter object (15), the temperature, the cable length"));

            service.clearCalls();
            sheet.tick();
            rows.push_back(tripsRow("one temperature tick", adapter.calls(), 1, "one GetObject"));

            service.clearCalls();
            sheet.click(IDC_RUN_DIAG);
            sheet.pumpUntil([&] { return sheet.screen().runEnabled; });
            rows.push_back(tripsRow("one cable run, to its results", adapter.calls(), 3,
                                    "the worker's connection and ExecCableDiag; the length after it"));

            service.clearCalls();
            adapter.ndis().connect(SimAdapter::name).wait();
            service.drain();
            sheet.pump();
            rows.push_back(tripsRow("one media event (connect) on the page", adapter.calls(), 6,
                                    "the link speed query with its delivery thread's connection (5), "
                                    "the cable length"));

            service.clearCalls();
            sheet.chooseCategory(1);
            rows.push_back(
                tripsRow("one category change", adapter.calls(), 1, "one ExecMethod GetCableLength"));

            // The service's call log grows with every call; only the page's heap counts.
            const auto ticks = [&](int count) {
                for (int i = 0; i < count; ++i) {
                    sheet.tick();
                    if (i % 100 == 99) {
                        service.clearCalls();
                    }
                }
                service.clearCalls();
            };
            ticks(100);
            const std::size_t after100 = liveHeapBytes();
            const long allocationsBefore = threadAllocations();
            ticks(9900);
            const std::size_t after10000 = liveHeapBytes();
            const long perTick = (threadAllocations() - allocationsBefore) / 9900;
            const long growth = static_cast<long>(after10000) - static_cast<long>(after100);
            rows.push_back({"heap in use after 10,000 ticks vs after 100",
                            std::to_string(after10000) + " vs " + std::to_string(after100) + " bytes ("
                                + std::to_string(growth) + ")",
                            "no growth", verdict(growth <= 0),
                            std::to_string(perTick)
                                + " allocations per tick on the dialog thread (the simulated service's "
                                  "objects included), all given back"});
        }
        endThreadWbemServices();
    });
    return rows;
}

const RowGroup pageGroup("50 page", pageRows);

}  // namespace
