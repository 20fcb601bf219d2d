// The network class's devices of the demo, in place of the machine's: the
// program's own imports of SetupAPI's device functions, and of IP Helper's
// list of connections (Wine's would list the Linux host's), are pointed at
// these for as long as the object lives, so the tool's code and the module's
// run unchanged. One instance at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/sheet_host/ImportPatch.h"
#include "tools/sheet_host/Win32.h"
// clang-format off
#include <winsock2.h>
#include <iphlpapi.h>
// clang-format on

class DemoDevices {
public:
    struct Device {
        std::wstring friendlyName;
        std::vector<std::wstring> hardwareIds;
        std::uint32_t problemCode = 0;
        std::wstring instanceId;
        // Its network connection as IP Helper lists it; none without a name.
        std::wstring connectionName;
        DWORD interfaceIndex;
        std::vector<BYTE> macAddress;
    };

    explicit DemoDevices(std::vector<Device> devices);
    ~DemoDevices();
    DemoDevices(const DemoDevices&) = delete;
    DemoDevices& operator=(const DemoDevices&) = delete;

    // All six functions were found among the program's imports and replaced.
    bool patched() const;

    // SetupDiGetClassDevsW, SetupDiEnumDeviceInfo, SetupDiDestroyDeviceInfoList,
    // SetupDiGetDevicePropertyW, SetupDiGetDeviceInstanceIdW, with SetupAPI's
    // protocol for what the tool asks.
    static HDEVINFO WINAPI getClassDevs(const GUID* classGuid, PCWSTR enumerator, HWND parent, DWORD flags);
    static BOOL WINAPI enumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device);
    static BOOL WINAPI destroyDeviceInfoList(HDEVINFO set);
    static BOOL WINAPI getDeviceProperty(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                                         DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize,
                                         PDWORD requiredSize, DWORD flags);
    static BOOL WINAPI getDeviceInstanceId(HDEVINFO set, PSP_DEVINFO_DATA device, PWSTR id, DWORD size,
                                           PDWORD requiredSize);
    // GetAdaptersAddresses: the devices with a connection, with IP Helper's
    // protocol (ERROR_BUFFER_OVERFLOW, ERROR_NO_DATA); no addresses.
    static ULONG WINAPI getAdaptersAddresses(ULONG family, ULONG flags, PVOID reserved,
                                             PIP_ADAPTER_ADDRESSES addresses, PULONG size);

private:
    std::vector<Device> devices_;
    int set_ = 0;  // its address is the set of the network class
    int emptySet_ = 0;  // and this one of any other class
    std::unique_ptr<ImportPatch> patch_;
    std::unique_ptr<ImportPatch> ipHelperPatch_;
};
