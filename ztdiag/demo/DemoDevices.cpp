#include "ztdiag/demo/DemoDevices.h"

#include <cstring>
#include <devguid.h>

namespace {

DemoDevices* current = nullptr;

BOOL fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

bool sameKey(const DEVPROPKEY& a, const DEVPROPKEY& b)
{
    return a.pid == b.pid && IsEqualGUID(a.fmtid, b.fmtid);
}

std::vector<BYTE> bytesOf(const std::wstring& units)
{
    const auto* first = reinterpret_cast<const BYTE*>(units.data());
    return {first, first + units.size() * sizeof(wchar_t)};
}

}  // namespace

DemoDevices::DemoDevices(std::vector<Device> devices) : devices_(std::move(devices))
{
    current = this;
    patch_ = std::make_unique<ImportPatch>(
        GetModuleHandleW(nullptr), "setupapi.dll",
        std::vector<ImportPatch::Replacement>{
            {"SetupDiGetClassDevsW", reinterpret_cast<const void*>(&DemoDevices::getClassDevs)},
            {"SetupDiEnumDeviceInfo", reinterpret_cast<const void*>(&DemoDevices::enumDeviceInfo)},
            {"SetupDiDestroyDeviceInfoList",
             reinterpret_cast<const void*>(&DemoDevices::destroyDeviceInfoList)},
            {"SetupDiGetDevicePropertyW", reinterpret_cast<const void*>(&DemoDevices::getDeviceProperty)},
            {"SetupDiGetDeviceInstanceIdW", reinterpret_cast<const void*>(&DemoDevices::getDeviceInstanceId)},
        });
}

DemoDevices::~DemoDevices()
{
    patch_.reset();
    current = nullptr;
}

bool DemoDevices::patched() const
{
    return patch_->patched().size() == 5;
}

HDEVINFO WINAPI DemoDevices::getClassDevs(const GUID* classGuid, PCWSTR /*enumerator*/, HWND /*parent*/,
                                          DWORD /*flags*/)
{
    if (current == nullptr || classGuid == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    return IsEqualGUID(*classGuid, GUID_DEVCLASS_NET) ? &current->set_ : &current->emptySet_;
}

BOOL WINAPI DemoDevices::enumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device)
{
    if (current == nullptr || (set != &current->set_ && set != &current->emptySet_)) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (device == nullptr || device->cbSize != sizeof(SP_DEVINFO_DATA)) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    if (set == &current->emptySet_ || index >= current->devices_.size()) {
        return fail(ERROR_NO_MORE_ITEMS);
    }
    device->ClassGuid = GUID_DEVCLASS_NET;
    device->DevInst = index + 1;
    device->Reserved = 0;
    return TRUE;
}

BOOL WINAPI DemoDevices::destroyDeviceInfoList(HDEVINFO set)
{
    if (current == nullptr || (set != &current->set_ && set != &current->emptySet_)) {
        return fail(ERROR_INVALID_HANDLE);
    }
    return TRUE;
}

BOOL WINAPI DemoDevices::getDeviceInstanceId(HDEVINFO set, PSP_DEVINFO_DATA device, PWSTR id, DWORD size,
                                             PDWORD requiredSize)
{
    if (current == nullptr || set != &current->set_ || device == nullptr
        || device->cbSize != sizeof(SP_DEVINFO_DATA) || device->DevInst == 0
        || device->DevInst > current->devices_.size()) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (id == nullptr && size != 0) {
        return fail(ERROR_INVALID_USER_BUFFER);
    }
    const std::wstring& known = current->devices_[device->DevInst - 1].instanceId;
    const auto needed = static_cast<DWORD>(known.size() + 1);  // characters, the closing zero too
    if (requiredSize != nullptr) {
        *requiredSize = needed;
    }
    if (size < needed) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(id, known.c_str(), needed * sizeof(wchar_t));
    return TRUE;
}

BOOL WINAPI DemoDevices::getDeviceProperty(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                                           DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize,
                                           PDWORD requiredSize, DWORD flags)
{
    if (current == nullptr || set != &current->set_ || device == nullptr
        || device->cbSize != sizeof(SP_DEVINFO_DATA) || device->DevInst == 0
        || device->DevInst > current->devices_.size()) {
        return fail(ERROR_INVALID_HANDLE);
    }
    if (key == nullptr || type == nullptr || flags != 0 || (buffer == nullptr && bufferSize != 0)) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const Device& known = current->devices_[device->DevInst - 1];
    std::vector<BYTE> value;
    if (sameKey(*key, DEVPKEY_Device_HardwareIds)) {
        std::wstring units;
        for (const std::wstring& id : known.hardwareIds) {
            units += id + L'\0';
        }
        units += L'\0';
        *type = DEVPROP_TYPE_STRING_LIST;
        value = bytesOf(units);
    } else if (sameKey(*key, DEVPKEY_Device_FriendlyName)) {
        *type = DEVPROP_TYPE_STRING;
        value = bytesOf(known.friendlyName + L'\0');
    } else if (sameKey(*key, DEVPKEY_Device_ProblemCode)) {
        *type = DEVPROP_TYPE_UINT32;
        value.resize(sizeof known.problemCode);
        std::memcpy(value.data(), &known.problemCode, sizeof known.problemCode);
    } else {
        return fail(ERROR_NOT_FOUND);
    }
    const auto size = static_cast<DWORD>(value.size());
    if (requiredSize != nullptr) {
        *requiredSize = size;
    }
    if (bufferSize < size) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(buffer, value.data(), size);
    return TRUE;
}
