// Threads, waits and the clock of the host platform layer (the kernel32 part of
// processthreadsapi.h and synchapi.h that the module uses).
#pragma once

#include <pthread.h>

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

// Slim locks and condition variables, over the host's own: a lock is exclusive
// only, as the module uses it, and needs no clean-up, as on the platform.
struct SRWLOCK {
    pthread_mutex_t mutex;
};
#define SRWLOCK_INIT                                                                                         \
    {                                                                                                        \
        PTHREAD_MUTEX_INITIALIZER                                                                            \
    }
struct CONDITION_VARIABLE {
    pthread_cond_t condition;
};
#define CONDITION_VARIABLE_INIT                                                                              \
    {                                                                                                        \
        PTHREAD_COND_INITIALIZER                                                                             \
    }
constexpr DWORD ERROR_TIMEOUT = 1460;
void AcquireSRWLockExclusive(SRWLOCK* lock);
void ReleaseSRWLockExclusive(SRWLOCK* lock);
// FALSE with ERROR_TIMEOUT once `milliseconds` (real time) have passed; flags must be 0.
BOOL SleepConditionVariableSRW(CONDITION_VARIABLE* condition, SRWLOCK* lock, DWORD milliseconds, ULONG flags);
void WakeConditionVariable(CONDITION_VARIABLE* condition);
void WakeAllConditionVariable(CONDITION_VARIABLE* condition);

// Thread local storage slots. A value a thread leaves in a slot is counted
// when the thread ends (host/HostWindows.h), never cleaned up: as on the
// platform, where nothing ends it.
constexpr DWORD TLS_OUT_OF_INDEXES = 0xFFFFFFFF;
DWORD TlsAlloc();
BOOL TlsFree(DWORD index);
// Sets the last error to 0 on success, as the platform does, so that a null
// value can be told from a failure.
LPVOID TlsGetValue(DWORD index);
BOOL TlsSetValue(DWORD index, LPVOID value);

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

// The local time zone: UTC = local time + Bias (+ the bias of the part of the
// year GetTimeZoneInformation answers). Names and transition dates are empty
// on the host.
struct TIME_ZONE_INFORMATION {
    LONG Bias;
    WCHAR StandardName[32];
    SYSTEMTIME StandardDate;
    LONG StandardBias;
    WCHAR DaylightName[32];
    SYSTEMTIME DaylightDate;
    LONG DaylightBias;
};
constexpr DWORD TIME_ZONE_ID_INVALID = 0xFFFFFFFF;
constexpr DWORD TIME_ZONE_ID_UNKNOWN = 0;
constexpr DWORD TIME_ZONE_ID_STANDARD = 1;
constexpr DWORD TIME_ZONE_ID_DAYLIGHT = 2;
// The zone a test set (host/HostWindows.h); UTC without daylight saving after reset.
DWORD GetTimeZoneInformation(TIME_ZONE_INFORMATION* zone);
