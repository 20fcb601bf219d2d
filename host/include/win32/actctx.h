// Activation contexts and late binding of the host platform layer (the
// kernel32 part of winbase.h and libloaderapi.h that the module uses).
#pragma once

#include "win32/base.h"

using PVOID = void*;
using FARPROC = INT_PTR (*)();

constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
constexpr DWORD ERROR_PROC_NOT_FOUND = 127;

// ---- Libraries ----------------------------------------------------------------
// Knows "Comctl32.dll", whose exports are the host's common controls.
HMODULE LoadLibraryW(LPCWSTR fileName);
FARPROC GetProcAddress(HMODULE module, LPCSTR procName);
BOOL FreeLibrary(HMODULE module);

// ---- Activation contexts --------------------------------------------------------
constexpr DWORD QUERY_ACTCTX_FLAG_ACTCTX_IS_ADDRESS = 0x10;
constexpr DWORD QUERY_ACTCTX_FLAG_NO_ADDREF = 0x80000000;
constexpr ULONG ActivationContextBasicInformation = 1;

struct ACTIVATION_CONTEXT_BASIC_INFORMATION {
    HANDLE hActCtx;
    DWORD dwFlags;
};

BOOL QueryActCtxW(DWORD flags, HANDLE actCtx, PVOID subInstance, ULONG infoClass, PVOID buffer,
                  SIZE_T bufferSize, SIZE_T* writtenOrRequired);
BOOL ActivateActCtx(HANDLE actCtx, ULONG_PTR* cookie);
BOOL DeactivateActCtx(DWORD flags, ULONG_PTR cookie);
