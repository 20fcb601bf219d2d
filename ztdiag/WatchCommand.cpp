// `ztdiag watch`: a line for each link change, removal and arrival that NDIS
// reports for the adapters, and for each change of their temperature health,
// until Ctrl+C or a closed output. Watching all, it watches the ZT adapters
// that arrive later too.
//
// Order: whatever reaches the tool (a delivery on any of the service's
// threads, a temperature reading) is stamped with the time and queued under
// the session's lock in one step, so the queue's order is the order of the
// times. The service thread alone answers the queue, in its order: it asks
// the service what an event needs (the speed of a connection, whether an
// arrival is a ZT adapter) and hands the lines to the main thread, which
// prints them. A delivery thread never calls the service.
#include <algorithm>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "ndis/NdisWmi.h"
#include "nic/ZtNic.h"
#include "platform/Threading.h"
#include "trace/FormatString.h"
#include "trace/Trace.h"
#include "wmi/WbemServices.h"
#include "ztdiag/AdapterSelector.h"
#include "ztdiag/Commands.h"
#include "ztdiag/JsonOutput.h"
#include "ztdiag/MetricsOutput.h"
#include "ztdiag/ServiceThread.h"
#include "ztdiag/TextOutput.h"
#include "ztdiag/WatchMetrics.h"

namespace {

// Local time and its offset from UTC, as the platform tells them now.
WatchTime watchTimeNow()
{
    WatchTime time;
    GetLocalTime(&time.local);
    TIME_ZONE_INFORMATION zone{};
    const DWORD part = GetTimeZoneInformation(&zone);
    if (part == TIME_ZONE_ID_INVALID) {
        time.offsetKnown = false;
        return time;
    }
    LONG bias = zone.Bias;
    if (part == TIME_ZONE_ID_DAYLIGHT) {
        bias += zone.DaylightBias;
    } else if (part == TIME_ZONE_ID_STANDARD) {
        bias += zone.StandardBias;
    }
    time.utcOffsetMinutes = -static_cast<int>(bias);
    return time;
}

// What reached the tool, stamped, for the service thread.
struct Incoming {
    enum Kind {
        State,  // the watch begins: where the adapter stands
        Connected,
        Disconnected,
        Removed,
        Arrived,  // of a watched adapter
        AnyArrival,  // of any adapter (watching all)
        Health,  // a temperature reading that differs from the one before
    };
    Kind kind;
    WatchTime time;
    std::wstring adapter;
    TemperatureHealth health;
};

// What the service thread, the service's delivery threads, the Ctrl+C handler
// and the main thread share; everything under `lock`.
struct WatchSession {
    SrwLock lock;
    ConditionVariable changed;
    std::deque<Incoming> incoming;  // for the service thread, in the order stamped
    std::deque<WatchEvent> events;  // for the main thread, in the same order
    // With a metrics file, for the main thread: each adapter read as a scrape
    // reads it, before its State or Added event, and temperatures read since.
    std::deque<AdapterMetrics> readings;
    std::deque<std::pair<std::wstring, ZtThermalInfo>> temperatures;
    bool subscribed = false;  // the initial state is in `events`
    std::wstring failure;  // why the work ended before it was asked to: the "ztdiag: " line
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
    // Stamps and queues in one step: see the file's head.
    void stamp(Incoming::Kind kind, const std::wstring& adapter,
               TemperatureHealth health = TemperatureHealth::Unknown)
    {
        update([&](WatchSession& s) { s.incoming.push_back({kind, watchTimeNow(), adapter, health}); });
    }
};

bool sameTemperatures(const ZtThermalInfo& a, const ZtThermalInfo& b)
{
    return a.flags == b.flags && a.phyTemperature == b.phyTemperature && a.macTemperature == b.macTemperature;
}

std::wstring hresultText(HRESULT result)
{
    return formatString(L"error 0x%08x", static_cast<unsigned>(result));
}

// "MSNdis_StatusMediaConnect, MSNdis_StatusMediaDisconnect (error 0x80041001)": the first refusal's answer.
std::wstring refusedText(const std::vector<NdisSubscriptionFailure>& failures)
{
    std::wstring classes;
    for (const NdisSubscriptionFailure& failure : failures) {
        classes += (classes.empty() ? L"" : L", ") + failure.eventClass;
    }
    return classes + L" (" + hresultText(failures.front().result) + L")";
}

// The service thread's work: the subscriptions, and the answer to each stamped item.
class Watcher {
public:
    // With `metrics`, each adapter is also read whole when the watch begins or
    // it arrives, and every temperature reading that differs is handed on.
    Watcher(std::shared_ptr<WatchSession> session, std::chrono::milliseconds healthPeriod, bool metrics)
        : session_(std::move(session)), healthPeriod_(healthPeriod), metrics_(metrics)
    {
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    ~Watcher() { end_(); }

    void run(const std::vector<ZtAdapterDevice>& adapters, bool all);

private:
    struct Watched {
        ZtAdapterDevice device;
        std::unique_ptr<NdisWmi> monitor;
        // Made as not ready, so that it reads nothing when made: only its thermal read is used.
        std::unique_ptr<ZtNic> thermal;
        bool present = true;
        TemperatureHealth health = TemperatureHealth::Unknown;  // the last reading
        ZtThermalInfo temperatures{};  // the last reading, with a metrics file
    };

    bool fail_(const std::wstring& message);
    bool watch_(const ZtAdapterDevice& device);
    void bind_(Watched& watched);
    bool answer_(const Incoming& item);
    WatchEvent standing_(WatchEvent::Kind kind, Watched& watched, const WatchTime& time);
    void readHealth_();
    bool laterLinkEvent_(const std::wstring& adapter);
    Watched* find_(const std::wstring& adapter);
    void push_(WatchEvent event);
    void pushStanding_(WatchEvent::Kind kind, Watched& watched, const WatchTime& time);
    void end_();

    std::shared_ptr<WatchSession> session_;
    const std::chrono::milliseconds healthPeriod_;
    const bool metrics_;
    std::list<Watched> watched_;
    std::unique_ptr<NdisWmi> arrivals_;  // watching all: the arrival of any adapter
};

bool Watcher::fail_(const std::wstring& message)
{
    session_->update([&message](WatchSession& s) { s.failure = message; });
    return false;
}

// Subscribes to the adapter's events, which find no callback until bind_;
// false, with the session's failure, if the service refuses any.
bool Watcher::watch_(const ZtAdapterDevice& device)
{
    Watched watched{device, std::make_unique<NdisWmi>(device.name.c_str()),
                    std::make_unique<ZtNic>(device.name, false, NdisEvents::None)};
    if (!watched.monitor->failedSubscriptions().empty()) {
        return fail_(device.name + L": can't subscribe to its events "
                     + refusedText(watched.monitor->failedSubscriptions()));
    }
    watched_.push_back(std::move(watched));
    return true;
}

void Watcher::bind_(Watched& watched)
{
    const std::shared_ptr<WatchSession> session = session_;
    const std::wstring name = watched.device.name;
    watched.monitor->bindCallbacks(
        [session, name](const std::wstring&) { session->stamp(Incoming::Arrived, name); },
        [session, name](const std::wstring&) { session->stamp(Incoming::Removed, name); },
        [session, name](const std::wstring&, MediaConnectState state) {
            session->stamp(
                state == MediaConnectState::Connected ? Incoming::Connected : Incoming::Disconnected, name);
        });
}

void Watcher::run(const std::vector<ZtAdapterDevice>& adapters, bool all)
{
    if (!threadWbemServices().isConnected()) {
        fail_(L"can't connect to the management service (root\\wmi)");
        return;
    }
    if (all) {
        arrivals_ = std::make_unique<NdisWmi>(L"", NdisEvents::Arrivals);
        if (!arrivals_->failedSubscriptions().empty()) {
            fail_(L"can't subscribe to the arrival of new adapters, "
                  + refusedText(arrivals_->failedSubscriptions()));
            return;
        }
    }
    for (const ZtAdapterDevice& device : adapters) {
        if (!watch_(device)) {
            return;
        }
    }
    // The watch begins: every adapter's state at this moment, read after the
    // callbacks are bound, so that no change is lost between; a change from
    // now on is stamped later than the state.
    WatchTime begun;
    session_->update([&begun](WatchSession&) { begun = watchTimeNow(); });
    if (arrivals_) {
        const std::shared_ptr<WatchSession> session = session_;
        arrivals_->bindCallbacks(
            [session](const std::wstring& instance) { session->stamp(Incoming::AnyArrival, instance); },
            nullptr, nullptr);
    }
    for (Watched& watched : watched_) {
        bind_(watched);
    }
    for (Watched& watched : watched_) {
        pushStanding_(WatchEvent::State, watched, begun);
    }
    session_->update([](WatchSession& s) { s.subscribed = true; });

    auto nextReading = std::chrono::steady_clock::now() + healthPeriod_;
    for (;;) {
        std::optional<Incoming> item;
        {
            std::unique_lock<SrwLock> guard(session_->lock);
            const auto left = std::max(nextReading - std::chrono::steady_clock::now(),
                                       std::chrono::steady_clock::duration::zero());
            session_->changed.waitFor(guard, left,
                                      [this] { return session_->stop || !session_->incoming.empty(); });
            if (session_->stop) {
                return;
            }
            if (!session_->incoming.empty()) {
                item = std::move(session_->incoming.front());
                session_->incoming.pop_front();
            }
        }
        if (item && !answer_(*item)) {
            return;
        }
        if (std::chrono::steady_clock::now() >= nextReading) {
            readHealth_();
            nextReading = std::chrono::steady_clock::now() + healthPeriod_;
        }
    }
}

// One link state query and, for a working device, one temperature reading.
WatchEvent Watcher::standing_(WatchEvent::Kind kind, Watched& watched, const WatchTime& time)
{
    WatchEvent event;
    event.kind = kind;
    event.time = time;
    event.adapter = watched.device.name;
    event.problemCode = watched.device.problemCode;
    if (watched.device.problemCode == 0) {
        const NdisLinkState link = watched.monitor->linkState();
        event.media = link.media;
        event.linkSpeed = link.media == MediaConnectState::Connected ? link.speed : 0;
        watched.health = temperatureHealth(watched.thermal->getThermalInfo());
        event.health = watched.health;
    }
    return event;
}

// Reads each present, working adapter's temperatures; stamps a change.
void Watcher::readHealth_()
{
    for (Watched& watched : watched_) {
        if (!watched.present || watched.device.problemCode != 0) {
            continue;
        }
        const ZtThermalInfo thermal = watched.thermal->getThermalInfo();
        if (metrics_ && !sameTemperatures(thermal, watched.temperatures)) {
            watched.temperatures = thermal;
            session_->update([&watched, &thermal](WatchSession& s) {
                s.temperatures.emplace_back(watched.device.name, thermal);
            });
        }
        const TemperatureHealth health = temperatureHealth(thermal);
        if (health != watched.health) {
            watched.health = health;
            session_->stamp(Incoming::Health, watched.device.name, health);
        }
    }
}

// Whether a link event of `adapter` was stamped after the one being answered:
// then a query's answer may be of that later moment.
bool Watcher::laterLinkEvent_(const std::wstring& adapter)
{
    const std::lock_guard<SrwLock> guard(session_->lock);
    return std::any_of(session_->incoming.begin(), session_->incoming.end(),
                       [&adapter](const Incoming& item) {
                           return item.adapter == adapter
                               && (item.kind == Incoming::Connected || item.kind == Incoming::Disconnected
                                   || item.kind == Incoming::Removed);
                       });
}

Watcher::Watched* Watcher::find_(const std::wstring& adapter)
{
    for (Watched& watched : watched_) {
        if (watched.device.name == adapter) {
            return &watched;
        }
    }
    return nullptr;
}

void Watcher::push_(WatchEvent event)
{
    session_->update([&event](WatchSession& s) { s.events.push_back(std::move(event)); });
}

// The adapter's State or Added line; with a metrics file, after its whole reading.
void Watcher::pushStanding_(WatchEvent::Kind kind, Watched& watched, const WatchTime& time)
{
    WatchEvent event = standing_(kind, watched, time);
    if (!metrics_) {
        push_(std::move(event));
        return;
    }
    AdapterMetrics reading = scrapeAdapter(watched.device, findAdapterConnections({watched.device}).front());
    watched.temperatures = reading.report.thermal;
    session_->update([&event, &reading](WatchSession& s) {
        s.readings.push_back(std::move(reading));
        s.events.push_back(std::move(event));
    });
}

// The line for `item`, after what the service says of it; false once the watch must end.
bool Watcher::answer_(const Incoming& item)
{
    Watched* const watched = find_(item.adapter);
    if (item.kind == Incoming::AnyArrival) {
        if (watched != nullptr) {
            return true;  // a watched adapter: its own subscription tells
        }
        std::vector<ZtAdapterDevice> adapters;
        DWORD error = 0;
        if (!findZtAdapters(adapters, error)) {
            ZT_TRACE(0, "[!] ztdiag watch: can't list the adapters for '%S' (error %u)", item.adapter.c_str(),
                     static_cast<unsigned>(error));
            return true;
        }
        const auto found
            = std::find_if(adapters.begin(), adapters.end(),
                           [&item](const ZtAdapterDevice& device) { return device.name == item.adapter; });
        if (found == adapters.end()) {
            return true;  // not a ZT adapter
        }
        if (!watch_(*found)) {
            return false;
        }
        bind_(watched_.back());
        pushStanding_(WatchEvent::Added, watched_.back(), item.time);
        return true;
    }
    if (watched == nullptr) {
        return true;
    }
    WatchEvent event;
    event.time = item.time;
    event.adapter = item.adapter;
    switch (item.kind) {
    case Incoming::Connected: {
        event.kind = WatchEvent::Connected;
        // The speed of this connection: unknown if the link is no longer up
        // or has changed again since (the answer may be of that moment).
        const NdisLinkState link = watched->monitor->linkState();
        const bool current = link.media == MediaConnectState::Connected && !laterLinkEvent_(item.adapter);
        event.linkSpeed = current ? link.speed : 0;
        break;
    }
    case Incoming::Disconnected:
        event.kind = WatchEvent::Disconnected;
        break;
    case Incoming::Removed:
        event.kind = WatchEvent::Removed;
        watched->present = false;
        watched->temperatures = {};  // back, its first reading is news
        break;
    case Incoming::Arrived:
        event.kind = WatchEvent::Arrived;
        watched->present = true;
        break;
    case Incoming::Health:
        event.kind = WatchEvent::Health;
        event.health = item.health;
        break;
    case Incoming::State:
    case Incoming::AnyArrival:
        return true;
    }
    push_(std::move(event));
    return true;
}

// Cancels the subscriptions on this thread's connection, once no callback runs.
void Watcher::end_()
{
    if (arrivals_) {
        arrivals_->clearCallbacks();
    }
    for (Watched& watched : watched_) {
        watched.monitor->clearCallbacks();
    }
    arrivals_.reset();
    watched_.clear();
}

// Tells a connection at another speed from a connection, and a slower one
// than the adapter's previous connection; keeps each adapter's last state.
class LinkTracker {
public:
    void classify(WatchEvent& event)
    {
        Link& link = links_[event.adapter];
        switch (event.kind) {
        case WatchEvent::State:
        case WatchEvent::Added:
            link.media = event.media;
            link.speed = event.linkSpeed;
            if (event.media == MediaConnectState::Connected) {
                link.previousConnection = event.linkSpeed;
            }
            break;
        case WatchEvent::Connected:
            // Another speed only when both are known (0 is not).
            if (link.media == MediaConnectState::Connected && link.speed != 0 && event.linkSpeed != 0
                && link.speed != event.linkSpeed) {
                event.kind = WatchEvent::Speed;
            }
            if (link.previousConnection != 0 && event.linkSpeed != 0
                && event.linkSpeed < link.previousConnection) {
                event.downshift = true;
                event.previousSpeed = link.previousConnection;
            }
            link.media = MediaConnectState::Connected;
            link.speed = event.linkSpeed;
            link.previousConnection = event.linkSpeed;
            break;
        case WatchEvent::Disconnected:
        case WatchEvent::Removed:
        case WatchEvent::Arrived:
            link.media = MediaConnectState::Unknown;
            link.speed = 0;
            break;
        case WatchEvent::Speed:
        case WatchEvent::Health:
            break;
        }
    }

private:
    struct Link {
        MediaConnectState media = MediaConnectState::Unknown;
        std::uint64_t speed = 0;
        std::uint64_t previousConnection = 0;  // the speed of the last connection, kept while down
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
    const bool all = context.command.adapter.empty();
    const std::chrono::milliseconds healthPeriod = context.limits.healthPeriod;
    const std::wstring& metricsFile = context.command.metricsFile;
    const bool metrics = !metricsFile.empty();
    ServiceThread thread([session, adapters, all, healthPeriod, metrics] {
        // Whatever happens, the main thread hears that the work is over.
        struct Ended {
            std::shared_ptr<WatchSession> session;
            ~Ended()
            {
                session->update([](WatchSession& s) { s.workEnded = true; });
            }
        } ended{session};
        Watcher(session, healthPeriod, metrics).run(adapters, all);
    });
    const auto stop = [&session] { session->update([](WatchSession& s) { s.stop = true; }); };
    {
        std::unique_lock<SrwLock> guard(session->lock);
        if (!session->changed.waitFor(guard, context.limits.service,
                                      [&session] { return session->subscribed || session->workEnded; })) {
            guard.unlock();
            stop();  // should the service answer after all
            return context.timedOut(context.limits.service);
        }
        if (!session->subscribed) {
            return context.fail(exitServiceFailed,
                                session->failure.empty() ? L"out of memory" : session->failure);
        }
    }

    Console& console = context.console;
    // The end of the watch: no more Ctrl+C, the subscriptions ended.
    const auto finish = [&] {
        console.onInterrupt(nullptr);
        stop();
        return thread.waitFor(context.limits.service);
    };
    WatchMetrics kept;
    auto written = std::chrono::steady_clock::now();
    // The metrics file rewritten whole; 0, or the error told once the watch is over.
    const auto writeFile = [&]() -> int {
        written = std::chrono::steady_clock::now();
        return metrics ? writeMetricsText(context, metricsFile, kept.text()) : exitOk;
    };
    // The reader went away: the subscriptions end, and the file is left complete.
    const auto closed = [&] {
        finish();
        writeFile();
        return context.outputClosed();
    };
    const bool json = context.command.json;
    if (!json && !console.out(watchingLine(adapters))) {
        return closed();
    }
    console.onInterrupt([session] { session->update([](WatchSession& s) { s.interrupted = true; }); });
    // A watch that keeps a file rewrites it at least this often, so that its age tells that it runs.
    constexpr auto rewritePeriod = std::chrono::seconds(15);
    LinkTracker tracker;
    for (;;) {
        std::deque<WatchEvent> events;
        std::deque<AdapterMetrics> readings;
        std::deque<std::pair<std::wstring, ZtThermalInfo>> temperatures;
        bool interrupted = false;
        bool ended = false;
        std::wstring failure;
        {
            std::unique_lock<SrwLock> guard(session->lock);
            const auto ready = [&session] {
                return !session->events.empty() || !session->temperatures.empty() || session->interrupted
                    || session->workEnded;
            };
            if (metrics) {
                session->changed.waitFor(guard, rewritePeriod, ready);
            } else {
                session->changed.wait(guard, ready);
            }
            events.swap(session->events);
            readings.swap(session->readings);
            temperatures.swap(session->temperatures);
            interrupted = session->interrupted;
            ended = session->workEnded;
            failure = session->failure;
        }
        for (AdapterMetrics& reading : readings) {
            kept.read(std::move(reading));
        }
        for (const auto& reading : temperatures) {
            kept.temperatures(reading.first, reading.second);
        }
        for (WatchEvent& event : events) {
            tracker.classify(event);
            kept.apply(event);
            if (!console.out(json ? watchJson(event) : watchText(event))) {
                return closed();
            }
        }
        const bool changed = !readings.empty() || !temperatures.empty() || !events.empty();
        if (metrics
            && (changed || interrupted || std::chrono::steady_clock::now() - written >= rewritePeriod)) {
            const int code = writeFile();
            if (code != exitOk) {
                finish();
                return code;
            }
        }
        if (interrupted) {
            break;
        }
        if (ended) {
            console.onInterrupt(nullptr);
            return context.fail(exitServiceFailed, failure.empty() ? L"out of memory" : failure);
        }
    }
    if (!finish()) {
        return context.timedOut(context.limits.service);
    }
    return exitOk;
}
