// The device installer's side of one device, as a co-installer sees it: the
// device's Plug and Play properties and its class-install parameters, behind
// functions with SetupAPI's signatures and protocol (size queries,
// ERROR_INSUFFICIENT_BUFFER, errors through GetLastError).
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/Threading.h"
#include "tools/sheet_host/Win32.h"

// One instance at a time is current: the static functions serve it. Every
// member is thread-safe (a page reads the problem code on its own thread).
class DeviceInstaller {
public:
    DeviceInstaller();
    ~DeviceInstaller();
    DeviceInstaller(const DeviceInstaller&) = delete;
    DeviceInstaller& operator=(const DeviceInstaller&) = delete;

    HDEVINFO deviceInfoSet() { return reinterpret_cast<HDEVINFO>(&setToken_); }
    SP_DEVINFO_DATA* deviceInfoData() { return &device_; }

    void setString(const DEVPROPKEY& key, const std::wstring& text);
    void setStringList(const DEVPROPKEY& key, const std::vector<std::wstring>& list);
    void setUint32(const DEVPROPKEY& key, std::uint32_t value);
    void removeProperty(const DEVPROPKEY& key);

    // What SetupDiGetClassInstallParamsW hands out from now on.
    void setClassInstallParams(const SP_ADDPROPERTYPAGE_DATA& params);
    // What the co-installer stored last, or was given if it stored nothing.
    SP_ADDPROPERTYPAGE_DATA classInstallParams() const;
    int storeCount() const;

    // SetupDiGetDevicePropertyW, SetupDiGetClassInstallParamsW, SetupDiSetClassInstallParamsW.
    static BOOL WINAPI setupDiGetDeviceProperty(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                                                DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize,
                                                PDWORD requiredSize, DWORD flags);
    static BOOL WINAPI setupDiGetClassInstallParams(HDEVINFO set, PSP_DEVINFO_DATA device,
                                                    PSP_CLASSINSTALL_HEADER params, DWORD paramsSize,
                                                    PDWORD requiredSize);
    static BOOL WINAPI setupDiSetClassInstallParams(HDEVINFO set, PSP_DEVINFO_DATA device,
                                                    PSP_CLASSINSTALL_HEADER params, DWORD paramsSize);

private:
    struct Property {
        DEVPROPTYPE type = 0;
        std::vector<BYTE> bytes;
    };
    using Key = std::pair<std::wstring, DEVPROPID>;  // the format id as text, the property id

    static Key keyOf_(const DEVPROPKEY& key);
    static DeviceInstaller* current_(HDEVINFO set, const SP_DEVINFO_DATA* device);
    void set_(const DEVPROPKEY& key, DEVPROPTYPE type, std::vector<BYTE> bytes);

    int setToken_ = 0;  // its address is the one valid HDEVINFO
    SP_DEVINFO_DATA device_{};
    mutable SrwLock lock_;
    std::map<Key, Property> properties_;
    std::vector<BYTE> params_;
    int stores_ = 0;
};
