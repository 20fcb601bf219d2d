// Base types, errors, the debugger, the C runtime's counted formatters and
// string comparison of the host platform layer.
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
using SHORT = std::int16_t;
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
using PCWSTR = const wchar_t*;
using LPWSTR = wchar_t*;
using PWSTR = wchar_t*;
using PDWORD = DWORD*;
using LPDWORD = DWORD*;
using PBYTE = BYTE*;
using SIZE_T = std::size_t;

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
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))
struct HICON__;
using HICON = HICON__*;

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
inline bool operator!=(const GUID& a, const GUID& b)
{
    return !(a == b);
}
using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

// ---- Errors and the debugger -------------------------------------------------
constexpr DWORD NO_ERROR = 0;
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_INVALID_DATA = 13;
constexpr DWORD ERROR_OUTOFMEMORY = 14;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_INVALID_FLAGS = 1004;
constexpr DWORD ERROR_NOT_FOUND = 1168;
constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;
constexpr DWORD ERROR_RESOURCE_DATA_NOT_FOUND = 1812;
constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
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

// ---- String comparison (stringapiset.h) --------------------------------------
constexpr int CSTR_LESS_THAN = 1;
constexpr int CSTR_EQUAL = 2;
constexpr int CSTR_GREATER_THAN = 3;

// Compares the strings character by character (a count of -1: up to the
// closing zero); with `ignoreCase` both are first put in upper case. Gives one
// of the CSTR_ values, or 0 with ERROR_INVALID_PARAMETER.
int CompareStringOrdinal(LPCWSTR string1, int count1, LPCWSTR string2, int count2, BOOL ignoreCase);

// ---- Module entry ------------------------------------------------------------
constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
constexpr DWORD DLL_THREAD_ATTACH = 2;
constexpr DWORD DLL_THREAD_DETACH = 3;
