// Which listed ZT adapter a user's words name, by any of the names Windows
// gives it: its device name, its connection's name ("Ethernet 2"), interface
// index and MAC address (as IP Helper tells them), or its device instance id.
// Gives matches, never messages: the console tool and the panel word them.
// Stateless; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "installer/DeviceClassSet.h"
#include "platform.h"

// An adapter's network connection as IP Helper lists it; each field may be unknown.
struct AdapterConnection {
    std::wstring name;  // empty: unknown
    DWORD interfaceIndex = 0;  // 0: unknown
    std::vector<BYTE> macAddress;  // empty: unknown
};

// The connection of each of `adapters`, in their order. An IP Helper entry
// belongs to the adapter whose device name is its description (case ignored);
// an adapter without an entry, or sharing one with another adapter, has
// none. A failing GetAdaptersAddresses is traced and leaves all unknown.
std::vector<AdapterConnection> findAdapterConnections(const std::vector<ZtAdapterDevice>& adapters);

// How a user's text names an adapter, in the order tried.
enum class AdapterKey {
    DeviceName,
    ConnectionName,
    InterfaceIndex,  // decimal
    MacAddress,  // 00-1B-21-3A-4F-5C, 00:1b:21:3a:4f:5c or 001B213A4F5C
    InstanceId,
};

struct AdapterMatch {
    std::size_t adapter;  // the index in the adapters given
    AdapterKey key;  // the first key by which the text names it
};

// The adapters `text` names by any key, each once, in the adapters' order;
// `connections` parallel to `adapters`. Case is ignored, ordinally as the
// platform compares names; none is preferred for its exact spelling or its
// key. An empty text names none.
std::vector<AdapterMatch> adaptersNamed(const std::vector<ZtAdapterDevice>& adapters,
                                        const std::vector<AdapterConnection>& connections,
                                        const std::wstring& text);

// "device name", "connection name", "interface index", "MAC address", "device instance id".
const wchar_t* adapterKeyName(AdapterKey key);

// A MAC address as Windows writes it: "00-1B-21-3A-4F-5C"; empty for none.
std::wstring macAddressText(const std::vector<BYTE>& address);

// A device instance id in quotes, or the text of an unknown value.
std::wstring quotedInstanceId(const ZtAdapterDevice& device);

// Each adapter as a user can name it, for a message: its name, its connection's
// name where known, and its device instance id where its name names another
// adapter too: "'ZT Ethernet Adapter' (connection 'Ethernet 2'), ...".
std::wstring adapterNameList(const std::vector<ZtAdapterDevice>& adapters,
                             const std::vector<AdapterConnection>& connections);
