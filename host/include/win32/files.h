// Files: the few kernel32 functions that write a file and rename it over
// another, with the platform's flags and error codes.
#pragma once

#include "win32/base.h"
#include "win32/threads.h"

constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD MOVEFILE_REPLACE_EXISTING = 0x1;
constexpr DWORD MOVEFILE_WRITE_THROUGH = 0x8;

constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_WRITE_FAULT = 29;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_DISK_FULL = 112;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;

using LPCVOID = const void*;
struct OVERLAPPED;

HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD attributes, HANDLE templateFile);
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD written, OVERLAPPED* overlapped);
BOOL FlushFileBuffers(HANDLE file);
BOOL MoveFileExW(LPCWSTR existing, LPCWSTR replacement, DWORD flags);
BOOL DeleteFileW(LPCWSTR name);
DWORD GetCurrentProcessId();
