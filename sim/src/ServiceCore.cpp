#include "ServiceCore.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "ClassObject.h"

namespace sim {

namespace {

std::wstring methodKey(const std::wstring& className, const std::wstring& method)
{
    return className + L"." + method;
}

[[noreturn]] void scriptingError(const std::string& what, const std::wstring& name)
{
    throw std::invalid_argument(what + ": " + narrow(name));
}

}  // namespace

// ---- The model ------------------------------------------------------------------

void ServiceCore::defineClass(ClassDef definition)
{
    auto shared = std::make_shared<const ClassDef>(std::move(definition));
    const std::lock_guard<std::mutex> guard(lock_);
    classes_[shared->name()].definition = std::move(shared);
}

ServiceCore::ClassEntry& ServiceCore::entry_(const std::wstring& className)
{
    const auto found = classes_.find(className);
    if (found == classes_.end()) {
        scriptingError("no such class", className);
    }
    return found->second;
}

ServiceCore::Instance& ServiceCore::instance_(const std::wstring& className, const std::wstring& instanceName)
{
    ClassEntry& entry = entry_(className);
    const auto found = std::find_if(entry.instances.begin(), entry.instances.end(),
                                    [&](const Instance& instance) { return instance.name == instanceName; });
    if (found == entry.instances.end()) {
        scriptingError("no such instance", className + L"." + instanceName);
    }
    return *found;
}

const ServiceCore::Instance* ServiceCore::findInstance_(const std::wstring& className,
                                                        const std::wstring& instanceName) const
{
    const auto entry = classes_.find(className);
    if (entry == classes_.end()) {
        return nullptr;
    }
    const auto& instances = entry->second.instances;
    const auto found = std::find_if(instances.begin(), instances.end(),
                                    [&](const Instance& instance) { return instance.name == instanceName; });
    return found == instances.end() ? nullptr : &*found;
}

void ServiceCore::addInstance(const std::wstring& className, const std::wstring& instanceName,
                              const PropertyValues& values)
{
    const std::lock_guard<std::mutex> guard(lock_);
    ClassEntry& entry = entry_(className);
    Instance instance{instanceName, defaultSlots(*entry.definition)};
    if (Slot* key = findSlot(instance.slots, L"InstanceName")) {
        key->value = Value::string(instanceName);
    }
    applyValues(instance.slots, values);
    auto& instances = entry.instances;
    const auto found = std::find_if(instances.begin(), instances.end(),
                                    [&](const Instance& existing) { return existing.name == instanceName; });
    if (found != instances.end()) {
        *found = std::move(instance);
    } else {
        instances.push_back(std::move(instance));
    }
}

void ServiceCore::removeInstance(const std::wstring& className, const std::wstring& instanceName)
{
    const std::lock_guard<std::mutex> guard(lock_);
    auto& instances = entry_(className).instances;
    const Instance* target = &instance_(className, instanceName);
    instances.erase(std::find_if(instances.begin(), instances.end(),
                                 [&](const Instance& instance) { return &instance == target; }));
}

void ServiceCore::setProperty(const std::wstring& className, const std::wstring& instanceName,
                              const std::wstring& name, Value value)
{
    const std::lock_guard<std::mutex> guard(lock_);
    applyValues(instance_(className, instanceName).slots, {{name, std::move(value)}});
}

void ServiceCore::removeProperty(const std::wstring& className, const std::wstring& instanceName,
                                 const std::wstring& name)
{
    const std::lock_guard<std::mutex> guard(lock_);
    Slots& slots = instance_(className, instanceName).slots;
    const Slot* slot = findSlot(slots, name);
    if (slot == nullptr) {
        scriptingError("no such property", name);
    }
    slots.erase(slots.begin() + (slot - slots.data()));
}

std::optional<Value> ServiceCore::property(const std::wstring& className, const std::wstring& instanceName,
                                           const std::wstring& name) const
{
    const std::lock_guard<std::mutex> guard(lock_);
    const Instance* instance = findInstance_(className, instanceName);
    if (instance == nullptr) {
        scriptingError("no such instance", className + L"." + instanceName);
    }
    const Slot* slot = findSlot(instance->slots, name);
    return slot != nullptr ? std::optional<Value>(slot->value) : std::nullopt;
}

void ServiceCore::onMethod(const std::wstring& className, const std::wstring& method, MethodHandler handler)
{
    const std::lock_guard<std::mutex> guard(lock_);
    handlers_[methodKey(className, method)] = std::move(handler);
}

std::shared_ptr<const ClassDef> ServiceCore::findClass(const std::wstring& name) const
{
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = classes_.find(name);
    return found == classes_.end() ? nullptr : found->second.definition;
}

std::optional<Slots> ServiceCore::instanceSlots(const std::wstring& className,
                                                const std::wstring& instanceName) const
{
    const std::lock_guard<std::mutex> guard(lock_);
    const Instance* instance = findInstance_(className, instanceName);
    return instance != nullptr ? std::optional<Slots>(instance->slots) : std::nullopt;
}

MethodHandler ServiceCore::findHandler(const std::wstring& className, const std::wstring& method) const
{
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = handlers_.find(methodKey(className, method));
    return found == handlers_.end() ? MethodHandler() : found->second;
}

// ---- Calls ----------------------------------------------------------------------

std::optional<HRESULT> ServiceCore::admit_(const CallInfo& info)
{
    std::chrono::milliseconds delay{0};
    {
        const std::lock_guard<std::mutex> guard(lock_);
        const auto found = latency_.find(info.call);
        if (found != latency_.end()) {
            delay = found->second;
        }
    }
    if (delay.count() > 0) {
        std::this_thread::sleep_for(delay);
    }
    const std::lock_guard<std::mutex> guard(lock_);
    if (info.needsService && shutDown_) {
        return codes::shuttingDown;
    }
    std::optional<HRESULT> fired;
    for (FaultState& state : faults_) {
        const Fault& fault = state.fault;
        const bool matches = fault.call == info.call
            && (fault.target.empty() || equalsNoCase(fault.target, info.className)
                || equalsNoCase(fault.target, info.target))
            && (fault.instance.empty() || fault.instance == info.instance);
        if (!matches) {
            continue;
        }
        ++state.matched;
        if (!fired && state.matched >= fault.first && (fault.count < 0 || state.fired < fault.count)) {
            ++state.fired;
            fired = fault.result;
        }
    }
    return fired;
}

void ServiceCore::record_(const CallInfo& info, HRESULT result) noexcept
{
    try {
        const std::lock_guard<std::mutex> guard(lock_);
        log_.push_back(
            {info.call, info.className, info.target, info.instance, result, std::this_thread::get_id()});
    } catch (...) {
        // A log entry lost to memory exhaustion must not turn into an exception.
        (void)0;
    }
}

void ServiceCore::injectFault(Fault fault)
{
    const std::lock_guard<std::mutex> guard(lock_);
    faults_.push_back({std::move(fault)});
}

void ServiceCore::clearFaults()
{
    const std::lock_guard<std::mutex> guard(lock_);
    faults_.clear();
}

void ServiceCore::setLatency(const std::string& call, std::chrono::milliseconds delay)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (delay.count() > 0) {
        latency_[call] = delay;
    } else {
        latency_.erase(call);
    }
}

std::vector<CallRecord> ServiceCore::calls() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return log_;
}

void ServiceCore::clearCalls()
{
    const std::lock_guard<std::mutex> guard(lock_);
    log_.clear();
}

// ---- Subscriptions --------------------------------------------------------------

std::uint64_t ServiceCore::newConnectionId()
{
    const std::lock_guard<std::mutex> guard(lock_);
    return nextConnection_++;
}

void ServiceCore::shutdown()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        shutDown_ = true;
    }
    events_.shutdown();
}

// ---- Objects --------------------------------------------------------------------

IWbemClassObject* ServiceCore::embeddedObject_(const Object& object)
{
    ClassObject::State state;
    state.className = object.className;
    state.definition = findClass(object.className);
    if (state.definition) {
        state.className = state.definition->name();
        state.slots = defaultSlots(*state.definition);
    }
    applyValues(state.slots, object.values);
    return ClassObject::create(shared_from_this(), std::move(state));
}

IWbemClassObject* ServiceCore::eventObject(const EventObject& object, std::uint64_t delivery)
{
    // Events have no path (no definition in the state) and lack what `missing` names.
    ClassObject::State state;
    state.className = object.className;
    if (const auto definition = findClass(object.className)) {
        state.className = definition->name();
        state.slots = defaultSlots(*definition);
    }
    applyValues(state.slots, object.values);
    for (const std::wstring& name : object.missing) {
        if (const Slot* slot = findSlot(state.slots, name)) {
            state.slots.erase(state.slots.begin() + (slot - state.slots.data()));
        }
    }
    state.hidden = object.missing;
    state.delivery = delivery;
    return ClassObject::create(shared_from_this(), std::move(state));
}

HRESULT ServiceCore::toVariant(const Value& value, VARIANT* out)
{
    VariantInit(out);
    if (value.isObject()) {
        out->vt = VT_UNKNOWN;
        out->punkVal = embeddedObject_(value.embedded().front());
        return S_OK;
    }
    if (value.isObjectArray()) {
        const auto& objects = value.embedded();
        SAFEARRAY* array = SafeArrayCreateVector(VT_UNKNOWN, 0, static_cast<ULONG>(objects.size()));
        if (array == nullptr) {
            return codes::outOfMemory;
        }
        VARIANT built{};
        VariantInit(&built);
        built.vt = VT_ARRAY | VT_UNKNOWN;
        built.parray = array;
        void* data = nullptr;
        if (FAILED(SafeArrayAccessData(array, &data))) {
            VariantClear(&built);
            return codes::failed;
        }
        try {
            for (std::size_t i = 0; i < objects.size(); ++i) {
                static_cast<IUnknown**>(data)[i] = embeddedObject_(objects[i]);
            }
        } catch (...) {
            SafeArrayUnaccessData(array);
            VariantClear(&built);
            throw;
        }
        SafeArrayUnaccessData(array);
        *out = built;
        return S_OK;
    }
    // The SDK's VariantCopy takes a non-const source; it only reads it.
    const HRESULT copied = VariantCopy(out, const_cast<VARIANT*>(&value.variant()));
    return copied == E_OUTOFMEMORY ? codes::outOfMemory : copied;
}

}  // namespace sim
