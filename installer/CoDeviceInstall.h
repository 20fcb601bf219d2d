// The co-installer entry: acts on DIF_ADDPROPERTYPAGE_ADVANCED for listed
// adapters and answers NO_ERROR to everything else. Runs on the installer's
// thread; no exception leaves it.
#pragma once

#include <memory>

#include "page_framework/PropertyPageBase.h"
#include "platform.h"

extern "C" DWORD CALLBACK CoDeviceInstall(DI_FUNCTION installFunction, HDEVINFO deviceInfoSet,
                                          PSP_DEVINFO_DATA deviceInfoData, PCOINSTALLER_CONTEXT_DATA context);

using PageFactory = std::unique_ptr<PropertyPageBase> (*)();

// Adds the diagnostics page, made by `factory`, to the installer's page list if
// the device is listed. Returns a Win32 result code.
DWORD addPropertyPageAdvanced(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, PageFactory factory);
