#include "tools/sheet_host/ProcessThreads.h"

#include <algorithm>
#include <tlhelp32.h>

std::vector<DWORD> processThreads()
{
    std::vector<DWORD> threads;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return threads;
    }
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) {
            threads.push_back(entry.th32ThreadID);
        }
    }
    CloseHandle(snapshot);
    return threads;
}

void awaitOtherThreadsEnded(const std::vector<DWORD>& kept)
{
    for (;;) {
        bool waited = false;
        for (const DWORD id : processThreads()) {
            if (id == GetCurrentThreadId() || std::find(kept.begin(), kept.end(), id) != kept.end()) {
                continue;
            }
            // A thread gone between the list and here can't be opened: nothing to wait for.
            if (HANDLE thread = OpenThread(SYNCHRONIZE, FALSE, id)) {
                WaitForSingleObject(thread, INFINITE);
                CloseHandle(thread);
                waited = true;
            }
        }
        if (!waited) {
            return;
        }
    }
}
