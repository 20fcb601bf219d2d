// Runs a command's work with the management service on a thread of its own,
// so that the main thread can wait for it with a time limit: a synchronous
// call into the service may block for as long as the service likes. The work
// ends the thread's COM and WMI use before the thread returns. Work that
// doesn't end in time is left to finish on its own: it must keep what it uses
// alive itself (shared state), never the caller's stack.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include "platform/Threading.h"

class ServiceThread {
public:
    // Starts `work`; throws std::system_error if no thread can be made.
    explicit ServiceThread(std::function<void()> work);
    // Joins work that has ended; work still running is detached.
    ~ServiceThread();
    ServiceThread(const ServiceThread&) = delete;
    ServiceThread& operator=(const ServiceThread&) = delete;

    // True once the work has returned; waits up to `limit` for it.
    bool waitFor(std::chrono::milliseconds limit);
    // False if the work ended by an exception (out of memory).
    bool succeeded();

    // Threads started and not yet through with their work and their COM use,
    // those left to themselves included: what must end before the service
    // may go away (a test waits for 0).
    static int running();

private:
    struct Status {
        SrwLock lock;
        ConditionVariable changed;
        bool ended = false;
        bool succeeded = false;
    };

    std::shared_ptr<Status> status_;
    Thread thread_;
};
