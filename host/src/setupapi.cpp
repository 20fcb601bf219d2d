// Devices of a setup class, their instance ids, device properties and class
// install parameters, with SetupAPI's protocol: size queries,
// ERROR_INSUFFICIENT_BUFFER, and errors through GetLastError.
#include <algorithm>
#include <cstring>
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

int setOnlyInfoSet;  // its address is the installer's HDEVINFO
// Sets of SetupDiGetClassDevsW: tokens from this address on, never dereferenced.
char classSetTokens[1];

std::uintptr_t tokenOf(HDEVINFO set)
{
    return reinterpret_cast<std::uintptr_t>(set) - reinterpret_cast<std::uintptr_t>(classSetTokens);
}

// Under the state's lock: the installer's set, or one made and not yet destroyed.
bool liveSet(const host::State& s, HDEVINFO set)
{
    return set == &setOnlyInfoSet || (set != nullptr && s.deviceSets.count(tokenOf(set)) != 0);
}

host::PropertyKey keyOf(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key)
{
    return {device.DevInst, key.fmtid, key.pid};
}

BOOL fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

// A root-enumerated device's form of id: "ROOT\NET\0007".
std::wstring defaultInstanceId(DWORD devInst)
{
    std::wstring digits = std::to_wstring(devInst);
    return L"ROOT\\NET\\" + std::wstring(digits.size() < 4 ? 4 - digits.size() : 0, L'0') + digits;
}

// Under the state's lock.
bool validDevice(const host::State& s, HDEVINFO set, const SP_DEVINFO_DATA* device)
{
    return liveSet(s, set) && device != nullptr && device->cbSize == sizeof(SP_DEVINFO_DATA);
}

BOOL readProperty(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key, DEVPROPTYPE* type,
                  PBYTE buffer, DWORD bufferSize, PDWORD requiredSize, DWORD flags)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (!validDevice(s, set, device)) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (key == nullptr || type == nullptr || (buffer == nullptr && bufferSize != 0)) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    if (flags != 0) {
        return fail(ERROR_INVALID_FLAGS);
    }
    const auto found = s.properties.find(keyOf(*device, *key));
    if (found == s.properties.end()) {
        return fail(ERROR_NOT_FOUND);
    }
    const auto& value = found->second;
    const auto size = static_cast<DWORD>(value.bytes.size());
    *type = value.type;
    if (requiredSize != nullptr) {
        *requiredSize = size;
    }
    if (bufferSize < size) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    if (size != 0) {
        std::memcpy(buffer, value.bytes.data(), size);
    }
    return TRUE;
}

}  // namespace

HDEVINFO SetupDiGetClassDevsW(const GUID* classGuid, PCWSTR enumerator, HWND parent, DWORD flags)
{
    if (classGuid == nullptr || enumerator != nullptr || parent != nullptr || (flags & ~DIGCF_PRESENT) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);  // beyond what the stand-in models
        return INVALID_HANDLE_VALUE;
    }
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (s.getClassDevsError != 0) {
        SetLastError(s.getClassDevsError);
        return INVALID_HANDLE_VALUE;
    }
    std::vector<DWORD> members;
    for (const host::HostDevice& device : s.devices) {
        if (device.classGuid == *classGuid && (device.present || (flags & DIGCF_PRESENT) == 0)) {
            members.push_back(device.devInst);
        }
    }
    const std::uintptr_t token = s.nextDeviceSet++;
    s.deviceSets[token] = std::move(members);
    return classSetTokens + token;
}

BOOL SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto found = set == nullptr ? s.deviceSets.end() : s.deviceSets.find(tokenOf(set));
    if (found == s.deviceSets.end()) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (device == nullptr || device->cbSize != sizeof(SP_DEVINFO_DATA)) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    if (index >= found->second.size()) {
        return fail(ERROR_NO_MORE_ITEMS);
    }
    *device = host::makeDevice(found->second[index]);
    for (const host::HostDevice& known : s.devices) {
        if (known.devInst == device->DevInst) {
            device->ClassGuid = known.classGuid;
        }
    }
    return TRUE;
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (set == nullptr || s.deviceSets.erase(tokenOf(set)) == 0) {
        return fail(ERROR_INVALID_HANDLE);
    }
    return TRUE;
}

BOOL SetupDiGetDevicePropertyW(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                               DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize, PDWORD requiredSize,
                               DWORD flags)
{
    const BOOL ok = readProperty(set, device, key, type, buffer, bufferSize, requiredSize, flags);
    const DWORD error = GetLastError();
    std::function<void(const DEVPROPKEY&, int)> hook;
    int call = 0;
    {
        auto& s = host::state();
        const std::lock_guard<std::mutex> guard(s.lock);
        call = ++s.propertyCalls;
        hook = s.propertyHook;
    }
    if (hook && key != nullptr) {
        hook(*key, call);
    }
    SetLastError(error);
    return ok;
}

BOOL SetupDiGetDeviceInstanceIdW(HDEVINFO set, PSP_DEVINFO_DATA device, PWSTR id, DWORD size,
                                 PDWORD requiredSize)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (!validDevice(s, set, device)) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (id == nullptr && size != 0) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    if (s.getInstanceIdError != 0) {
        return fail(s.getInstanceIdError);
    }
    std::wstring text;
    for (const host::HostDevice& known : s.devices) {
        if (known.devInst == device->DevInst) {
            text = known.instanceId;
        }
    }
    if (text.empty()) {
        text = defaultInstanceId(device->DevInst);
    }
    const auto needed = static_cast<DWORD>(text.size() + 1);
    if (requiredSize != nullptr) {
        *requiredSize = needed;
    }
    if (size < needed) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::copy(text.c_str(), text.c_str() + needed, id);
    return TRUE;
}

BOOL SetupDiGetClassInstallParamsW(HDEVINFO set, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params,
                                   DWORD paramsSize, PDWORD requiredSize)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    ++s.getParamsCalls;
    if (!validDevice(s, set, device)) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (s.getParamsError != 0) {
        return fail(s.getParamsError);
    }
    if (params != nullptr && params->cbSize != sizeof(SP_CLASSINSTALL_HEADER)) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    const auto found = s.classInstallParams.find(device->DevInst);
    if (found == s.classInstallParams.end()) {
        return fail(ERROR_NO_CLASSINSTALL_PARAMS);
    }
    const auto size = static_cast<DWORD>(found->second.size());
    if (requiredSize != nullptr) {
        *requiredSize = size;
    }
    if (params == nullptr || paramsSize < size) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(params, found->second.data(), size);
    return TRUE;
}

BOOL SetupDiSetClassInstallParamsW(HDEVINFO set, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params,
                                   DWORD paramsSize)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    ++s.setParamsCalls;
    if (!validDevice(s, set, device)) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (s.setParamsError != 0) {
        return fail(s.setParamsError);
    }
    if (params == nullptr || params->cbSize != sizeof(SP_CLASSINSTALL_HEADER)
        || paramsSize < sizeof(SP_CLASSINSTALL_HEADER)) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    const auto* bytes = reinterpret_cast<const BYTE*>(params);
    s.classInstallParams[device->DevInst].assign(bytes, bytes + paramsSize);
    return TRUE;
}

namespace host {

HDEVINFO deviceInfoSet()
{
    return &setOnlyInfoSet;
}

SP_DEVINFO_DATA makeDevice(DWORD devInst)
{
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof device;
    device.DevInst = devInst;
    return device;
}

void addDevice(DWORD devInst, const GUID& classGuid, bool present, const std::wstring& instanceId)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    for (HostDevice& device : s.devices) {
        if (device.devInst == devInst) {
            device = {devInst, classGuid, present, instanceId};
            return;
        }
    }
    s.devices.push_back({devInst, classGuid, present, instanceId});
}

void failGetClassDevs(DWORD error)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.getClassDevsError = error;
}

void failGetDeviceInstanceId(DWORD error)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.getInstanceIdError = error;
}

int liveDeviceInfoSets()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return static_cast<int>(s.deviceSets.size());
}

void setDeviceProperty(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key, DEVPROPTYPE type,
                       std::vector<BYTE> bytes)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.properties[keyOf(device, key)] = StoredProperty{type, std::move(bytes)};
}

namespace {
std::vector<BYTE> wideBytes(const std::wstring& units)
{
    const auto* p = reinterpret_cast<const BYTE*>(units.data());
    return {p, p + units.size() * sizeof(WCHAR)};
}
}  // namespace

void setDeviceString(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key, const std::wstring& text)
{
    setDeviceProperty(device, key, DEVPROP_TYPE_STRING, wideBytes(text + L'\0'));
}

void setDeviceStringList(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key,
                         const std::vector<std::wstring>& strings)
{
    std::wstring units;
    for (const auto& text : strings) {
        units += text;
        units += L'\0';
    }
    units += L'\0';
    setDeviceProperty(device, key, DEVPROP_TYPE_STRING_LIST, wideBytes(units));
}

void setDeviceUint32(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key, DWORD value)
{
    const auto* p = reinterpret_cast<const BYTE*>(&value);
    setDeviceProperty(device, key, DEVPROP_TYPE_UINT32, {p, p + sizeof value});
}

void removeDeviceProperty(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.properties.erase(keyOf(device, key));
}

void onDevicePropertyRead(std::function<void(const DEVPROPKEY&, int)> hook)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.propertyHook = std::move(hook);
}

int devicePropertyCalls()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.propertyCalls;
}

void setAddPropertyPageData(const SP_DEVINFO_DATA& device, const SP_ADDPROPERTYPAGE_DATA& data)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto* bytes = reinterpret_cast<const BYTE*>(&data);
    s.classInstallParams[device.DevInst].assign(bytes, bytes + sizeof data);
}

SP_ADDPROPERTYPAGE_DATA addPropertyPageData(const SP_DEVINFO_DATA& device)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    SP_ADDPROPERTYPAGE_DATA data{};
    const auto found = s.classInstallParams.find(device.DevInst);
    if (found != s.classInstallParams.end()) {
        std::memcpy(&data, found->second.data(), std::min(found->second.size(), sizeof data));
    }
    return data;
}

void failGetClassInstallParams(DWORD error)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.getParamsError = error;
}

void failSetClassInstallParams(DWORD error)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.setParamsError = error;
}

int getClassInstallParamsCalls()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.getParamsCalls;
}

int setClassInstallParamsCalls()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.setParamsCalls;
}

}  // namespace host
