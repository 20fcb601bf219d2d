#include "tools/sheet_host/LocatorThread.h"

#include "sim/LocatorRegistration.h"

LocatorThread::LocatorThread(sim::WmiService& service)
{
    thread_ = std::thread([this, &service] { run_(service); });
    std::unique_lock<std::mutex> guard(lock_);
    changed_.wait(guard, [this] { return registered_; });
}

LocatorThread::~LocatorThread()
{
    revoke();
}

void LocatorThread::run_(sim::WmiService& service)
{
    const HRESULT init = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    {
        sim::LocatorRegistration registration(service);
        {
            const std::lock_guard<std::mutex> guard(lock_);
            result_ = FAILED(init) ? init : registration.result();
            registered_ = true;
        }
        changed_.notify_all();
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [this] { return stop_; });
    }
    if (SUCCEEDED(init)) {
        CoUninitialize();
    }
}

void LocatorThread::revoke()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stop_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}
