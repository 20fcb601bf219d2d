#include "platform/Threading.h"

#include <utility>

namespace {

DWORD WINAPI runBody(LPVOID parameter)
{
    const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(parameter));
    try {
        (*body)();
    } catch (...) {
        // The platform's thread start must not see it; bodies trace their own.
    }
    return 0;
}

}  // namespace

void waitRealTime(std::chrono::milliseconds limit)
{
    SrwLock lock;
    ConditionVariable never;
    std::unique_lock<SrwLock> guard(lock);
    never.waitFor(guard, limit, [] { return false; });
}

Thread::Thread(std::function<void()> body)
{
    auto owned = std::make_unique<std::function<void()>>(std::move(body));
    handle_ = CreateThread(nullptr, 0, runBody, owned.get(), 0, &id_);
    if (handle_ == nullptr) {
        const DWORD error = GetLastError();
        throw std::system_error(static_cast<int>(error), std::system_category(), "CreateThread");
    }
    static_cast<void>(owned.release());  // the thread owns it now
}

Thread::Thread(Thread&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)), id_(std::exchange(other.id_, 0))
{
}

Thread& Thread::operator=(Thread&& other) noexcept
{
    if (this != &other) {
        detach();
        handle_ = std::exchange(other.handle_, nullptr);
        id_ = std::exchange(other.id_, 0);
    }
    return *this;
}

Thread::~Thread()
{
    detach();
}

void Thread::join()
{
    if (handle_ == nullptr) {
        return;
    }
    WaitForSingleObject(handle_, INFINITE);
    detach();
}

void Thread::detach()
{
    if (handle_ != nullptr) {
        CloseHandle(std::exchange(handle_, nullptr));
        id_ = 0;
    }
}
