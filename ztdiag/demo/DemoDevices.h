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
#include "tools/sheet_host/SetupApiStandIn.h"
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

    // GetAdaptersAddresses: the devices with a connection, with IP Helper's
    // protocol (ERROR_BUFFER_OVERFLOW, ERROR_NO_DATA); no addresses.
    static ULONG WINAPI getAdaptersAddresses(ULONG family, ULONG flags, PVOID reserved,
                                             PIP_ADAPTER_ADDRESSES addresses, PULONG size);

private:
    std::vector<Device> devices_;
    SetupApiStandIn setupApi_;  // the devices, the network class's, as SetupAPI lists them
    std::unique_ptr<ImportPatch> patch_;
    std::unique_ptr<ImportPatch> ipHelperPatch_;
};
