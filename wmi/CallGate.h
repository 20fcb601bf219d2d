// Lets calls from foreign threads into an object run until the object's owner
// closes the gate; close() returns once no admitted call is still running.
// A call must not close the gate it runs under.
#pragma once

#include <mutex>

#include "platform/Threading.h"

class CallGate {
public:
    CallGate() = default;
    CallGate(const CallGate&) = delete;
    CallGate& operator=(const CallGate&) = delete;

    // True if the call may go on; it must then end with leave().
    bool enter()
    {
        const std::lock_guard<SrwLock> guard(lock_);
        if (closed_) {
            return false;
        }
        ++running_;
        return true;
    }
    void leave()
    {
        const std::lock_guard<SrwLock> guard(lock_);
        if (--running_ == 0) {
            idle_.notifyAll();
        }
    }
    // No call is admitted from now on; waits for those under way.
    void close()
    {
        std::unique_lock<SrwLock> guard(lock_);
        closed_ = true;
        idle_.wait(guard, [this] { return running_ == 0; });
    }

private:
    SrwLock lock_;
    ConditionVariable idle_;
    int running_ = 0;
    bool closed_ = false;
};

// Holds one admitted call for its scope.
class GatePass {
public:
    explicit GatePass(CallGate& gate) : gate_(gate), admitted_(gate.enter()) { }
    GatePass(const GatePass&) = delete;
    GatePass& operator=(const GatePass&) = delete;
    ~GatePass()
    {
        if (admitted_) {
            gate_.leave();
        }
    }
    explicit operator bool() const { return admitted_; }

private:
    CallGate& gate_;
    bool admitted_;
};
