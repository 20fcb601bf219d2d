#include "ztdiag/AdapterSelector.h"

#include "nic/AdapterTexts.h"
#include "trace/Trace.h"
#include "ztdiag/CommandLine.h"

namespace {

struct ListedConnection {
    std::wstring description;
    AdapterConnection connection;
};

std::wstring textOf(const WCHAR* text)
{
    return text != nullptr ? text : L"";
}

// IP Helper's list, read into `listed`; false, with its code in `error`, if it fails.
bool readConnections(std::vector<ListedConnection>& listed, ULONG& error)
{
    // Only names and numbers: no list of addresses.
    const ULONG flags
        = GAA_FLAG_SKIP_UNICAST | GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
    // The platform's advice: a buffer this large first answers most machines in one call.
    ULONG size = 15000;
    std::vector<IP_ADAPTER_ADDRESSES> buffer;
    ULONG result = ERROR_BUFFER_OVERFLOW;
    // The list may grow between the size and the read: a few tries.
    for (int tries = 0; tries < 4 && result == ERROR_BUFFER_OVERFLOW; ++tries) {
        buffer.assign(size / sizeof(IP_ADAPTER_ADDRESSES) + 1, IP_ADAPTER_ADDRESSES{});
        size = static_cast<ULONG>(buffer.size() * sizeof(IP_ADAPTER_ADDRESSES));
        result = GetAdaptersAddresses(AF_UNSPEC, flags, nullptr, buffer.data(), &size);
    }
    if (result == ERROR_NO_DATA) {
        return true;
    }
    if (result != ERROR_SUCCESS) {
        error = result;
        return false;
    }
    for (const IP_ADAPTER_ADDRESSES* entry = buffer.data(); entry != nullptr; entry = entry->Next) {
        ListedConnection connection;
        connection.description = textOf(entry->Description);
        connection.connection.name = textOf(entry->FriendlyName);
        // IfIndex is 0 where IPv4 isn't bound to the interface.
        connection.connection.interfaceIndex = entry->IfIndex != 0 ? entry->IfIndex : entry->Ipv6IfIndex;
        const ULONG length
            = entry->PhysicalAddressLength <= MAX_ADAPTER_ADDRESS_LENGTH ? entry->PhysicalAddressLength : 0;
        connection.connection.macAddress.assign(entry->PhysicalAddress, entry->PhysicalAddress + length);
        listed.push_back(std::move(connection));
    }
    return true;
}

bool isHexDigit(wchar_t c)
{
    return (c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'f') || (c >= L'A' && c <= L'F');
}

// `text` in Windows' form of a MAC address if it is one of six bytes in a
// common form; else empty. The digits keep their case.
std::wstring macAddressForm(const std::wstring& text)
{
    std::wstring digits;
    if (text.size() == 12) {
        digits = text;
    } else if (text.size() == 17 && (text[2] == L'-' || text[2] == L':')) {
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (i % 3 == 2) {
                if (text[i] != text[2]) {
                    return {};
                }
            } else {
                digits += text[i];
            }
        }
    }
    if (digits.size() != 12) {
        return {};
    }
    std::wstring form;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (!isHexDigit(digits[i])) {
            return {};
        }
        if (i != 0 && i % 2 == 0) {
            form += L'-';
        }
        form += digits[i];
    }
    return form;
}

// The interface index `text` gives in decimal digits; 0 if it gives none.
DWORD interfaceIndexOf(const std::wstring& text)
{
    if (text.empty() || text.size() > 10) {
        return 0;
    }
    unsigned long long value = 0;
    for (const wchar_t c : text) {
        if (c < L'0' || c > L'9') {
            return 0;
        }
        value = value * 10 + static_cast<unsigned>(c - L'0');
    }
    return value <= 0xFFFFFFFFULL ? static_cast<DWORD>(value) : 0;
}

}  // namespace

std::vector<AdapterConnection> findAdapterConnections(const std::vector<ZtAdapterDevice>& adapters)
{
    std::vector<AdapterConnection> connections(adapters.size());
    std::vector<ListedConnection> listed;
    ULONG error = 0;
    if (!readConnections(listed, error)) {
        ZT_TRACE(0, "[!] GetAdaptersAddresses() failed, code %d: the connections' names are unknown",
                 static_cast<int>(error));
        return connections;
    }
    for (std::size_t i = 0; i < adapters.size(); ++i) {
        // Two adapters of one name, or two entries of one description: none is picked.
        std::size_t sameName = 0;
        for (const ZtAdapterDevice& other : adapters) {
            sameName += sameIgnoringCase(other.name, adapters[i].name) ? 1 : 0;
        }
        const ListedConnection* found = nullptr;
        std::size_t entries = 0;
        for (const ListedConnection& entry : listed) {
            if (sameIgnoringCase(entry.description, adapters[i].name)) {
                found = &entry;
                ++entries;
            }
        }
        if (sameName == 1 && entries == 1) {
            connections[i] = found->connection;
        } else if (entries != 0) {
            ZT_TRACE(1, "findAdapterConnections(): adapter %d: %d adapters and %d connections of its name",
                     static_cast<int>(i), static_cast<int>(sameName), static_cast<int>(entries));
        }
    }
    return connections;
}

std::vector<AdapterMatch> adaptersNamed(const std::vector<ZtAdapterDevice>& adapters,
                                        const std::vector<AdapterConnection>& connections,
                                        const std::wstring& text)
{
    std::vector<AdapterMatch> matches;
    if (text.empty()) {
        return matches;
    }
    const DWORD index = interfaceIndexOf(text);
    const std::wstring mac = macAddressForm(text);
    for (std::size_t i = 0; i < adapters.size(); ++i) {
        const ZtAdapterDevice& device = adapters[i];
        const AdapterConnection none;
        const AdapterConnection& connection = i < connections.size() ? connections[i] : none;
        if (sameIgnoringCase(device.name, text)) {
            matches.push_back({i, AdapterKey::DeviceName});
        } else if (!connection.name.empty() && sameIgnoringCase(connection.name, text)) {
            matches.push_back({i, AdapterKey::ConnectionName});
        } else if (index != 0 && connection.interfaceIndex == index) {
            matches.push_back({i, AdapterKey::InterfaceIndex});
        } else if (!mac.empty() && sameIgnoringCase(macAddressText(connection.macAddress), mac)) {
            matches.push_back({i, AdapterKey::MacAddress});
        } else if (!device.instanceId.empty() && sameIgnoringCase(device.instanceId, text)) {
            matches.push_back({i, AdapterKey::InstanceId});
        }
    }
    return matches;
}

const wchar_t* adapterKeyName(AdapterKey key)
{
    switch (key) {
    case AdapterKey::DeviceName:
        return L"device name";
    case AdapterKey::ConnectionName:
        return L"connection name";
    case AdapterKey::InterfaceIndex:
        return L"interface index";
    case AdapterKey::MacAddress:
        return L"MAC address";
    case AdapterKey::InstanceId:
        return L"device instance id";
    }
    return L"?";
}

std::wstring macAddressText(const std::vector<BYTE>& address)
{
    static const wchar_t digits[] = L"0123456789ABCDEF";
    std::wstring text;
    for (const BYTE octet : address) {
        if (!text.empty()) {
            text += L'-';
        }
        text += digits[octet >> 4];
        text += digits[octet & 0xF];
    }
    return text;
}

std::wstring quotedInstanceId(const ZtAdapterDevice& device)
{
    return device.instanceId.empty() ? std::wstring(unknownText) : L"'" + device.instanceId + L"'";
}

std::wstring adapterNameList(const std::vector<ZtAdapterDevice>& adapters,
                             const std::vector<AdapterConnection>& connections)
{
    std::wstring names;
    for (std::size_t i = 0; i < adapters.size(); ++i) {
        const ZtAdapterDevice& device = adapters[i];
        names += (names.empty() ? L"'" : L", '") + device.name + L"'";
        std::wstring tellApart;
        if (!connections[i].name.empty()) {
            tellApart = L"connection '" + connections[i].name + L"'";
        }
        if (adaptersNamed(adapters, connections, device.name).size() > 1) {
            tellApart += (tellApart.empty() ? L"" : L", ") + std::wstring(L"device instance id ")
                + quotedInstanceId(device);
        }
        if (!tellApart.empty()) {
            names += L" (" + tellApart + L")";
        }
    }
    return names;
}
