// Internal: the event subscriptions of one service and the pool of threads
// that delivers fired events to them, with the hold points and counters tests use.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform.h"
#include "sim/Events.h"
#include "sim/Observation.h"

namespace sim {

class ServiceCore;

struct Subscription {
    std::uint64_t connection = 0;
    std::wstring className;
    std::optional<std::wstring> instanceName;
    IWbemObjectSink* sink = nullptr;  // one reference, the subscription's
};

class EventHub {
public:
    // A subscription the hub holds; shared with the deliveries scheduled for it.
    struct Entry;
    using EntryList = std::vector<std::shared_ptr<Entry>>;

    explicit EventHub(ServiceCore& core);
    ~EventHub();  // shutdown()
    EventHub(const EventHub&) = delete;
    EventHub& operator=(const EventHub&) = delete;

    // False after shutdown; the caller then keeps its sink reference.
    bool subscribe(Subscription subscription);
    // Takes the connection's subscriptions with `sink` out; no delivery is
    // admitted to them any more. Returns those with no delivery in Indicate,
    // which the caller ends with finish() outside its locks.
    EntryList cancel(std::uint64_t connection, IWbemObjectSink* sink, bool& found);
    // SetStatus(WBEM_STATUS_COMPLETE, the entry's end status) and Release, once per entry.
    void finish(const EntryList& entries) noexcept;
    std::vector<SubscriptionInfo> subscriptions() const;

    std::shared_future<DeliveryReport> fire(const Event& event);
    bool drain(std::chrono::milliseconds timeout) const;
    void hold(HoldPoint point);
    void release();
    bool waitForHeld(std::size_t count, std::chrono::milliseconds timeout) const;
    bool waitForInIndicate(std::size_t count, std::chrono::milliseconds timeout) const;
    DeliveryCounts counts() const;
    // Idempotent: drops queued work, releases holds, ends every subscription,
    // waits for deliveries in Indicate and joins the threads.
    void shutdown();

    // An event object of delivery `delivery` is read (Get) on some thread:
    // the insideIndicate hold point.
    void onEventObjectRead(std::uint64_t delivery);

private:
    struct Ticket;
    struct Job {
        std::shared_ptr<Entry> entry;
        std::shared_ptr<const Event> event;
        std::vector<std::size_t> objects;  // indexes into event->objects, for this subscription
        std::shared_ptr<Ticket> ticket;
    };

    void run_() noexcept;
    void deliver_(const Job& job) noexcept;
    // Waits while held at `point`; the caller holds `guard` on lock_.
    void waitAtHold_(std::unique_lock<std::mutex>& guard);
    // Nothing when admitted to Indicate, else why not (the subscription ended).
    std::optional<HRESULT> admit_(const std::shared_ptr<Entry>& entry, std::uint64_t delivery);
    // The delivery left Indicate; true when the caller must finish the entry.
    bool leave_(const std::shared_ptr<Entry>& entry, std::uint64_t delivery);
    void complete_(const Job& job, std::optional<HRESULT> answer) noexcept;

    ServiceCore& core_;
    mutable std::mutex lock_;
    std::condition_variable work_;  // for the delivery threads: a job or the end
    mutable std::condition_variable changed_;  // any counter below changed
    EntryList entries_;
    std::deque<Job> queue_;
    std::vector<std::thread> threads_;
    std::uint64_t nextEntry_ = 1;
    std::uint64_t nextDelivery_ = 1;
    std::size_t working_ = 0;  // jobs taken off the queue and not completed
    std::size_t inIndicate_ = 0;
    std::size_t held_ = 0;
    std::uint64_t fired_ = 0;
    std::uint64_t indicated_ = 0;
    std::uint64_t dropped_ = 0;
    std::optional<HoldPoint> holding_;
    std::uint64_t holdRound_ = 0;  // bumped by release(): waiters of earlier rounds go on
    std::map<std::uint64_t, bool> inside_;  // deliveries in Indicate: held there already?
    bool stopping_ = false;
};

}  // namespace sim
