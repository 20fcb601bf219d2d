// The threads that called the simulated service, each noted at its first call,
// so that a round can wait for each one's end (a pooled delivery thread is joined by nobody).
#pragma once

#include <vector>

#include "platform/Threading.h"
#include "tools/sheet_host/Win32.h"

class CallerThreads {
public:
    CallerThreads();
    ~CallerThreads();
    CallerThreads(const CallerThreads&) = delete;
    CallerThreads& operator=(const CallerThreads&) = delete;

    // Notes the calling thread, once; safe under the loader lock.
    void note();
    // Until every noted thread but the caller has ended.
    void waitForAll();

private:
    struct Noted {
        HANDLE handle;
        DWORD id;
    };

    DWORD slot_;  // non-null in a noted thread
    SrwLock lock_;
    std::vector<Noted> threads_;
};
