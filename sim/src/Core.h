// Internal: the state one WmiService and every COM object it handed out share:
// the model, handlers, faults, latency and call log behind one lock, the
// reference balance behind another, and the event hub with its threads.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform.h"
#include "platform/Threading.h"
#include "sim/WmiService.h"

namespace sim {

class ComObject;
class ServiceCore;

// The HRESULT of a WMI code (the SDK's enumerators are unsigned).
template <class Code> constexpr HRESULT wbem(Code code)
{
    return static_cast<HRESULT>(code);
}
constexpr HRESULT wbemUnexpected = wbem(0x8004101DU);  // WBEM_E_UNEXPECTED

// A COM method outside the model: WBEM_E_NOT_SUPPORTED, not logged.
#define SIM_NOT_SUPPORTED(method, ...)                                                                       \
    HRESULT STDMETHODCALLTYPE method(__VA_ARGS__) override                                                   \
    {                                                                                                        \
        return wbem(WBEM_E_NOT_SUPPORTED);                                                                   \
    }

bool equalsNoCase(std::wstring_view a, std::wstring_view b);
// Lossy (non-ASCII becomes '?'): for messages only.
std::string narrow(std::wstring_view text);
// The entry named `name` (ignoring case), or null.
std::pair<std::wstring, Value>* findNamed(PropertyValues& values, const std::wstring& name);
// Replaces the entry named `name` (keeping its place and spelling), else appends one.
void setNamed(PropertyValues& values, const std::wstring& name, Value value);

// What a call is about, for the log, the faults and the latency.
struct CallInfo {
    std::string call;
    std::wstring className;
    std::wstring target;
    std::wstring instance;
    bool needsService = false;  // refused with WBEM_E_SHUTTING_DOWN after shutdown
};

// The event subscriptions of one service and the pool of threads that
// delivers fired events to them, with the hold points tests use.
class EventHub {
public:
    // A subscription the hub holds; shared with the deliveries scheduled for it.
    struct Entry {
        std::uint64_t connection = 0;
        std::wstring className;
        std::optional<std::wstring> instanceName;
        IWbemObjectSink* sink = nullptr;  // one reference, the subscription's
        int inFlight = 0;  // deliveries admitted to Indicate that haven't returned
        bool ended = false;  // cancelled or shut down: admits nothing more
        bool finished = false;  // SetStatus and Release done, or handed to a thread to do
        HRESULT endStatus = 0;
    };
    using EntryList = std::vector<std::shared_ptr<Entry>>;

    explicit EventHub(ServiceCore& core) : core_(core) { }
    ~EventHub() { shutdown(); }
    EventHub(const EventHub&) = delete;
    EventHub& operator=(const EventHub&) = delete;

    // Adds a subscription with a reference to `sink`; false after shutdown.
    bool subscribe(std::uint64_t connection, std::wstring className, std::optional<std::wstring> instanceName,
                   IWbemObjectSink* sink);
    // Takes the connection's subscriptions with `sink` out; no delivery is
    // admitted to them any more. Returns those with no delivery in Indicate,
    // which the caller ends with finish() outside its locks.
    EntryList cancel(std::uint64_t connection, IWbemObjectSink* sink, bool& found);
    // SetStatus(WBEM_STATUS_COMPLETE, the entry's end status) and Release, once per entry.
    void finish(const EntryList& entries) noexcept;
    std::vector<SubscriptionInfo> subscriptions() const;

    Delivery fire(const Event& event);
    bool drain(std::chrono::milliseconds timeout) const;
    // Holds deliveries at `point` from now on; none: lets the held ones go.
    void hold(std::optional<HoldPoint> point);
    bool waitForHeld(std::size_t count, std::chrono::milliseconds timeout) const;
    void setPooled(bool on);
    std::size_t deliveryThreads() const;
    // Idempotent: drops queued work, releases holds, ends every subscription,
    // waits for deliveries in Indicate and joins the threads.
    void shutdown();

    // An object of delivery `delivery` is read (Get): the insideIndicate hold point.
    void onEventObjectRead(std::uint64_t delivery);

private:
    struct Ticket {
        int remaining = 0;
        DeliveryReport report;
        Delivery delivery;
    };
    struct Job {
        std::shared_ptr<Entry> entry;
        std::shared_ptr<const Event> event;
        std::vector<std::size_t> objects;  // indexes into event->objects, for this subscription
        std::shared_ptr<Ticket> ticket;
    };

    void run_() noexcept;
    // The calling delivery thread leaves the pool; the caller holds lock_.
    void leavePool_();
    // The sink's answer, or nothing when the delivery was dropped.
    std::optional<HRESULT> deliver_(const Job& job) noexcept;
    // Ends the entry with `status`, into `ready` if nothing is in flight; the caller holds lock_.
    void end_(const std::shared_ptr<Entry>& entry, HRESULT status, EntryList& ready);
    // Waits while held; the caller holds `guard` on lock_.
    void waitAtHold_(std::unique_lock<SrwLock>& guard);
    void complete_(Ticket& ticket, std::optional<HRESULT> answer) noexcept;

    ServiceCore& core_;
    mutable SrwLock lock_;
    ConditionVariable work_;  // for the delivery threads: a job or the end
    mutable ConditionVariable changed_;  // any counter below changed
    EntryList entries_;
    std::deque<Job> queue_;
    std::vector<Thread> threads_;
    std::vector<Thread> retired_;  // pooled threads that left, until shutdown joins them
    bool pooled_ = false;  // a thread that finds no work ends
    std::uint64_t nextDelivery_ = 1;
    std::size_t working_ = 0;  // jobs taken off the queue and not completed
    std::size_t held_ = 0;
    std::optional<HoldPoint> holding_;
    std::uint64_t holdRound_ = 0;  // bumped by release(): waiters of earlier rounds go on
    std::map<std::uint64_t, bool> inside_;  // deliveries in Indicate: held there already?
    bool stopping_ = false;
};

// What WmiService scripts and its COM objects read; WmiService works on the
// members directly, under `lock` (the model, faults, log) and `objectsLock`.
class ServiceCore : public std::enable_shared_from_this<ServiceCore> {
public:
    struct NoCaseLess {
        bool operator()(const std::wstring& a, const std::wstring& b) const;
    };
    struct ClassEntry {
        std::shared_ptr<const ClassDef> definition;
        std::map<std::wstring, PropertyValues> instances;  // exact names: their own values
    };
    struct FaultState {
        Fault fault;
        int matched = 0;
        int fired = 0;
    };

    std::shared_ptr<const ClassDef> findClass(const std::wstring& name) const;
    // The instance's own values (its class's defaults not included), or nullopt.
    std::optional<PropertyValues> instance(const std::wstring& className, const std::wstring& name) const;
    MethodHandler handler(const std::wstring& className, const std::wstring& method) const;
    // A new object (one reference for the caller): "__CLASS", the defaults and
    // methods of its class when defined, then the object's properties; embedded
    // objects made anew. `instance`: the name it was read as; `delivery`: the
    // event delivery it is made for.
    IWbemClassObject* makeObject(const Object& object, const std::wstring& instance = {},
                                 std::uint64_t delivery = 0);

    // Sleeps the call's latency, answers a scripted fault or runs `body`, logs
    // the result. Never throws: memory exhaustion answers WBEM_E_OUT_OF_MEMORY.
    template <class Body> HRESULT serve(const CallInfo& info, Body&& body) noexcept
    {
        HRESULT result = wbem(WBEM_E_FAILED);
        try {
            const std::optional<HRESULT> refused = admit_(info);
            result = refused ? *refused : body();
        } catch (const std::bad_alloc&) {
            result = wbem(WBEM_E_OUT_OF_MEMORY);
        } catch (...) {
            result = wbem(WBEM_E_FAILED);
        }
        log(info, result);
        return result;
    }
    void log(const CallInfo& info, HRESULT result) noexcept;
    std::uint64_t newConnection();

    mutable SrwLock lock;
    std::map<std::wstring, ClassEntry, NoCaseLess> classes;
    std::map<std::wstring, MethodHandler, NoCaseLess> handlers;  // by "Class.Method"
    std::vector<FaultState> faults;
    std::map<std::string, std::chrono::milliseconds> latency;
    std::vector<CallRecord> calls;
    std::uint64_t nextConnection = 1;
    bool shutDown = false;

    mutable SrwLock objectsLock;  // for the COM objects' balance
    std::set<const ComObject*> live;
    ReferenceCounts counts;

    // Set before use, read without a lock; what it caught, under objectsLock.
    std::function<bool()> forbidden;
    std::vector<std::string> forbiddenCalls;
    bool callsForbidden() const { return forbidden && forbidden(); }
    // Records a forbidden call; takes objectsLock.
    void recordForbidden(const std::string& what) noexcept;

    EventHub events{*this};  // last: its threads use the members above until it is gone

private:
    std::optional<HRESULT> admit_(const CallInfo& info);
};

}  // namespace sim
