// A simulated ZT adapter for the bench: the WMI service registered as the
// process's locator, the NDIS provider and the driver, with one adapter
// connected at 5 Gbps (firmware 1.5.66, instant cable test, 100 m of cable).
// Rows that need the adapter (the page's, later) make one of these.
#pragma once

#include <cstddef>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sim/LocatorRegistration.h"
#include "sim/Ndis.h"
#include "sim/WmiService.h"
#include "sim/ZtDriver.h"

class SimAdapter {
public:
    static constexpr const wchar_t* name = L"ZT 10G Network Adapter #2";

    SimAdapter();
    ~SimAdapter();
    SimAdapter(const SimAdapter&) = delete;
    SimAdapter& operator=(const SimAdapter&) = delete;

    sim::WmiService& service() { return service_; }
    sim::NdisProvider& ndis() { return ndis_; }
    sim::ZtDriver& driver() { return driver_; }

    // The calls the service answered since the last clear, by kind: calls on
    // the connection (locator and IWbemServices: each a round trip to the
    // service in real WMI) and calls on objects (local copies in real WMI).
    struct Calls {
        int roundTrips = 0;
        int objectCalls = 0;
        int deliveries = 0;  // Indicate
        std::vector<std::string> trips;  // "GetObject Zt_DiagnosticsData...", in order
    };
    Calls calls() const;

private:
    sim::WmiService service_;
    sim::LocatorRegistration registration_{service_};
    sim::NdisProvider ndis_{service_};
    sim::ZtDriver driver_{service_};
};

// Runs `body` on a new thread and waits for it, thread-exit clean-up included:
// the module keeps one connection per thread.
template <typename Body> void onNewThread(Body&& body)
{
    std::thread thread(std::forward<Body>(body));
    thread.join();
}
