#include "tools/sheet_host/SimAdapter.h"

#include <chrono>

SimAdapter::SimAdapter(const Scenario& scenario)
    : scenario_(scenario),
      name_(scenario.friendlyName),
      ndis_(service_),
      plugged_(scenario.linkUp),
      present_(scenario.problemCode == 0),
      speed_(scenario.linkSpeed)
{
    if (scenario_.driverPresent) {
        driver_ = std::make_unique<sim::ZtDriver>(service_);
    }
    if (present_.load()) {
        ndis_.addAdapter(name_, linkState_());
        addDriverAdapter_();
    }
    locator_ = std::make_unique<LocatorThread>(service_);
    if (driver_ == nullptr) {
        return;
    }
    // A cable test takes the link down and, with a cable in, brings it back.
    driver_->onLinkDrop([this](const std::wstring& name) {
        ++startedRuns_;
        if (plugged_.load()) {
            keep_(ndis_.disconnect(name));
        }
    });
    driver_->onLinkRestore([this](const std::wstring& name) {
        if (plugged_.load()) {
            ndis_.setLinkState(name, linkState_());
            keep_(ndis_.connect(name));
        }
        ++finishedRuns_;
    });
}

SimAdapter::~SimAdapter()
{
    stop();
}

void SimAdapter::stop()
{
    if (driver_ != nullptr) {
        driver_->shutdown();
    }
    locator_->revoke();
    service_.shutdown();
}

sim::LinkState SimAdapter::linkState_() const
{
    sim::LinkState state;
    state.mediaConnectState = plugged_.load() ? sim::ndis::mediaConnected : sim::ndis::mediaDisconnected;
    state.xmitLinkSpeed = speed_.load();
    state.rcvLinkSpeed = speed_.load();
    return state;
}

void SimAdapter::addDriverAdapter_()
{
    if (driver_ == nullptr) {
        return;
    }
    driver_->addAdapter(name_);
    driver_->setFirmware(name_, scenario_.firmwareMajor, scenario_.firmwareMinor, scenario_.firmwareRevision);
    driver_->setTemperatures(name_, scenario_.phyTemperature, scenario_.macTemperature);
    driver_->setThermalFlags(name_, scenario_.thermalFlags);
    std::vector<std::uint32_t> words;
    for (const PairSetting& pair : scenario_.pairs) {
        words.push_back(sim::ZtDriver::pairWord(pair.status, pair.distance));
    }
    driver_->setPairs(name_, words);
    driver_->setCableLength(name_, scenario_.cableLength);
    driver_->setCableTestDuration(name_, std::chrono::milliseconds(scenario_.cableTestMs));
}

void SimAdapter::keep_(std::shared_future<sim::DeliveryReport> report)
{
    const std::lock_guard<std::mutex> guard(lock_);
    reports_.push_back(std::move(report));
}

void SimAdapter::unplug()
{
    plugged_ = false;
    keep_(ndis_.disconnect(name_));
}

void SimAdapter::plug()
{
    plugged_ = true;
    ndis_.setLinkState(name_, linkState_());
    keep_(ndis_.connect(name_));
}

void SimAdapter::renegotiate(std::uint64_t bitsPerSecond)
{
    speed_ = bitsPerSecond;
    // Events have no order of their own: the drop is delivered before the return.
    if (plugged_.load()) {
        ndis_.disconnect(name_).wait();
    }
    plugged_ = true;
    ndis_.setLinkState(name_, linkState_());
    keep_(ndis_.connect(name_));
}

void SimAdapter::remove()
{
    if (!present_.exchange(false)) {
        return;
    }
    // NDIS first, then the driver: a page that polls in between would see the
    // driver gone while the adapter still counts as there.
    ndis_.remove(name_).wait();
    if (driver_ != nullptr) {
        driver_->removeAdapter(name_);
    }
}

void SimAdapter::arrive()
{
    if (present_.exchange(true)) {
        return;
    }
    addDriverAdapter_();
    keep_(ndis_.arrive(name_, linkState_()));
}

void SimAdapter::heat(std::int32_t phy, std::int32_t mac)
{
    scenario_.phyTemperature = phy;
    scenario_.macTemperature = mac;
    if (present_.load() && scenario_.driverPresent) {
        driver_->setTemperatures(name_, phy, mac);
    }
}

bool SimAdapter::delivered()
{
    const std::lock_guard<std::mutex> guard(lock_);
    for (const auto& report : reports_) {
        if (report.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            return false;
        }
    }
    reports_.clear();
    return true;
}
