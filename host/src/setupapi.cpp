// SetupAPI's device functions over the host state's device table
// (sim/devices/DeviceTable.h), errors through GetLastError, and the scripting of
// host/HostPlatform.h.
#include <string>

#include "HostState.h"
#include "host/HostPlatform.h"

const DEVPROPKEY DEVPKEY_Device_DeviceDesc
    = {{0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}}, 2};
const DEVPROPKEY DEVPKEY_Device_HardwareIds
    = {{0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}}, 3};
const DEVPROPKEY DEVPKEY_Device_FriendlyName
    = {{0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}}, 14};
const DEVPROPKEY DEVPKEY_Device_ProblemCode
    = {{0x4340a6c5, 0x93fa, 0x4706, {0x97, 0x2c, 0x7b, 0x64, 0x80, 0x08, 0xa5, 0xa7}}, 3};
const GUID GUID_DEVCLASS_NET = {0x4d36e972, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};

namespace {

using Call = sim::DeviceTable::Call;

// Runs `action` on the device table under the state's lock.
template <typename Action> auto withTable(Action action)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return action(s.devices);
}

// Success leaves the thread's last error as it was.
BOOL answer(DWORD error)
{
    if (error != 0) {
        SetLastError(error);
    }
    return error == 0 ? TRUE : FALSE;
}

}  // namespace

HDEVINFO SetupDiGetClassDevsW(const GUID* classGuid, PCWSTR enumerator, HWND parent, DWORD flags)
{
    HDEVINFO set = INVALID_HANDLE_VALUE;
    answer(withTable([&](auto& t) { return t.getClassDevs(classGuid, enumerator, parent, flags, &set); }));
    return set;
}

BOOL SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device)
{
    return answer(withTable([&](auto& t) { return t.enumDeviceInfo(set, index, device); }));
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set)
{
    return answer(withTable([&](auto& t) { return t.destroyDeviceInfoList(set); }));
}

BOOL SetupDiGetDevicePropertyW(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                               DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize, PDWORD requiredSize,
                               DWORD flags)
{
    std::function<void(const DEVPROPKEY&, int)> hook;
    int call = 0;
    const DWORD error = withTable([&](auto& t) {
        hook = host::state().propertyHook;
        const DWORD found
            = t.getDeviceProperty(set, device, key, type, buffer, bufferSize, requiredSize, flags);
        call = t.calls(Call::getDeviceProperty);
        return found;
    });
    const DWORD last = error != 0 ? error : GetLastError();
    if (hook && key != nullptr) {
        hook(*key, call);  // outside the lock: it may call in again
    }
    SetLastError(last);
    return error == 0 ? TRUE : FALSE;
}

BOOL SetupDiGetDeviceInstanceIdW(HDEVINFO set, PSP_DEVINFO_DATA device, PWSTR id, DWORD size,
                                 PDWORD requiredSize)
{
    return answer(
        withTable([&](auto& t) { return t.getDeviceInstanceId(set, device, id, size, requiredSize); }));
}

BOOL SetupDiGetClassInstallParamsW(HDEVINFO set, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params,
                                   DWORD paramsSize, PDWORD requiredSize)
{
    return answer(withTable(
        [&](auto& t) { return t.getClassInstallParams(set, device, params, paramsSize, requiredSize); }));
}

BOOL SetupDiSetClassInstallParamsW(HDEVINFO set, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params,
                                   DWORD paramsSize)
{
    return answer(
        withTable([&](auto& t) { return t.setClassInstallParams(set, device, params, paramsSize); }));
}

namespace host {

HDEVINFO deviceInfoSet()
{
    return withTable([](auto& t) { return t.installerSet(); });
}

SP_DEVINFO_DATA makeDevice(DWORD devInst)
{
    return sim::DeviceTable::device(devInst);
}

void addDevice(DWORD devInst, const GUID& classGuid, bool present, const std::wstring& instanceId)
{
    withTable([&](auto& t) { t.addDevice(devInst, classGuid, present, instanceId); });
}

void failGetClassDevs(DWORD error)
{
    withTable([&](auto& t) { t.fail(Call::getClassDevs, error); });
}

void failGetDeviceInstanceId(DWORD error)
{
    withTable([&](auto& t) { t.fail(Call::getDeviceInstanceId, error); });
}

int liveDeviceInfoSets()
{
    return withTable([](auto& t) { return t.liveSets(); });
}

void setDeviceProperty(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key, DEVPROPTYPE type,
                       std::vector<BYTE> bytes)
{
    withTable([&](auto& t) { t.setProperty(device.DevInst, key, type, std::move(bytes)); });
}

void setDeviceString(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key, const std::wstring& text)
{
    withTable([&](auto& t) { t.setString(device.DevInst, key, text); });
}

void setDeviceStringList(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key,
                         const std::vector<std::wstring>& strings)
{
    withTable([&](auto& t) { t.setStringList(device.DevInst, key, strings); });
}

void setDeviceUint32(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key, DWORD value)
{
    withTable([&](auto& t) { t.setUint32(device.DevInst, key, value); });
}

void removeDeviceProperty(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key)
{
    withTable([&](auto& t) { t.removeProperty(device.DevInst, key); });
}

void onDevicePropertyRead(std::function<void(const DEVPROPKEY&, int)> hook)
{
    withTable([&](auto&) { state().propertyHook = std::move(hook); });
}

int devicePropertyCalls()
{
    return withTable([](auto& t) { return t.calls(Call::getDeviceProperty); });
}

void setAddPropertyPageData(const SP_DEVINFO_DATA& device, const SP_ADDPROPERTYPAGE_DATA& data)
{
    withTable([&](auto& t) { t.setAddPropertyPageData(device.DevInst, data); });
}

SP_ADDPROPERTYPAGE_DATA addPropertyPageData(const SP_DEVINFO_DATA& device)
{
    return withTable([&](auto& t) { return t.addPropertyPageData(device.DevInst); });
}

void failGetClassInstallParams(DWORD error)
{
    withTable([&](auto& t) { t.fail(Call::getClassInstallParams, error); });
}

void failSetClassInstallParams(DWORD error)
{
    withTable([&](auto& t) { t.fail(Call::setClassInstallParams, error); });
}

int getClassInstallParamsCalls()
{
    return withTable([](auto& t) { return t.calls(Call::getClassInstallParams); });
}

int setClassInstallParamsCalls()
{
    return withTable([](auto& t) { return t.calls(Call::setClassInstallParams); });
}

}  // namespace host
