#include "sim/SimAdapter.h"

#include "platform/Threading.h"

namespace sim {

// Keeps the service's locator factory registered as CLSID_WbemLocator until
// revoke(): registered on the constructing thread, or from a thread of its
// own that stays in the multithreaded apartment meanwhile.
class SimAdapter::LocatorThread {
public:
    LocatorThread(WmiService& service, bool ownThread)
    {
        if (!ownThread) {
            result_ = register_(service);
            return;
        }
        thread_ = Thread([this, &service] {
            const HRESULT init = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            const HRESULT registered = FAILED(init) ? init : register_(service);
            {
                std::unique_lock<SrwLock> guard(lock_);
                result_ = registered;
                started_ = true;
                changed_.notifyAll();
                changed_.wait(guard, [this] { return stopping_; });
            }
            revokeNow_();
            if (SUCCEEDED(init)) {
                CoUninitialize();
            }
        });
        std::unique_lock<SrwLock> guard(lock_);
        changed_.wait(guard, [this] { return started_; });
    }
    ~LocatorThread() { revoke(); }
    LocatorThread(const LocatorThread&) = delete;
    LocatorThread& operator=(const LocatorThread&) = delete;

    HRESULT result()
    {
        const std::lock_guard<SrwLock> guard(lock_);
        return result_;
    }
    void revoke()
    {
        if (thread_.joinable()) {
            {
                const std::lock_guard<SrwLock> guard(lock_);
                stopping_ = true;
                changed_.notifyAll();
            }
            thread_.join();
        }
        revokeNow_();
    }

private:
    HRESULT register_(WmiService& service)
    {
        IClassFactory* factory = service.createLocatorFactory();
        const HRESULT result = CoRegisterClassObject(CLSID_WbemLocator, factory, CLSCTX_INPROC_SERVER,
                                                     REGCLS_MULTIPLEUSE, &cookie_);
        factory->Release();  // the COM runtime holds its own reference while registered
        cookie_ = SUCCEEDED(result) ? cookie_ : 0;
        return result;
    }
    void revokeNow_()
    {
        if (cookie_ != 0) {
            CoRevokeClassObject(std::exchange(cookie_, 0));
        }
    }

    SrwLock lock_;
    ConditionVariable changed_;
    HRESULT result_ = E_FAIL;
    bool started_ = false;  // result_ is the thread's
    bool stopping_ = false;
    DWORD cookie_ = 0;  // 0: not registered
    Thread thread_;
};

SimAdapter::SimAdapter(AdapterSettings settings)
    : settings_(std::move(settings)), plugged_(settings_.linkUp), present_(settings_.present)
{
    if (settings_.driverPresent) {
        driver_ = std::make_unique<ZtDriver>(service_);
        // A cable test takes the link down and, with a cable in, brings it back.
        driver_->onLinkDrop([this](const std::wstring& name) {
            ++startedRuns_;
            // Delivered before the test goes on: events keep no order of their own.
            if (settings_.cableTestDropsLink && plugged_) {
                ndis_.disconnect(name).wait();
            }
        });
        driver_->onLinkRestore([this](const std::wstring& name) {
            if (settings_.cableTestDropsLink && plugged_) {
                ndis_.setLinkState(name, linkState_());
                ndis_.connect(name);
            }
            ++finishedRuns_;
        });
    }
    if (settings_.present) {
        ndis_.addAdapter(settings_.name, linkState_());
        addDriverAdapter_();
    }
    locator_ = std::make_unique<LocatorThread>(service_, settings_.locatorThread);
}

SimAdapter::~SimAdapter()
{
    stop();
}

HRESULT SimAdapter::registration() const
{
    return locator_->result();
}

void SimAdapter::revokeLocator()
{
    locator_->revoke();
}

void SimAdapter::stop()
{
    service_.drain(std::chrono::seconds(10));
    if (driver_ != nullptr) {
        driver_->shutdown();
    }
    locator_->revoke();
    service_.shutdown();
}

LinkState SimAdapter::linkState_() const
{
    const std::uint64_t speed = speed_;
    return LinkState::at(speed, plugged_);
}

void SimAdapter::addDriverAdapter_()
{
    if (driver_ != nullptr) {
        driver_->addAdapter(settings_.name, settings_.driver);
    }
}

void SimAdapter::unplug()
{
    plugged_ = false;
    ndis_.disconnect(settings_.name);
}

void SimAdapter::plug()
{
    plugged_ = true;
    ndis_.setLinkState(settings_.name, linkState_());
    ndis_.connect(settings_.name);
}

void SimAdapter::renegotiate(std::uint64_t bitsPerSecond)
{
    speed_ = bitsPerSecond;
    // Events have no order of their own: the drop is delivered before the return.
    if (plugged_) {
        ndis_.disconnect(settings_.name).wait();
    }
    plug();
}

void SimAdapter::remove()
{
    if (!present_.exchange(false)) {
        return;
    }
    // NDIS first, then the driver: a page that polls in between would see the
    // driver gone while the adapter still counts as there.
    ndis_.remove(settings_.name).wait();
    if (driver_ != nullptr) {
        driver_->removeAdapter(settings_.name);
    }
}

void SimAdapter::arrive()
{
    if (!present_.exchange(true)) {
        addDriverAdapter_();
        ndis_.arrive(settings_.name, linkState_());
    }
}

void SimAdapter::heat(std::int32_t phy, std::int32_t mac)
{
    settings_.driver.phyTemperature = phy;
    settings_.driver.macTemperature = mac;
    if (present_ && driver_ != nullptr) {
        driver_->setTemperatures(settings_.name, phy, mac);
    }
}

}  // namespace sim
