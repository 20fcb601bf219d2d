// The bench's simulated adapter (connected at 5 Gbps, firmware 1.5.66, instant
// cable test, 100 m of cable) and the calls its service answered, by kind.
#pragma once

#include <string>
#include <vector>

#include "sim/SimAdapter.h"

sim::AdapterSettings benchAdapter();

// The calls answered since the log was last cleared: calls on the connection
// (locator and IWbemServices: each a round trip to the service in real WMI)
// and calls on objects (local copies in real WMI).
struct ServiceCalls {
    int roundTrips = 0;
    int objectCalls = 0;
    int deliveries = 0;  // Indicate
    std::vector<std::string> trips;  // "GetObject Zt_DiagnosticsData...", in order
};
ServiceCalls serviceCalls(const sim::WmiService& service);
