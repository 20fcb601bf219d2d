#include "Core.h"
#include "platform/Threading.h"

namespace sim {

namespace {

// The object's InstanceName when it is given as text.
std::optional<std::wstring> instanceNameOf(const Object& object)
{
    const auto* found = findNamed(const_cast<PropertyValues&>(object.properties), L"InstanceName");
    return found != nullptr ? found->second.asString() : std::nullopt;
}

struct Releaser {
    void operator()(IUnknown* object) const { object->Release(); }
};

}  // namespace

Event Event::of(const std::wstring& className, const std::wstring& instanceName, const PropertyValues& values)
{
    Object object{className,
                  {{L"InstanceName", Value::string(instanceName)}, {L"Active", Value::boolean(true)}}};
    object.properties.insert(object.properties.end(), values.begin(), values.end());
    return Event{className, {std::move(object)}};
}

// ---- Subscriptions --------------------------------------------------------------

bool EventHub::subscribe(std::uint64_t connection, std::wstring className,
                         std::optional<std::wstring> instanceName, IWbemObjectSink* sink)
{
    auto entry
        = std::make_shared<Entry>(Entry{connection, std::move(className), std::move(instanceName), sink});
    const std::lock_guard<SrwLock> guard(lock_);
    if (!stopping_) {
        entries_.push_back(std::move(entry));
        sink->AddRef();
    }
    return !stopping_;
}

EventHub::EntryList EventHub::cancel(std::uint64_t connection, IWbemObjectSink* sink, bool& found)
{
    const std::lock_guard<SrwLock> guard(lock_);
    EntryList ready;
    found = false;
    auto kept = entries_.begin();
    for (auto& entry : entries_) {
        if (entry->connection != connection || entry->sink != sink) {
            *kept++ = std::move(entry);
            continue;
        }
        found = true;
        end_(entry, wbem(WBEM_E_CALL_CANCELLED), ready);
    }
    entries_.erase(kept, entries_.end());
    changed_.notifyAll();
    return ready;
}

void EventHub::end_(const std::shared_ptr<Entry>& entry, HRESULT status, EntryList& ready)
{
    entry->ended = true;
    entry->endStatus = status;
    if (entry->inFlight == 0 && !entry->finished) {
        entry->finished = true;
        ready.push_back(entry);
    }
}

void EventHub::finish(const EntryList& entries) noexcept
{
    // Only the thread that set `finished` gets here with an entry, so reading
    // it needs no lock; no lock is held while the sink runs.
    for (const auto& entry : entries) {
        entry->sink->SetStatus(WBEM_STATUS_COMPLETE, entry->endStatus, nullptr, nullptr);
        core_.log({"SetStatus", entry->className, entry->className, entry->instanceName.value_or(L"")},
                  entry->endStatus);
        entry->sink->Release();
    }
}

std::vector<SubscriptionInfo> EventHub::subscriptions() const
{
    const std::lock_guard<SrwLock> guard(lock_);
    std::vector<SubscriptionInfo> infos;
    for (const auto& entry : entries_) {
        infos.push_back({entry->className, entry->instanceName});
    }
    return infos;
}

// ---- Firing and delivering -------------------------------------------------------

Delivery EventHub::fire(const Event& event)
{
    auto shared = std::make_shared<const Event>(event);
    auto ticket = std::make_shared<Ticket>();
    Delivery future = ticket->delivery;
    std::vector<std::optional<std::wstring>> names;
    for (const Object& object : event.objects) {
        names.push_back(instanceNameOf(object));
    }
    {
        const std::lock_guard<SrwLock> guard(lock_);
        for (const auto& entry : stopping_ ? EntryList() : entries_) {
            std::vector<std::size_t> selected;
            for (std::size_t i = 0; i < names.size(); ++i) {
                if (!entry->instanceName || names[i] == entry->instanceName) {
                    selected.push_back(i);
                }
            }
            if (equalsNoCase(entry->className, event.className) && !selected.empty()) {
                queue_.push_back({entry, shared, std::move(selected), ticket});
                ++ticket->remaining;
            }
        }
        ticket->report.subscriptions = ticket->remaining;
        while (!queue_.empty() && threads_.size() < WmiService::kDeliveryThreads) {
            threads_.emplace_back([this] { run_(); });
        }
        if (ticket->remaining == 0) {
            ticket->delivery.complete(ticket->report);
        }
    }
    work_.notifyAll();
    return future;
}

void EventHub::run_() noexcept
{
    std::unique_lock<SrwLock> guard(lock_);
    for (;;) {
        work_.wait(guard, [this] { return stopping_ || pooled_ || !queue_.empty(); });
        if (queue_.empty()) {
            if (!stopping_) {
                leavePool_();
            }
            return;  // stopping: shutdown() took what was left and joins the thread
        }
        std::shared_ptr<Ticket> ticket = queue_.front().ticket;
        std::optional<HRESULT> answer;
        {
            const Job job = std::move(queue_.front());
            queue_.pop_front();
            ++working_;
            guard.unlock();
            answer = deliver_(job);
        }  // its event and entry go before the delivery counts as ended
        complete_(*ticket, answer);
        guard.lock();
    }
}

void EventHub::leavePool_()
{
    // Out of the pool, so a later event makes a new thread; joined at shutdown,
    // so that shutdown returns after every thread's end.
    const DWORD self = GetCurrentThreadId();
    const auto own = std::find_if(threads_.begin(), threads_.end(),
                                  [self](const Thread& thread) { return thread.id() == self; });
    if (own != threads_.end()) {
        retired_.push_back(std::move(*own));
        threads_.erase(own);
    }
}

void EventHub::setPooled(bool on)
{
    {
        const std::lock_guard<SrwLock> guard(lock_);
        pooled_ = on;
    }
    work_.notifyAll();  // idle threads leave now
}

std::size_t EventHub::deliveryThreads() const
{
    const std::lock_guard<SrwLock> guard(lock_);
    return threads_.size();
}

std::optional<HRESULT> EventHub::deliver_(const Job& job) noexcept
{
    const Event& event = *job.event;
    Entry& entry = *job.entry;
    std::optional<HRESULT> answer;
    bool last = false;
    const CallInfo info{"Indicate", event.className, event.className,
                        instanceNameOf(event.objects[job.objects.front()]).value_or(L"")};
    core_.serve(info, [&]() -> HRESULT {
        std::unique_lock<SrwLock> guard(lock_);
        const std::uint64_t delivery = nextDelivery_++;
        if (holding_ == HoldPoint::beforeIndicate) {
            waitAtHold_(guard);
        }
        guard.unlock();
        std::vector<std::unique_ptr<IWbemClassObject, Releaser>> owned;
        std::vector<IWbemClassObject*> objects;
        for (const std::size_t index : job.objects) {
            owned.emplace_back(core_.makeObject(event.objects[index], L"", delivery));
            objects.push_back(owned.back().get());
        }
        guard.lock();
        if (entry.ended) {
            return entry.endStatus;  // cancelled or shut down meanwhile: not admitted
        }
        ++entry.inFlight;
        inside_[delivery] = false;
        guard.unlock();
        answer = entry.sink->Indicate(static_cast<LONG>(objects.size()), objects.data());
        owned.clear();
        guard.lock();
        --entry.inFlight;
        inside_.erase(delivery);
        last = entry.ended && entry.inFlight == 0 && !entry.finished;
        entry.finished = entry.finished || last;
        return *answer;
    });
    if (last) {
        finish({job.entry});
    }
    return answer;
}

void EventHub::waitAtHold_(std::unique_lock<SrwLock>& guard)
{
    const std::uint64_t round = holdRound_;
    ++held_;
    changed_.notifyAll();
    changed_.wait(guard, [&] { return stopping_ || holdRound_ != round; });
    --held_;
    changed_.notifyAll();
}

void EventHub::complete_(Ticket& ticket, std::optional<HRESULT> answer) noexcept
{
    const std::lock_guard<SrwLock> guard(lock_);
    try {
        ++(answer ? ticket.report.indicated : ticket.report.dropped);
        if (answer) {
            ticket.report.answers.push_back(*answer);
        }
        if (--ticket.remaining == 0) {
            ticket.delivery.complete(ticket.report);
        }
    } catch (...) {
        (void)0;  // a report lost to memory exhaustion; the counters still add up
    }
    --working_;
    changed_.notifyAll();
}

void EventHub::onEventObjectRead(std::uint64_t delivery)
{
    std::unique_lock<SrwLock> guard(lock_);
    const auto found = inside_.find(delivery);
    if (holding_ != HoldPoint::insideIndicate || found == inside_.end() || found->second) {
        return;  // not holding there, not inside Indicate, or held there once already
    }
    found->second = true;
    waitAtHold_(guard);
}

// ---- Test controls --------------------------------------------------------------

bool EventHub::drain(std::chrono::milliseconds timeout) const
{
    std::unique_lock<SrwLock> guard(lock_);
    return changed_.waitFor(guard, timeout, [this] { return queue_.empty() && working_ == 0; });
}

void EventHub::hold(std::optional<HoldPoint> point)
{
    const std::lock_guard<SrwLock> guard(lock_);
    holding_ = stopping_ ? std::nullopt : point;
    holdRound_ += point ? 0 : 1;
    changed_.notifyAll();
}

bool EventHub::waitForHeld(std::size_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock<SrwLock> guard(lock_);
    return changed_.waitFor(guard, timeout, [&] { return held_ >= count; });
}

void EventHub::shutdown()
{
    EntryList ready;
    std::deque<Job> dropped;
    std::vector<Thread> threads;
    {
        const std::lock_guard<SrwLock> guard(lock_);
        stopping_ = true;
        holding_.reset();
        for (const auto& entry : entries_) {
            end_(entry, wbem(WBEM_E_SHUTTING_DOWN), ready);
        }
        entries_.clear();
        dropped.swap(queue_);
        working_ += dropped.size();  // complete_ counts them off
        threads.swap(threads_);
        std::move(retired_.begin(), retired_.end(), std::back_inserter(threads));
        retired_.clear();
    }
    work_.notifyAll();
    changed_.notifyAll();
    while (!dropped.empty()) {
        const std::shared_ptr<Ticket> ticket = dropped.front().ticket;
        dropped.pop_front();
        complete_(*ticket, std::nullopt);
    }
    finish(ready);
    for (Thread& thread : threads) {
        if (thread.id() == GetCurrentThreadId()) {
            thread.detach();  // misuse (shutdown from inside Indicate): don't join oneself
        } else {
            thread.join();
        }
    }
}

}  // namespace sim
