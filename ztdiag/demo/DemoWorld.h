// The demo's machine without hardware: the simulated adapter, its service
// registered as the process's WMI locator from a thread in the multithreaded
// apartment, and the network class's devices.
// The first adapter is the one that works; a second one, if asked for, is
// disabled; a third device of another maker is never listed.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/SimAdapter.h"
#include "ztdiag/demo/DemoDevices.h"

struct DemoSettings {
    std::wstring name = L"ZT Ethernet Adapter";
    bool firstAdapter = true;  // the ZT adapter that works; without it, no ZT adapter is listed
    bool secondAdapter = false;  // "ZT Ethernet Adapter #2", disabled (problem code 22)
    bool linkUp = true;
    std::uint64_t linkSpeed = 2500000000;
    std::uint8_t firmwareMajor = 1;
    std::uint8_t firmwareMinor = 5;
    std::uint16_t firmwareRevision = 66;
    std::int32_t phyTemperature = 5425;  // hundredths of a degree
    std::int32_t macTemperature = 6100;
    std::vector<std::uint32_t> pairs{0, 0, 0, 0};  // the driver's pair words
    std::uint32_t cableLength = 100;  // as the driver measures it
    std::uint32_t cableTestMs = 1500;
    bool pooledThreads = false;  // delivery threads end whenever they find no work
    bool loaderLockReport = false;  // the service's calls under the loader lock, at the end
    std::uint32_t lingerDetachMs = 0;  // each thread's end waits this long in linger.dll
    bool tellCableTest = false;  // a line on stderr once the driver's cable test runs
};

class DemoWorld {
public:
    explicit DemoWorld(const DemoSettings& settings);
    ~DemoWorld();  // stop()
    DemoWorld(const DemoWorld&) = delete;
    DemoWorld& operator=(const DemoWorld&) = delete;

    // SetupAPI is replaced and the locator registered.
    bool ready() const;
    // Ends the driver, the registration and the service; later calls do nothing more.
    void stop();

    // What `watch` shows: each change waits until its event has been delivered.
    // Returns once the tool has subscribed to the first adapter's events (false: it didn't in time).
    bool awaitSubscriptions();
    void unplug();
    // Connected at that speed; while connected: at another speed, without a drop.
    void plug(std::uint64_t linkSpeed);
    void remove();  // NDIS first, then the driver's instances
    void arrive();  // the driver's instances first, then NDIS

    // Whether the driver's cable test on the first adapter runs, waiting up to `limit` for it.
    bool cableTestRunning(std::chrono::milliseconds limit);

    sim::WmiService& service() { return adapter_.service(); }

private:
    DemoSettings settings_;
    DemoDevices devices_;
    sim::SimAdapter adapter_;
    bool linkUp_;
};
