// Threads, waits and the clock of the host platform layer (the kernel32 part of
// processthreadsapi.h and synchapi.h that the module uses).
#pragma once

#include "win32/base.h"

constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
constexpr DWORD STILL_ACTIVE = 259;

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;
using LPTHREAD_START_ROUTINE = DWORD (*)(LPVOID);

// A real thread underneath. Creation flags other than 0 are not supported.
HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE start,
                    LPVOID parameter, DWORD creationFlags, LPDWORD threadId);
// Thread handles only; a timeout is real time.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode);
BOOL CloseHandle(HANDLE handle);
DWORD GetCurrentThreadId();
// Does not wait: advances the host's test clock (host/HostWindows.h).
void Sleep(DWORD milliseconds);

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
// The time a test set (host/HostWindows.h); it doesn't move by itself.
void GetLocalTime(SYSTEMTIME* time);
