// What callbacks on other threads reported, in the order they did.
#pragma once

#include <mutex>
#include <utility>
#include <vector>

template <typename Entry> class EventLog {
public:
    void add(Entry entry)
    {
        const std::lock_guard<std::mutex> guard(lock_);
        entries_.push_back(std::move(entry));
    }
    std::vector<Entry> get() const
    {
        const std::lock_guard<std::mutex> guard(lock_);
        return entries_;
    }

private:
    mutable std::mutex lock_;
    std::vector<Entry> entries_;
};
