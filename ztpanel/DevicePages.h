// The pages a co-installer adds to a device's property sheet, asked for as the
// device installer asks: an SP_ADDPROPERTYPAGE_DATA set on the device in its
// device information set, the export called with DIF_ADDPROPERTYPAGE_ADVANCED,
// and the record read back. Any thread; the pages are the caller's to show or destroy.
#pragma once

#include <vector>

#include "platform.h"
#include "ztpanel/CoInstallerModule.h"

struct DevicePages {
    DWORD setupError = 0;  // SetupAPI's code if the record couldn't be set or read back; then no pages
    DWORD result = NO_ERROR;  // what the export returned
    std::vector<HPROPSHEETPAGE> pages;  // the record's pages after the call, the given ones first
    std::size_t given = 0;  // how many of them were given (other installers' pages)
};

// `given`: pages already in the record (at most MAX_INSTALLWIZARD_DYNAPAGES).
DevicePages askForPages(CoInstallerModule::Entry entry, HDEVINFO set, SP_DEVINFO_DATA& device,
                        const std::vector<HPROPSHEETPAGE>& given = {});
