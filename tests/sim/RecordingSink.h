// A test event sink: counts its references, records what each Indicate and
// SetStatus call saw, and can block inside Indicate until the test opens it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform.h"

namespace simtest {

// What the sink read of one object with Get.
struct SeenObject {
    HRESULT classRead = E_FAIL;
    std::wstring className;
    HRESULT nameRead = E_FAIL;
    std::wstring instanceName;
    std::optional<std::int64_t> seq;  // "Seq" when the object has it
};

struct SeenIndicate {
    std::thread::id thread;
    LONG count = 0;
    std::vector<SeenObject> objects;
};

struct SeenStatus {
    LONG flags = -1;
    HRESULT result = S_OK;
    bool paramNull = false;
    bool objectNull = false;
    int indicatesRunning = -1;  // Indicate calls of this sink still running when it came
    ULONG referencesBefore = 0;  // the sink's references when it came
    std::thread::id thread;
};

class RecordingSink final : public IWbemObjectSink {
public:
    RecordingSink() = default;
    virtual ~RecordingSink() = default;
    RecordingSink(const RecordingSink&) = delete;
    RecordingSink& operator=(const RecordingSink&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE Indicate(LONG count, IWbemClassObject** objects) override;
    HRESULT STDMETHODCALLTYPE SetStatus(LONG flags, HRESULT result, BSTR param,
                                        IWbemClassObject* object) override;

    // Indicate waits (after reading its objects) until open() from now on.
    void block();
    void open();
    // Until `count` Indicate calls wait in block(); false after 10 s.
    bool waitForBlocked(int count);
    // Run inside Indicate, after the objects were read.
    void onIndicate(std::function<void()> action);
    HRESULT answer = S_OK;  // what Indicate returns; set before deliveries start

    std::vector<SeenIndicate> indicates() const;
    std::vector<SeenStatus> statuses() const;
    int running() const { return running_.load(); }

    std::atomic<ULONG> references{1};  // the test's own

private:
    mutable std::mutex lock_;
    std::condition_variable opened_;
    bool blocked_ = false;
    int waiting_ = 0;  // Indicate calls waiting to be opened
    std::function<void()> action_;
    std::vector<SeenIndicate> indicates_;
    std::vector<SeenStatus> statuses_;
    std::atomic<int> running_{0};
};

}  // namespace simtest
