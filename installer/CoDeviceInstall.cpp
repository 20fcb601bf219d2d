#include "installer/CoDeviceInstall.h"

#include "diag_page/DiagPageFactory.h"
#include "installer/ModuleRecord.h"
#include "installer/SupportedHardwareIds.h"
#include "page_framework/CommonControls.h"
#include "platform/Threading.h"
#include "trace/Trace.h"

DWORD addPropertyPageAdvanced(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, PageFactory factory)
{
    SP_ADDPROPERTYPAGE_DATA pages{};
    pages.ClassInstallHeader.cbSize = sizeof(SP_CLASSINSTALL_HEADER);
    if (!SetupDiGetClassInstallParamsW(deviceInfoSet, deviceInfoData, &pages.ClassInstallHeader, sizeof pages,
                                       nullptr)) {
        const DWORD error = GetLastError();
        ZT_TRACE(0, "[!] SetupDiGetClassInstallParams() failed, code %d", static_cast<int>(error));
        return error;
    }

    // Replaced for every request, page or not: later reads are for this device.
    // A sheet on another thread may still read through the old one; it goes
    // with the last user.
    const auto reader = std::make_shared<DevPropertiesReader>(deviceInfoSet, deviceInfoData);
    {
        const std::lock_guard<SrwLock> guard(moduleRecord.lock);
        moduleRecord.deviceReader = reader;
    }

    if (pages.NumDynamicPages >= MAX_INSTALLWIZARD_DYNAPAGES) {
        ZT_TRACE(2, "/!\\ Too many pages");
        return NO_ERROR;
    }

    const std::vector<std::wstring> hardwareIds = reader->getHardwareIds();
    ZT_TRACE(1, "Hardware IDs count %d:", static_cast<int>(hardwareIds.size()));
    for (const auto& id : hardwareIds) {
        ZT_TRACE(1, "    HWID: %S", id.c_str());
    }
    ZT_TRACE(4, "DEVPKEY_Device_ProblemCode %u", reader->getProblemCode());

    HPROPSHEETPAGE added = nullptr;
    if (!isSupportedHardwareId(hardwareIds)) {
        ZT_TRACE(1, "NIC doesn't support cable diagnostics feature");
    } else {
        std::unique_ptr<PropertyPageBase> page = factory();
        if (!page || page->pageHandle() == nullptr) {
            // An object without a sheet page has no one else to delete it.
            ZT_TRACE(0, "[!] Failed to create/init diagnostics property page object");
            return ERROR_OUTOFMEMORY;
        }
        // From here the sheet page owns the object and deletes it on release.
        added = page.release()->pageHandle();
        pages.DynamicPages[pages.NumDynamicPages++] = added;
    }

    if (!SetupDiSetClassInstallParamsW(deviceInfoSet, deviceInfoData, &pages.ClassInstallHeader,
                                       sizeof pages)) {
        const DWORD error = GetLastError();
        ZT_TRACE(0, "[!] SetupDiSetClassInstallParams() failed, code %d", static_cast<int>(error));
        if (added != nullptr) {
            // The installer never got the page: release it, and with it its object.
            commonControls().destroyPropertySheetPage(added);
        }
        return error;
    }
    return NO_ERROR;
}

extern "C" DWORD CALLBACK CoDeviceInstall(DI_FUNCTION installFunction, HDEVINFO deviceInfoSet,
                                          PSP_DEVINFO_DATA deviceInfoData,
                                          PCOINSTALLER_CONTEXT_DATA /*context*/)
{
    ZT_TRACE(1, "ztprop: CoDeviceInstall called, fn = %u", installFunction);
    if (installFunction != DIF_ADDPROPERTYPAGE_ADVANCED) {
        return NO_ERROR;
    }
    DWORD result = NO_ERROR;
    try {
        INITCOMMONCONTROLSEX controls{sizeof(INITCOMMONCONTROLSEX),
                                      ICC_STANDARD_CLASSES | ICC_LISTVIEW_CLASSES};
        commonControls().initCommonControlsEx(&controls);
        result = addPropertyPageAdvanced(deviceInfoSet, deviceInfoData, createDiagPage);
    } catch (...) {
        // Only allocation can throw here, and nothing may reach the installer.
        ZT_TRACE(0, "[!] Out of memory while adding the page");
        result = ERROR_OUTOFMEMORY;
    }
    if (result != NO_ERROR) {
        ZT_TRACE(2, "/!\\ ztprop: DIF_ADDPROPERTYPAGE_ADVANCED -> failed, code %d", static_cast<int>(result));
    }
    return result;
}
