#include "sim/WmiService.h"

#include <stdexcept>

#include "ServiceCore.h"
#include "Services.h"
#include "Text.h"

namespace sim {

WmiService::WmiService() : core_(std::make_shared<ServiceCore>())
{
}

WmiService::~WmiService()
{
    shutdown();
}

void WmiService::defineClass(ClassDef definition)
{
    core_->defineClass(std::move(definition));
}

void WmiService::addInstance(const std::wstring& className, const std::wstring& instanceName,
                             const PropertyValues& values)
{
    core_->addInstance(className, instanceName, values);
}

void WmiService::removeInstance(const std::wstring& className, const std::wstring& instanceName)
{
    core_->removeInstance(className, instanceName);
}

void WmiService::setProperty(const std::wstring& className, const std::wstring& instanceName,
                             const std::wstring& name, Value value)
{
    core_->setProperty(className, instanceName, name, std::move(value));
}

void WmiService::removeProperty(const std::wstring& className, const std::wstring& instanceName,
                                const std::wstring& name)
{
    core_->removeProperty(className, instanceName, name);
}

std::optional<Value> WmiService::property(const std::wstring& className, const std::wstring& instanceName,
                                          const std::wstring& name) const
{
    return core_->property(className, instanceName, name);
}

void WmiService::onMethod(const std::wstring& className, const std::wstring& method, MethodHandler handler)
{
    core_->onMethod(className, method, std::move(handler));
}

void WmiService::injectFault(Fault fault)
{
    core_->injectFault(std::move(fault));
}

void WmiService::clearFaults()
{
    core_->clearFaults();
}

void WmiService::setLatency(const std::string& call, std::chrono::milliseconds delay)
{
    core_->setLatency(call, delay);
}

std::vector<CallRecord> WmiService::calls() const
{
    return core_->calls();
}

void WmiService::clearCalls()
{
    core_->clearCalls();
}

ReferenceCounts WmiService::references() const
{
    return core_->tracker().counts();
}

std::vector<std::string> WmiService::liveObjects() const
{
    return core_->tracker().describeLive();
}

std::vector<SubscriptionInfo> WmiService::subscriptions() const
{
    return core_->events().subscriptions();
}

std::shared_future<DeliveryReport> WmiService::fire(const Event& event)
{
    if (!core_->findClass(event.className)) {
        throw std::invalid_argument("no such event class: " + narrow(event.className));
    }
    return core_->events().fire(event);
}

bool WmiService::drain(std::chrono::milliseconds timeout) const
{
    return core_->events().drain(timeout);
}

void WmiService::holdDeliveries(HoldPoint point)
{
    core_->events().hold(point);
}

void WmiService::releaseDeliveries()
{
    core_->events().release();
}

bool WmiService::waitForHeld(std::size_t count, std::chrono::milliseconds timeout) const
{
    return core_->events().waitForHeld(count, timeout);
}

bool WmiService::waitForInIndicate(std::size_t count, std::chrono::milliseconds timeout) const
{
    return core_->events().waitForInIndicate(count, timeout);
}

DeliveryCounts WmiService::deliveryCounts() const
{
    return core_->events().counts();
}

IClassFactory* WmiService::createLocatorFactory()
{
    return new LocatorFactory(core_);
}

void WmiService::shutdown()
{
    core_->shutdown();
}

}  // namespace sim
