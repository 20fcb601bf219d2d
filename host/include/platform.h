// The host build's stand-in for the Windows headers: exactly the types,
// constants and functions the module uses, with the platform's names, values
// and (where the module depends on them) layouts. The implementations live in
// host/src and can be scripted and observed through host/HostPlatform.h.
//
// One deliberate difference: WCHAR is the host's wchar_t (32 bits), so that
// std::wstring and the C library's wide functions work unchanged. Sizes of wide
// buffers are therefore always computed with sizeof(WCHAR), never with 2.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

// ---- Base types ------------------------------------------------------------
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using UINT = unsigned int;
using INT = int;
using BOOL = int;
using WCHAR = wchar_t;
using HRESULT = std::int32_t;
using ULONG_PTR = std::uintptr_t;
using UINT_PTR = std::uintptr_t;
using INT_PTR = std::intptr_t;
using LONG_PTR = std::intptr_t;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using LPVOID = void*;
using LPCSTR = const char*;
using LPCWSTR = const wchar_t*;
using LPWSTR = wchar_t*;
using PDWORD = DWORD*;
using PBYTE = BYTE*;

#define WINAPI
#define CALLBACK
#define APIENTRY

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

struct HINSTANCE__;
using HINSTANCE = HINSTANCE__*;
using HMODULE = HINSTANCE;
struct HWND__;
using HWND = HWND__*;
using HANDLE = void*;

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
inline bool operator==(const GUID& a, const GUID& b)
{
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) {
        return false;
    }
    for (int i = 0; i < 8; ++i) {
        if (a.Data4[i] != b.Data4[i]) {
            return false;
        }
    }
    return true;
}

// ---- Errors and the debugger -------------------------------------------------
constexpr DWORD NO_ERROR = 0;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_OUTOFMEMORY = 14;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_FLAGS = 1004;
constexpr DWORD ERROR_NOT_FOUND = 1168;
constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;
constexpr DWORD ERROR_NO_CLASSINSTALL_PARAMS = 0xE0000215;

DWORD GetLastError();
void SetLastError(DWORD error);
void OutputDebugStringA(LPCSTR text);

// The C runtime's counted formatters (msvcrt semantics): they write at most
// `count` characters, add the terminating zero only if it fits, and return -1
// when the text is longer than `count`. In the wide one %s takes wide text, in
// the narrow one %S does.
int _vsnprintf(char* buffer, std::size_t count, const char* format, va_list args);
int _vsnwprintf(wchar_t* buffer, std::size_t count, const wchar_t* format, va_list args);

// ---- Module entry ------------------------------------------------------------
constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
constexpr DWORD DLL_THREAD_ATTACH = 2;
constexpr DWORD DLL_THREAD_DETACH = 3;

// ---- Device installation (setupapi.h, devpropdef.h, devpkey.h) ----------------
using HDEVINFO = void*;
using DI_FUNCTION = UINT;
using DEVPROPTYPE = ULONG;
using DEVPROPID = ULONG;

constexpr DI_FUNCTION DIF_ADDPROPERTYPAGE_ADVANCED = 0x23;
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

struct _PSP;
using HPROPSHEETPAGE = _PSP*;

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

BOOL SetupDiGetDevicePropertyW(HDEVINFO set, PSP_DEVINFO_DATA device, const DEVPROPKEY* key,
                               DEVPROPTYPE* type, PBYTE buffer, DWORD bufferSize, PDWORD requiredSize,
                               DWORD flags);
BOOL SetupDiGetClassInstallParamsW(HDEVINFO set, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params,
                                   DWORD paramsSize, PDWORD requiredSize);
BOOL SetupDiSetClassInstallParamsW(HDEVINFO set, PSP_DEVINFO_DATA device, PSP_CLASSINSTALL_HEADER params,
                                   DWORD paramsSize);

// ---- Common controls and property sheet pages (commctrl.h, prsht.h) -------------
constexpr DWORD ICC_LISTVIEW_CLASSES = 0x1;
constexpr DWORD ICC_STANDARD_CLASSES = 0x4000;

struct INITCOMMONCONTROLSEX {
    DWORD dwSize;
    DWORD dwICC;
};
BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* init);

constexpr UINT PSPCB_ADDREF = 0;
constexpr UINT PSPCB_RELEASE = 1;
constexpr UINT PSPCB_CREATE = 2;
constexpr DWORD PSP_USECALLBACK = 0x80;

struct PROPSHEETPAGEW;
using LPPROPSHEETPAGEW = PROPSHEETPAGEW*;
using LPCPROPSHEETPAGEW = const PROPSHEETPAGEW*;
using DLGPROC = INT_PTR (*)(HWND, UINT, WPARAM, LPARAM);
using LPFNPSPCALLBACKW = UINT (*)(HWND, UINT, LPPROPSHEETPAGEW);

struct PROPSHEETPAGEW {
    DWORD dwSize;
    DWORD dwFlags;
    HINSTANCE hInstance;
    LPCWSTR pszTemplate;
    HANDLE hIcon;
    LPCWSTR pszTitle;
    DLGPROC pfnDlgProc;
    LPARAM lParam;
    LPFNPSPCALLBACKW pfnCallback;
    UINT* pcRefParent;
    LPCWSTR pszHeaderTitle;
    LPCWSTR pszHeaderSubTitle;
    HANDLE hActCtx;
    HANDLE hbmHeader;
};
static_assert(sizeof(PROPSHEETPAGEW) == 104, "platform layout");

HPROPSHEETPAGE CreatePropertySheetPageW(LPCPROPSHEETPAGEW page);
BOOL DestroyPropertySheetPage(HPROPSHEETPAGE page);
