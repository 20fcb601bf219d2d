// SetupAPI and device properties of the host platform layer.
#pragma once

#include "win32/base.h"
#include "win32/commctrl.h"

// ---- Device installation (setupapi.h, devpropdef.h, devpkey.h) ----------------
using HDEVINFO = void*;
using DI_FUNCTION = UINT;
using DEVPROPTYPE = ULONG;
using DEVPROPID = ULONG;

constexpr DI_FUNCTION DIF_ADDPROPERTYPAGE_ADVANCED = 0x23;
constexpr DWORD DIGCF_PRESENT = 0x2;

// The device setup class of network adapters (devguid.h).
extern const GUID GUID_DEVCLASS_NET;
constexpr UINT MAX_INSTALLWIZARD_DYNAPAGES = 20;

constexpr DEVPROPTYPE DEVPROP_TYPE_UINT32 = 0x7;
constexpr DEVPROPTYPE DEVPROP_TYPE_STRING = 0x12;
constexpr DEVPROPTYPE DEVPROP_TYPEMOD_LIST = 0x2000;
constexpr DEVPROPTYPE DEVPROP_TYPE_STRING_LIST = DEVPROP_TYPE_STRING | DEVPROP_TYPEMOD_LIST;

struct DEVPROPKEY {
    GUID fmtid;
    DEVPROPID pid;
};

extern const DEVPROPKEY DEVPKEY_Device_DeviceDesc;
extern const DEVPROPKEY DEVPKEY_Device_HardwareIds;
extern const DEVPROPKEY DEVPKEY_Device_FriendlyName;
extern const DEVPROPKEY DEVPKEY_Device_ProblemCode;

struct SP_DEVINFO_DATA {
    DWORD cbSize;
    GUID ClassGuid;
    DWORD DevInst;
    ULONG_PTR Reserved;
};
using PSP_DEVINFO_DATA = SP_DEVINFO_DATA*;

struct SP_CLASSINSTALL_HEADER {
    DWORD cbSize;
    DI_FUNCTION InstallFunction;
};
using PSP_CLASSINSTALL_HEADER = SP_CLASSINSTALL_HEADER*;

struct SP_NEWDEVICEWIZARD_DATA {
    SP_CLASSINSTALL_HEADER ClassInstallHeader;
    DWORD Flags;
    HPROPSHEETPAGE DynamicPages[MAX_INSTALLWIZARD_DYNAPAGES];
    DWORD NumDynamicPages;
    HWND hwndWizardDlg;
};
using SP_ADDPROPERTYPAGE_DATA = SP_NEWDEVICEWIZARD_DATA;
static_assert(sizeof(SP_CLASSINSTALL_HEADER) == 8, "platform layout");
static_assert(sizeof(SP_ADDPROPERTYPAGE_DATA) == 192, "platform layout");

struct COINSTALLER_CONTEXT_DATA {
    BOOL PostProcessing;
    DWORD InstallResult;
    LPVOID PrivateData;
};
using PCOINSTALLER_CONTEXT_DATA = COINSTALLER_CONTEXT_DATA*;

// A new set of the devices of one setup class, in the order they were added
// (host::addDevice); DIGCF_PRESENT leaves out those that aren't present. Only
// a class and DIGCF_PRESENT are supported: no enumerator, no other flags.
HDEVINFO SetupDiGetClassDevsW(const GUID* classGuid, PCWSTR enumerator, HWND parent, DWORD flags);
// The set's device at `index`; ERROR_NO_MORE_ITEMS past the last.
BOOL SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device);
BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set);
BOOL SetupDiGetDevicePropertyW(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                               DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize, PDWORD requiredSize,
                               DWORD flags);
// The device's instance id, as host::addDevice gave it, with the closing zero;
// `size` and `requiredSize` count characters.
BOOL SetupDiGetDeviceInstanceIdW(HDEVINFO set, PSP_DEVINFO_DATA device, PWSTR id, DWORD size,
                                 PDWORD requiredSize);
BOOL SetupDiGetClassInstallParamsW(HDEVINFO set, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params,
                                   DWORD paramsSize, PDWORD requiredSize);
BOOL SetupDiSetClassInstallParamsW(HDEVINFO set, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params,
                                   DWORD paramsSize);
