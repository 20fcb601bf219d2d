#include "tools/sheet_host/Watchdog.h"

#include <algorithm>

#include "tools/sheet_host/Output.h"
#include "tools/sheet_host/ThreadStacks.h"

Watchdog::Watchdog()
{
    thread_ = Thread([this] { run_(); });
}

Watchdog::~Watchdog()
{
    {
        const std::lock_guard<SrwLock> guard(lock_);
        stopping_ = true;
        changed_.notifyAll();
    }
    thread_.join();
}

Watchdog::Wait::Wait(Watchdog& watchdog, std::string what, std::chrono::milliseconds limit)
    : watchdog_(watchdog)
{
    const std::lock_guard<SrwLock> guard(watchdog_.lock_);
    id_ = watchdog_.nextId_++;
    watchdog_.limits_[id_] = {std::move(what), limit, std::chrono::steady_clock::now() + limit};
    ++watchdog_.changes_;
    watchdog_.changed_.notifyAll();
}

Watchdog::Wait::~Wait()
{
    const std::lock_guard<SrwLock> guard(watchdog_.lock_);
    watchdog_.limits_.erase(id_);
    ++watchdog_.changes_;
}

void Watchdog::nameThread(const std::string& name)
{
    const std::lock_guard<SrwLock> guard(lock_);
    if (name.empty()) {
        names_.erase(GetCurrentThreadId());
    } else {
        names_[GetCurrentThreadId()] = name;
    }
}

void Watchdog::setReport(std::function<std::vector<std::string>()> report)
{
    const std::lock_guard<SrwLock> guard(lock_);
    report_ = std::move(report);
}

void Watchdog::run_()
{
    std::unique_lock<SrwLock> guard(lock_);
    names_[GetCurrentThreadId()] = "watchdog";
    while (!stopping_) {
        if (limits_.empty()) {
            changed_.wait(guard, [this] { return stopping_ || !limits_.empty(); });
            continue;
        }
        const auto first = std::min_element(limits_.begin(), limits_.end(), [](const auto& a, const auto& b) {
            return a.second.deadline < b.second.deadline;
        });
        const Limit limit = first->second;
        const std::uint64_t changes = changes_;
        const auto now = std::chrono::steady_clock::now();
        if (now >= limit.deadline) {
            fire_(limit);
        }
        // Until the first deadline, or until a wait begins or ends.
        changed_.waitFor(guard, limit.deadline - now,
                         [this, changes] { return stopping_ || changes_ != changes; });
    }
}

void Watchdog::fire_(const Limit& limit)
{
    const std::vector<std::string> held = takeHeldLines();
    if (!held.empty()) {
        sayNow("the round so far:");
    }
    for (const std::string& line : held) {
        sayNow("  " + line);
    }
    sayNow("timed out: " + limit.what + " (limit " + std::to_string(limit.limit.count()) + " ms)");
    sayNow("stacks of the other threads:");
    for (const std::string& line : threadStacks(names_)) {
        sayNow(line);
    }
    for (const std::string& line : report_ ? report_() : std::vector<std::string>()) {
        sayNow(line);
    }
    // Not ExitProcess: it takes the loader lock, which the hung thread may hold.
    TerminateProcess(GetCurrentProcess(), exitCode);
    for (;;) {
        Sleep(INFINITE);
    }
}
