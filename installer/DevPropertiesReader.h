// Typed reads of one device's Plug and Play properties. The reader borrows the
// installer's device information set and record; both must outlive it. It has
// no state that changes, and callers reach it through the module record.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform.h"

// The raw bytes of one property, owned; empty until a read succeeds.
struct PropertyBuffer {
    std::unique_ptr<BYTE[]> data;
    DWORD size = 0;
};

class DevPropertiesReader {
public:
    DevPropertiesReader(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData);

    // The device's problem code; 0xFFFFFFFF if it can't be read.
    DWORD getProblemCode() const;
    // The hardware ids in the property's order; empty if they can't be read.
    std::vector<std::wstring> getHardwareIds() const;
    // A string property up to its first zero; empty if it can't be read.
    std::wstring getStringProperty(const DEVPROPKEY& key) const;
    // The name the management service knows the adapter by: the friendly
    // name, else the device description.
    std::wstring getAdapterName() const;
    // The device instance id ("PCI\VEN_7E5C&DEV_C3E1&...\4&1A2B3C4D&0&00E0"); empty if it can't be read.
    std::wstring getInstanceId() const;

private:
    bool getProperty_(const DEVPROPKEY& key, DEVPROPTYPE requiredType, PropertyBuffer& out) const;

    HDEVINFO deviceInfoSet_;
    PSP_DEVINFO_DATA deviceInfoData_;
};
