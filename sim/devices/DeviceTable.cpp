#include "sim/devices/DeviceTable.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

std::vector<BYTE> bytesOf(const void* data, std::size_t size)
{
    const auto* first = static_cast<const BYTE*>(data);
    return {first, first + size};
}

}  // namespace

bool DeviceTable::Key::operator<(const Key& other) const
{
    if (devInst != other.devInst) {
        return devInst < other.devInst;
    }
    const int byFormat = std::memcmp(&fmtid, &other.fmtid, sizeof fmtid);
    return byFormat != 0 ? byFormat < 0 : pid < other.pid;
}

SP_DEVINFO_DATA DeviceTable::device(DWORD devInst)
{
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof device;
    device.DevInst = devInst;
    return device;
}

void DeviceTable::addDevice(DWORD devInst, const GUID& classGuid, bool present,
                            const std::wstring& instanceId)
{
    const Device added{devInst, classGuid, present, instanceId};
    for (Device& device : devices_) {
        if (device.devInst == devInst) {
            device = added;
            return;
        }
    }
    devices_.push_back(added);
}

void DeviceTable::setProperty(DWORD devInst, const DEVPROPKEY& key, DEVPROPTYPE type, std::vector<BYTE> bytes)
{
    properties_[keyOf_(devInst, key)] = Property{type, std::move(bytes)};
}

void DeviceTable::setString(DWORD devInst, const DEVPROPKEY& key, const std::wstring& text)
{
    setProperty(devInst, key, DEVPROP_TYPE_STRING, bytesOf(text.c_str(), (text.size() + 1) * sizeof(WCHAR)));
}

void DeviceTable::setStringList(DWORD devInst, const DEVPROPKEY& key,
                                const std::vector<std::wstring>& strings)
{
    std::wstring units;
    for (const auto& text : strings) {
        units += text;
        units += L'\0';
    }
    units += L'\0';  // the empty string that closes the list
    setProperty(devInst, key, DEVPROP_TYPE_STRING_LIST, bytesOf(units.data(), units.size() * sizeof(WCHAR)));
}

void DeviceTable::setUint32(DWORD devInst, const DEVPROPKEY& key, DWORD value)
{
    setProperty(devInst, key, DEVPROP_TYPE_UINT32, bytesOf(&value, sizeof value));
}

void DeviceTable::removeProperty(DWORD devInst, const DEVPROPKEY& key)
{
    properties_.erase(keyOf_(devInst, key));
}

void DeviceTable::setAddPropertyPageData(DWORD devInst, const SP_ADDPROPERTYPAGE_DATA& data)
{
    params_[devInst] = bytesOf(&data, sizeof data);
}

SP_ADDPROPERTYPAGE_DATA DeviceTable::addPropertyPageData(DWORD devInst) const
{
    SP_ADDPROPERTYPAGE_DATA data{};
    const auto found = params_.find(devInst);
    if (found != params_.end()) {
        std::copy_n(found->second.begin(), std::min(found->second.size(), sizeof data),
                    reinterpret_cast<BYTE*>(&data));
    }
    return data;
}

void DeviceTable::fail(Call call, DWORD error)
{
    failures_[call] = error;
}

int DeviceTable::calls(Call call) const
{
    const auto found = calls_.find(call);
    return found == calls_.end() ? 0 : found->second;
}

void DeviceTable::clear()
{
    sets_.clear();
    devices_.clear();
    properties_.clear();
    params_.clear();
    failures_.clear();
    calls_.clear();
    stores_ = 0;
}

std::uintptr_t DeviceTable::tokenOf_(HDEVINFO set) const
{
    return reinterpret_cast<std::uintptr_t>(set) - reinterpret_cast<std::uintptr_t>(classSets_);
}

bool DeviceTable::validDevice_(HDEVINFO set, const SP_DEVINFO_DATA* device) const
{
    const bool liveSet = set == &installerSet_ || (set != nullptr && sets_.count(tokenOf_(set)) != 0);
    return liveSet && device != nullptr && device->cbSize == sizeof(SP_DEVINFO_DATA);
}

const DeviceTable::Device* DeviceTable::find_(DWORD devInst) const
{
    const auto found = std::find_if(devices_.begin(), devices_.end(),
                                    [devInst](const Device& device) { return device.devInst == devInst; });
    return found == devices_.end() ? nullptr : &*found;
}

DWORD DeviceTable::count_(Call call)
{
    ++calls_[call];
    const auto found = failures_.find(call);
    return found == failures_.end() ? 0 : found->second;
}

DWORD DeviceTable::getClassDevs(const GUID* classGuid, PCWSTR enumerator, HWND parent, DWORD flags,
                                HDEVINFO* set)
{
    const DWORD scripted = count_(Call::getClassDevs);
    *set = INVALID_HANDLE_VALUE;
    if (classGuid == nullptr || enumerator != nullptr || parent != nullptr || (flags & ~DIGCF_PRESENT) != 0) {
        return ERROR_INVALID_PARAMETER;  // beyond what the table models
    }
    if (scripted != 0) {
        return scripted;
    }
    std::vector<DWORD> members;
    for (const Device& device : devices_) {
        if (std::memcmp(&device.classGuid, classGuid, sizeof(GUID)) == 0
            && (device.present || (flags & DIGCF_PRESENT) == 0)) {
            members.push_back(device.devInst);
        }
    }
    const std::uintptr_t token = nextSet_++;
    sets_[token] = std::move(members);
    *set = classSets_ + token;
    return 0;
}

DWORD DeviceTable::enumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device)
{
    count_(Call::enumDeviceInfo);
    const auto found = set == nullptr ? sets_.end() : sets_.find(tokenOf_(set));
    if (found == sets_.end()) {
        return ERROR_INVALID_HANDLE;
    }
    if (device == nullptr || device->cbSize != sizeof(SP_DEVINFO_DATA)) {
        return ERROR_INVALID_USER_BUFFER;
    }
    if (index >= found->second.size()) {
        return ERROR_NO_MORE_ITEMS;
    }
    *device = DeviceTable::device(found->second[index]);
    if (const Device* known = find_(device->DevInst)) {
        device->ClassGuid = known->classGuid;
    }
    return 0;
}

DWORD DeviceTable::destroyDeviceInfoList(HDEVINFO set)
{
    count_(Call::destroyDeviceInfoList);
    return set == nullptr || sets_.erase(tokenOf_(set)) == 0 ? ERROR_INVALID_HANDLE : 0;
}

DWORD DeviceTable::getDeviceProperty(HDEVINFO set, const SP_DEVINFO_DATA* device, const DEVPROPKEY* key,
                                     DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize, PDWORD requiredSize,
                                     DWORD flags)
{
    count_(Call::getDeviceProperty);
    if (!validDevice_(set, device)) {
        return ERROR_INVALID_HANDLE;
    }
    if (key == nullptr || type == nullptr || (buffer == nullptr && bufferSize != 0)) {
        return ERROR_INVALID_USER_BUFFER;
    }
    if (flags != 0) {
        return ERROR_INVALID_FLAGS;
    }
    const auto found = properties_.find(keyOf_(device->DevInst, *key));
    if (found == properties_.end()) {
        return ERROR_NOT_FOUND;
    }
    const auto size = static_cast<DWORD>(found->second.bytes.size());
    *type = found->second.type;
    if (requiredSize != nullptr) {
        *requiredSize = size;
    }
    if (bufferSize < size) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    std::copy(found->second.bytes.begin(), found->second.bytes.end(), buffer);
    return 0;
}

DWORD DeviceTable::getDeviceInstanceId(HDEVINFO set, const SP_DEVINFO_DATA* device, PWSTR id, DWORD size,
                                       PDWORD requiredSize)
{
    const DWORD scripted = count_(Call::getDeviceInstanceId);
    if (!validDevice_(set, device)) {
        return ERROR_INVALID_HANDLE;
    }
    if (id == nullptr && size != 0) {
        return ERROR_INVALID_USER_BUFFER;
    }
    if (scripted != 0) {
        return scripted;
    }
    const Device* known = find_(device->DevInst);
    std::wstring text = known == nullptr ? std::wstring() : known->instanceId;
    if (text.empty()) {
        const std::wstring digits = std::to_wstring(device->DevInst);
        text = L"ROOT\\NET\\" + std::wstring(digits.size() < 4 ? 4 - digits.size() : 0, L'0') + digits;
    }
    const auto needed = static_cast<DWORD>(text.size() + 1);
    if (requiredSize != nullptr) {
        *requiredSize = needed;
    }
    if (size < needed) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    std::copy(text.c_str(), text.c_str() + needed, id);
    return 0;
}

DWORD DeviceTable::getClassInstallParams(HDEVINFO set, const SP_DEVINFO_DATA* device,
                                         PSP_CLASSINSTALL_HEADER params, DWORD paramsSize,
                                         PDWORD requiredSize)
{
    const DWORD scripted = count_(Call::getClassInstallParams);
    if (!validDevice_(set, device)) {
        return ERROR_INVALID_HANDLE;
    }
    if (scripted != 0) {
        return scripted;
    }
    if (params != nullptr && params->cbSize != sizeof(SP_CLASSINSTALL_HEADER)) {
        return ERROR_INVALID_USER_BUFFER;
    }
    const auto found = params_.find(device->DevInst);
    if (found == params_.end()) {
        return ERROR_NO_CLASSINSTALL_PARAMS;
    }
    const auto size = static_cast<DWORD>(found->second.size());
    if (requiredSize != nullptr) {
        *requiredSize = size;
    }
    if (params == nullptr || paramsSize < size) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    std::copy_n(found->second.begin(), size, reinterpret_cast<BYTE*>(params));
    return 0;
}

DWORD DeviceTable::setClassInstallParams(HDEVINFO set, const SP_DEVINFO_DATA* device,
                                         const SP_CLASSINSTALL_HEADER* params, DWORD paramsSize)
{
    const DWORD scripted = count_(Call::setClassInstallParams);
    if (!validDevice_(set, device)) {
        return ERROR_INVALID_HANDLE;
    }
    if (scripted != 0) {
        return scripted;
    }
    if (params == nullptr || params->cbSize != sizeof(SP_CLASSINSTALL_HEADER)
        || paramsSize < sizeof(SP_CLASSINSTALL_HEADER)) {
        return ERROR_INVALID_USER_BUFFER;
    }
    params_[device->DevInst] = bytesOf(params, paramsSize);
    ++stores_;
    return 0;
}

}  // namespace sim
