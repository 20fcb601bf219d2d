// Loads the Wine tests' helper linger.dll from the host's folder: every thread's end in the
// process then waits in its DLL_THREAD_DETACH, under the loader lock, and asks holdsLoaderLock().
#pragma once

#include <chrono>
#include <string>

#include "tools/sheet_host/Win32.h"

class Linger {
public:
    // Loads the DLL and sets its delay and probe; see loaded().
    explicit Linger(std::chrono::milliseconds delay);
    ~Linger();
    Linger(const Linger&) = delete;
    Linger& operator=(const Linger&) = delete;

    // Empty once loaded and set, else what failed.
    const std::string& error() const { return error_; }
    // Thread ends that asked the probe so far, and those that held the loader lock.
    struct Counts {
        long probed = 0;
        long held = 0;
    };
    Counts counts() const;

private:
    HMODULE module_ = nullptr;
    FARPROC counts_ = nullptr;
    std::string error_;
};
