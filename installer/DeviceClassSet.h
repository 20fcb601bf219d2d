// The present devices of one device setup class, as Device Manager lists
// them: a device information set owned for the object's life, and a
// properties reader for each of its devices. The readers borrow the set and
// are valid while the object lives. Made and used on one thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "installer/DevPropertiesReader.h"
#include "platform.h"

class DeviceClassSet {
public:
    // Lists the class's present devices; on failure the set is empty and
    // error() tells why.
    explicit DeviceClassSet(const GUID& classGuid);
    ~DeviceClassSet();
    DeviceClassSet(const DeviceClassSet&) = delete;
    DeviceClassSet& operator=(const DeviceClassSet&) = delete;

    bool isValid() const { return set_ != INVALID_HANDLE_VALUE; }
    // The platform's code of the failure that left the set invalid or short; 0 if none.
    DWORD error() const { return error_; }
    std::size_t size() const { return devices_.size(); }
    DevPropertiesReader reader(std::size_t index);
    // The set and a device's record, for a caller that hands the device on (a
    // co-installer's host); valid while the object lives.
    HDEVINFO set() const { return set_; }
    SP_DEVINFO_DATA& device(std::size_t index) { return devices_.at(index); }

private:
    HDEVINFO set_;
    DWORD error_ = 0;
    std::vector<SP_DEVINFO_DATA> devices_;  // never resized once filled: readers point into it
};

// A present network adapter with a listed hardware id.
struct ZtAdapterDevice {
    std::wstring name;  // as the page names it: the management service's instance name
    DWORD problemCode;  // 0: working; 0xFFFFFFFF: unreadable
    std::wstring instanceId;  // the device manager's own name for it; empty: unreadable
    std::wstring hardwareId;  // its most specific hardware id, the first it lists
};

// The listed adapters among the network class's present devices, in the
// platform's order. False, with the platform's code in `error`, if the
// network class's devices can't be listed.
bool findZtAdapters(std::vector<ZtAdapterDevice>& adapters, DWORD& error);
