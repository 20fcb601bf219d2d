// The simulated ZT adapter of the tests, the bench, the fuzz targets and the
// sheet host: a WMI service registered as the process's WMI locator, with the
// NDIS provider and the ZT driver, and one adapter both know by name.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/Threading.h"
#include "sim/Ndis.h"
#include "sim/WmiService.h"
#include "sim/ZtDriver.h"

namespace sim {

// The adapter as it starts.
struct AdapterSettings {
    std::wstring name = L"ZT 10G Network Adapter #2";
    bool present = true;  // false: neither NDIS nor the driver has it until arrive()
    bool linkUp = true;
    std::uint64_t linkSpeed = 1000000000;
    bool driverPresent = true;  // false: the driver's classes aren't there at all
    ZtValues driver{};  // what the driver reports of it
    // A cable test takes the link down and, plugged, back up, as the driver does
    // (events the page sees); else the driver's hooks only count the runs.
    bool cableTestDropsLink = false;
    // Registers the locator from a thread of its own in the multithreaded
    // apartment, as a service host does (Windows registers in an apartment),
    // rather than on the constructing thread.
    bool locatorThread = false;
};

class SimAdapter {
public:
    explicit SimAdapter(AdapterSettings settings = {});
    ~SimAdapter();  // stop()
    SimAdapter(const SimAdapter&) = delete;
    SimAdapter& operator=(const SimAdapter&) = delete;

    const std::wstring& name() const { return settings_.name; }
    WmiService& service() { return service_; }
    NdisProvider& ndis() { return ndis_; }
    ZtDriver& driver() { return *driver_; }  // only with settings.driverPresent
    // CoRegisterClassObject's result.
    HRESULT registration() const;
    // Revokes the locator: later connections fail.
    void revokeLocator();
    // Lets fired events be delivered (up to 10 s), then ends the driver, the
    // locator registration and the service, in that order: the service's
    // threads are joined when it returns. Later calls do nothing more.
    void stop();

    // Each change fires the events NDIS would, without waiting for them
    // (service().drain() does).
    void unplug();
    void plug();
    // The link goes down (delivered before this returns) and comes back at this speed.
    void renegotiate(std::uint64_t bitsPerSecond);
    void remove();  // NDIS removal, delivered, then the driver's instances vanish
    void arrive();  // the driver's instances as the settings say, then NDIS arrival
    void heat(std::int32_t phy, std::int32_t mac);  // hundredths of a degree
    // Cable test runs that reached the driver, and that returned from it
    // (counted by the driver's hooks, which driver().onLinkDrop replaces).
    int startedCableTests() const { return startedRuns_; }
    int finishedCableTests() const { return finishedRuns_; }

private:
    class LocatorThread;

    LinkState linkState_() const;
    void addDriverAdapter_();

    AdapterSettings settings_;
    WmiService service_;
    NdisProvider ndis_{service_};
    std::unique_ptr<ZtDriver> driver_;
    std::unique_ptr<LocatorThread> locator_;
    std::atomic<bool> plugged_;
    std::atomic<bool> present_;
    std::atomic<std::uint64_t> speed_{settings_.linkSpeed};
    std::atomic<int> startedRuns_{0};
    std::atomic<int> finishedRuns_{0};
};

// Runs `body` on a new thread and waits for it to end.
template <typename Body> void onNewThread(Body&& body)
{
    Thread thread(std::function<void()>(std::forward<Body>(body)));
    thread.join();
}

}  // namespace sim
