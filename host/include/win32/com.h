// COM of the host platform layer: IUnknown, class factories, apartments and
// the security calls, with the platform's result codes.
#pragma once

#include "win32/base.h"

#define STDMETHODCALLTYPE
#define STDMETHOD(name) virtual HRESULT STDMETHODCALLTYPE name
#define STDMETHOD_(type, name) virtual type STDMETHODCALLTYPE name

constexpr bool SUCCEEDED(HRESULT hr)
{
    return hr >= 0;
}
constexpr bool FAILED(HRESULT hr)
{
    return hr < 0;
}

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
constexpr HRESULT DISP_E_BADVARTYPE = static_cast<HRESULT>(0x80020008);
constexpr HRESULT DISP_E_ARRAYISLOCKED = static_cast<HRESULT>(0x8002000D);
constexpr HRESULT DISP_E_BADINDEX = static_cast<HRESULT>(0x8002000B);
constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110);
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111);
constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154);
constexpr HRESULT CO_E_NOTINITIALIZED = static_cast<HRESULT>(0x800401F0);
constexpr HRESULT RPC_E_CHANGED_MODE = static_cast<HRESULT>(0x80010106);
constexpr HRESULT RPC_E_TOO_LATE = static_cast<HRESULT>(0x80010119);

extern const IID IID_IUnknown;
extern const IID IID_IClassFactory;

struct IUnknown {
    STDMETHOD(QueryInterface)(REFIID iid, void** object) = 0;
    STDMETHOD_(ULONG, AddRef)() = 0;
    STDMETHOD_(ULONG, Release)() = 0;

protected:
    ~IUnknown() = default;  // objects end through Release
};

struct IClassFactory : IUnknown {
    STDMETHOD(CreateInstance)(IUnknown* outer, REFIID iid, void** object) = 0;
    STDMETHOD(LockServer)(BOOL lock) = 0;

protected:
    ~IClassFactory() = default;
};

enum COINIT : DWORD {
    COINIT_MULTITHREADED = 0x0,
    COINIT_APARTMENTTHREADED = 0x2,
    COINIT_DISABLE_OLE1DDE = 0x4,
    COINIT_SPEED_OVER_MEMORY = 0x8,
};

enum CLSCTX : DWORD {
    CLSCTX_INPROC_SERVER = 0x1,
    CLSCTX_INPROC_HANDLER = 0x2,
    CLSCTX_LOCAL_SERVER = 0x4,
    CLSCTX_REMOTE_SERVER = 0x10,
    CLSCTX_ALL = 0x17,
};

enum REGCLS : DWORD {
    REGCLS_SINGLEUSE = 0,
    REGCLS_MULTIPLEUSE = 1,
};

constexpr DWORD RPC_C_AUTHN_NONE = 0;
constexpr DWORD RPC_C_AUTHN_WINNT = 10;
constexpr DWORD RPC_C_AUTHZ_NONE = 0;
constexpr DWORD RPC_C_AUTHN_LEVEL_DEFAULT = 0;
constexpr DWORD RPC_C_AUTHN_LEVEL_CALL = 3;
constexpr DWORD RPC_C_IMP_LEVEL_IMPERSONATE = 3;
constexpr DWORD EOAC_NONE = 0;

using PSECURITY_DESCRIPTOR = void*;
struct SOLE_AUTHENTICATION_SERVICE;
using RPC_AUTH_IDENTITY_HANDLE = void*;
using OLECHAR_PTR = WCHAR*;

extern const IID IID_IClientSecurity;

// What a proxy answers for CoSetProxyBlanket (this layer's CoSetProxyBlanket doesn't ask).
struct IClientSecurity : IUnknown {
    STDMETHOD(QueryBlanket)
    (IUnknown* proxy, DWORD* authnService, DWORD* authzService, OLECHAR_PTR* serverPrincipal,
     DWORD* authnLevel, DWORD* impLevel, void** authInfo, DWORD* capabilities)
        = 0;
    STDMETHOD(SetBlanket)
    (IUnknown* proxy, DWORD authnService, DWORD authzService, OLECHAR_PTR serverPrincipal, DWORD authnLevel,
     DWORD impLevel, void* authInfo, DWORD capabilities)
        = 0;
    STDMETHOD(CopyProxy)(IUnknown* proxy, IUnknown** copy) = 0;

protected:
    ~IClientSecurity() = default;
};

HRESULT CoInitializeEx(LPVOID reserved, DWORD coInit);
void CoUninitialize();
HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR securityDescriptor, LONG authServiceCount,
                             SOLE_AUTHENTICATION_SERVICE* authServices, void* reserved1, DWORD authnLevel,
                             DWORD impLevel, void* authList, DWORD capabilities, void* reserved3);
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, LPVOID* object);
HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* factory, DWORD context, DWORD flags, LPDWORD cookie);
HRESULT CoRevokeClassObject(DWORD cookie);
HRESULT CoSetProxyBlanket(IUnknown* proxy, DWORD authnService, DWORD authzService,
                          OLECHAR_PTR serverPrincipal, DWORD authnLevel, DWORD impLevel,
                          RPC_AUTH_IDENTITY_HANDLE authInfo, DWORD capabilities);
