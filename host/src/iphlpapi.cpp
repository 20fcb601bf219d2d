// IP Helper's adapter list: the scripted connections laid out as the platform
// does, the entries first and their strings after them, all in the caller's
// buffer, with its protocol for a short buffer and an empty list.
#include <algorithm>
#include <cstring>
#include <mutex>

#include "HostState.h"
#include "host/HostPlatform.h"

namespace {

constexpr std::size_t alignment = alignof(IP_ADAPTER_ADDRESSES);

std::size_t aligned(std::size_t size)
{
    return (size + alignment - 1) / alignment * alignment;
}

std::size_t wideSize(const std::wstring& text)
{
    return aligned((text.size() + 1) * sizeof(WCHAR));
}

std::size_t sizeOf(const std::vector<host::NetConnection>& connections)
{
    std::size_t size = 0;
    for (const host::NetConnection& connection : connections) {
        size += sizeof(IP_ADAPTER_ADDRESSES) + aligned(connection.adapterName.size() + 1)
            + wideSize(connection.description) + wideSize(connection.friendlyName) + wideSize(L"");
    }
    return size;
}

// Copies `count` characters and the closing zero to `next` and moves it past them.
template <typename Char> Char* place(BYTE*& next, const Char* text, std::size_t count)
{
    auto* const at = reinterpret_cast<Char*>(next);
    std::memcpy(at, text, (count + 1) * sizeof(Char));
    next += aligned((count + 1) * sizeof(Char));
    return at;
}

void layOut(const std::vector<host::NetConnection>& connections, IP_ADAPTER_ADDRESSES* first)
{
    auto* next = reinterpret_cast<BYTE*>(first + connections.size());
    for (std::size_t i = 0; i < connections.size(); ++i) {
        const host::NetConnection& connection = connections[i];
        IP_ADAPTER_ADDRESSES& entry = first[i];
        std::memset(&entry, 0, sizeof entry);
        entry.Length = sizeof entry;
        entry.IfIndex = connection.ifIndex;
        entry.Next = i + 1 < connections.size() ? &first[i + 1] : nullptr;
        entry.AdapterName = place(next, connection.adapterName.c_str(), connection.adapterName.size());
        entry.DnsSuffix = place(next, L"", 0);
        entry.Description = place(next, connection.description.c_str(), connection.description.size());
        entry.FriendlyName = place(next, connection.friendlyName.c_str(), connection.friendlyName.size());
        const std::size_t length
            = std::min<std::size_t>(connection.physicalAddress.size(), MAX_ADAPTER_ADDRESS_LENGTH);
        std::copy_n(connection.physicalAddress.begin(), length, entry.PhysicalAddress);
        entry.PhysicalAddressLength = static_cast<ULONG>(length);
        entry.Mtu = 1500;
        entry.IfType = 6;  // IF_TYPE_ETHERNET_CSMACD
        entry.OperStatus = 1;  // IfOperStatusUp
        entry.Ipv6IfIndex = connection.ipv6IfIndex;
    }
}

ULONG answer(ULONG family, PVOID reserved, PIP_ADAPTER_ADDRESSES addresses, PULONG size)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (s.getAdaptersAddressesError != 0) {
        return s.getAdaptersAddressesError;
    }
    if ((family != AF_UNSPEC && family != AF_INET && family != AF_INET6) || reserved != nullptr
        || size == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (s.netConnections.empty()) {
        return ERROR_NO_DATA;
    }
    const std::size_t needed = sizeOf(s.netConnections);
    if (addresses == nullptr || *size < needed) {
        *size = static_cast<ULONG>(needed);
        return ERROR_BUFFER_OVERFLOW;
    }
    layOut(s.netConnections, addresses);
    return ERROR_SUCCESS;
}

}  // namespace

ULONG GetAdaptersAddresses(ULONG family, ULONG /*flags*/, PVOID reserved, PIP_ADAPTER_ADDRESSES addresses,
                           PULONG size)
{
    const ULONG result = answer(family, reserved, addresses, size);
    std::function<void(int)> hook;
    int call = 0;
    {
        auto& s = host::state();
        const std::lock_guard<std::mutex> guard(s.lock);
        call = ++s.adaptersAddressesCalls;
        hook = s.adaptersAddressesHook;
    }
    if (hook) {
        hook(call);
    }
    return result;
}

namespace host {

void setNetConnections(std::vector<NetConnection> connections)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.netConnections = std::move(connections);
}

void failGetAdaptersAddresses(ULONG error)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.getAdaptersAddressesError = error;
}

void onGetAdaptersAddresses(std::function<void(int call)> hook)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.adaptersAddressesHook = std::move(hook);
}

int getAdaptersAddressesCalls()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.adaptersAddressesCalls;
}

}  // namespace host
