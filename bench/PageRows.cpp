// Rows of the page: the WMI round trips of what the user does on an open page,
// and whether the temperature timer's ticks leave anything behind on the heap.
#include <atomic>
#include <chrono>
#include <malloc.h>
#include <string>
#include <thread>
#include <vector>

#include "Allocations.h"
#include "Rows.h"
#include "ServiceCalls.h"
#include "host/HostPlatform.h"
#include "resources/resource.h"
#include "tools/page_reader/PageSheet.h"
#include "wmi/WbemServices.h"

namespace {

Row tripsRow(const std::string& what, const ServiceCalls& calls, int least, const std::string& why)
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
    sim::SimAdapter adapter(benchAdapter());
    sim::WmiService& service = adapter.service();
    SP_DEVINFO_DATA device = workingZtDevice(7, adapter.name());
    sim::onNewThread([&] {
        service.clearCalls();
        {
            PageSheet sheet(host::deviceInfoSet(), device);
            rows.push_back(tripsRow("page opened on a connected adapter (5 Gbps)", serviceCalls(service), 17,
                                    "the adapter object (15), the temperature, the cable length"));

            service.clearCalls();
            sheet.tick();
            rows.push_back(tripsRow("one temperature tick", serviceCalls(service), 1, "one GetObject"));

            service.clearCalls();
            sheet.click(IDC_RUN_DIAG);
            sheet.pumpUntil([&] { return sheet.screen().runEnabled; });
            rows.push_back(tripsRow("one cable run, to its results", serviceCalls(service), 3,
                                    "the worker's connection and ExecCableDiag; the length after it"));

            service.clearCalls();
            adapter.ndis().connect(adapter.name()).wait();
            service.drain();
            sheet.pump();
            rows.push_back(tripsRow("one media event (connect) on the page", serviceCalls(service), 6,
                                    "the link speed query with its delivery thread's connection (5), "
                                    "the cable length"));

            service.clearCalls();
            sheet.chooseCategory(1);
            rows.push_back(
                tripsRow("one category change", serviceCalls(service), 1, "one ExecMethod GetCableLength"));

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

// The dialog thread while a run of 8 seconds goes on in the driver: every call
// of the service answers after 1 ms, the timer ticks every 1.5 s and the link
// goes down and up twice a second. The pump looks at the queue every millisecond,
// as a message loop waiting in GetMessage would be woken at once.
std::vector<Row> runRows()
{
    using namespace std::chrono;
    std::vector<Row> rows;
    sim::SimAdapter adapter(benchAdapter());
    sim::WmiService& service = adapter.service();
    for (const char* call :
         {"ConnectServer", "GetObject", "ExecMethod", "Get", "Put", "GetMethod", "SpawnInstance"}) {
        service.setLatency(call, milliseconds(1));
    }
    adapter.driver().setCableTestDuration(adapter.name(), seconds(8));
    SP_DEVINFO_DATA device = workingZtDevice(8, adapter.name());
    sim::onNewThread([&] {
        {
            PageSheet sheet(host::deviceInfoSet(), device);
            sheet.click(IDC_RUN_DIAG);
            host::takeLongestQueueWait();
            std::atomic<bool> running{true};
            std::thread link([&] {
                for (bool up = false; running; up = !up) {
                    std::this_thread::sleep_for(milliseconds(250));
                    (up ? adapter.ndis().connect(adapter.name()) : adapter.ndis().disconnect(adapter.name()))
                        .wait();
                }
            });
            const auto start = steady_clock::now();
            auto nextTick = start + milliseconds(1500);
            int ticks = 0;
            while (!sheet.screen().runEnabled && steady_clock::now() - start < seconds(30)) {
                sheet.pump();
                if (steady_clock::now() >= nextTick) {
                    host::advanceClock(1500);
                    nextTick += milliseconds(1500);
                    ++ticks;
                }
                std::this_thread::sleep_for(milliseconds(1));
            }
            const auto wait = host::takeLongestQueueWait();
            running = false;
            link.join();
            const double ms = static_cast<double>(wait.count()) / 1e6;
            rows.push_back({"dialog thread during an 8 s cable run: longest wait in its queue",
                            fixed(ms, 1) + " ms", "< 50 ms", verdict(ms < 50.0),
                            std::to_string(ticks)
                                + " ticks and the link's events handled meanwhile; every "
                                  "call of the service takes 1 ms"});
        }
        endThreadWbemServices();
    });
    adapter.service().drain();
    return rows;
}

const RowGroup pageGroup("50 page", pageRows);
const RowGroup runGroup("55 page run", runRows);

}  // namespace
