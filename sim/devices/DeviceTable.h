// A device manager's table for SetupAPI's stand-ins: devices of setup classes
// with their instance ids, properties and class-install parameters, and
// SetupAPI's protocol over them (size queries, ERROR_INSUFFICIENT_BUFFER,
// ERROR_INVALID_HANDLE, ERROR_NOT_FOUND, ERROR_NO_MORE_ITEMS). Each call answers
// the error its function would leave for GetLastError, 0 when it succeeds; a
// binding passes it on. Not thread-safe: its binding serialises the calls.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform.h"

namespace sim {

class DeviceTable {
public:
    enum class Call {
        getClassDevs,
        enumDeviceInfo,
        destroyDeviceInfoList,
        getDeviceProperty,
        getDeviceInstanceId,
        getClassInstallParams,
        setClassInstallParams,
    };

    DeviceTable() = default;
    DeviceTable(const DeviceTable&) = delete;  // its sets' handles are addresses in it
    DeviceTable& operator=(const DeviceTable&) = delete;

    // The set a device installer hands its co-installers: any device of it, never enumerated.
    HDEVINFO installerSet() { return &installerSet_; }
    static SP_DEVINFO_DATA device(DWORD devInst);

    // A device of a setup class, listed by getClassDevs in the order added (again: replaced).
    // Without an instance id it has a root-enumerated one: "ROOT\NET\0007".
    void addDevice(DWORD devInst, const GUID& classGuid, bool present, const std::wstring& instanceId);
    void setProperty(DWORD devInst, const DEVPROPKEY& key, DEVPROPTYPE type, std::vector<BYTE> bytes);
    void setString(DWORD devInst, const DEVPROPKEY& key, const std::wstring& text);
    void setStringList(DWORD devInst, const DEVPROPKEY& key, const std::vector<std::wstring>& strings);
    void setUint32(DWORD devInst, const DEVPROPKEY& key, DWORD value);
    void removeProperty(DWORD devInst, const DEVPROPKEY& key);
    void setAddPropertyPageData(DWORD devInst, const SP_ADDPROPERTYPAGE_DATA& data);
    // What the last successful setClassInstallParams stored, or was given; zeros without either.
    SP_ADDPROPERTYPAGE_DATA addPropertyPageData(DWORD devInst) const;

    // A non-zero error makes every later call of getClassDevs, getDeviceInstanceId,
    // getClassInstallParams or setClassInstallParams fail with it, past the handle's check.
    void fail(Call call, DWORD error);
    int calls(Call call) const;  // every call, failed ones too
    int stores() const { return stores_; }  // class-install parameters stored
    int liveSets() const { return static_cast<int>(sets_.size()); }
    // Forgets all but how many sets were made, so a handle from before stays invalid.
    void clear();

    // SetupDiGetClassDevsW: only a class and DIGCF_PRESENT, no enumerator, no other flags.
    DWORD getClassDevs(const GUID* classGuid, PCWSTR enumerator, HWND parent, DWORD flags, HDEVINFO* set);
    DWORD enumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device);
    DWORD destroyDeviceInfoList(HDEVINFO set);
    DWORD getDeviceProperty(HDEVINFO set, const SP_DEVINFO_DATA* device, const DEVPROPKEY* key,
                            DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize, PDWORD requiredSize,
                            DWORD flags);
    // `size` and `requiredSize` count characters, the closing zero too.
    DWORD getDeviceInstanceId(HDEVINFO set, const SP_DEVINFO_DATA* device, PWSTR id, DWORD size,
                              PDWORD requiredSize);
    DWORD getClassInstallParams(HDEVINFO set, const SP_DEVINFO_DATA* device, PSP_CLASSINSTALL_HEADER params,
                                DWORD paramsSize, PDWORD requiredSize);
    DWORD setClassInstallParams(HDEVINFO set, const SP_DEVINFO_DATA* device,
                                const SP_CLASSINSTALL_HEADER* params, DWORD paramsSize);

private:
    struct Device {
        DWORD devInst;
        GUID classGuid;
        bool present;
        std::wstring instanceId;
    };
    struct Key {
        DWORD devInst;
        GUID fmtid;
        DEVPROPID pid;
        bool operator<(const Key& other) const;
    };
    struct Property {
        DEVPROPTYPE type = 0;
        std::vector<BYTE> bytes;
    };

    static Key keyOf_(DWORD devInst, const DEVPROPKEY& key) { return {devInst, key.fmtid, key.pid}; }
    std::uintptr_t tokenOf_(HDEVINFO set) const;
    bool validDevice_(HDEVINFO set, const SP_DEVINFO_DATA* device) const;
    const Device* find_(DWORD devInst) const;
    DWORD count_(Call call);  // counts the call; its scripted failure

    char installerSet_ = 0;
    char classSets_[1] = {};  // sets of getClassDevs: tokens from this address on, never dereferenced
    std::map<std::uintptr_t, std::vector<DWORD>> sets_;
    std::uintptr_t nextSet_ = 1;
    std::vector<Device> devices_;
    std::map<Key, Property> properties_;
    std::map<DWORD, std::vector<BYTE>> params_;
    std::map<Call, DWORD> failures_;
    std::map<Call, int> calls_;
    int stores_ = 0;
};

}  // namespace sim
