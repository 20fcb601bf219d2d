#include "ztdiag/demo/DemoDevices.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <devguid.h>

namespace {

DemoDevices* current = nullptr;

BOOL fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

bool sameKey(const DEVPROPKEY& a, const DEVPROPKEY& b)
{
    return a.pid == b.pid && IsEqualGUID(a.fmtid, b.fmtid);
}

std::vector<BYTE> bytesOf(const std::wstring& units)
{
    const auto* first = reinterpret_cast<const BYTE*>(units.data());
    return {first, first + units.size() * sizeof(wchar_t)};
}

constexpr std::size_t alignment = alignof(IP_ADAPTER_ADDRESSES);

std::size_t aligned(std::size_t size)
{
    return (size + alignment - 1) / alignment * alignment;
}

// Copies `count` characters and the closing zero to `next` and moves it past them.
template <typename Char> Char* place(BYTE*& next, const Char* text, std::size_t count)
{
    auto* const at = reinterpret_cast<Char*>(next);
    std::memcpy(at, text, (count + 1) * sizeof(Char));
    next += aligned((count + 1) * sizeof(Char));
    return at;
}

// The interface's GUID, made up from its index.
std::string interfaceGuid(DWORD index)
{
    char text[40];
    std::snprintf(text, sizeof text, "{5A1C7D2E-0B3F-4E61-9C8A-2D4F6B1E%04lX}",
                  static_cast<unsigned long>(index));
    return text;
}

}  // namespace

DemoDevices::DemoDevices(std::vector<Device> devices) : devices_(std::move(devices))
{
    current = this;
    patch_ = std::make_unique<ImportPatch>(
        GetModuleHandleW(nullptr), "setupapi.dll",
        std::vector<ImportPatch::Replacement>{
            {"SetupDiGetClassDevsW", reinterpret_cast<const void*>(&DemoDevices::getClassDevs)},
            {"SetupDiEnumDeviceInfo", reinterpret_cast<const void*>(&DemoDevices::enumDeviceInfo)},
            {"SetupDiDestroyDeviceInfoList",
             reinterpret_cast<const void*>(&DemoDevices::destroyDeviceInfoList)},
            {"SetupDiGetDevicePropertyW", reinterpret_cast<const void*>(&DemoDevices::getDeviceProperty)},
            {"SetupDiGetDeviceInstanceIdW", reinterpret_cast<const void*>(&DemoDevices::getDeviceInstanceId)},
        });
    ipHelperPatch_ = std::make_unique<ImportPatch>(
        GetModuleHandleW(nullptr), "iphlpapi.dll",
        std::vector<ImportPatch::Replacement>{
            {"GetAdaptersAddresses", reinterpret_cast<const void*>(&DemoDevices::getAdaptersAddresses)},
        });
}

DemoDevices::~DemoDevices()
{
    ipHelperPatch_.reset();
    patch_.reset();
    current = nullptr;
}

bool DemoDevices::patched() const
{
    return patch_->patched().size() == 5 && ipHelperPatch_->patched().size() == 1;
}

HDEVINFO WINAPI DemoDevices::getClassDevs(const GUID* classGuid, PCWSTR /*enumerator*/, HWND /*parent*/,
                                          DWORD /*flags*/)
{
    if (current == nullptr || classGuid == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    return IsEqualGUID(*classGuid, GUID_DEVCLASS_NET) ? &current->set_ : &current->emptySet_;
}

BOOL WINAPI DemoDevices::enumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device)
{
    if (current == nullptr || (set != &current->set_ && set != &current->emptySet_)) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (device == nullptr || device->cbSize != sizeof(SP_DEVINFO_DATA)) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    if (set == &current->emptySet_ || index >= current->devices_.size()) {
        return fail(ERROR_NO_MORE_ITEMS);
    }
    device->ClassGuid = GUID_DEVCLASS_NET;
    device->DevInst = index + 1;
    device->Reserved = 0;
    return TRUE;
}

BOOL WINAPI DemoDevices::destroyDeviceInfoList(HDEVINFO set)
{
    if (current == nullptr || (set != &current->set_ && set != &current->emptySet_)) {
        return fail(ERROR_INVALID_HANDLE);
    }
    return TRUE;
}

BOOL WINAPI DemoDevices::getDeviceInstanceId(HDEVINFO set, PSP_DEVINFO_DATA device, PWSTR id, DWORD size,
                                             PDWORD requiredSize)
{
    if (current == nullptr || set != &current->set_ || device == nullptr
        || device->cbSize != sizeof(SP_DEVINFO_DATA) || device->DevInst == 0
        || device->DevInst > current->devices_.size()) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (id == nullptr && size != 0) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    const std::wstring& known = current->devices_[device->DevInst - 1].instanceId;
    const auto needed = static_cast<DWORD>(known.size() + 1);  // characters, the closing zero too
    if (requiredSize != nullptr) {
        *requiredSize = needed;
    }
    if (size < needed) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(id, known.c_str(), needed * sizeof(wchar_t));
    return TRUE;
}

BOOL WINAPI DemoDevices::getDeviceProperty(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                                           DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize,
                                           PDWORD requiredSize, DWORD flags)
{
    if (current == nullptr || set != &current->set_ || device == nullptr
        || device->cbSize != sizeof(SP_DEVINFO_DATA) || device->DevInst == 0
        || device->DevInst > current->devices_.size()) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (key == nullptr || type == nullptr || flags != 0 || (buffer == nullptr && bufferSize != 0)) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const Device& known = current->devices_[device->DevInst - 1];
    std::vector<BYTE> value;
    if (sameKey(*key, DEVPKEY_Device_HardwareIds)) {
        std::wstring units;
        for (const std::wstring& id : known.hardwareIds) {
            units += id + L'\0';
        }
        units += L'\0';
        *type = DEVPROP_TYPE_STRING_LIST;
        value = bytesOf(units);
    } else if (sameKey(*key, DEVPKEY_Device_FriendlyName)) {
        *type = DEVPROP_TYPE_STRING;
        value = bytesOf(known.friendlyName + L'\0');
    } else if (sameKey(*key, DEVPKEY_Device_ProblemCode)) {
        *type = DEVPROP_TYPE_UINT32;
        value.resize(sizeof known.problemCode);
        std::memcpy(value.data(), &known.problemCode, sizeof known.problemCode);
    } else {
        return fail(ERROR_NOT_FOUND);
    }
    const auto size = static_cast<DWORD>(value.size());
    if (requiredSize != nullptr) {
        *requiredSize = size;
    }
    if (bufferSize < size) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(buffer, value.data(), size);
    return TRUE;
}

ULONG WINAPI DemoDevices::getAdaptersAddresses(ULONG family, ULONG /*flags*/, PVOID reserved,
                                               PIP_ADAPTER_ADDRESSES addresses, PULONG size)
{
    if (current == nullptr || size == nullptr || reserved != nullptr
        || (family != AF_UNSPEC && family != AF_INET && family != AF_INET6)) {
        return ERROR_INVALID_PARAMETER;
    }
    std::vector<const Device*> listed;
    std::size_t needed = 0;
    for (const Device& device : current->devices_) {
        if (!device.connectionName.empty()) {
            listed.push_back(&device);
            needed += sizeof(IP_ADAPTER_ADDRESSES) + aligned(interfaceGuid(device.interfaceIndex).size() + 1)
                + aligned(sizeof(wchar_t)) + aligned((device.friendlyName.size() + 1) * sizeof(wchar_t))
                + aligned((device.connectionName.size() + 1) * sizeof(wchar_t));
        }
    }
    if (listed.empty()) {
        return ERROR_NO_DATA;
    }
    if (addresses == nullptr || *size < needed) {
        *size = static_cast<ULONG>(needed);
        return ERROR_BUFFER_OVERFLOW;
    }
    auto* next = reinterpret_cast<BYTE*>(addresses + listed.size());
    for (std::size_t i = 0; i < listed.size(); ++i) {
        const Device& device = *listed[i];
        IP_ADAPTER_ADDRESSES& entry = addresses[i];
        std::memset(&entry, 0, sizeof entry);
        entry.Length = sizeof entry;
        entry.IfIndex = device.interfaceIndex;
        entry.Next = i + 1 < listed.size() ? &addresses[i + 1] : nullptr;
        const std::string guid = interfaceGuid(device.interfaceIndex);
        entry.AdapterName = place(next, guid.c_str(), guid.size());
        entry.DnsSuffix = place(next, L"", 0);
        entry.Description = place(next, device.friendlyName.c_str(), device.friendlyName.size());
        entry.FriendlyName = place(next, device.connectionName.c_str(), device.connectionName.size());
        const std::size_t length
            = std::min<std::size_t>(device.macAddress.size(), MAX_ADAPTER_ADDRESS_LENGTH);
        std::memcpy(entry.PhysicalAddress, device.macAddress.data(), length);
        entry.PhysicalAddressLength = static_cast<ULONG>(length);
        entry.Mtu = 1500;
        entry.IfType = IF_TYPE_ETHERNET_CSMACD;
        entry.OperStatus = IfOperStatusUp;
        entry.Ipv6IfIndex = device.interfaceIndex;
    }
    return ERROR_SUCCESS;
}
