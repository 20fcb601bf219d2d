// The cable test's worker thread as the page holds it: the thread's handle and
// id, an id of 0 meaning no worker is registered. Started and joined on the
// dialog's thread; a registered worker is joined exactly once.
#pragma once

#include "platform.h"

class DiagThread {
public:
    DiagThread() = default;
    // A worker still registered here is joined: the page never lets one run on
    // unowned.
    ~DiagThread() { join(); }
    DiagThread(const DiagThread&) = delete;
    DiagThread& operator=(const DiagThread&) = delete;

    // Starts `body(argument)` and registers it; false, with nothing
    // registered, if the thread can't be created.
    bool start(LPTHREAD_START_ROUTINE body, void* argument);
    // Waits for the registered worker to end, then unregisters it.
    void join();
    bool registered() const { return id_ != 0; }

private:
    HANDLE handle_ = nullptr;
    DWORD id_ = 0;
};
