#include "installer/DeviceClassSet.h"

#include "installer/SupportedHardwareIds.h"
#include "trace/Trace.h"

DeviceClassSet::DeviceClassSet(const GUID& classGuid)
    : set_(SetupDiGetClassDevsW(&classGuid, nullptr, nullptr, DIGCF_PRESENT))
{
    if (!isValid()) {
        error_ = GetLastError();
        ZT_TRACE(0, "[!] SetupDiGetClassDevs() failed, code %d", static_cast<int>(error_));
        return;
    }
    for (DWORD index = 0;; ++index) {
        SP_DEVINFO_DATA device{};
        device.cbSize = sizeof device;
        if (!SetupDiEnumDeviceInfo(set_, index, &device)) {
            const DWORD error = GetLastError();
            if (error != ERROR_NO_MORE_ITEMS) {
                error_ = error;
                ZT_TRACE(0, "[!] SetupDiEnumDeviceInfo(%d) failed, code %d", static_cast<int>(index),
                         static_cast<int>(error));
            }
            break;
        }
        devices_.push_back(device);
    }
}

DeviceClassSet::~DeviceClassSet()
{
    if (isValid()) {
        SetupDiDestroyDeviceInfoList(set_);
    }
}

DevPropertiesReader DeviceClassSet::reader(std::size_t index)
{
    return {set_, &devices_.at(index)};
}

bool findZtAdapters(std::vector<ZtAdapterDevice>& adapters, DWORD& error)
{
    DeviceClassSet network(GUID_DEVCLASS_NET);
    error = network.error();
    if (!network.isValid()) {
        return false;
    }
    for (std::size_t i = 0; i < network.size(); ++i) {
        const DevPropertiesReader device = network.reader(i);
        const std::vector<std::wstring> hardwareIds = device.getHardwareIds();
        if (isSupportedHardwareId(hardwareIds)) {
            adapters.push_back({device.getAdapterName(), device.getProblemCode(), device.getInstanceId(),
                                hardwareIds.front()});
        }
    }
    ZT_TRACE(3, "findZtAdapters(): %d of %d network devices listed", static_cast<int>(adapters.size()),
             static_cast<int>(network.size()));
    return true;
}
