#include "ztdiag/demo/DemoWorld.h"

#include <chrono>
#include <thread>

namespace {

const wchar_t* const listedId = L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02";
const wchar_t* const otherMakersId = L"PCI\\VEN_8086&DEV_15F3&SUBSYS_00008086&REV_03";

std::vector<DemoDevices::Device> devicesOf(const DemoSettings& settings)
{
    std::vector<DemoDevices::Device> devices{{settings.name, {listedId, L"PCI\\VEN_7E5C&DEV_C3E1"}, 0}};
    if (settings.secondAdapter) {
        devices.push_back({settings.name + L" #2", {listedId}, 22});
    }
    devices.push_back({L"Onboard Gigabit Ethernet", {otherMakersId}, 0});
    return devices;
}

}  // namespace

DemoWorld::DemoWorld(const DemoSettings& settings)
    : settings_(settings),
      devices_(devicesOf(settings)),
      ndis_(service_),
      driver_(service_),
      linkUp_(settings.linkUp),
      linkSpeed_(settings.linkSpeed)
{
    ndis_.addAdapter(settings_.name, linkState_(linkUp_, linkSpeed_));
    addDriverAdapter_();
    // The cable test takes the link down and, with a cable in, brings it back.
    driver_.onLinkDrop([this](const std::wstring& adapter) {
        if (linkUp_) {
            ndis_.disconnect(adapter).wait();
        }
    });
    driver_.onLinkRestore([this](const std::wstring& adapter) {
        if (linkUp_) {
            ndis_.setLinkState(adapter, linkState_(true, linkSpeed_));
            ndis_.connect(adapter);
        }
    });
    locator_ = std::make_unique<LocatorThread>(service_);
}

DemoWorld::~DemoWorld()
{
    stop();
}

bool DemoWorld::ready() const
{
    return devices_.patched() && SUCCEEDED(locator_->result());
}

void DemoWorld::stop()
{
    if (stopped_) {
        return;
    }
    stopped_ = true;
    driver_.shutdown();
    locator_->revoke();
    service_.shutdown();
}

sim::LinkState DemoWorld::linkState_(bool up, std::uint64_t speed) const
{
    sim::LinkState state;
    state.mediaConnectState = up ? sim::ndis::mediaConnected : sim::ndis::mediaDisconnected;
    state.xmitLinkSpeed = speed;
    state.rcvLinkSpeed = speed;
    return state;
}

void DemoWorld::addDriverAdapter_()
{
    const std::wstring& name = settings_.name;
    driver_.addAdapter(name);
    driver_.setFirmware(name, settings_.firmwareMajor, settings_.firmwareMinor, settings_.firmwareRevision);
    driver_.setTemperatures(name, settings_.phyTemperature, settings_.macTemperature);
    driver_.setPairs(name, settings_.pairs);
    driver_.setCableLength(name, settings_.cableLength);
    driver_.setCableTestDuration(name, std::chrono::milliseconds(settings_.cableTestMs));
}

bool DemoWorld::awaitSubscriptions()
{
    // The four event classes of the adapter, subscribed by its monitor.
    for (int tries = 0; tries < 200; ++tries) {
        int subscribed = 0;
        for (const sim::SubscriptionInfo& subscription : service_.subscriptions()) {
            if (subscription.instanceName && *subscription.instanceName == settings_.name) {
                ++subscribed;
            }
        }
        if (subscribed >= 4) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

void DemoWorld::unplug()
{
    linkUp_ = false;
    ndis_.disconnect(settings_.name).wait();
}

void DemoWorld::plug(std::uint64_t linkSpeed)
{
    linkUp_ = true;
    linkSpeed_ = linkSpeed;
    ndis_.setLinkState(settings_.name, linkState_(true, linkSpeed));
    ndis_.connect(settings_.name).wait();
}

void DemoWorld::remove()
{
    ndis_.remove(settings_.name).wait();
    driver_.removeAdapter(settings_.name);
}

void DemoWorld::arrive()
{
    addDriverAdapter_();
    ndis_.arrive(settings_.name, linkState_(linkUp_, linkSpeed_)).wait();
}
