// The NDIS provider of root\wmi on a simulated service: its event, header and
// link state classes, the WmiQueryLinkState method, and scripted adapters.
#pragma once

#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform.h"
#include "sim/Events.h"
#include "sim/WmiService.h"

namespace sim {

// NDIS_MEDIA_CONNECT_STATE and NDIS_MEDIA_DUPLEX_STATE values.
namespace ndis {
constexpr std::uint32_t mediaConnectUnknown = 0;
constexpr std::uint32_t mediaConnected = 1;
constexpr std::uint32_t mediaDisconnected = 2;
constexpr std::uint32_t duplexUnknown = 0;
constexpr std::uint32_t duplexHalf = 1;
constexpr std::uint32_t duplexFull = 2;
// What WmiQueryLinkState accepts in the method header's object header.
constexpr std::int64_t methodHeaderRevision = 1;  // NDIS_WMI_METHOD_HEADER_REVISION_1
constexpr std::int64_t methodHeaderType = 2;  // NDIS_WMI_OBJECT_TYPE_METHOD
constexpr std::int64_t methodHeaderMinimumSize = 32;  // NDIS_SIZEOF_WMI_METHOD_HEADER_REVISION_1
}  // namespace ndis

// What WmiQueryLinkState answers for one adapter (NDIS_LINK_STATE's fields).
struct LinkState {
    std::uint32_t mediaConnectState = ndis::mediaConnected;
    std::uint32_t mediaDuplexState = ndis::duplexFull;
    std::uint64_t xmitLinkSpeed = 1000000000;
    std::uint64_t rcvLinkSpeed = 1000000000;
    std::uint32_t pauseFunctions = 0;
    std::uint32_t autoNegotiationFlags = 0;
};

// One property of a record the client sent, as the provider found it.
struct ReceivedValue {
    bool present = false;  // false: the property or its enclosing record is absent
    VARTYPE type = VT_EMPTY;  // the VARIANT type it holds (VT_NULL when unset)
    std::optional<std::int64_t> number;  // integer VTs and decimal VT_BSTR
    std::wstring className;  // for an object (VT_UNKNOWN): its __CLASS
};

// One WmiQueryLinkState call: the addressed instance, what it received and
// what it answered. Header = the "Header" in-parameter (MSNdis_WmiMethodHeader),
// objectHeader = its "Header" (MSNdis_ObjectHeader).
struct LinkStateRequest {
    std::wstring instanceName;  // from the object path; empty for the class path
    HRESULT result = S_OK;
    ReceivedValue header;
    ReceivedValue objectHeader;
    ReceivedValue revision, type, size;  // objectHeader's
    ReceivedValue netLuid, padding, portNumber, requestId, timeout;  // header's
};

// Every member is thread-safe. Instance names are compared exactly (blanks,
// '#', quotes and backslashes included). Scripting an adapter that isn't there
// throws std::invalid_argument. Events go through WmiService::fire: each
// returns that delivery report. The service must outlive this object; the
// method handler keeps the adapters' state alive on its own.
//
// WmiQueryLinkState, in order of checks:
//   path naming no MSNdis_LinkState instance  WBEM_E_NOT_FOUND (the service's own check)
//   class path (no instance)                  WBEM_E_INVALID_OBJECT_PATH
//   "Header" absent or null                   WBEM_E_INVALID_METHOD_PARAMETERS
//   "Header" not an MSNdis_WmiMethodHeader,
//   its "Header" not an MSNdis_ObjectHeader,
//   Revision != 1, Type != 2, Size < 32 or absent,
//   "Timeout" absent or null                  WBEM_E_INVALID_PARAMETER
//   otherwise "LinkState": an MSNdis_LinkStateData of the addressed adapter.
class NdisProvider {
public:
    // Defines the classes and the method handler on `service`.
    explicit NdisProvider(WmiService& service);

    // An adapter present from the start: its MSNdis_LinkState instance, no event.
    void addAdapter(const std::wstring& instanceName, const LinkState& state = {});
    // Adds the adapter (or replaces its link state), then fires MSNdis_NotifyAdapterArrival.
    std::shared_future<DeliveryReport> arrive(const std::wstring& instanceName, const LinkState& state = {});
    // Removes the adapter's instance (its queries answer WBEM_E_NOT_FOUND from
    // now on, as when NDIS deregisters it), then fires MSNdis_NotifyAdapterRemoval.
    std::shared_future<DeliveryReport> remove(const std::wstring& instanceName);
    // Sets MediaConnectState, then fires MSNdis_StatusMediaConnect / ...Disconnect.
    std::shared_future<DeliveryReport> connect(const std::wstring& instanceName);
    std::shared_future<DeliveryReport> disconnect(const std::wstring& instanceName);
    // Sets both speeds (bits per second), then fires MSNdis_StatusLinkSpeedChange
    // with NdisStatusLinkSpeedChange: one MSNdis_NetworkLinkSpeed {Outbound, Inbound}.
    std::shared_future<DeliveryReport> changeLinkSpeed(const std::wstring& instanceName, std::uint64_t xmit,
                                                       std::uint64_t rcv);
    // Fires MSNdis_StatusOperationalStatus; NdisOperationalStatusStatusIndication
    // is the NDIS_OPER_STATE bytes (header 0x80/1/12, NET_IF_OPER_STATUS, flags).
    std::shared_future<DeliveryReport> changeOperationalStatus(const std::wstring& instanceName,
                                                               std::uint32_t status, std::uint32_t flags = 0);

    // What the query answers from now on, without an event.
    void setLinkState(const std::wstring& instanceName, const LinkState& state);
    LinkState linkState(const std::wstring& instanceName) const;
    bool hasAdapter(const std::wstring& instanceName) const;

    // Every WmiQueryLinkState call the handler ran, oldest first.
    std::vector<LinkStateRequest> requests() const;
    void clearRequests();

    struct State;  // opaque, shared with the method handler

private:
    WmiService& service_;
    std::shared_ptr<State> state_;
};

}  // namespace sim
