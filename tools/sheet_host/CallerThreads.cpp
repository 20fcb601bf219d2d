#include "tools/sheet_host/CallerThreads.h"

#include <mutex>

CallerThreads::CallerThreads() : slot_(TlsAlloc())
{
}

CallerThreads::~CallerThreads()
{
    for (const Noted& thread : threads_) {
        CloseHandle(thread.handle);
    }
    if (slot_ != TLS_OUT_OF_INDEXES) {
        TlsFree(slot_);
    }
}

void CallerThreads::note()
{
    if (slot_ == TLS_OUT_OF_INDEXES || TlsGetValue(slot_) != nullptr) {
        return;
    }
    TlsSetValue(slot_, this);
    HANDLE thread = nullptr;
    if (DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, SYNCHRONIZE,
                        FALSE, 0)) {
        const std::lock_guard<SrwLock> guard(lock_);
        threads_.push_back({thread, GetCurrentThreadId()});
    }
}

void CallerThreads::waitForAll()
{
    std::vector<Noted> threads;
    {
        const std::lock_guard<SrwLock> guard(lock_);
        threads = threads_;
    }
    for (const Noted& thread : threads) {
        if (thread.id != GetCurrentThreadId()) {
            WaitForSingleObject(thread.handle, INFINITE);
        }
    }
}
