// The simulated adapter behind the sheet: a WMI service with the NDIS provider
// and the adapter driver, registered as the process's WMI locator, scripted
// from a scenario. Its changes fire the events real NDIS would.
#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "sim/Ndis.h"
#include "sim/WmiService.h"
#include "sim/ZtDriver.h"
#include "tools/sheet_host/LocatorThread.h"
#include "tools/sheet_host/Scenario.h"

class SimAdapter {
public:
    // The adapter as the scenario describes it, known by the scenario's name;
    // one with a problem code is not there (no NDIS adapter, no driver instances).
    explicit SimAdapter(const Scenario& scenario);
    ~SimAdapter();  // stop()
    // Ends the driver, the registration and the service, in that order: the
    // service's delivery threads are joined. Once.
    void stop();
    SimAdapter(const SimAdapter&) = delete;
    SimAdapter& operator=(const SimAdapter&) = delete;

    HRESULT registration() const { return locator_->result(); }
    sim::WmiService& service() { return service_; }

    // Each change fires its event; the returned reports are kept for settle().
    void unplug();
    void plug();
    // The link goes down and comes back at another speed, as NDIS reports a renegotiation.
    void renegotiate(std::uint64_t bitsPerSecond);
    void remove();  // the driver's instances vanish, then NDIS removal
    void arrive();  // the driver's instances as the scenario says, then NDIS arrival
    void heat(std::int32_t phy, std::int32_t mac);  // hundredths of a degree

    // True once every event fired so far has been delivered (or dropped).
    bool delivered();
    // Cable test runs that have returned from the driver.
    int finishedCableTests() const { return finishedRuns_.load(); }
    int startedCableTests() const { return startedRuns_.load(); }

private:
    sim::LinkState linkState_() const;
    void addDriverAdapter_();
    void keep_(std::shared_future<sim::DeliveryReport> report);

    Scenario scenario_;
    std::wstring name_;
    sim::WmiService service_;
    sim::NdisProvider ndis_;
    std::unique_ptr<sim::ZtDriver> driver_;  // null: the driver's classes aren't registered
    std::unique_ptr<LocatorThread> locator_;
    std::atomic<bool> plugged_;
    std::atomic<bool> present_;
    std::atomic<std::uint64_t> speed_;
    std::atomic<int> startedRuns_{0};
    std::atomic<int> finishedRuns_{0};
    std::mutex lock_;
    std::vector<std::shared_future<sim::DeliveryReport>> reports_;
};
