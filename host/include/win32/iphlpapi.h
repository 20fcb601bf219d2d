// IP Helper's adapter list of the host platform layer (iphlpapi.h, iptypes.h):
// what GetAdaptersAddresses tells of a network connection, with the
// platform's names and the fields the tool reads, in the platform's order.
#pragma once

#include "win32/base.h"

using ULONGLONG = std::uint64_t;
using PULONG = ULONG*;
using PVOID = void*;
using PCHAR = char*;
using PWCHAR = WCHAR*;
using IF_INDEX = ULONG;

constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
constexpr DWORD ERROR_NO_DATA = 232;

constexpr ULONG AF_UNSPEC = 0;
constexpr ULONG AF_INET = 2;
constexpr ULONG AF_INET6 = 23;

constexpr ULONG GAA_FLAG_SKIP_UNICAST = 0x1;
constexpr ULONG GAA_FLAG_SKIP_ANYCAST = 0x2;
constexpr ULONG GAA_FLAG_SKIP_MULTICAST = 0x4;
constexpr ULONG GAA_FLAG_SKIP_DNS_SERVER = 0x8;
constexpr ULONG GAA_FLAG_SKIP_FRIENDLY_NAME = 0x20;

constexpr ULONG MAX_ADAPTER_ADDRESS_LENGTH = 8;

// The lists of addresses are never filled here: the tool skips them.
struct IP_ADAPTER_ADDRESSES {
    union {
        ULONGLONG Alignment;
        struct {
            ULONG Length;
            IF_INDEX IfIndex;
        };
    };
    IP_ADAPTER_ADDRESSES* Next;
    PCHAR AdapterName;  // the interface's GUID, "{...}"
    PVOID FirstUnicastAddress;
    PVOID FirstAnycastAddress;
    PVOID FirstMulticastAddress;
    PVOID FirstDnsServerAddress;
    PWCHAR DnsSuffix;
    PWCHAR Description;  // the NDIS interface description
    PWCHAR FriendlyName;  // the connection's name
    BYTE PhysicalAddress[MAX_ADAPTER_ADDRESS_LENGTH];
    ULONG PhysicalAddressLength;
    ULONG Flags;
    ULONG Mtu;
    ULONG IfType;
    ULONG OperStatus;
    IF_INDEX Ipv6IfIndex;
};
using PIP_ADAPTER_ADDRESSES = IP_ADAPTER_ADDRESSES*;

// The scripted connections (host::setNetConnections) as a list in the
// caller's buffer: ERROR_BUFFER_OVERFLOW with the size needed in *size when
// the buffer is short, ERROR_NO_DATA when there is none, or a scripted error.
// Only the families AF_UNSPEC, AF_INET and AF_INET6; flags are taken as given.
ULONG GetAdaptersAddresses(ULONG family, ULONG flags, PVOID reserved, PIP_ADAPTER_ADDRESSES addresses,
                           PULONG size);
