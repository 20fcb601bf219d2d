#include "ztdiag/demo/DemoWorld.h"

#include <chrono>

#include "platform/Threading.h"

namespace {

const wchar_t* const listedId = L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02";
const wchar_t* const otherMakersId = L"PCI\\VEN_5B2D&DEV_0A41&SUBSYS_00005B2D&REV_03";

std::vector<DemoDevices::Device> devicesOf(const DemoSettings& settings)
{
    // IP Helper lists the connections of working adapters only: not the disabled one's.
    std::vector<DemoDevices::Device> devices;
    if (settings.firstAdapter) {
        devices.push_back({settings.name,
                           {listedId, L"PCI\\VEN_7E5C&DEV_C3E1"},
                           0,
                           std::wstring(listedId) + L"\\4&1A2B3C4D&0&00E0",
                           L"Ethernet 2",
                           12,
                           {0x00, 0x1B, 0x21, 0x3A, 0x4F, 0x5C}});
    }
    if (settings.secondAdapter) {
        devices.push_back({settings.name + L" #2",
                           {listedId},
                           22,
                           std::wstring(listedId) + L"\\4&1A2B3C4D&0&00E4",
                           L"",
                           0,
                           {}});
    }
    devices.push_back({L"Onboard Gigabit Ethernet",
                       {otherMakersId},
                       0,
                       std::wstring(otherMakersId) + L"\\3&11583659&0&C8",
                       L"Ethernet",
                       7,
                       {0x00, 0x1B, 0x21, 0x07, 0x11, 0x2A}});
    return devices;
}

sim::AdapterSettings adapterOf(const DemoSettings& settings)
{
    sim::AdapterSettings adapter;
    adapter.name = settings.name;
    adapter.linkUp = settings.linkUp;
    adapter.linkSpeed = settings.linkSpeed;
    adapter.driver.firmwareMajor = settings.firmwareMajor;
    adapter.driver.firmwareMinor = settings.firmwareMinor;
    adapter.driver.firmwareRevision = settings.firmwareRevision;
    adapter.driver.phyTemperature = settings.phyTemperature;
    adapter.driver.macTemperature = settings.macTemperature;
    adapter.driver.pairs = settings.pairs;
    adapter.driver.cableLength = settings.cableLength;
    adapter.driver.cableTest = std::chrono::milliseconds(settings.cableTestMs);
    adapter.cableTestDropsLink = true;
    adapter.locatorThread = true;
    return adapter;
}

}  // namespace

DemoWorld::DemoWorld(const DemoSettings& settings)
    : settings_(settings),
      devices_(devicesOf(settings)),
      adapter_(adapterOf(settings)),
      linkUp_(settings.linkUp)
{
    adapter_.service().setPooledDeliveryThreads(settings.pooledThreads);
}

DemoWorld::~DemoWorld()
{
    stop();
}

bool DemoWorld::ready() const
{
    return devices_.patched() && SUCCEEDED(adapter_.registration());
}

void DemoWorld::stop()
{
    adapter_.stop();
}

bool DemoWorld::awaitSubscriptions()
{
    // The four event classes of the adapter, subscribed by its monitor.
    for (int tries = 0; tries < 200; ++tries) {
        int subscribed = 0;
        for (const sim::SubscriptionInfo& subscription : adapter_.service().subscriptions()) {
            if (subscription.instanceName && *subscription.instanceName == settings_.name) {
                ++subscribed;
            }
        }
        if (subscribed >= 4) {
            return true;
        }
        waitRealTime(std::chrono::milliseconds(50));
    }
    return false;
}

void DemoWorld::unplug()
{
    linkUp_ = false;
    adapter_.unplug();
    adapter_.service().drain();
}

void DemoWorld::plug(std::uint64_t linkSpeed)
{
    if (linkUp_) {
        // Another speed on a link that stays up: NDIS reports it as a connect.
        adapter_.ndis().setLinkState(settings_.name, sim::LinkState::at(linkSpeed));
        adapter_.ndis().connect(settings_.name).wait();
        return;
    }
    linkUp_ = true;
    adapter_.renegotiate(linkSpeed);
    adapter_.service().drain();
}

void DemoWorld::remove()
{
    adapter_.remove();
}

void DemoWorld::arrive()
{
    adapter_.arrive();
    adapter_.service().drain();
}

bool DemoWorld::cableTestRunning(std::chrono::milliseconds limit)
{
    return adapter_.driver().waitUntilCableTestRunning(settings_.name, limit);
}
