// Registers a simulated WMI service as the process's WMI locator from a thread
// of its own in the multithreaded apartment, as a service host would, and keeps
// that thread (and with it the apartment) alive until revoke() or destruction.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "sim/WmiService.h"
#include "tools/sheet_host/Win32.h"

class LocatorThread {
public:
    explicit LocatorThread(sim::WmiService& service);  // returns once registered (or failed)
    ~LocatorThread();  // revoke()
    LocatorThread(const LocatorThread&) = delete;
    LocatorThread& operator=(const LocatorThread&) = delete;

    // CoRegisterClassObject's result.
    HRESULT result() const { return result_; }
    // Revokes the registration and ends the thread's COM use; once.
    void revoke();

private:
    void run_(sim::WmiService& service);

    std::mutex lock_;
    std::condition_variable changed_;
    bool registered_ = false;
    bool stop_ = false;
    HRESULT result_ = E_PENDING;
    std::thread thread_;
};
