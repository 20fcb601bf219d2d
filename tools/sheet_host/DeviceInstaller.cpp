#include "tools/sheet_host/DeviceInstaller.h"

#include <algorithm>
#include <cstring>

#include "platform/Threading.h"
#include "tools/sheet_host/Win32.h"

namespace {

DeviceInstaller* currentInstaller = nullptr;

BOOL fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

}  // namespace

DeviceInstaller::DeviceInstaller()
{
    device_.cbSize = sizeof device_;
    device_.DevInst = 1;
    currentInstaller = this;
}

DeviceInstaller::~DeviceInstaller()
{
    currentInstaller = nullptr;
}

DeviceInstaller::Key DeviceInstaller::keyOf_(const DEVPROPKEY& key)
{
    wchar_t text[40] = {};
    StringFromGUID2(key.fmtid, text, 40);
    return {text, key.pid};
}

DeviceInstaller* DeviceInstaller::current_(HDEVINFO set, const SP_DEVINFO_DATA* device)
{
    DeviceInstaller* installer = currentInstaller;
    if (installer == nullptr || set != installer->deviceInfoSet()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (device != nullptr && (device->cbSize != sizeof(SP_DEVINFO_DATA) || device->DevInst != 1)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return installer;
}

void DeviceInstaller::set_(const DEVPROPKEY& key, DEVPROPTYPE type, std::vector<BYTE> bytes)
{
    const std::lock_guard<SrwLock> guard(lock_);
    properties_[keyOf_(key)] = {type, std::move(bytes)};
}

void DeviceInstaller::setString(const DEVPROPKEY& key, const std::wstring& text)
{
    const auto* begin = reinterpret_cast<const BYTE*>(text.c_str());
    set_(key, DEVPROP_TYPE_STRING, {begin, begin + (text.size() + 1) * sizeof(wchar_t)});
}

void DeviceInstaller::setStringList(const DEVPROPKEY& key, const std::vector<std::wstring>& list)
{
    std::wstring joined;
    for (const auto& text : list) {
        joined += text;
        joined += L'\0';
    }
    joined += L'\0';  // the empty string that closes the list
    const auto* begin = reinterpret_cast<const BYTE*>(joined.data());
    set_(key, DEVPROP_TYPE_STRING_LIST, {begin, begin + joined.size() * sizeof(wchar_t)});
}

void DeviceInstaller::setUint32(const DEVPROPKEY& key, std::uint32_t value)
{
    std::vector<BYTE> bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    set_(key, DEVPROP_TYPE_UINT32, std::move(bytes));
}

void DeviceInstaller::removeProperty(const DEVPROPKEY& key)
{
    const std::lock_guard<SrwLock> guard(lock_);
    properties_.erase(keyOf_(key));
}

void DeviceInstaller::setClassInstallParams(const SP_ADDPROPERTYPAGE_DATA& params)
{
    const std::lock_guard<SrwLock> guard(lock_);
    const auto* begin = reinterpret_cast<const BYTE*>(&params);
    params_.assign(begin, begin + sizeof params);
}

SP_ADDPROPERTYPAGE_DATA DeviceInstaller::classInstallParams() const
{
    SP_ADDPROPERTYPAGE_DATA params{};
    const std::lock_guard<SrwLock> guard(lock_);
    std::memcpy(&params, params_.data(), std::min(params_.size(), sizeof params));
    return params;
}

int DeviceInstaller::storeCount() const
{
    const std::lock_guard<SrwLock> guard(lock_);
    return stores_;
}

BOOL WINAPI DeviceInstaller::setupDiGetDeviceProperty(HDEVINFO set, PSP_DEVINFO_DATA device,
                                                      const DEVPROPKEY* key, DEVPROPTYPE* type, PBYTE buffer,
                                                      DWORD bufferSize, PDWORD requiredSize, DWORD flags)
{
    DeviceInstaller* installer = current_(set, device);
    if (installer == nullptr) {
        return FALSE;
    }
    if (device == nullptr || key == nullptr || type == nullptr || (buffer == nullptr && bufferSize != 0)) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    if (flags != 0) {
        return fail(ERROR_INVALID_FLAGS);
    }
    const std::lock_guard<SrwLock> guard(installer->lock_);
    const auto found = installer->properties_.find(keyOf_(*key));
    if (found == installer->properties_.end()) {
        return fail(ERROR_NOT_FOUND);
    }
    const auto size = static_cast<DWORD>(found->second.bytes.size());
    *type = found->second.type;
    if (requiredSize != nullptr) {
        *requiredSize = size;
    }
    if (bufferSize < size) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(buffer, found->second.bytes.data(), size);
    return TRUE;
}

BOOL WINAPI DeviceInstaller::setupDiGetClassInstallParams(HDEVINFO set, PSP_DEVINFO_DATA device,
                                                          PSP_CLASSINSTALL_HEADER params, DWORD paramsSize,
                                                          PDWORD requiredSize)
{
    DeviceInstaller* installer = current_(set, device);
    if (installer == nullptr) {
        return FALSE;
    }
    if (params != nullptr && params->cbSize != sizeof(SP_CLASSINSTALL_HEADER)) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    const std::lock_guard<SrwLock> guard(installer->lock_);
    if (installer->params_.empty()) {
        return fail(ERROR_NO_CLASSINSTALL_PARAMS);
    }
    const auto size = static_cast<DWORD>(installer->params_.size());
    if (requiredSize != nullptr) {
        *requiredSize = size;
    }
    if (params == nullptr || paramsSize < size) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(params, installer->params_.data(), size);
    return TRUE;
}

BOOL WINAPI DeviceInstaller::setupDiSetClassInstallParams(HDEVINFO set, PSP_DEVINFO_DATA device,
                                                          PSP_CLASSINSTALL_HEADER params, DWORD paramsSize)
{
    DeviceInstaller* installer = current_(set, device);
    if (installer == nullptr) {
        return FALSE;
    }
    if (params == nullptr || params->cbSize != sizeof(SP_CLASSINSTALL_HEADER)
        || paramsSize < sizeof(SP_CLASSINSTALL_HEADER)) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    const std::lock_guard<SrwLock> guard(installer->lock_);
    const auto* begin = reinterpret_cast<const BYTE*>(params);
    installer->params_.assign(begin, begin + paramsSize);
    ++installer->stores_;
    return TRUE;
}
