#include "EventHub.h"

#include <algorithm>

#include "ClassObject.h"
#include "Codes.h"
#include "ServiceCore.h"
#include "Text.h"
#include "sim/WmiService.h"

namespace sim {

struct EventHub::Entry {
    std::uint64_t id = 0;
    Subscription subscription;
    int inFlight = 0;  // deliveries admitted to Indicate that haven't returned
    std::uint64_t indications = 0;
    bool ended = false;  // cancelled or shut down: admits nothing more
    bool finished = false;  // SetStatus and Release done, or handed to a thread to do
    HRESULT endStatus = codes::callCancelled;
};

struct EventHub::Ticket {
    int remaining = 0;
    DeliveryReport report;
    std::promise<DeliveryReport> promise;
};

namespace {

bool isMissing(const EventObject& object, const std::wstring& name)
{
    return std::any_of(object.missing.begin(), object.missing.end(),
                       [&](const std::wstring& missing) { return equalsNoCase(missing, name); });
}

// The object's InstanceName when it has one as text.
std::optional<std::wstring> instanceNameOf(const EventObject& object)
{
    if (isMissing(object, L"InstanceName")) {
        return std::nullopt;
    }
    for (const auto& [name, value] : object.values) {
        if (equalsNoCase(name, L"InstanceName")) {
            return value.asString();
        }
    }
    return std::nullopt;
}

// The service's references to one delivery's objects, released on every path.
class DeliveredObjects {
public:
    DeliveredObjects() = default;
    ~DeliveredObjects() { releaseAll(); }
    DeliveredObjects(const DeliveredObjects&) = delete;
    DeliveredObjects& operator=(const DeliveredObjects&) = delete;

    void add(IWbemClassObject* object) { objects_.push_back(object); }
    LONG count() const { return static_cast<LONG>(objects_.size()); }
    IWbemClassObject** data() { return objects_.data(); }
    void releaseAll()
    {
        for (IWbemClassObject* object : objects_) {
            object->Release();
        }
        objects_.clear();
    }

private:
    std::vector<IWbemClassObject*> objects_;
};

}  // namespace

Event Event::of(const std::wstring& className, const std::wstring& instanceName, const PropertyValues& values)
{
    EventObject object{
        className, {{L"InstanceName", Value::string(instanceName)}, {L"Active", Value::boolean(true)}}, {}};
    object.values.insert(object.values.end(), values.begin(), values.end());
    return Event{className, {std::move(object)}};
}

EventHub::EventHub(ServiceCore& core) : core_(core)
{
}

EventHub::~EventHub()
{
    shutdown();
}

// ---- Subscriptions --------------------------------------------------------------

bool EventHub::subscribe(Subscription subscription)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (stopping_) {
        return false;
    }
    auto entry = std::make_shared<Entry>();
    entry->id = nextEntry_++;
    entry->subscription = std::move(subscription);
    entries_.push_back(std::move(entry));
    return true;
}

EventHub::EntryList EventHub::cancel(std::uint64_t connection, IWbemObjectSink* sink, bool& found)
{
    const std::lock_guard<std::mutex> guard(lock_);
    EntryList ready;
    found = false;
    auto kept = entries_.begin();
    for (auto& entry : entries_) {
        if (entry->subscription.connection != connection || entry->subscription.sink != sink) {
            *kept++ = std::move(entry);
            continue;
        }
        found = true;
        entry->ended = true;
        entry->endStatus = codes::callCancelled;
        if (entry->inFlight == 0) {
            entry->finished = true;
            ready.push_back(entry);
        }
    }
    entries_.erase(kept, entries_.end());
    changed_.notify_all();
    return ready;
}

void EventHub::finish(const EntryList& entries) noexcept
{
    // Only the thread that set `finished` gets here with an entry, so reading
    // it needs no lock; no lock is held while the sink runs.
    for (const auto& entry : entries) {
        const Subscription& subscription = entry->subscription;
        subscription.sink->SetStatus(WBEM_STATUS_COMPLETE, entry->endStatus, nullptr, nullptr);
        core_.log({"SetStatus", subscription.className, subscription.className,
                   subscription.instanceName.value_or(L""), false},
                  entry->endStatus);
        subscription.sink->Release();
    }
}

std::vector<SubscriptionInfo> EventHub::subscriptions() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    std::vector<SubscriptionInfo> infos;
    for (const auto& entry : entries_) {
        const Subscription& subscription = entry->subscription;
        infos.push_back({subscription.connection, subscription.className, subscription.instanceName,
                         entry->id, entry->indications});
    }
    return infos;
}

// ---- Firing and delivering -------------------------------------------------------

std::shared_future<DeliveryReport> EventHub::fire(const Event& event)
{
    auto shared = std::make_shared<const Event>(event);
    auto ticket = std::make_shared<Ticket>();
    std::shared_future<DeliveryReport> future = ticket->promise.get_future().share();
    std::vector<std::optional<std::wstring>> names;
    names.reserve(event.objects.size());
    for (const EventObject& object : event.objects) {
        names.push_back(instanceNameOf(object));
    }
    {
        const std::lock_guard<std::mutex> guard(lock_);
        ++fired_;
        if (!stopping_) {
            for (const auto& entry : entries_) {
                const Subscription& subscription = entry->subscription;
                if (!equalsNoCase(subscription.className, event.className)) {
                    continue;
                }
                std::vector<std::size_t> selected;
                for (std::size_t i = 0; i < names.size(); ++i) {
                    if (!subscription.instanceName || names[i] == subscription.instanceName) {
                        selected.push_back(i);
                    }
                }
                if (!selected.empty()) {
                    queue_.push_back({entry, shared, std::move(selected), ticket});
                    ++ticket->remaining;
                }
            }
            ticket->report.subscriptions = ticket->remaining;
            while (ticket->remaining > 0 && threads_.size() < WmiService::kDeliveryThreads) {
                threads_.emplace_back([this] { run_(); });
            }
        }
        if (ticket->remaining == 0) {
            ticket->promise.set_value(ticket->report);
        }
    }
    work_.notify_all();
    changed_.notify_all();
    return future;
}

void EventHub::run_() noexcept
{
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
        work_.wait(guard, [this] { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) {
            return;  // stopping: shutdown() took what was left
        }
        const Job job = std::move(queue_.front());
        queue_.pop_front();
        ++working_;
        guard.unlock();
        deliver_(job);
        guard.lock();
    }
}

void EventHub::deliver_(const Job& job) noexcept
{
    const Event& event = *job.event;
    const std::wstring firstName = instanceNameOf(event.objects[job.objects.front()]).value_or(L"");
    const CallInfo info{"Indicate", event.className, event.className, firstName, false};
    std::optional<HRESULT> answer;
    bool finishEntry = false;
    core_.serve(info, [&]() -> HRESULT {
        std::uint64_t delivery = 0;
        {
            std::unique_lock<std::mutex> guard(lock_);
            delivery = nextDelivery_++;
            if (holding_ == HoldPoint::beforeIndicate) {
                waitAtHold_(guard);
            }
        }
        DeliveredObjects objects;
        for (const std::size_t index : job.objects) {
            objects.add(core_.eventObject(event.objects[index], delivery));
        }
        if (const auto refused = admit_(job.entry, delivery)) {
            return *refused;
        }
        const HRESULT result = job.entry->subscription.sink->Indicate(objects.count(), objects.data());
        answer = result;
        objects.releaseAll();
        finishEntry = leave_(job.entry, delivery);
        return result;
    });
    if (finishEntry) {
        finish({job.entry});
    }
    complete_(job, answer);
}

void EventHub::waitAtHold_(std::unique_lock<std::mutex>& guard)
{
    const std::uint64_t round = holdRound_;
    ++held_;
    changed_.notify_all();
    changed_.wait(guard, [&] { return stopping_ || holdRound_ != round; });
    --held_;
    changed_.notify_all();
}

std::optional<HRESULT> EventHub::admit_(const std::shared_ptr<Entry>& entry, std::uint64_t delivery)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (entry->ended) {
        return entry->endStatus;
    }
    ++entry->inFlight;
    ++inIndicate_;
    inside_[delivery] = false;
    changed_.notify_all();
    return std::nullopt;
}

bool EventHub::leave_(const std::shared_ptr<Entry>& entry, std::uint64_t delivery)
{
    const std::lock_guard<std::mutex> guard(lock_);
    --entry->inFlight;
    ++entry->indications;
    --inIndicate_;
    inside_.erase(delivery);
    const bool last = entry->ended && entry->inFlight == 0 && !entry->finished;
    if (last) {
        entry->finished = true;
    }
    changed_.notify_all();
    return last;
}

void EventHub::complete_(const Job& job, std::optional<HRESULT> answer) noexcept
{
    const std::lock_guard<std::mutex> guard(lock_);
    Ticket& ticket = *job.ticket;
    try {
        if (answer) {
            ++indicated_;
            ++ticket.report.indicated;
            ticket.report.answers.push_back(*answer);
        } else {
            ++dropped_;
            ++ticket.report.dropped;
        }
        if (--ticket.remaining == 0) {
            ticket.promise.set_value(ticket.report);
        }
    } catch (...) {
        // A report lost to memory exhaustion; the counters still add up.
        (void)0;
    }
    --working_;
    changed_.notify_all();
}

void EventHub::onEventObjectRead(std::uint64_t delivery)
{
    std::unique_lock<std::mutex> guard(lock_);
    if (holding_ != HoldPoint::insideIndicate) {
        return;
    }
    const auto found = inside_.find(delivery);
    if (found == inside_.end() || found->second) {
        return;  // not inside Indicate, or held there once already
    }
    found->second = true;
    waitAtHold_(guard);
}

// ---- Test controls --------------------------------------------------------------

bool EventHub::drain(std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, timeout, [this] { return queue_.empty() && working_ == 0; });
}

void EventHub::hold(HoldPoint point)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (!stopping_) {
        holding_ = point;
    }
}

void EventHub::release()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        holding_.reset();
        ++holdRound_;
    }
    changed_.notify_all();
}

bool EventHub::waitForHeld(std::size_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, timeout, [&] { return held_ >= count; });
}

bool EventHub::waitForInIndicate(std::size_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, timeout, [&] { return inIndicate_ >= count; });
}

DeliveryCounts EventHub::counts() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return {fired_, indicated_, dropped_, queue_.size() + working_, inIndicate_, held_, threads_.size()};
}

void EventHub::shutdown()
{
    EntryList ready;
    std::deque<Job> dropped;
    std::vector<std::thread> threads;
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
        holding_.reset();
        ++holdRound_;
        for (const auto& entry : entries_) {
            entry->ended = true;
            entry->endStatus = codes::shuttingDown;
            if (entry->inFlight == 0 && !entry->finished) {
                entry->finished = true;
                ready.push_back(entry);
            }
        }
        entries_.clear();
        dropped.swap(queue_);
        working_ += dropped.size();  // complete_ counts them off
        threads.swap(threads_);
    }
    work_.notify_all();
    changed_.notify_all();
    for (const Job& job : dropped) {
        complete_(job, std::nullopt);
    }
    finish(ready);
    for (std::thread& thread : threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            thread.detach();  // misuse (shutdown from inside Indicate): don't join oneself
        } else {
            thread.join();
        }
    }
}

}  // namespace sim
