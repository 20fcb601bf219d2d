// SetupAPI's device functions with their signatures, served from a device table
// (sim/devices/DeviceTable.h): what a program under Wine points imports at.
// One instance at a time is current; its lock serialises the table's users.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/Threading.h"
#include "sim/devices/DeviceTable.h"
#include "tools/sheet_host/ImportPatch.h"

class SetupApiStandIn {
public:
    SetupApiStandIn();
    ~SetupApiStandIn();
    SetupApiStandIn(const SetupApiStandIn&) = delete;
    SetupApiStandIn& operator=(const SetupApiStandIn&) = delete;

    // Runs `action` on the table under the lock.
    template <typename Action> auto with(Action action)
    {
        const std::lock_guard<SrwLock> guard(lock_);
        return action(table_);
    }

    // The replacements of the named functions (SetupDiGetClassDevsW and the like).
    static std::vector<ImportPatch::Replacement> replacements(const std::vector<std::string>& names);

private:
    static HDEVINFO WINAPI getClassDevs_(const GUID* classGuid, PCWSTR enumerator, HWND parent, DWORD flags);
    static BOOL WINAPI enumDeviceInfo_(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device);
    static BOOL WINAPI destroyDeviceInfoList_(HDEVINFO set);
    static BOOL WINAPI getDeviceProperty_(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                                          DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize,
                                          PDWORD requiredSize, DWORD flags);
    static BOOL WINAPI getDeviceInstanceId_(HDEVINFO set, PSP_DEVINFO_DATA device, PWSTR id, DWORD size,
                                            PDWORD requiredSize);
    static BOOL WINAPI getClassInstallParams_(HDEVINFO set, PSP_DEVINFO_DATA device,
                                              PSP_CLASSINSTALL_HEADER params, DWORD paramsSize,
                                              PDWORD requiredSize);
    static BOOL WINAPI setClassInstallParams_(HDEVINFO set, PSP_DEVINFO_DATA device,
                                              PSP_CLASSINSTALL_HEADER params, DWORD paramsSize);

    SrwLock lock_;
    sim::DeviceTable table_;
};
