#include "ztpanel/DevicePages.h"

DevicePages askForPages(CoInstallerModule::Entry entry, HDEVINFO set, SP_DEVINFO_DATA& device,
                        const std::vector<HPROPSHEETPAGE>& given)
{
    DevicePages asked;
    SP_ADDPROPERTYPAGE_DATA record{};
    record.ClassInstallHeader.cbSize = sizeof(SP_CLASSINSTALL_HEADER);
    record.ClassInstallHeader.InstallFunction = DIF_ADDPROPERTYPAGE_ADVANCED;
    for (HPROPSHEETPAGE page : given) {
        if (record.NumDynamicPages < MAX_INSTALLWIZARD_DYNAPAGES) {
            record.DynamicPages[record.NumDynamicPages++] = page;
        }
    }
    asked.given = record.NumDynamicPages;
    if (!SetupDiSetClassInstallParamsW(set, &device, &record.ClassInstallHeader, sizeof record)) {
        asked.setupError = GetLastError();
        return asked;
    }
    COINSTALLER_CONTEXT_DATA context{};
    asked.result = entry(DIF_ADDPROPERTYPAGE_ADVANCED, set, &device, &context);

    SP_ADDPROPERTYPAGE_DATA after{};
    after.ClassInstallHeader.cbSize = sizeof(SP_CLASSINSTALL_HEADER);
    if (!SetupDiGetClassInstallParamsW(set, &device, &after.ClassInstallHeader, sizeof after, nullptr)) {
        asked.setupError = GetLastError();
        return asked;
    }
    for (DWORD index = 0; index < after.NumDynamicPages && index < MAX_INSTALLWIZARD_DYNAPAGES; ++index) {
        asked.pages.push_back(after.DynamicPages[index]);
    }
    return asked;
}
