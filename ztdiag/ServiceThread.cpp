#include "ztdiag/ServiceThread.h"

#include <atomic>

#include "platform/Threading.h"
#include "trace/ThreadBody.h"
#include "wmi/WbemServices.h"

namespace {
std::atomic<int> runningThreads{0};
}  // namespace

ServiceThread::ServiceThread(std::function<void()> work) : status_(std::make_shared<Status>())
{
    ++runningThreads;
    try {
        thread_ = Thread([status = status_, work = std::move(work)] {
            const bool succeeded = runThreadBody("ztdiag service thread", work);
            endThreadWbemServices();
            {
                const std::lock_guard<SrwLock> guard(status->lock);
                status->ended = true;
                status->succeeded = succeeded;
                status->changed.notifyAll();
            }
            --runningThreads;
        });
    } catch (...) {
        --runningThreads;
        throw;
    }
}

int ServiceThread::running()
{
    return runningThreads;
}

ServiceThread::~ServiceThread()
{
    bool ended = false;
    {
        const std::lock_guard<SrwLock> guard(status_->lock);
        ended = status_->ended;
    }
    if (ended) {
        thread_.join();
    } else {
        thread_.detach();  // the service didn't answer: the work finishes, or not, on its own
    }
}

bool ServiceThread::waitFor(std::chrono::milliseconds limit)
{
    std::unique_lock<SrwLock> guard(status_->lock);
    return status_->changed.waitFor(guard, limit, [this] { return status_->ended; });
}

bool ServiceThread::succeeded()
{
    const std::lock_guard<SrwLock> guard(status_->lock);
    return status_->ended && status_->succeeded;
}
