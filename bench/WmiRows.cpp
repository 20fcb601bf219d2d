// Rows of WMI round trips: what each operation of the adapter model asks of
// the simulated service, against the least its design needs.
#include <string>
#include <vector>

#include "Rows.h"
#include "ServiceCalls.h"
#include "nic/ZtNic.h"
#include "wmi/WbemServices.h"

namespace {

// The design's least: each link state query fetches the classes of its two
// header records and of MSNdis_LinkState, then runs the method (4); every
// thread connects once (1).
constexpr int linkStateQuery = 4;
constexpr int connect = 1;

Row tripsRow(const std::string& what, const ServiceCalls& calls, int least, const std::string& why)
{
    std::string measured
        = std::to_string(calls.roundTrips) + (calls.roundTrips == 1 ? " round trip" : " round trips");
    if (calls.objectCalls > 0) {
        measured += " (+" + std::to_string(calls.objectCalls) + " object calls)";
    }
    const bool met = calls.roundTrips <= least;
    std::string note = why;
    if (!met) {
        note += note.empty() ? "" : "; ";
        note += "surplus " + std::to_string(calls.roundTrips - least);
    }
    return {what, measured, std::to_string(least), verdict(met), note};
}

std::vector<Row> wmiRows()
{
    std::vector<Row> rows;
    sim::SimAdapter adapter(benchAdapter());
    sim::WmiService& service = adapter.service();
    // The dialog thread: it makes the adapter object and asks it what the page asks.
    sim::onNewThread([&] {
        service.clearCalls();
        {
            ZtNic nic(adapter.name(), true);
            rows.push_back(
                tripsRow("ZtNic constructed on a connected adapter", serviceCalls(service),
                         connect + 4 + 2 + 2 * linkStateQuery,
                         "connect, 4 event queries, firmware and control class, media state and link "
                         "speed each a full link state query"));

            service.clearCalls();
            nic.getThermalInfo();
            rows.push_back(
                tripsRow("getThermalInfo", serviceCalls(service), 1, "one GetObject of Zt_DiagnosticsData"));

            service.clearCalls();
            sim::onNewThread([&] {
                std::vector<ZtPairInfo> pairs;
                nic.performCableDiag(pairs);
                endThreadWbemServices();
            });
            rows.push_back(tripsRow("performCableDiag on a new worker", serviceCalls(service), connect + 1,
                                    "the worker's connection and ExecCableDiag"));

            service.clearCalls();
            adapter.ndis().connect(adapter.name()).wait();
            service.drain();
            const ServiceCalls media = serviceCalls(service);
            rows.push_back(tripsRow(
                "one media event (connect) delivered", media, linkStateQuery,
                "the link speed query; the delivery thread connects anew each time (+1): the thread is the "
                "service's, and nothing may end a connection at a thread's exit (the loader lock)"));

            service.clearCalls();
            nic.estimateCableLength(Cat6);
            rows.push_back(
                tripsRow("estimateCableLength", serviceCalls(service), 1, "one ExecMethod GetCableLength"));
        }
        endThreadWbemServices();
    });
    return rows;
}

const RowGroup wmiGroup("30 wmi", wmiRows);

}  // namespace
