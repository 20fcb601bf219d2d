#include "sim/ZtDriver.h"

#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Codes.h"
#include "Text.h"

namespace sim {

namespace {

struct Runs {
    int cableDiag = 0;
    int cableLength = 0;
};

struct Adapter {
    std::uint8_t major = 1;
    std::uint8_t minor = 5;
    std::uint16_t revision = 66;
    std::int32_t phyTemperature = 4500;
    std::int32_t macTemperature = 5000;
    std::uint8_t thermalFlags = ZtDriver::phyTemperatureValid | ZtDriver::macTemperatureValid;
    std::vector<std::uint32_t> pairs = std::vector<std::uint32_t>(4, 0);
    std::uint32_t cableLength = 0;
    std::uint32_t cableDiagReturn = 0;
    std::uint32_t cableLengthReturn = 0;
    std::chrono::milliseconds duration{0};
    // A field's replacement; nullopt: left out.
    std::map<ZtField, std::optional<Value>> overrides;
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
    mutable std::mutex lock;
    // Wakes runs (release, removal, shutdown) and waiters for a running test.
    mutable std::condition_variable changed;
    std::map<std::wstring, std::shared_ptr<Adapter>> adapters;
    std::map<std::wstring, Runs> runs;
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

    // ---- The published values (under `lock`) -----------------------------------

    static std::optional<Value> field(const Adapter& adapter, ZtField which, Value normal)
    {
        const auto found = adapter.overrides.find(which);
        return found != adapter.overrides.end() ? found->second : std::optional<Value>(std::move(normal));
    }

    static void put(PropertyValues& values, const std::wstring& name, const std::optional<Value>& value)
    {
        if (value) {
            values.emplace_back(name, *value);
        }
    }

    void publish(const std::wstring& className, const std::wstring& name, const std::wstring& property,
                 const std::optional<Value>& value)
    {
        if (value) {
            service.setProperty(className, name, property, *value);
        } else if (service.property(className, name, property)) {
            service.removeProperty(className, name, property);
        }
    }

    // The instance properties follow every change at once, as GetObject reads afresh.
    void publish(const std::wstring& name, const Adapter& a)
    {
        publish(firmwareClass, name, L"major", field(a, ZtField::major, Value::uint8(a.major)));
        publish(firmwareClass, name, L"minor", field(a, ZtField::minor, Value::uint8(a.minor)));
        publish(firmwareClass, name, L"revision", field(a, ZtField::revision, Value::uint16(a.revision)));
        PropertyValues thermal;
        put(thermal, L"flags", field(a, ZtField::thermalFlags, Value::uint8(a.thermalFlags)));
        put(thermal, L"phyTemperature", field(a, ZtField::phyTemperature, Value::sint32(a.phyTemperature)));
        put(thermal, L"macTemperature", field(a, ZtField::macTemperature, Value::sint32(a.macTemperature)));
        publish(diagnosticsClass, name, L"thermalInfo",
                field(a, ZtField::thermalInfo, Value::object({thermalClass, std::move(thermal)})));
    }

    template <class Change> void change(const std::wstring& name, Change&& apply)
    {
        const std::lock_guard<std::mutex> guard(lock);
        Adapter& a = adapter(name);
        apply(a);
        publish(name, a);
    }

    // ---- The methods ------------------------------------------------------------

    static void output(MethodCall& call, const wchar_t* name, const std::optional<Value>& value)
    {
        if (value) {
            call.setOutput(name, *value);
        }
    }

    static void cableDiagOutputs(const Adapter& a, MethodCall& call)
    {
        std::vector<Value> words;
        words.reserve(a.pairs.size());
        for (const std::uint32_t word : a.pairs) {
            words.push_back(Value::uint32(word));
        }
        PropertyValues result;
        put(result, L"pairs", field(a, ZtField::pairs, Value::array(CIM_UINT32, words)));
        output(call, L"ReturnValue",
               field(a, ZtField::cableDiagReturnValue, Value::uint32(a.cableDiagReturn)));
        output(call, L"diagRes",
               field(a, ZtField::diagRes, Value::object({diagResultClass, std::move(result)})));
    }

    // Counts the run and takes the adapter; null when it is gone.
    std::shared_ptr<Adapter> enter(const MethodCall& call, int Runs::*count)
    {
        const std::lock_guard<std::mutex> guard(lock);
        const auto found = adapters.find(call.instanceName);
        if (shutDown || found == adapters.end()) {
            return nullptr;
        }
        ++(runs[call.instanceName].*count);
        ++activeRuns;
        return found->second;
    }

    // Ends a run that enter() admitted, however it leaves (hooks may throw).
    struct Leave {
        Core& core;
        ~Leave()
        {
            const std::lock_guard<std::mutex> guard(core.lock);
            --core.activeRuns;
            core.changed.notify_all();
        }
        Leave(const Leave&) = delete;
        Leave& operator=(const Leave&) = delete;
    };

    HRESULT cableDiag(MethodCall& call)
    {
        const std::shared_ptr<Adapter> adapter = enter(call, &Runs::cableDiag);
        if (!adapter) {
            return codes::notFound;
        }
        const Leave leaving{*this};
        LinkHook drop;
        LinkHook restore;
        {
            const std::lock_guard<std::mutex> guard(lock);
            drop = linkDrop;
            restore = linkRestore;
        }
        if (drop) {
            drop(call.instanceName);
        }
        {
            std::unique_lock<std::mutex> guard(lock);
            const auto deadline = std::chrono::steady_clock::now() + adapter->duration;
            ++adapter->running;
            changed.notify_all();
            for (;;) {
                if (adapter->removed || shutDown) {
                    --adapter->running;
                    return shutDown ? codes::shuttingDown : codes::notFound;
                }
                if (!adapter->held && std::chrono::steady_clock::now() >= deadline) {
                    break;
                }
                if (adapter->held) {
                    changed.wait(guard);
                } else {
                    changed.wait_until(guard, deadline);
                }
            }
            --adapter->running;
            cableDiagOutputs(*adapter, call);
        }
        if (restore) {
            restore(call.instanceName);
        }
        return S_OK;
    }

    HRESULT cableLength(MethodCall& call)
    {
        const std::shared_ptr<Adapter> adapter = enter(call, &Runs::cableLength);
        if (!adapter) {
            return codes::notFound;
        }
        const Leave leaving{*this};
        const std::lock_guard<std::mutex> guard(lock);
        const Adapter& a = *adapter;
        output(call, L"ReturnValue",
               field(a, ZtField::cableLengthReturnValue, Value::uint32(a.cableLengthReturn)));
        output(call, L"cableLength", field(a, ZtField::cableLength, Value::uint32(a.cableLength)));
        return S_OK;
    }
};

ZtDriver::ZtDriver(WmiService& service) : core_(std::make_shared<Core>(service))
{
    service.defineClass(
        ClassDef(adapterClass)
            .property(L"InstanceName", CIM_STRING)
            .property(L"Active", CIM_BOOLEAN, Value::boolean(true))
            .method(L"ExecCableDiag", {}, {{L"ReturnValue", CIM_UINT32}, {L"diagRes", CIM_OBJECT}})
            .method(L"GetCableLength", {}, {{L"ReturnValue", CIM_UINT32}, {L"cableLength", CIM_UINT32}}));
    service.defineClass(ClassDef(firmwareClass)
                            .property(L"InstanceName", CIM_STRING)
                            .property(L"Active", CIM_BOOLEAN, Value::boolean(true))
                            .property(L"major", CIM_UINT8)
                            .property(L"minor", CIM_UINT8)
                            .property(L"revision", CIM_UINT16));
    service.defineClass(ClassDef(diagnosticsClass)
                            .property(L"InstanceName", CIM_STRING)
                            .property(L"Active", CIM_BOOLEAN, Value::boolean(true))
                            .property(L"thermalInfo", CIM_OBJECT));
    // Declared without properties: an embedded object carries exactly what the
    // driver filled in, so one can lack a property as from a driver built on another schema.
    service.defineClass(ClassDef(diagResultClass));
    service.defineClass(ClassDef(thermalClass));
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
    std::unique_lock<std::mutex> guard(core_->lock);
    core_->shutDown = true;
    for (auto& [name, adapter] : core_->adapters) {
        adapter->removed = true;
        core_->service.removeInstance(adapterClass, name);
        core_->service.removeInstance(firmwareClass, name);
        core_->service.removeInstance(diagnosticsClass, name);
    }
    core_->adapters.clear();
    // No hook runs after this returns: cut-short runs skip the restore, and the rest are waited for.
    core_->linkDrop = nullptr;
    core_->linkRestore = nullptr;
    core_->changed.notify_all();
    core_->changed.wait(guard, [this] { return core_->activeRuns == 0; });
}

void ZtDriver::addAdapter(const std::wstring& instanceName)
{
    const std::lock_guard<std::mutex> guard(core_->lock);
    if (core_->shutDown) {
        scriptingError("driver shut down, adapter not added", instanceName);
    }
    if (core_->adapters.count(instanceName) != 0) {
        scriptingError("adapter added twice", instanceName);
    }
    auto adapter = std::make_shared<Adapter>();
    core_->service.addInstance(firmwareClass, instanceName);
    core_->service.addInstance(diagnosticsClass, instanceName);
    core_->publish(instanceName, *adapter);
    core_->service.addInstance(adapterClass, instanceName);
    core_->adapters.emplace(instanceName, std::move(adapter));
}

void ZtDriver::removeAdapter(const std::wstring& instanceName)
{
    const std::lock_guard<std::mutex> guard(core_->lock);
    core_->adapter(instanceName).removed = true;
    core_->adapters.erase(instanceName);
    core_->service.removeInstance(adapterClass, instanceName);
    core_->service.removeInstance(firmwareClass, instanceName);
    core_->service.removeInstance(diagnosticsClass, instanceName);
    core_->changed.notify_all();
}

std::wstring ZtDriver::path(const std::wstring& className, const std::wstring& instanceName)
{
    return className + L".InstanceName=\"" + instanceName + L"\"";
}

void ZtDriver::setFirmware(const std::wstring& name, std::uint8_t major, std::uint8_t minor,
                           std::uint16_t revision)
{
    core_->change(name, [&](Adapter& a) {
        a.major = major;
        a.minor = minor;
        a.revision = revision;
    });
}

void ZtDriver::setTemperatures(const std::wstring& name, std::int32_t phy, std::int32_t mac)
{
    core_->change(name, [&](Adapter& a) {
        a.phyTemperature = phy;
        a.macTemperature = mac;
    });
}

void ZtDriver::setThermalFlags(const std::wstring& name, std::uint8_t flags)
{
    core_->change(name, [&](Adapter& a) { a.thermalFlags = flags; });
}

void ZtDriver::setPairs(const std::wstring& name, std::vector<std::uint32_t> words)
{
    core_->change(name, [&](Adapter& a) { a.pairs = std::move(words); });
}

void ZtDriver::setPair(const std::wstring& name, std::size_t index, std::uint32_t word)
{
    core_->change(name, [&](Adapter& a) { a.pairs.at(index) = word; });
}

std::uint32_t ZtDriver::pairWord(std::uint8_t status, std::uint8_t distance, std::uint8_t farthest,
                                 std::uint8_t top)
{
    return static_cast<std::uint32_t>(status) | (static_cast<std::uint32_t>(distance) << 8U)
        | (static_cast<std::uint32_t>(farthest) << 16U) | (static_cast<std::uint32_t>(top) << 24U);
}

void ZtDriver::setCableLength(const std::wstring& name, std::uint32_t meters)
{
    core_->change(name, [&](Adapter& a) { a.cableLength = meters; });
}

void ZtDriver::setReturnValue(const std::wstring& name, ZtMethod method, std::uint32_t value)
{
    core_->change(name, [&](Adapter& a) {
        (method == ZtMethod::execCableDiag ? a.cableDiagReturn : a.cableLengthReturn) = value;
    });
}

void ZtDriver::setField(const std::wstring& name, ZtField field, Value value)
{
    core_->change(name, [&](Adapter& a) { a.overrides[field] = std::move(value); });
}

void ZtDriver::removeField(const std::wstring& name, ZtField field)
{
    core_->change(name, [&](Adapter& a) { a.overrides[field] = std::nullopt; });
}

void ZtDriver::resetField(const std::wstring& name, ZtField field)
{
    core_->change(name, [&](Adapter& a) { a.overrides.erase(field); });
}

Value ZtDriver::arrayOf(VARTYPE elementType, const std::vector<std::uint32_t>& words)
{
    SAFEARRAY* array = SafeArrayCreateVector(elementType, 0, static_cast<ULONG>(words.size()));
    if (array == nullptr) {
        throw std::invalid_argument("ZtDriver::arrayOf: no array of that element type");
    }
    VARIANT built{};
    VariantInit(&built);
    built.vt = static_cast<VARTYPE>(VT_ARRAY | elementType);
    built.parray = array;
    const std::size_t size = SafeArrayGetElemsize(array);
    void* data = nullptr;
    if (size > sizeof(std::uint64_t) || FAILED(SafeArrayAccessData(array, &data))) {
        VariantClear(&built);
        throw std::invalid_argument("ZtDriver::arrayOf: not an integer element type");
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        // The low bytes: both builds are little-endian.
        const std::uint64_t wide = words[i];
        std::memcpy(static_cast<unsigned char*>(data) + i * size, &wide, size);
    }
    SafeArrayUnaccessData(array);
    try {
        Value value = Value::raw(built);
        VariantClear(&built);
        return value;
    } catch (...) {
        VariantClear(&built);
        throw;
    }
}

Value ZtDriver::scalarOf(VARTYPE vt, std::uint64_t bits)
{
    switch (vt) {
    case VT_I1:
    case VT_UI1:
    case VT_I2:
    case VT_UI2:
    case VT_I4:
    case VT_UI4:
    case VT_I8:
    case VT_UI8:
    case VT_INT:
    case VT_UINT:
        break;
    default:
        throw std::invalid_argument("ZtDriver::scalarOf: not an integer VARIANT type");
    }
    VARIANT v{};
    VariantInit(&v);
    v.vt = vt;
    // The union's low bytes are each narrower member (little-endian).
    v.ullVal = bits;
    return Value::raw(v);
}

void ZtDriver::setCableTestDuration(const std::wstring& name, std::chrono::milliseconds duration)
{
    core_->change(name, [&](Adapter& a) { a.duration = duration; });
}

void ZtDriver::onLinkDrop(LinkHook hook)
{
    const std::lock_guard<std::mutex> guard(core_->lock);
    core_->linkDrop = std::move(hook);
}

void ZtDriver::onLinkRestore(LinkHook hook)
{
    const std::lock_guard<std::mutex> guard(core_->lock);
    core_->linkRestore = std::move(hook);
}

void ZtDriver::holdCableTest(const std::wstring& name)
{
    const std::lock_guard<std::mutex> guard(core_->lock);
    core_->adapter(name).held = true;
}

void ZtDriver::releaseCableTest(const std::wstring& name)
{
    const std::lock_guard<std::mutex> guard(core_->lock);
    core_->adapter(name).held = false;
    core_->changed.notify_all();
}

bool ZtDriver::waitUntilCableTestRunning(const std::wstring& name, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> guard(core_->lock);
    return core_->changed.wait_for(guard, timeout, [&] {
        const auto found = core_->adapters.find(name);
        return found != core_->adapters.end() && found->second->running > 0;
    });
}

int ZtDriver::runs(const std::wstring& name, ZtMethod method) const
{
    const std::lock_guard<std::mutex> guard(core_->lock);
    const auto found = core_->runs.find(name);
    if (found == core_->runs.end()) {
        return 0;
    }
    return method == ZtMethod::execCableDiag ? found->second.cableDiag : found->second.cableLength;
}

}  // namespace sim
