// `ztdiag watch`: a line for each link change, removal and arrival that NDIS
// reports for the adapters, until Ctrl+C. The subscriptions live on the
// service thread, from the first query to the cancel; the events reach this
// thread through the session's queue.
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "ndis/NdisWmi.h"
#include "platform/Threading.h"
#include "wmi/WbemServices.h"
#include "ztdiag/Commands.h"
#include "ztdiag/JsonOutput.h"
#include "ztdiag/ServiceThread.h"
#include "ztdiag/TextOutput.h"

namespace {

// What the service thread, the service's delivery threads, the Ctrl+C handler
// and the main thread share; everything under `lock`.
struct WatchSession {
    SrwLock lock;
    ConditionVariable changed;
    std::vector<WatchEvent> initial;  // each adapter's state at the start
    std::deque<WatchEvent> events;
    bool subscribed = false;
    bool serviceDown = false;
    bool workEnded = false;
    bool interrupted = false;  // Ctrl+C
    bool stop = false;  // the service thread may end the subscriptions

    void update(const std::function<void(WatchSession&)>& change)
    {
        {
            const std::lock_guard<SrwLock> guard(lock);
            change(*this);
        }
        changed.notifyAll();
    }
    void push(WatchEvent event)
    {
        update([&event](WatchSession& session) { session.events.push_back(std::move(event)); });
    }
};

WatchEvent eventNow(WatchEvent::Kind kind, const std::wstring& adapter)
{
    WatchEvent event;
    event.kind = kind;
    event.adapter = adapter;
    GetLocalTime(&event.time);
    return event;
}

// The body of the service thread.
void watch(const std::shared_ptr<WatchSession>& session, const std::vector<ZtAdapterDevice>& adapters)
{
    if (!threadWbemServices().isConnected()) {
        session->update([](WatchSession& s) { s.serviceDown = true; });
        return;
    }
    std::vector<std::unique_ptr<NdisWmi>> monitors;
    std::vector<WatchEvent> initial;
    for (const ZtAdapterDevice& device : adapters) {
        auto monitor = std::make_unique<NdisWmi>(device.name.c_str());
        const NdisWmi* queries = monitor.get();  // the callbacks end before the monitor
        const std::wstring name = device.name;
        monitor->bindCallbacks(
            [session, name](const std::wstring&) { session->push(eventNow(WatchEvent::Arrived, name)); },
            [session, name](const std::wstring&) { session->push(eventNow(WatchEvent::Removed, name)); },
            [session, name, queries](const std::wstring&, MediaConnectState state) {
                const bool connected = state == MediaConnectState::Connected;
                WatchEvent event
                    = eventNow(connected ? WatchEvent::Connected : WatchEvent::Disconnected, name);
                event.linkSpeed = connected ? queries->linkSpeed() : 0;
                session->push(std::move(event));
            });
        WatchEvent state = eventNow(WatchEvent::State, name);
        state.problemCode = device.problemCode;
        if (device.problemCode == 0) {
            state.media = monitor->mediaConnectState();
            state.linkSpeed = state.media == MediaConnectState::Connected ? monitor->linkSpeed() : 0;
        }
        initial.push_back(std::move(state));
        monitors.push_back(std::move(monitor));
    }
    session->update([&initial](WatchSession& s) {
        s.initial = std::move(initial);
        s.subscribed = true;
    });
    {
        std::unique_lock<SrwLock> guard(session->lock);
        session->changed.wait(guard, [&session] { return session->stop; });
    }
    for (const auto& monitor : monitors) {
        monitor->clearCallbacks();
    }
    monitors.clear();  // cancels the subscriptions on this thread's connection
}

// Tells a connection at another speed from a connection; keeps each adapter's last state.
class LinkTracker {
public:
    void classify(WatchEvent& event)
    {
        Link& link = links_[event.adapter];
        switch (event.kind) {
        case WatchEvent::State:
            link = {event.media, event.linkSpeed};
            break;
        case WatchEvent::Connected:
            // Another speed only when both are known (0 is not).
            if (link.media == MediaConnectState::Connected && link.speed != 0 && event.linkSpeed != 0
                && link.speed != event.linkSpeed) {
                event.kind = WatchEvent::Speed;
            }
            link = {MediaConnectState::Connected, event.linkSpeed};
            break;
        case WatchEvent::Disconnected:
        case WatchEvent::Removed:
        case WatchEvent::Arrived:
            link = {};
            break;
        case WatchEvent::Speed:
            break;
        }
    }

private:
    struct Link {
        MediaConnectState media = MediaConnectState::Unknown;
        std::uint64_t speed = 0;
    };
    std::map<std::wstring, Link> links_;
};

std::wstring watchingLine(const std::vector<ZtAdapterDevice>& adapters)
{
    std::wstring names;
    for (const ZtAdapterDevice& device : adapters) {
        names += (names.empty() ? L"" : L", ") + device.name;
    }
    return L"Watching " + names + L"; press Ctrl+C to stop.\n";
}

}  // namespace

int watchAdapters(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters)
{
    auto session = std::make_shared<WatchSession>();
    ServiceThread thread([session, adapters] {
        // Whatever happens, the main thread hears that the work is over.
        struct Ended {
            std::shared_ptr<WatchSession> session;
            ~Ended()
            {
                session->update([](WatchSession& s) { s.workEnded = true; });
            }
        } ended{session};
        watch(session, adapters);
    });
    std::vector<WatchEvent> initial;
    {
        std::unique_lock<SrwLock> guard(session->lock);
        if (!session->changed.waitFor(guard, context.limits.service,
                                      [&session] { return session->subscribed || session->workEnded; })) {
            session->stop = true;  // should the service answer after all
            guard.unlock();
            session->changed.notifyAll();
            return context.timedOut(context.limits.service);
        }
        if (!session->subscribed) {
            return context.fail(exitServiceFailed,
                                session->serviceDown ? L"can't connect to the management service (root\\wmi)"
                                                     : L"out of memory");
        }
        initial = session->initial;
    }

    Console& console = context.console;
    const bool json = context.command.json;
    LinkTracker tracker;
    if (!json) {
        console.out(watchingLine(adapters));
    }
    for (WatchEvent& event : initial) {
        tracker.classify(event);
        console.out(json ? watchJson(event) : watchText(event));
    }
    console.onInterrupt([session] { session->update([](WatchSession& s) { s.interrupted = true; }); });
    for (bool interrupted = false; !interrupted;) {
        std::deque<WatchEvent> events;
        {
            std::unique_lock<SrwLock> guard(session->lock);
            session->changed.wait(guard,
                                  [&session] { return !session->events.empty() || session->interrupted; });
            events.swap(session->events);
            interrupted = session->interrupted;
        }
        for (WatchEvent& event : events) {
            tracker.classify(event);
            console.out(json ? watchJson(event) : watchText(event));
        }
    }
    console.onInterrupt(nullptr);
    session->update([](WatchSession& s) { s.stop = true; });
    if (!thread.waitFor(context.limits.service)) {
        return context.timedOut(context.limits.service);
    }
    return exitOk;
}
