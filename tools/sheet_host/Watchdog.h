// Ends a run stuck in a wait: past a wait's limit it prints which wait timed out, every thread's
// stack and what the round can tell, then ends the process with exit code 3.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/Threading.h"
#include "tools/sheet_host/Win32.h"

class Watchdog {
public:
    static constexpr UINT exitCode = 3;

    // Its thread starts here, with the host: a thread made once a hung thread
    // holds the loader lock would wait for that lock.
    Watchdog();
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    // A wait under way, from its making to its end.
    class Wait {
    public:
        Wait(Watchdog& watchdog, std::string what, std::chrono::milliseconds limit);
        ~Wait();
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;

    private:
        Watchdog& watchdog_;
        std::uint64_t id_;
    };

    // Names the calling thread in the stacks ("main", "sheet"); empty: no more.
    void nameThread(const std::string& name);
    // Lines a round can tell at any time, printed last when a wait times out;
    // they must take no lock a hung thread may hold. Null: none.
    void setReport(std::function<std::vector<std::string>()> report);

private:
    struct Limit {
        std::string what;
        std::chrono::milliseconds limit{};
        std::chrono::steady_clock::time_point deadline{};
    };

    void run_();
    [[noreturn]] void fire_(const Limit& limit);

    SrwLock lock_;
    ConditionVariable changed_;
    std::map<std::uint64_t, Limit> limits_;
    std::map<DWORD, std::string> names_;
    std::function<std::vector<std::string>()> report_;
    std::uint64_t nextId_ = 1;
    std::uint64_t changes_ = 0;  // waits begun and ended
    bool stopping_ = false;
    Thread thread_;
};
