#include "sim/ZtDriver.h"

#include <map>
#include <mutex>
#include <stdexcept>

#include "Core.h"
#include "platform/Threading.h"

namespace sim {

namespace {

struct Adapter {
    ZtValues values;
    std::map<ZtField, Value> overrides;
    bool held = false;
    int running = 0;  // runs waiting out their duration or hold
    bool removed = false;  // a run that still holds it ends at once
};

[[noreturn]] void scriptingError(const std::string& what, const std::wstring& name)
{
    throw std::invalid_argument(what + ": " + narrow(name));
}

}  // namespace

struct ZtDriver::Core {
    explicit Core(WmiService& served) : service(served) { }

    WmiService& service;
    mutable SrwLock lock;
    // Wakes runs (release, removal, shutdown) and waiters for a running test.
    mutable ConditionVariable changed;
    std::map<std::wstring, std::shared_ptr<Adapter>> adapters;
    std::map<std::wstring, int> runs;
    LinkHook linkDrop;
    LinkHook linkRestore;
    int activeRuns = 0;  // runs inside the driver, hooks included
    bool shutDown = false;

    Adapter& adapter(const std::wstring& name)
    {
        const auto found = adapters.find(name);
        if (found == adapters.end()) {
            scriptingError("no such adapter", name);
        }
        return *found->second;
    }

    // ---- What the adapter hands out (under `lock`) ----------------------------------

    static Value field(const Adapter& a, ZtField which, const Value& normal)
    {
        const auto found = a.overrides.find(which);
        return found != a.overrides.end() ? found->second : normal;
    }

    // The instance properties follow every change at once, as GetObject reads afresh.
    void publish(const std::wstring& name, const Adapter& a)
    {
        const ZtValues& v = a.values;
        service.setProperty(firmwareClass, name, L"major",
                            field(a, ZtField::major, Value::uint8(v.firmwareMajor)));
        service.setProperty(firmwareClass, name, L"minor",
                            field(a, ZtField::minor, Value::uint8(v.firmwareMinor)));
        service.setProperty(firmwareClass, name, L"revision",
                            field(a, ZtField::revision, Value::uint32(v.firmwareRevision)));
        const Object thermal{
            L"Zt_ThermalInfo",
            {{L"flags", field(a, ZtField::thermalFlags, Value::uint8(v.thermalFlags))},
             {L"phyTemperature", field(a, ZtField::phyTemperature, Value::sint32(v.phyTemperature))},
             {L"macTemperature", field(a, ZtField::macTemperature, Value::sint32(v.macTemperature))}}};
        service.setProperty(diagnosticsClass, name, L"thermalInfo",
                            field(a, ZtField::thermalInfo, Value::object(thermal)));
    }

    template <class Change> void change(const std::wstring& name, Change&& apply)
    {
        const std::lock_guard<SrwLock> guard(lock);
        Adapter& a = adapter(name);
        apply(a);
        publish(name, a);
    }

    // ---- The methods ----------------------------------------------------------------

    // A left-out out parameter stays as the signature declares it: null.
    static void output(MethodCall& call, const wchar_t* name, const Value& value)
    {
        if (!value.isAbsent()) {
            call.setOutput(name, value);
        }
    }

    // Ends a run, however it leaves (hooks may throw).
    struct Leave {
        Core& core;
        ~Leave()
        {
            const std::lock_guard<SrwLock> guard(core.lock);
            --core.activeRuns;
            core.changed.notifyAll();
        }
        Leave(const Leave&) = delete;
        Leave& operator=(const Leave&) = delete;
    };

    HRESULT cableDiag(MethodCall& call)
    {
        std::shared_ptr<Adapter> adapter;
        LinkHook drop;
        LinkHook restore;
        {
            const std::lock_guard<SrwLock> guard(lock);
            const auto found = adapters.find(call.instanceName);
            if (shutDown || found == adapters.end()) {
                return wbem(WBEM_E_NOT_FOUND);
            }
            adapter = found->second;
            drop = linkDrop;
            restore = linkRestore;
            ++runs[call.instanceName];
            ++activeRuns;
        }
        const Leave leaving{*this};
        if (drop) {
            drop(call.instanceName);
        }
        {
            std::unique_lock<SrwLock> guard(lock);
            const auto deadline = std::chrono::steady_clock::now() + adapter->values.cableTest;
            ++adapter->running;
            changed.notifyAll();
            while (!adapter->removed && !shutDown
                   && (adapter->held || std::chrono::steady_clock::now() < deadline)) {
                if (adapter->held) {
                    changed.wait(guard, [&] { return adapter->removed || shutDown || !adapter->held; });
                } else {
                    changed.waitFor(guard, deadline - std::chrono::steady_clock::now(),
                                    [&] { return adapter->removed || shutDown || adapter->held; });
                }
            }
            --adapter->running;
            if (adapter->removed || shutDown) {
                return wbem(shutDown ? WBEM_E_SHUTTING_DOWN : WBEM_E_NOT_FOUND);
            }
            std::vector<std::uint64_t> words(adapter->values.pairs.begin(), adapter->values.pairs.end());
            const Object result{L"Zt_CableDiagResult",
                                {{L"pairs", field(*adapter, ZtField::pairs, Value::array(VT_I4, words))}}};
            output(call, L"ReturnValue", field(*adapter, ZtField::cableDiagReturnValue, Value::uint32(0)));
            output(call, L"diagRes", field(*adapter, ZtField::diagRes, Value::object(result)));
        }
        if (restore) {
            restore(call.instanceName);
        }
        return S_OK;
    }

    HRESULT cableLength(MethodCall& call)
    {
        const std::lock_guard<SrwLock> guard(lock);
        const auto found = adapters.find(call.instanceName);
        if (shutDown || found == adapters.end()) {
            return wbem(WBEM_E_NOT_FOUND);
        }
        const Adapter& a = *found->second;
        output(call, L"ReturnValue", field(a, ZtField::cableLengthReturnValue, Value::uint32(0)));
        output(call, L"cableLength", field(a, ZtField::cableLength, Value::uint32(a.values.cableLength)));
        return S_OK;
    }
};

ZtDriver::ZtDriver(WmiService& service) : core_(std::make_shared<Core>(service))
{
    const auto instanceClass = [](const wchar_t* name, PropertyValues more, std::vector<Method> methods) {
        PropertyValues properties{{L"InstanceName", Value()}, {L"Active", Value::boolean(true)}};
        properties.insert(properties.end(), more.begin(), more.end());
        return ClassDef{name, std::move(properties), std::move(methods)};
    };
    service.defineClass(instanceClass(adapterClass, {},
                                      {{L"ExecCableDiag", {}, {L"ReturnValue", L"diagRes"}},
                                       {L"GetCableLength", {}, {L"ReturnValue", L"cableLength"}}}));
    service.defineClass(
        instanceClass(firmwareClass, {{L"major", Value()}, {L"minor", Value()}, {L"revision", Value()}}, {}));
    service.defineClass(instanceClass(diagnosticsClass, {{L"thermalInfo", Value()}}, {}));
    // The handlers keep the core alive: the service may outlive this object.
    const std::shared_ptr<Core> core = core_;
    service.onMethod(adapterClass, L"ExecCableDiag",
                     [core](MethodCall& call) { return core->cableDiag(call); });
    service.onMethod(adapterClass, L"GetCableLength",
                     [core](MethodCall& call) { return core->cableLength(call); });
}

ZtDriver::~ZtDriver()
{
    shutdown();
}

void ZtDriver::shutdown()
{
    std::unique_lock<SrwLock> guard(core_->lock);
    core_->shutDown = true;
    for (auto& [name, adapter] : core_->adapters) {
        adapter->removed = true;
        for (const wchar_t* className : {adapterClass, firmwareClass, diagnosticsClass}) {
            core_->service.removeInstance(className, name);
        }
    }
    core_->adapters.clear();
    // No hook runs after this returns: cut-short runs skip the restore, and the rest are waited for.
    core_->linkDrop = nullptr;
    core_->linkRestore = nullptr;
    core_->changed.notifyAll();
    core_->changed.wait(guard, [this] { return core_->activeRuns == 0; });
}

void ZtDriver::addAdapter(const std::wstring& instanceName, const ZtValues& values)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    if (core_->shutDown || core_->adapters.count(instanceName) != 0) {
        scriptingError(core_->shutDown ? "driver shut down" : "adapter added twice", instanceName);
    }
    auto adapter = std::make_shared<Adapter>();
    adapter->values = values;
    core_->service.addInstance(firmwareClass, instanceName);
    core_->service.addInstance(diagnosticsClass, instanceName);
    core_->publish(instanceName, *adapter);
    core_->service.addInstance(adapterClass, instanceName);
    core_->adapters.emplace(instanceName, std::move(adapter));
}

void ZtDriver::removeAdapter(const std::wstring& instanceName)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->adapter(instanceName).removed = true;
    core_->adapters.erase(instanceName);
    for (const wchar_t* className : {adapterClass, firmwareClass, diagnosticsClass}) {
        core_->service.removeInstance(className, instanceName);
    }
    core_->changed.notifyAll();
}

void ZtDriver::change(const std::wstring& name, const std::function<void(ZtValues&)>& apply)
{
    core_->change(name, [&](Adapter& a) { apply(a.values); });
}

void ZtDriver::setField(const std::wstring& name, ZtField field, Value value)
{
    core_->change(name, [&](Adapter& a) { a.overrides.insert_or_assign(field, std::move(value)); });
}

void ZtDriver::resetField(const std::wstring& name, ZtField field)
{
    core_->change(name, [&](Adapter& a) { a.overrides.erase(field); });
}

void ZtDriver::onLinkDrop(LinkHook hook)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->linkDrop = std::move(hook);
}

void ZtDriver::onLinkRestore(LinkHook hook)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->linkRestore = std::move(hook);
}

void ZtDriver::holdCableTest(const std::wstring& name)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->adapter(name).held = true;
}

void ZtDriver::releaseCableTest(const std::wstring& name)
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    core_->adapter(name).held = false;
    core_->changed.notifyAll();
}

bool ZtDriver::waitUntilCableTestRunning(const std::wstring& name, std::chrono::milliseconds timeout) const
{
    std::unique_lock<SrwLock> guard(core_->lock);
    return core_->changed.waitFor(guard, timeout, [&] {
        const auto found = core_->adapters.find(name);
        return found != core_->adapters.end() && found->second->running > 0;
    });
}

int ZtDriver::cableTests(const std::wstring& name) const
{
    const std::lock_guard<SrwLock> guard(core_->lock);
    const auto found = core_->runs.find(name);
    return found != core_->runs.end() ? found->second : 0;
}

}  // namespace sim
