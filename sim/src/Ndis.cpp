#include "sim/Ndis.h"

#include <map>
#include <mutex>
#include <stdexcept>

#include "ClassObject.h"
#include "Codes.h"
#include "Text.h"

namespace sim {

namespace {

const wchar_t* const arrivalClass = L"MSNdis_NotifyAdapterArrival";
const wchar_t* const removalClass = L"MSNdis_NotifyAdapterRemoval";
const wchar_t* const connectClass = L"MSNdis_StatusMediaConnect";
const wchar_t* const disconnectClass = L"MSNdis_StatusMediaDisconnect";
const wchar_t* const speedClass = L"MSNdis_StatusLinkSpeedChange";
const wchar_t* const operationalClass = L"MSNdis_StatusOperationalStatus";
const wchar_t* const objectHeaderClass = L"MSNdis_ObjectHeader";
const wchar_t* const methodHeaderClass = L"MSNdis_WmiMethodHeader";
const wchar_t* const linkStateClass = L"MSNdis_LinkState";
const wchar_t* const linkStateDataClass = L"MSNdis_LinkStateData";
const wchar_t* const linkSpeedClass = L"MSNdis_NetworkLinkSpeed";
const wchar_t* const queryMethod = L"WmiQueryLinkState";

constexpr std::uint8_t objectTypeDefault = 0x80;  // NDIS_OBJECT_TYPE_DEFAULT

ClassDef eventClass(const wchar_t* name)
{
    return ClassDef(name).property(L"InstanceName", CIM_STRING).property(L"Active", CIM_BOOLEAN);
}

// A record the client sent (a Value holding an object), read without going
// through the call log when it is one of the service's own objects.
class Record {
public:
    static std::optional<Record> of(const Value& value)
    {
        Record record;
        record.holder_ = value;
        if (value.isObject()) {
            record.embedded_ = &record.holder_.embedded().front();
            return record;
        }
        const VARIANT& v = value.variant();
        IUnknown* unknown = v.vt == VT_UNKNOWN ? v.punkVal
            : v.vt == VT_DISPATCH              ? reinterpret_cast<IUnknown*>(v.pdispVal)
                                               : nullptr;
        if (unknown == nullptr) {
            return std::nullopt;
        }
        void* object = nullptr;
        if (FAILED(unknown->QueryInterface(IID_IWbemClassObject, &object)) || object == nullptr) {
            return std::nullopt;
        }
        // `holder_` keeps the object alive; the record needs no reference of its own.
        record.object_ = static_cast<IWbemClassObject*>(object);
        record.object_->Release();
        return record;
    }

    std::optional<Value> get(const std::wstring& name) const
    {
        if (embedded_ != nullptr) {
            if (equalsNoCase(name, L"__CLASS")) {
                return Value::string(embedded_->className);
            }
            for (const auto& [property, value] : embedded_->values) {
                if (equalsNoCase(property, name)) {
                    return value;
                }
            }
            return std::nullopt;
        }
        return readProperty(object_, name);
    }

    std::wstring className() const
    {
        const auto value = get(L"__CLASS");
        return value ? value->asString().value_or(L"") : L"";
    }

private:
    Value holder_;
    IWbemClassObject* object_ = nullptr;
    const Object* embedded_ = nullptr;
};

ReceivedValue received(const std::optional<Value>& value)
{
    ReceivedValue seen;
    if (!value) {
        return seen;
    }
    seen.present = true;
    seen.type = value->isObject() ? static_cast<VARTYPE>(VT_UNKNOWN) : value->variant().vt;
    seen.number = value->asInteger();
    if (const auto record = Record::of(*value)) {
        seen.className = record->className();
    }
    return seen;
}

std::optional<Value> field(const std::optional<Record>& record, const std::wstring& name)
{
    return record ? record->get(name) : std::nullopt;
}

bool isClass(const ReceivedValue& value, const wchar_t* className)
{
    return value.present && value.type == VT_UNKNOWN && equalsNoCase(value.className, className);
}

Object objectHeader(std::uint8_t type, std::uint8_t revision, std::uint16_t size)
{
    return {objectHeaderClass,
            {{L"Revision", Value::uint8(revision)},
             {L"Type", Value::uint8(type)},
             {L"Size", Value::uint16(size)}}};
}

Object linkStateData(const LinkState& state)
{
    return {linkStateDataClass,
            {{L"Header", Value::object(objectHeader(objectTypeDefault, 1, 36))},
             {L"MediaConnectState", Value::uint32(state.mediaConnectState)},
             {L"MediaDuplexState", Value::uint32(state.mediaDuplexState)},
             {L"XmitLinkSpeed", Value::uint64(state.xmitLinkSpeed)},
             {L"RcvLinkSpeed", Value::uint64(state.rcvLinkSpeed)},
             {L"PauseFunctions", Value::uint32(state.pauseFunctions)},
             {L"AutoNegotiationFlags", Value::uint32(state.autoNegotiationFlags)}}};
}

void appendLittleEndian(std::vector<std::uint8_t>& bytes, std::uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

}  // namespace

struct NdisProvider::State {
    mutable std::mutex lock;
    std::map<std::wstring, LinkState> adapters;  // exact names
    std::vector<LinkStateRequest> requests;

    HRESULT query(MethodCall& call);
    // Changes one adapter's link state in one step.
    template <class Change> void update(const std::wstring& instanceName, Change&& change)
    {
        const std::lock_guard<std::mutex> guard(lock);
        const auto found = adapters.find(instanceName);
        if (found == adapters.end()) {
            throw std::invalid_argument("no such adapter: " + narrow(instanceName));
        }
        change(found->second);
    }
    HRESULT check(const MethodCall& call, LinkStateRequest& request) const;
};

HRESULT NdisProvider::State::check(const MethodCall& call, LinkStateRequest& request) const
{
    if (call.instanceName.empty()) {
        return codes::invalidObjectPath;
    }
    const Value header = call.input(L"Header");
    request.header = received(header.isNull() ? std::nullopt : std::optional<Value>(header));
    const auto headerRecord = header.isNull() ? std::nullopt : Record::of(header);
    const auto objectHeaderValue = field(headerRecord, L"Header");
    request.objectHeader = received(objectHeaderValue);
    const auto objectHeaderRecord = objectHeaderValue ? Record::of(*objectHeaderValue) : std::nullopt;
    request.revision = received(field(objectHeaderRecord, L"Revision"));
    request.type = received(field(objectHeaderRecord, L"Type"));
    request.size = received(field(objectHeaderRecord, L"Size"));
    request.netLuid = received(field(headerRecord, L"NetLuid"));
    request.padding = received(field(headerRecord, L"Padding"));
    request.portNumber = received(field(headerRecord, L"PortNumber"));
    request.requestId = received(field(headerRecord, L"RequestId"));
    request.timeout = received(field(headerRecord, L"Timeout"));

    if (header.isNull()) {
        return codes::invalidMethodParameters;
    }
    if (!isClass(request.header, methodHeaderClass) || !isClass(request.objectHeader, objectHeaderClass)) {
        return codes::invalidParameter;
    }
    if (request.revision.number != ndis::methodHeaderRevision || request.type.number != ndis::methodHeaderType
        || !request.size.number || *request.size.number < ndis::methodHeaderMinimumSize) {
        return codes::invalidParameter;
    }
    if (!request.timeout.present || request.timeout.type == VT_NULL || request.timeout.type == VT_EMPTY) {
        return codes::invalidParameter;
    }
    return S_OK;
}

HRESULT NdisProvider::State::query(MethodCall& call)
{
    LinkStateRequest request;
    request.instanceName = call.instanceName;
    HRESULT result = check(call, request);
    std::optional<LinkState> answer;
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (SUCCEEDED(result)) {
            const auto found = adapters.find(call.instanceName);
            if (found != adapters.end()) {
                answer = found->second;
            } else {
                result = codes::notFound;  // an instance the provider doesn't know
            }
        }
        request.result = result;
        requests.push_back(std::move(request));
    }
    if (answer) {
        call.setOutput(L"LinkState", Value::object(linkStateData(*answer)));
    }
    return result;
}

NdisProvider::NdisProvider(WmiService& service) : service_(service), state_(std::make_shared<State>())
{
    for (const wchar_t* name : {arrivalClass, removalClass, connectClass, disconnectClass}) {
        service.defineClass(eventClass(name));
    }
    service.defineClass(
        ClassDef(linkSpeedClass).property(L"Outbound", CIM_UINT64).property(L"Inbound", CIM_UINT64));
    service.defineClass(
        eventClass(speedClass).property(L"NdisStatusLinkSpeedChange", CIM_OBJECT | CIM_FLAG_ARRAY));
    service.defineClass(eventClass(operationalClass)
                            .property(L"NdisOperationalStatusStatusIndication", CIM_UINT8 | CIM_FLAG_ARRAY));
    service.defineClass(ClassDef(objectHeaderClass)
                            .property(L"Revision", CIM_UINT8)
                            .property(L"Type", CIM_UINT8)
                            .property(L"Size", CIM_UINT16));
    service.defineClass(ClassDef(methodHeaderClass)
                            .property(L"Header", CIM_OBJECT)
                            .property(L"NetLuid", CIM_UINT64)
                            .property(L"Padding", CIM_UINT32)
                            .property(L"PortNumber", CIM_UINT32)
                            .property(L"RequestId", CIM_UINT32)
                            .property(L"Timeout", CIM_UINT32));
    service.defineClass(ClassDef(linkStateDataClass)
                            .property(L"Header", CIM_OBJECT)
                            .property(L"MediaConnectState", CIM_UINT32)
                            .property(L"MediaDuplexState", CIM_UINT32)
                            .property(L"XmitLinkSpeed", CIM_UINT64)
                            .property(L"RcvLinkSpeed", CIM_UINT64)
                            .property(L"PauseFunctions", CIM_UINT32)
                            .property(L"AutoNegotiationFlags", CIM_UINT32));
    service.defineClass(ClassDef(linkStateClass)
                            .property(L"InstanceName", CIM_STRING)
                            .property(L"Active", CIM_BOOLEAN)
                            .method(queryMethod, {{L"Header", CIM_OBJECT}}, {{L"LinkState", CIM_OBJECT}}));
    service.onMethod(linkStateClass, queryMethod,
                     [state = state_](MethodCall& call) { return state->query(call); });
}

void NdisProvider::addAdapter(const std::wstring& instanceName, const LinkState& state)
{
    {
        const std::lock_guard<std::mutex> guard(state_->lock);
        state_->adapters[instanceName] = state;
    }
    service_.addInstance(linkStateClass, instanceName, {{L"Active", Value::boolean(true)}});
}

std::shared_future<DeliveryReport> NdisProvider::arrive(const std::wstring& instanceName,
                                                        const LinkState& state)
{
    addAdapter(instanceName, state);
    return service_.fire(Event::of(arrivalClass, instanceName));
}

std::shared_future<DeliveryReport> NdisProvider::remove(const std::wstring& instanceName)
{
    {
        const std::lock_guard<std::mutex> guard(state_->lock);
        if (state_->adapters.erase(instanceName) == 0) {
            throw std::invalid_argument("no such adapter: " + narrow(instanceName));
        }
    }
    service_.removeInstance(linkStateClass, instanceName);
    return service_.fire(Event::of(removalClass, instanceName));
}

std::shared_future<DeliveryReport> NdisProvider::connect(const std::wstring& instanceName)
{
    state_->update(instanceName, [](LinkState& state) { state.mediaConnectState = ndis::mediaConnected; });
    return service_.fire(Event::of(connectClass, instanceName));
}

std::shared_future<DeliveryReport> NdisProvider::disconnect(const std::wstring& instanceName)
{
    state_->update(instanceName, [](LinkState& state) { state.mediaConnectState = ndis::mediaDisconnected; });
    return service_.fire(Event::of(disconnectClass, instanceName));
}

std::shared_future<DeliveryReport> NdisProvider::changeLinkSpeed(const std::wstring& instanceName,
                                                                 std::uint64_t xmit, std::uint64_t rcv)
{
    state_->update(instanceName, [&](LinkState& state) {
        state.xmitLinkSpeed = xmit;
        state.rcvLinkSpeed = rcv;
    });
    const Object speed{linkSpeedClass,
                       {{L"Outbound", Value::uint64(xmit)}, {L"Inbound", Value::uint64(rcv)}}};
    return service_.fire(
        Event::of(speedClass, instanceName, {{L"NdisStatusLinkSpeedChange", Value::objects({speed})}}));
}

std::shared_future<DeliveryReport> NdisProvider::changeOperationalStatus(const std::wstring& instanceName,
                                                                         std::uint32_t status,
                                                                         std::uint32_t flags)
{
    if (!hasAdapter(instanceName)) {
        throw std::invalid_argument("no such adapter: " + narrow(instanceName));
    }
    // NDIS_OPER_STATE: NDIS_OBJECT_HEADER {Type, Revision, Size}, then two ULONGs.
    std::vector<std::uint8_t> bytes{objectTypeDefault, 1, 12, 0};
    appendLittleEndian(bytes, status);
    appendLittleEndian(bytes, flags);
    return service_.fire(Event::of(operationalClass, instanceName,
                                   {{L"NdisOperationalStatusStatusIndication", Value::bytes(bytes)}}));
}

void NdisProvider::setLinkState(const std::wstring& instanceName, const LinkState& state)
{
    state_->update(instanceName, [&](LinkState& current) { current = state; });
}

LinkState NdisProvider::linkState(const std::wstring& instanceName) const
{
    const std::lock_guard<std::mutex> guard(state_->lock);
    const auto found = state_->adapters.find(instanceName);
    if (found == state_->adapters.end()) {
        throw std::invalid_argument("no such adapter: " + narrow(instanceName));
    }
    return found->second;
}

bool NdisProvider::hasAdapter(const std::wstring& instanceName) const
{
    const std::lock_guard<std::mutex> guard(state_->lock);
    return state_->adapters.count(instanceName) != 0;
}

std::vector<LinkStateRequest> NdisProvider::requests() const
{
    const std::lock_guard<std::mutex> guard(state_->lock);
    return state_->requests;
}

void NdisProvider::clearRequests()
{
    const std::lock_guard<std::mutex> guard(state_->lock);
    state_->requests.clear();
}

}  // namespace sim
