// Keyed subscribers of one kind of notification. add/remove run on the dialog
// thread, notify on the service's delivery threads: a callable that remove()
// has returned for never runs again. Callables must not call back into the
// registry.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>

#include "platform/Threading.h"

template <typename Arg> class CallbackRegistry {
public:
    using Callback = std::function<void(Arg)>;

    // False, keeping the stored callable, if the key is taken.
    bool add(const std::wstring& key, Callback callback)
    {
        const std::lock_guard<SrwLock> guard(lock_);
        return callbacks_.emplace(key, std::move(callback)).second;
    }
    // False if the key wasn't there. Waits for a notify that is calling it.
    bool remove(const std::wstring& key)
    {
        const std::lock_guard<SrwLock> guard(lock_);
        return callbacks_.erase(key) != 0;
    }
    // Calls every subscriber; they only post, so holding the lock is short.
    void notify(Arg arg) const
    {
        const std::lock_guard<SrwLock> guard(lock_);
        for (const auto& entry : callbacks_) {
            entry.second(arg);
        }
    }

private:
    mutable SrwLock lock_;
    std::unordered_map<std::wstring, Callback> callbacks_;
};
