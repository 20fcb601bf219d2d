#include "sim/Ndis.h"

#include <map>
#include <mutex>
#include <stdexcept>

#include "Objects.h"
#include "platform/Threading.h"

namespace sim {

namespace {

const wchar_t* const linkStateClass = L"MSNdis_LinkState";

// What WmiQueryLinkState accepts in the method header's object header.
constexpr std::int64_t methodHeaderRevision = 1;  // NDIS_WMI_METHOD_HEADER_REVISION_1
constexpr std::int64_t methodHeaderType = 2;  // NDIS_WMI_OBJECT_TYPE_METHOD
constexpr std::int64_t methodHeaderMinimumSize = 32;  // NDIS_SIZEOF_WMI_METHOD_HEADER_REVISION_1

ClassDef record(const wchar_t* name, std::initializer_list<const wchar_t*> properties)
{
    ClassDef definition{name, {}, {}};
    for (const wchar_t* property : properties) {
        definition.properties.emplace_back(property, Value());
    }
    return definition;
}

// The property `name` of the service's own object in `record`, if any.
std::optional<Value> field(const std::optional<Value>& record, const wchar_t* name)
{
    const bool isObject = record && record->variant().vt == VT_UNKNOWN;
    return readProperty(isObject ? record->variant().punkVal : nullptr, name);
}

ReceivedValue received(const std::optional<Value>& value)
{
    ReceivedValue seen;
    if (value) {
        seen.present = true;
        seen.type = value->variant().vt;
        seen.number = value->asInteger();
        seen.className = field(value, L"__CLASS").value_or(Value()).asString().value_or(L"");
    }
    return seen;
}

bool isRecord(const ReceivedValue& value, const wchar_t* className)
{
    return value.type == VT_UNKNOWN && equalsNoCase(value.className, className);
}

Object linkStateData(const LinkState& state)
{
    const Object header{
        L"MSNdis_ObjectHeader",
        {{L"Revision", Value::uint8(1)}, {L"Type", Value::uint8(0x80)}, {L"Size", Value::uint32(36)}}};
    return {L"MSNdis_LinkStateData",
            {{L"Header", Value::object(header)},
             {L"MediaConnectState", Value::uint32(state.mediaConnectState)},
             {L"MediaDuplexState", Value::uint32(state.mediaDuplexState)},
             {L"XmitLinkSpeed", Value::uint64(state.xmitLinkSpeed)},
             {L"RcvLinkSpeed", Value::uint64(state.rcvLinkSpeed)},
             {L"PauseFunctions", Value::uint32(0)},
             {L"AutoNegotiationFlags", Value::uint32(0)}}};
}

}  // namespace

struct NdisProvider::State {
    mutable SrwLock lock;
    std::map<std::wstring, LinkState> adapters;  // exact names
    std::vector<LinkStateRequest> requests;

    HRESULT query(MethodCall& call);
    template <class Change> void change(const std::wstring& instanceName, Change&& apply)
    {
        const std::lock_guard<SrwLock> guard(lock);
        const auto found = adapters.find(instanceName);
        if (found == adapters.end()) {
            throw std::invalid_argument("no such adapter: " + narrow(instanceName));
        }
        apply(found->second);
    }
};

HRESULT NdisProvider::State::query(MethodCall& call)
{
    LinkStateRequest r;
    r.instanceName = call.instanceName;
    const Value given = call.input(L"Header");
    const std::optional<Value> header = given.isNull() ? std::nullopt : std::optional<Value>(given);
    const std::optional<Value> objectHeader = field(header, L"Header");
    r.header = received(header);
    r.objectHeader = received(objectHeader);
    r.revision = received(field(objectHeader, L"Revision"));
    r.type = received(field(objectHeader, L"Type"));
    r.size = received(field(objectHeader, L"Size"));
    r.netLuid = received(field(header, L"NetLuid"));
    r.padding = received(field(header, L"Padding"));
    r.portNumber = received(field(header, L"PortNumber"));
    r.requestId = received(field(header, L"RequestId"));
    r.timeout = received(field(header, L"Timeout"));

    if (call.instanceName.empty()) {
        r.result = wbem(WBEM_E_INVALID_OBJECT_PATH);
    } else if (!header) {
        r.result = wbem(WBEM_E_INVALID_METHOD_PARAMETERS);
    } else if (!isRecord(r.header, L"MSNdis_WmiMethodHeader")
               || !isRecord(r.objectHeader, L"MSNdis_ObjectHeader")
               || r.revision.number != methodHeaderRevision || r.type.number != methodHeaderType
               || r.size.number.value_or(0) < methodHeaderMinimumSize || !r.timeout.present
               || r.timeout.type == VT_NULL || r.timeout.type == VT_EMPTY) {
        r.result = wbem(WBEM_E_INVALID_PARAMETER);
    }
    const std::lock_guard<SrwLock> guard(lock);
    const auto found = adapters.find(call.instanceName);
    if (SUCCEEDED(r.result) && found == adapters.end()) {
        r.result = wbem(WBEM_E_NOT_FOUND);  // an instance the provider doesn't know
    }
    if (SUCCEEDED(r.result)) {
        call.setOutput(L"LinkState", Value::object(linkStateData(found->second)));
    }
    requests.push_back(r);
    return r.result;
}

NdisProvider::NdisProvider(WmiService& service) : service_(service), state_(std::make_shared<State>())
{
    for (const wchar_t* name :
         {L"MSNdis_NotifyAdapterArrival", L"MSNdis_NotifyAdapterRemoval", L"MSNdis_StatusMediaConnect",
          L"MSNdis_StatusMediaDisconnect", L"MSNdis_StatusLinkSpeedChange"}) {
        service.defineClass(record(name, {L"InstanceName", L"Active"}));
    }
    service.defineClass(record(L"MSNdis_StatusOperationalStatus",
                               {L"InstanceName", L"Active", L"NdisOperationalStatusStatusIndication"}));
    service.defineClass(record(L"MSNdis_ObjectHeader", {L"Revision", L"Type", L"Size"}));
    ClassDef methodHeader
        = record(L"MSNdis_WmiMethodHeader",
                 {L"Header", L"NetLuid", L"Padding", L"PortNumber", L"RequestId", L"Timeout"});
    methodHeader.properties[1].second = Value::null64();
    service.defineClass(std::move(methodHeader));
    ClassDef linkState = record(linkStateClass, {L"InstanceName", L"Active"});
    linkState.methods.push_back({L"WmiQueryLinkState", {L"Header"}, {L"LinkState"}});
    service.defineClass(std::move(linkState));
    service.onMethod(linkStateClass, L"WmiQueryLinkState",
                     [state = state_](MethodCall& call) { return state->query(call); });
}

void NdisProvider::addAdapter(const std::wstring& instanceName, const LinkState& state)
{
    {
        const std::lock_guard<SrwLock> guard(state_->lock);
        state_->adapters[instanceName] = state;
    }
    service_.addInstance(linkStateClass, instanceName, {{L"Active", Value::boolean(true)}});
}

Delivery NdisProvider::arrive(const std::wstring& instanceName, const LinkState& state)
{
    addAdapter(instanceName, state);
    return service_.fire(Event::of(L"MSNdis_NotifyAdapterArrival", instanceName));
}

Delivery NdisProvider::remove(const std::wstring& instanceName)
{
    state_->change(instanceName, [](LinkState&) {});  // throws for an unknown adapter
    {
        const std::lock_guard<SrwLock> guard(state_->lock);
        state_->adapters.erase(instanceName);
    }
    service_.removeInstance(linkStateClass, instanceName);
    return service_.fire(Event::of(L"MSNdis_NotifyAdapterRemoval", instanceName));
}

Delivery NdisProvider::connect(const std::wstring& instanceName)
{
    state_->change(instanceName, [](LinkState& s) { s.mediaConnectState = ndis::mediaConnected; });
    return service_.fire(Event::of(L"MSNdis_StatusMediaConnect", instanceName));
}

Delivery NdisProvider::disconnect(const std::wstring& instanceName)
{
    state_->change(instanceName, [](LinkState& s) { s.mediaConnectState = ndis::mediaDisconnected; });
    return service_.fire(Event::of(L"MSNdis_StatusMediaDisconnect", instanceName));
}

Delivery NdisProvider::changeLinkSpeed(const std::wstring& instanceName, std::uint64_t xmit,
                                       std::uint64_t rcv)
{
    state_->change(instanceName, [&](LinkState& s) { s.xmitLinkSpeed = xmit, s.rcvLinkSpeed = rcv; });
    return service_.fire(Event::of(L"MSNdis_StatusLinkSpeedChange", instanceName));
}

void NdisProvider::setLinkState(const std::wstring& instanceName, const LinkState& state)
{
    state_->change(instanceName, [&](LinkState& s) { s = state; });
}

std::vector<LinkStateRequest> NdisProvider::requests() const
{
    const std::lock_guard<SrwLock> guard(state_->lock);
    return state_->requests;
}

void NdisProvider::clearRequests()
{
    const std::lock_guard<SrwLock> guard(state_->lock);
    state_->requests.clear();
}

}  // namespace sim
