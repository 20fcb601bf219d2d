// Locks, condition variables and threads made of the platform's own (SRWLOCK,
// CONDITION_VARIABLE, CreateThread), for the module and everything built with
// it: none of them needs a threads runtime, so nothing runs when a thread ends.
// The host layer stands in for the platform calls.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <system_error>

#include "platform.h"

// An exclusive lock; BasicLockable, for std::lock_guard and std::unique_lock.
// Not recursive; needs no clean-up.
class SrwLock {
public:
    SrwLock() = default;
    SrwLock(const SrwLock&) = delete;
    SrwLock& operator=(const SrwLock&) = delete;

    void lock() { AcquireSRWLockExclusive(&lock_); }
    void unlock() { ReleaseSRWLockExclusive(&lock_); }
    SRWLOCK* native() { return &lock_; }

private:
    SRWLOCK lock_ = SRWLOCK_INIT;
};

// Waits on a condition under an SrwLock, held by the caller's unique_lock.
// Waits in real time on both builds.
class ConditionVariable {
public:
    ConditionVariable() = default;
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    void notifyOne() { WakeConditionVariable(&condition_); }
    void notifyAll() { WakeAllConditionVariable(&condition_); }

    template <typename Predicate> void wait(std::unique_lock<SrwLock>& guard, Predicate done)
    {
        while (!done()) {
            SleepConditionVariableSRW(&condition_, guard.mutex()->native(), INFINITE, 0);
        }
    }
    // False if `done` is still false when `limit` has passed.
    template <typename Rep, typename Period, typename Predicate>
    bool waitFor(std::unique_lock<SrwLock>& guard, std::chrono::duration<Rep, Period> limit, Predicate done)
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!done()) {
            const auto left = deadline - std::chrono::steady_clock::now();
            if (left <= decltype(left)::zero()) {
                return false;
            }
            // Rounded up, so that a wait never ends a little early and spins.
            const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
            SleepConditionVariableSRW(&condition_, guard.mutex()->native(), static_cast<DWORD>(milliseconds),
                                      0);
        }
        return true;
    }

private:
    CONDITION_VARIABLE condition_ = CONDITION_VARIABLE_INIT;
};

// Waits `limit` in real time (the host's Sleep only moves its test clock).
void waitRealTime(std::chrono::milliseconds limit);

// A thread of the platform's running `body`. Ends as a plain thread does:
// whatever the thread must end (its COM use) `body` ends before it returns.
// An exception out of `body` stops there, untraced (this layer has no log): the
// module's and the tool's bodies end theirs in runThreadBody (trace/ThreadBody.h).
// Must be joined or detached before it is destroyed (a joinable one is detached then).
class Thread {
public:
    Thread() = default;
    // Throws std::system_error if the platform makes no thread.
    explicit Thread(std::function<void()> body);
    Thread(Thread&& other) noexcept;
    Thread& operator=(Thread&& other) noexcept;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    ~Thread();

    bool joinable() const { return handle_ != nullptr; }
    DWORD id() const { return id_; }
    // Waits for the thread to end and closes its handle.
    void join();
    // Lets the thread end on its own.
    void detach();

private:
    HANDLE handle_ = nullptr;
    DWORD id_ = 0;
};
