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

struct HandleRecord {
    std::shared_ptr<ThreadRecord> thread;
    DWORD creator = 0;  // the thread that called CreateThread
};

// Thread local storage: which slots are allocated, and how many values threads
// left in them at their end.
constexpr DWORD tlsSlots = 64;

struct Threads {
    std::mutex lock;
    std::map<HANDLE, HandleRecord> handles;
    // Scripted failures and counted calls are the calling thread's: the
    // simulated service makes threads of its own meanwhile.
    std::map<DWORD, DWORD> createFailure;
    std::map<DWORD, int> createCalls;
    SYSTEMTIME localTime = resetLocalTime;
    WORD localTimeStep = 0;  // milliseconds added after each GetLocalTime
    bool tlsAllocated[tlsSlots] = {};
    int tlsValuesLeft = 0;
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

// The calling thread's TLS values; those still set when it ends are counted.
struct TlsValues {
    LPVOID values[tlsSlots] = {};
    TlsValues() = default;
    TlsValues(const TlsValues&) = delete;
    TlsValues& operator=(const TlsValues&) = delete;
    ~TlsValues()
    {
        auto& t = threads();
        const std::lock_guard<std::mutex> guard(t.lock);
        for (DWORD index = 0; index < tlsSlots; ++index) {
            t.tlsValuesLeft += t.tlsAllocated[index] && values[index] != nullptr ? 1 : 0;
        }
    }
};
thread_local TlsValues tlsValues;

bool tlsAllocated(DWORD index)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    return index < tlsSlots && t.tlsAllocated[index];
}

std::shared_ptr<ThreadRecord> findThread(HANDLE handle)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    const auto found = t.handles.find(handle);
    if (found == t.handles.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return found->second.thread;
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
    const DWORD creator = GetCurrentThreadId();
    {
        const std::lock_guard<std::mutex> guard(t.lock);
        ++t.createCalls[creator];
        const auto failure = t.createFailure.find(creator);
        if (failure != t.createFailure.end() && failure->second != 0) {
            SetLastError(failure->second);
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
        t.handles[handle] = {record, creator};
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
    if (t.handles.erase(handle) == 0 && !host::closeFileHandle(handle)) {
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

void AcquireSRWLockExclusive(SRWLOCK* lock)
{
    pthread_mutex_lock(&lock->mutex);
}

void ReleaseSRWLockExclusive(SRWLOCK* lock)
{
    pthread_mutex_unlock(&lock->mutex);
}

BOOL SleepConditionVariableSRW(CONDITION_VARIABLE* condition, SRWLOCK* lock, DWORD milliseconds, ULONG flags)
{
    if (flags != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (milliseconds == INFINITE) {
        pthread_cond_wait(&condition->condition, &lock->mutex);
        return TRUE;
    }
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    const long long nanoseconds = deadline.tv_nsec + static_cast<long long>(milliseconds % 1000) * 1000000;
    deadline.tv_sec += static_cast<time_t>(milliseconds / 1000 + nanoseconds / 1000000000);
    deadline.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
    if (pthread_cond_timedwait(&condition->condition, &lock->mutex, &deadline) != 0) {
        SetLastError(ERROR_TIMEOUT);
        return FALSE;
    }
    return TRUE;
}

void WakeConditionVariable(CONDITION_VARIABLE* condition)
{
    pthread_cond_signal(&condition->condition);
}

void WakeAllConditionVariable(CONDITION_VARIABLE* condition)
{
    pthread_cond_broadcast(&condition->condition);
}

DWORD TlsAlloc()
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    for (DWORD index = 0; index < tlsSlots; ++index) {
        if (!t.tlsAllocated[index]) {
            t.tlsAllocated[index] = true;
            return index;
        }
    }
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD index)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    if (index >= tlsSlots || !t.tlsAllocated[index]) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // The platform clears the slot of every thread; the host clears the caller's
    // (a test frees a slot only after its other threads ended).
    t.tlsAllocated[index] = false;
    tlsValues.values[index] = nullptr;
    return TRUE;
}

LPVOID TlsGetValue(DWORD index)
{
    if (!tlsAllocated(index)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    SetLastError(ERROR_SUCCESS);
    return tlsValues.values[index];
}

BOOL TlsSetValue(DWORD index, LPVOID value)
{
    if (!tlsAllocated(index)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    tlsValues.values[index] = value;
    return TRUE;
}

void GetLocalTime(SYSTEMTIME* time)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    *time = t.localTime;
    // Within the hour, as the tests use it: the minutes don't carry into hours.
    SYSTEMTIME& next = t.localTime;
    const unsigned milliseconds = next.wMilliseconds + t.localTimeStep;
    const unsigned seconds = next.wSecond + milliseconds / 1000;
    next.wMilliseconds = static_cast<WORD>(milliseconds % 1000);
    next.wSecond = static_cast<WORD>(seconds % 60);
    next.wMinute = static_cast<WORD>((next.wMinute + seconds / 60) % 60);
}

namespace host {

void setLocalTime(const SYSTEMTIME& time)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    t.localTime = time;
}

void setLocalTimeStep(WORD milliseconds)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    t.localTimeStep = milliseconds;
}

void failCreateThread(DWORD error)
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    t.createFailure[GetCurrentThreadId()] = error;
}

int createThreadCalls()
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    const auto calls = t.createCalls.find(GetCurrentThreadId());
    return calls == t.createCalls.end() ? 0 : calls->second;
}

int liveThreadHandles()
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    const DWORD caller = GetCurrentThreadId();
    int live = 0;
    for (const auto& handle : t.handles) {
        live += handle.second.creator == caller ? 1 : 0;
    }
    return live;
}

int tlsValuesLeftAtThreadEnd()
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    return t.tlsValuesLeft;
}

void resetThreads()
{
    auto& t = threads();
    const std::lock_guard<std::mutex> guard(t.lock);
    t.createFailure.clear();
    t.createCalls.clear();
    t.tlsValuesLeft = 0;
    t.localTime = resetLocalTime;
    t.localTimeStep = 0;
}

}  // namespace host
