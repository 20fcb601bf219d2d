// The NDIS provider of root\wmi on a simulated service: its event, header and
// link state classes, the WmiQueryLinkState method, and scripted adapters.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform.h"
#include "sim/WmiService.h"

namespace sim {

// NDIS_MEDIA_CONNECT_STATE and NDIS_MEDIA_DUPLEX_STATE values.
namespace ndis {
constexpr std::uint32_t mediaConnected = 1;
constexpr std::uint32_t mediaDisconnected = 2;
constexpr std::uint32_t duplexFull = 2;
}  // namespace ndis

// What WmiQueryLinkState answers for one adapter (NDIS_LINK_STATE's fields).
struct LinkState {
    std::uint32_t mediaConnectState = ndis::mediaConnected;
    std::uint32_t mediaDuplexState = ndis::duplexFull;
    std::uint64_t xmitLinkSpeed = 1000000000;
    std::uint64_t rcvLinkSpeed = 1000000000;

    // Full duplex at `speed` both ways, connected or not.
    static LinkState at(std::uint64_t speed, bool up = true)
    {
        return {up ? ndis::mediaConnected : ndis::mediaDisconnected, ndis::duplexFull, speed, speed};
    }
};

// One property of a record the client sent, as the provider found it.
struct ReceivedValue {
    bool present = false;  // false: the property or its enclosing record is absent
    VARTYPE type = VT_EMPTY;  // the VARIANT type it holds (VT_NULL when unset)
    std::optional<std::int64_t> number;  // integer VTs and decimal VT_BSTR
    std::wstring className;  // for an object (VT_UNKNOWN): its __CLASS
};

// One WmiQueryLinkState call: the addressed instance, what it received and
// what it answered. header = the "Header" in-parameter (MSNdis_WmiMethodHeader),
// objectHeader = its "Header" (MSNdis_ObjectHeader).
struct LinkStateRequest {
    std::wstring instanceName;  // from the object path; empty for the class path
    HRESULT result = S_OK;
    ReceivedValue header;
    ReceivedValue objectHeader;
    ReceivedValue revision, type, size;  // objectHeader's
    ReceivedValue netLuid, padding, portNumber, requestId, timeout;  // header's
};

// Every member is thread-safe; instance names are compared exactly; scripting
// an adapter that isn't there throws std::invalid_argument. Events return
// WmiService::fire's report. The service must outlive this object. The checks
// of WmiQueryLinkState are in sim/README.md.
class NdisProvider {
public:
    // Defines the classes and the method handler on `service`.
    explicit NdisProvider(WmiService& service);

    // An adapter present from the start: its MSNdis_LinkState instance, no event.
    void addAdapter(const std::wstring& instanceName, const LinkState& state = {});
    // Adds the adapter (or replaces its link state), then fires MSNdis_NotifyAdapterArrival.
    Delivery arrive(const std::wstring& instanceName, const LinkState& state = {});
    // Removes the adapter's instance (its queries answer WBEM_E_NOT_FOUND from
    // now on, as when NDIS deregisters it), then fires MSNdis_NotifyAdapterRemoval.
    Delivery remove(const std::wstring& instanceName);
    // Sets MediaConnectState, then fires MSNdis_StatusMediaConnect / ...Disconnect.
    Delivery connect(const std::wstring& instanceName);
    Delivery disconnect(const std::wstring& instanceName);
    // Sets both speeds (bits per second), then fires MSNdis_StatusLinkSpeedChange
    // (without its payload, which the module doesn't read).
    Delivery changeLinkSpeed(const std::wstring& instanceName, std::uint64_t xmit, std::uint64_t rcv);
    // What the query answers from now on, without an event.
    void setLinkState(const std::wstring& instanceName, const LinkState& state);

    // Every WmiQueryLinkState call the handler ran, oldest first.
    std::vector<LinkStateRequest> requests() const;
    // Forgets them (a long run keeps its memory flat).
    void clearRequests();

    struct State;  // opaque, shared with the method handler

private:
    WmiService& service_;
    std::shared_ptr<State> state_;
};

}  // namespace sim
