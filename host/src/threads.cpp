// Threads, waits, thread ids and Sleep. A thread handle stands for a record
// shared with the running thread, which signals it as the very last thing it
// does, after the thread's other thread_local objects are gone.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <thread>

#include "WindowSystem.h"

namespace {

thread_local DWORD currentThreadId = 0;
std::atomic<DWORD> nextThreadId{0x104};

struct ThreadRecord {
    std::mutex lock;
    std::condition_variable ended;
    bool finished = false;
    DWORD exitCode = STILL_ACTIVE;
};

// What GetLocalTime answers after reset: Tuesday, 14 May 2024, 09:30.
constexpr SYSTEMTIME resetLocalTime = {2024, 5, 2, 14, 9, 30, 0, 0};

struct Threads {
    std::mutex lock;
    std::map<HANDLE, std::shared_ptr<ThreadRecord>> handles;
    DWORD createFailure = 0;
    int createCalls = 0;
    SYSTEMTIME localTime = resetLocalTime;
};

Threads& threads()
{
    static Threads instance;
    return instance;
}

std::atomic<std::uintptr_t> nextThreadHandle{0x7E10};

// Constructed first on a new thread, so destroyed after its other thread_locals.
struct EndSignal {
    std::shared_ptr<ThreadRecord> record;
    DWORD exitCode = 0;
    EndSignal() = default;
    EndSignal(const EndSignal&) = delete;
    EndSignal& operator=(const EndSignal&) = delete;
    ~EndSignal()
    {
        if (record) {
            const std::lock_guard<std::mutex> guard(record->lock);
            record->finished = true;
            record->exitCode = exitCode;
            record->ended.notify_all();
        }
    }
};
thread_local EndSignal endSignal;

std::shared_ptr<ThreadRecord> findThread(HANDLE handle)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    const auto found = t.handles.find(handle);
    if (found == t.handles.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return found->second;
}

}  // namespace

DWORD GetCurrentThreadId()
{
    if (currentThreadId == 0) {
        currentThreadId = nextThreadId.fetch_add(4);
    }
    return currentThreadId;
}

HANDLE CreateThread(LPSECURITY_ATTRIBUTES /*attributes*/, SIZE_T /*stackSize*/, LPTHREAD_START_ROUTINE start,
                    LPVOID parameter, DWORD creationFlags, LPDWORD threadId)
{
    auto& t = threads();
    {
        const std::lock_guard<std::mutex> guard(t.lock);
        ++t.createCalls;
        if (t.createFailure != 0) {
            SetLastError(t.createFailure);
            return nullptr;
        }
    }
    if (start == nullptr || creationFlags != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto record = std::make_shared<ThreadRecord>();
    const DWORD id = nextThreadId.fetch_add(4);
    auto* handle = reinterpret_cast<HANDLE>(nextThreadHandle.fetch_add(4));
    {
        const std::lock_guard<std::mutex> guard(t.lock);
        t.handles[handle] = record;
    }
    try {
        std::thread([record, start, parameter, id] {
            endSignal.record = record;
            currentThreadId = id;
            endSignal.exitCode = start(parameter);
        }).detach();
    } catch (const std::system_error&) {
        const std::lock_guard<std::mutex> guard(t.lock);
        t.handles.erase(handle);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (threadId != nullptr) {
        *threadId = id;
    }
    return handle;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    const auto record = findThread(handle);
    if (!record) {
        return WAIT_FAILED;
    }
    std::unique_lock<std::mutex> guard(record->lock);
    if (milliseconds == INFINITE) {
        record->ended.wait(guard, [&] { return record->finished; });
        return WAIT_OBJECT_0;
    }
    const bool ended = record->ended.wait_for(guard, std::chrono::milliseconds(milliseconds),
                                              [&] { return record->finished; });
    return ended ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode)
{
    const auto record = findThread(thread);
    if (!record || exitCode == nullptr) {
        return FALSE;
    }
    const std::lock_guard<std::mutex> guard(record->lock);
    *exitCode = record->finished ? record->exitCode : STILL_ACTIVE;
    return TRUE;
}

BOOL CloseHandle(HANDLE handle)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    if (t.handles.erase(handle) == 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

void Sleep(DWORD milliseconds)
{
    auto& s = host::windowSystem();
    std::shared_ptr<const std::function<void(DWORD)>> hook;
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        s.clock += milliseconds;
        s.sleeps.push_back({GetCurrentThreadId(), milliseconds});
        hook = s.sleepHook;
    }
    if (hook) {
        (*hook)(milliseconds);
    }
}

void GetLocalTime(SYSTEMTIME* time)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    *time = t.localTime;
}

namespace host {

void setLocalTime(const SYSTEMTIME& time)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    t.localTime = time;
}

void failCreateThread(DWORD error)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    t.createFailure = error;
}

int createThreadCalls()
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    return t.createCalls;
}

int liveThreadHandles()
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    return static_cast<int>(t.handles.size());
}

void resetThreads()
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    t.createFailure = 0;
    t.createCalls = 0;
    t.localTime = resetLocalTime;
}

}  // namespace host
