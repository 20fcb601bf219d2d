// The tests' one page on the real page base: counts its live objects and records
// which operation the dialog procedure called. Its sheet page's release
// callback deletes it, as with the diagnostics page.
#pragma once

#include <atomic>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "page_framework/PropertyPageBase.h"

class RecordingPage : public PropertyPageBase {
public:
    using Calls = std::vector<std::string>;
    static inline std::atomic<int> live{0};
    // Where this thread's page records its calls; none while null.
    static inline thread_local Calls* calls = nullptr;

    RecordingPage() { ++live; }
    ~RecordingPage() override { --live; }
    ZtNic* nic() const { return nic_.get(); }

protected:
    void onSize_(int width, int height) override
    {
        record_("size " + std::to_string(width) + "x" + std::to_string(height));
    }
    void onCommandClicked_(WPARAM wParam) override { record_("clicked " + std::to_string(wParam)); }
    void onCommandNotify_(WPARAM wParam) override { record_("notify " + std::to_string(wParam)); }
    INT_PTR onUserMessage_(UINT message, WPARAM, LPARAM) override
    {
        record_("user " + std::to_string(message));
        if (message == 0x4FF) {
            throw std::bad_alloc();  // what an allocation in a handler may do
        }
        return message == 0x466 ? 0 : 42;
    }
    void onInitDialog_() override { record_("init"); }
    void onTimer_(UINT_PTR id) override { record_("timer " + std::to_string(id)); }
    void onNicChanged_(bool added) override { record_(added ? "nic added" : "nic removed"); }
    void onNicMediaStateChanged_(MediaConnectState state) override
    {
        record_("media " + std::to_string(static_cast<int>(state)));
    }

private:
    static void record_(std::string call)
    {
        if (calls != nullptr) {
            calls->push_back(std::move(call));
        }
    }
};
