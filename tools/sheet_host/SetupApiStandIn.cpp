#include "tools/sheet_host/SetupApiStandIn.h"

namespace {

SetupApiStandIn* current = nullptr;

// Runs `call` on the current table, ERROR_INVALID_HANDLE without one; success
// leaves the thread's last error as it was.
template <typename Call> BOOL answer(Call call)
{
    const DWORD error = current == nullptr ? static_cast<DWORD>(ERROR_INVALID_HANDLE) : current->with(call);
    if (error != 0) {
        SetLastError(error);
    }
    return error == 0 ? TRUE : FALSE;
}

}  // namespace

SetupApiStandIn::SetupApiStandIn()
{
    current = this;
}

SetupApiStandIn::~SetupApiStandIn()
{
    current = nullptr;
}

std::vector<ImportPatch::Replacement> SetupApiStandIn::replacements(const std::vector<std::string>& names)
{
    const std::vector<ImportPatch::Replacement> all{
        {"SetupDiGetClassDevsW", reinterpret_cast<const void*>(&getClassDevs_)},
        {"SetupDiEnumDeviceInfo", reinterpret_cast<const void*>(&enumDeviceInfo_)},
        {"SetupDiDestroyDeviceInfoList", reinterpret_cast<const void*>(&destroyDeviceInfoList_)},
        {"SetupDiGetDevicePropertyW", reinterpret_cast<const void*>(&getDeviceProperty_)},
        {"SetupDiGetDeviceInstanceIdW", reinterpret_cast<const void*>(&getDeviceInstanceId_)},
        {"SetupDiGetClassInstallParamsW", reinterpret_cast<const void*>(&getClassInstallParams_)},
        {"SetupDiSetClassInstallParamsW", reinterpret_cast<const void*>(&setClassInstallParams_)},
    };
    std::vector<ImportPatch::Replacement> chosen;
    for (const std::string& name : names) {
        for (const auto& replacement : all) {
            if (replacement.first == name) {
                chosen.push_back(replacement);
            }
        }
    }
    return chosen;
}

HDEVINFO WINAPI SetupApiStandIn::getClassDevs_(const GUID* classGuid, PCWSTR enumerator, HWND parent,
                                               DWORD flags)
{
    HDEVINFO set = INVALID_HANDLE_VALUE;
    answer([&](sim::DeviceTable& t) { return t.getClassDevs(classGuid, enumerator, parent, flags, &set); });
    return set;
}

BOOL WINAPI SetupApiStandIn::enumDeviceInfo_(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device)
{
    return answer([&](sim::DeviceTable& t) { return t.enumDeviceInfo(set, index, device); });
}

BOOL WINAPI SetupApiStandIn::destroyDeviceInfoList_(HDEVINFO set)
{
    return answer([&](sim::DeviceTable& t) { return t.destroyDeviceInfoList(set); });
}

BOOL WINAPI SetupApiStandIn::getDeviceProperty_(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                                                DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize,
                                                PDWORD requiredSize, DWORD flags)
{
    return answer([&](sim::DeviceTable& t) {
        return t.getDeviceProperty(set, device, key, type, buffer, bufferSize, requiredSize, flags);
    });
}

BOOL WINAPI SetupApiStandIn::getDeviceInstanceId_(HDEVINFO set, PSP_DEVINFO_DATA device, PWSTR id, DWORD size,
                                                  PDWORD requiredSize)
{
    return answer(
        [&](sim::DeviceTable& t) { return t.getDeviceInstanceId(set, device, id, size, requiredSize); });
}

BOOL WINAPI SetupApiStandIn::getClassInstallParams_(HDEVINFO set, PSP_DEVINFO_DATA device,
                                                    PSP_CLASSINSTALL_HEADER params, DWORD paramsSize,
                                                    PDWORD requiredSize)
{
    return answer([&](sim::DeviceTable& t) {
        return t.getClassInstallParams(set, device, params, paramsSize, requiredSize);
    });
}

BOOL WINAPI SetupApiStandIn::setClassInstallParams_(HDEVINFO set, PSP_DEVINFO_DATA device,
                                                    PSP_CLASSINSTALL_HEADER params, DWORD paramsSize)
{
    return answer(
        [&](sim::DeviceTable& t) { return t.setClassInstallParams(set, device, params, paramsSize); });
}
