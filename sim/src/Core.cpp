#include "Core.h"

#include <algorithm>
#include <cwctype>

#include "Objects.h"
#include "platform/Threading.h"

namespace sim {

namespace {

wchar_t fold(wchar_t c)
{
    return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}

}  // namespace

bool equalsNoCase(std::wstring_view a, std::wstring_view b)
{
    return a.size() == b.size()
        && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) { return fold(x) == fold(y); });
}

std::string narrow(std::wstring_view text)
{
    std::string out;
    for (const wchar_t c : text) {
        out.push_back(c >= 0x20 && c < 0x7f ? static_cast<char>(c) : '?');
    }
    return out;
}

std::pair<std::wstring, Value>* findNamed(PropertyValues& values, const std::wstring& name)
{
    const auto found = std::find_if(values.begin(), values.end(),
                                    [&](const auto& entry) { return equalsNoCase(entry.first, name); });
    return found != values.end() ? &*found : nullptr;
}

void setNamed(PropertyValues& values, const std::wstring& name, Value value)
{
    if (auto* entry = findNamed(values, name)) {
        entry->second = std::move(value);
    } else {
        values.emplace_back(name, std::move(value));
    }
}

bool ServiceCore::NoCaseLess::operator()(const std::wstring& a, const std::wstring& b) const
{
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](wchar_t x, wchar_t y) { return fold(x) < fold(y); });
}

// ---- COM objects ----------------------------------------------------------------

ComObject::ComObject(std::shared_ptr<ServiceCore> core, std::string description)
    : core_(std::move(core)), description_(std::move(description))
{
    const std::lock_guard<SrwLock> guard(core_->objectsLock);
    core_->live.insert(this);
    ++core_->counts.liveObjects;
    ++core_->counts.references;
}

ComObject::~ComObject()
{
    const std::lock_guard<SrwLock> guard(core_->objectsLock);
    core_->live.erase(this);
    --core_->counts.liveObjects;
}

void ServiceCore::recordForbidden(const std::string& what) noexcept
{
    try {
        const std::lock_guard<SrwLock> guard(objectsLock);
        forbiddenCalls.push_back(what);
    } catch (...) {
        (void)0;  // lost to memory exhaustion; the count is then low, never an exception
    }
}

ULONG ComObject::addReference()
{
    if (core_->callsForbidden()) {
        core_->recordForbidden("AddRef " + description_);
    }
    const std::lock_guard<SrwLock> guard(core_->objectsLock);
    ++core_->counts.references;
    return ++references_;
}

ULONG ComObject::releaseReference()
{
    if (core_->callsForbidden()) {
        core_->recordForbidden("Release " + description_);
    }
    ULONG left = 0;
    {
        // The balance learns of the release before the count drops, so that it
        // never reads the count of an object being destroyed.
        const std::lock_guard<SrwLock> guard(core_->objectsLock);
        --core_->counts.references;
        left = --references_;
    }
    if (left == 0) {
        delete this;
    }
    return left;
}

IWbemClassObject* ServiceCore::makeObject(const Object& object, const std::wstring& instance,
                                          std::uint64_t delivery)
{
    std::shared_ptr<const ClassDef> definition = findClass(object.className);
    std::wstring className = definition ? definition->name : object.className;
    PropertyValues properties{{L"__CLASS", Value::string(className)}};
    for (const auto& [name, value] : definition ? definition->properties : PropertyValues()) {
        setNamed(properties, name, value);
    }
    for (const auto& [name, value] : object.properties) {
        setNamed(properties, name, value);
    }
    PropertyValues held;  // absent ones left out, embedded objects made
    for (const auto& [name, value] : properties) {
        if (const Object* embedded = value.embedded()) {
            VARIANT child{};
            child.punkVal = makeObject(*embedded);
            child.vt = VT_UNKNOWN;
            try {
                held.emplace_back(name, Value::raw(child));
            } catch (...) {
                VariantClear(&child);
                throw;
            }
            VariantClear(&child);  // the value holds a reference of its own
        } else if (!value.isAbsent()) {
            held.emplace_back(name, value);
        }
    }
    return new ClassObject(shared_from_this(), std::move(className), std::move(definition), instance,
                           delivery, std::move(held));
}

std::shared_ptr<const ClassDef> ServiceCore::findClass(const std::wstring& name) const
{
    const std::lock_guard<SrwLock> guard(lock);
    const auto found = classes.find(name);
    return found == classes.end() ? nullptr : found->second.definition;
}

std::optional<PropertyValues> ServiceCore::instance(const std::wstring& className,
                                                    const std::wstring& name) const
{
    const std::lock_guard<SrwLock> guard(lock);
    const auto entry = classes.find(className);
    if (entry == classes.end() || entry->second.instances.count(name) == 0) {
        return std::nullopt;
    }
    return entry->second.instances.at(name);
}

MethodHandler ServiceCore::handler(const std::wstring& className, const std::wstring& method) const
{
    const std::lock_guard<SrwLock> guard(lock);
    const auto found = handlers.find(className + L"." + method);
    return found == handlers.end() ? MethodHandler() : found->second;
}

std::optional<HRESULT> ServiceCore::admit_(const CallInfo& info)
{
    std::unique_lock<SrwLock> guard(lock);
    const auto delay = latency.find(info.call);
    if (delay != latency.end()) {
        const auto wait = delay->second;
        guard.unlock();
        waitRealTime(wait);
        guard.lock();
    }
    if (info.needsService && shutDown) {
        return wbem(WBEM_E_SHUTTING_DOWN);
    }
    std::optional<HRESULT> fired;
    for (FaultState& state : faults) {
        const Fault& fault = state.fault;
        const bool matches = fault.call == info.call
            && (fault.target.empty() || equalsNoCase(fault.target, info.className)
                || equalsNoCase(fault.target, info.target))
            && (fault.instance.empty() || fault.instance == info.instance);
        if (matches && ++state.matched >= fault.first && !fired
            && (fault.count < 0 || state.fired < fault.count)) {
            ++state.fired;
            fired = fault.result;
        }
    }
    return fired;
}

void ServiceCore::log(const CallInfo& info, HRESULT result) noexcept
{
    if (callsForbidden()) {
        recordForbidden(info.call + " " + narrow(info.className));
    }
    try {
        const std::lock_guard<SrwLock> guard(lock);
        calls.push_back(
            {info.call, info.className, info.target, info.instance, result, GetCurrentThreadId()});
    } catch (...) {
        (void)0;  // a log entry lost to memory exhaustion must not turn into an exception
    }
}

std::uint64_t ServiceCore::newConnection()
{
    const std::lock_guard<SrwLock> guard(lock);
    return nextConnection++;
}

}  // namespace sim
