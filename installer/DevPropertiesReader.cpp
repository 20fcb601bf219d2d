#include "installer/DevPropertiesReader.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "trace/Trace.h"

DevPropertiesReader::DevPropertiesReader(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData)
    : deviceInfoSet_(deviceInfoSet), deviceInfoData_(deviceInfoData)
{
}

bool DevPropertiesReader::getProperty_(const DEVPROPKEY& key, DEVPROPTYPE requiredType,
                                       PropertyBuffer& out) const
{
    DEVPROPTYPE type = 0;
    DWORD requiredSize = 0;
    // Without a buffer the call fails for any property that has a value; only
    // the size it reports matters.
    SetupDiGetDevicePropertyW(deviceInfoSet_, deviceInfoData_, &key, &type, nullptr, 0, &requiredSize, 0);
    if (requiredSize == 0) {
        ZT_TRACE(0, "[!] SetupDiGetDeviceProperty(1) failed, code %d", static_cast<int>(GetLastError()));
        return false;
    }
    if (type != requiredType) {
        ZT_TRACE(0, "[!] getProperty_() types missmatch: wanted %d, got %d", static_cast<int>(requiredType),
                 static_cast<int>(type));
        return false;
    }
    std::unique_ptr<BYTE[]> data(new (std::nothrow) BYTE[requiredSize]);
    if (!data) {
        ZT_TRACE(0, "[!] Couldn't allocate memory, size %d", static_cast<int>(requiredSize));
        return false;
    }
    std::memset(data.get(), 0, requiredSize);
    if (!SetupDiGetDevicePropertyW(deviceInfoSet_, deviceInfoData_, &key, &type, data.get(), requiredSize,
                                   nullptr, 0)) {
        ZT_TRACE(0, "[!] SetupDiGetDeviceProperty(2) failed, code %d", static_cast<int>(GetLastError()));
        return false;
    }
    out.data = std::move(data);
    out.size = requiredSize;
    return true;
}

DWORD DevPropertiesReader::getProblemCode() const
{
    PropertyBuffer buffer;
    if (!getProperty_(DEVPKEY_Device_ProblemCode, DEVPROP_TYPE_UINT32, buffer)) {
        return 0xFFFFFFFF;
    }
    if (buffer.size < sizeof(DWORD)) {
        ZT_TRACE(0, "[!] DEVPKEY_Device_ProblemCode holds %d bytes", static_cast<int>(buffer.size));
        return 0xFFFFFFFF;
    }
    DWORD code = 0;
    std::memcpy(&code, buffer.data.get(), sizeof code);
    return code;
}

std::vector<std::wstring> DevPropertiesReader::getHardwareIds() const
{
    std::vector<std::wstring> ids;
    PropertyBuffer buffer;
    if (!getProperty_(DEVPKEY_Device_HardwareIds, DEVPROP_TYPE_STRING_LIST, buffer)) {
        return ids;
    }
    // A trailing partial unit is ignored; the walk never leaves the buffer,
    // whether or not the list carries its closing zeros.
    const std::size_t units = buffer.size / sizeof(WCHAR);
    const auto* text = reinterpret_cast<const WCHAR*>(buffer.data.get());
    std::size_t index = 0;
    while (index < units) {
        std::size_t end = index;
        while (end < units && text[end] != 0) {
            ++end;
        }
        if (end == index) {
            break;  // the empty string that closes the list
        }
        ids.emplace_back(text + index, end - index);
        index = end + 1;
    }
    return ids;
}

std::wstring DevPropertiesReader::getStringProperty(const DEVPROPKEY& key) const
{
    PropertyBuffer buffer;
    if (!getProperty_(key, DEVPROP_TYPE_STRING, buffer)) {
        return {};
    }
    const std::size_t units = buffer.size / sizeof(WCHAR);
    const auto* text = reinterpret_cast<const WCHAR*>(buffer.data.get());
    std::size_t length = 0;
    while (length < units && text[length] != 0) {
        ++length;
    }
    return {text, length};
}

std::wstring DevPropertiesReader::getAdapterName() const
{
    std::wstring name = getStringProperty(DEVPKEY_Device_FriendlyName);
    if (!name.empty()) {
        return name;
    }
    return getStringProperty(DEVPKEY_Device_DeviceDesc);
}

std::wstring DevPropertiesReader::getInstanceId() const
{
    DWORD requiredSize = 0;
    SetupDiGetDeviceInstanceIdW(deviceInfoSet_, deviceInfoData_, nullptr, 0, &requiredSize);
    if (requiredSize == 0) {
        ZT_TRACE(0, "[!] SetupDiGetDeviceInstanceId(1) failed, code %d", static_cast<int>(GetLastError()));
        return {};
    }
    std::wstring id(requiredSize, L'\0');
    if (!SetupDiGetDeviceInstanceIdW(deviceInfoSet_, deviceInfoData_, id.data(), requiredSize, nullptr)) {
        ZT_TRACE(0, "[!] SetupDiGetDeviceInstanceId(2) failed, code %d", static_cast<int>(GetLastError()));
        return {};
    }
    id.resize(std::min(id.find(L'\0'), id.size()));
    return id;
}
