#include "ztdiag/demo/DemoDevices.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <devguid.h>

namespace {

DemoDevices* current = nullptr;

// What a program that lists the adapters imports; patched() needs all of them.
const char* const listing[]
    = {"SetupDiGetClassDevsW", "SetupDiEnumDeviceInfo", "SetupDiDestroyDeviceInfoList",
       "SetupDiGetDevicePropertyW", "SetupDiGetDeviceInstanceIdW"};

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
    setupApi_.with([this](sim::DeviceTable& t) {
        for (std::size_t index = 0; index < devices_.size(); ++index) {
            const Device& device = devices_[index];
            const auto devInst = static_cast<DWORD>(index + 1);
            t.addDevice(devInst, GUID_DEVCLASS_NET, true, device.instanceId);
            t.setStringList(devInst, DEVPKEY_Device_HardwareIds, device.hardwareIds);
            t.setString(devInst, DEVPKEY_Device_FriendlyName, device.friendlyName);
            t.setUint32(devInst, DEVPKEY_Device_ProblemCode, device.problemCode);
        }
    });
    std::vector<std::string> functions(std::begin(listing), std::end(listing));
    functions.insert(functions.end(), {"SetupDiGetClassInstallParamsW", "SetupDiSetClassInstallParamsW"});
    patch_ = std::make_unique<ImportPatch>(GetModuleHandleW(nullptr), "setupapi.dll",
                                           SetupApiStandIn::replacements(functions));
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
    // The listing's functions are imported by every program that lists adapters; the
    // class-install parameters' two only by one that hands a device to a co-installer.
    const std::vector<std::string>& names = patch_->patched();
    return std::all_of(std::begin(listing), std::end(listing),
                       [&names](const char* name) {
                           return std::find(names.begin(), names.end(), name) != names.end();
                       })
        && ipHelperPatch_->patched().size() == 1;
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
        std::copy_n(device.macAddress.begin(), length, entry.PhysicalAddress);
        entry.PhysicalAddressLength = static_cast<ULONG>(length);
        entry.Mtu = 1500;
        entry.IfType = IF_TYPE_ETHERNET_CSMACD;
        entry.OperStatus = IfOperStatusUp;
        entry.Ipv6IfIndex = device.interfaceIndex;
    }
    return ERROR_SUCCESS;
}
