#include "sim/WmiService.h"

#include <stdexcept>

#include "Objects.h"
#include "platform/Threading.h"

namespace sim {

namespace {

// The class's instances, and the one named `name` must be there too; the caller holds the core's lock.
std::map<std::wstring, PropertyValues>& instancesOf(ServiceCore& core, const std::wstring& className,
                                                    const std::wstring* name = nullptr)
{
    const auto found = core.classes.find(className);
    if (found == core.classes.end() || (name != nullptr && found->second.instances.count(*name) == 0)) {
        throw std::invalid_argument("no such class or instance: "
                                    + narrow(className + L"." + (name ? *name : L"")));
    }
    return found->second.instances;
}

}  // namespace

Value MethodCall::input(const std::wstring& name) const
{
    const auto* found = findNamed(const_cast<PropertyValues&>(in), name);
    return found != nullptr ? found->second : Value();
}

void MethodCall::setOutput(const std::wstring& name, Value value)
{
    setNamed(out, name, std::move(value));
}

WmiService::WmiService() : core_(std::make_shared<ServiceCore>())
{
}

WmiService::~WmiService()
{
    shutdown();
}

void WmiService::defineClass(ClassDef definition)
{
    auto shared = std::make_shared<const ClassDef>(std::move(definition));
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->classes[shared->name].definition = std::move(shared);
}

void WmiService::addInstance(const std::wstring& className, const std::wstring& instanceName,
                             const PropertyValues& values)
{
    PropertyValues own{{L"InstanceName", Value::string(instanceName)}};
    for (const auto& [name, value] : values) {
        setNamed(own, name, value);
    }
    const std::lock_guard<SrwLock> guard(core_->lock);
    instancesOf(*core_, className)[instanceName] = std::move(own);
}

void WmiService::removeInstance(const std::wstring& className, const std::wstring& instanceName)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    instancesOf(*core_, className, &instanceName).erase(instanceName);
}

void WmiService::setProperty(const std::wstring& className, const std::wstring& instanceName,
                             const std::wstring& name, Value value)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    setNamed(instancesOf(*core_, className, &instanceName)[instanceName], name, std::move(value));
}

void WmiService::onMethod(const std::wstring& className, const std::wstring& method, MethodHandler handler)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->handlers[className + L"." + method] = std::move(handler);
}

IWbemClassObject* WmiService::makeObject(const Object& object)
{
    return core_->makeObject(object);
}

void WmiService::injectFault(Fault fault)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->faults.push_back({std::move(fault)});
}

void WmiService::clearFaults()
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->faults.clear();
}

void WmiService::setLatency(const std::string& call, std::chrono::milliseconds delay)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->latency[call] = delay;
}

std::vector<CallRecord> WmiService::calls() const
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    return core_->calls;
}

void WmiService::clearCalls()
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->calls.clear();
}

ReferenceCounts WmiService::references() const
{
    const std::lock_guard<SrwLock> guard(core_->objectsLock);
    return core_->counts;
}

std::vector<std::string> WmiService::liveObjects() const
{
    const std::lock_guard<SrwLock> guard(core_->objectsLock);
    std::vector<std::string> lines;
    for (const ComObject* object : core_->live) {
        lines.push_back(object->description() + " refs=" + std::to_string(object->references()));
    }
    return lines;
}

std::vector<SubscriptionInfo> WmiService::subscriptions() const
{
    return core_->events.subscriptions();
}

Delivery WmiService::fire(const Event& event)
{
    return core_->events.fire(event);
}

bool WmiService::drain(std::chrono::milliseconds timeout) const
{
    return core_->events.drain(timeout);
}

std::size_t WmiService::deliveryThreads() const
{
    return core_->events.deliveryThreads();
}

void WmiService::setPooledDeliveryThreads(bool on)
{
    core_->events.setPooled(on);
}

void WmiService::watchForbiddenCalls(std::function<bool()> forbidden)
{
    core_->forbidden = std::move(forbidden);
}

std::vector<std::string> WmiService::forbiddenCalls() const
{
    const std::lock_guard<SrwLock> guard(core_->objectsLock);
    return core_->forbiddenCalls;
}

void WmiService::holdDeliveries(HoldPoint point)
{
    core_->events.hold(point);
}

void WmiService::releaseDeliveries()
{
    core_->events.hold(std::nullopt);
}

bool WmiService::waitForHeld(std::size_t count, std::chrono::milliseconds timeout) const
{
    return core_->events.waitForHeld(count, timeout);
}

IClassFactory* WmiService::createLocatorFactory()
{
    return new LocatorFactory(core_);
}

void WmiService::shutdown()
{
    {
        const std::lock_guard<SrwLock> guard(core_->lock);
        core_->shutDown = true;
    }
    core_->events.shutdown();
}

}  // namespace sim
