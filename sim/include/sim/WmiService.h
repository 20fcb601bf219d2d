// An in-process WMI service for namespace root\wmi: the IWbemLocator class
// factory and what it leads to, driven by scripted classes and instances.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform.h"
#include "platform/Threading.h"
#include "sim/Value.h"

namespace sim {

// A scripted failure of one of the service's calls: which call, optionally only
// for one class/target or instance, from the Nth matching call, how many times.
// Calls are named as the COM methods: "CreateInstance" (the locator factory),
// "ConnectServer", "GetObject", "ExecMethod", "ExecNotificationQueryAsync",
// "CancelAsyncCall", "SpawnInstance", "Get", "Put", "GetMethod",
// "BeginEnumeration", "Next", "EndEnumeration", and "Indicate" (a delivery:
// dropped). A failing call answers `result` and hands out nothing.
struct Fault {
    std::string call;
    HRESULT result = E_FAIL;
    std::wstring target;  // empty: any; else equal (ignoring case) to the call's class or target
    std::wstring instance;  // empty: any; else the instance the call is about
    int first = 1;  // the first matching call (1-based) that fails
    int count = -1;  // how many matching calls fail from there; -1: all

    static Fault on(std::string call, HRESULT result) { return {std::move(call), result, {}, {}, 1, -1}; }
    Fault forTarget(std::wstring t) const { return {call, result, std::move(t), instance, first, count}; }
    Fault fromCall(int n) const { return {call, result, target, instance, n, count}; }
    Fault times(int n) const { return {call, result, target, instance, first, n}; }
    Fault onlyCall(int n) const { return fromCall(n).times(1); }
};

// An event: subscriptions to `className` receive its objects in one Indicate
// each, in this order; one WHERE InstanceName="x" only those named x (none: no call).
struct Event {
    std::wstring className;
    std::vector<Object> objects;

    // One object of class `className` with InstanceName and Active = TRUE, then `values`.
    static Event of(const std::wstring& className, const std::wstring& instanceName,
                    const PropertyValues& values = {});
};

// How one fired event ended, once every delivery it was scheduled for has.
struct DeliveryReport {
    int subscriptions = 0;  // deliveries scheduled: the matching subscriptions when fired
    int indicated = 0;  // Indicate calls that returned
    int dropped = 0;  // not indicated: cancelled or shut down first, or a scripted "Indicate" fault
    std::vector<HRESULT> answers;  // what the sinks' Indicate calls returned, in the order they returned
};

// A fired event's report, complete once every delivery it was scheduled for
// has ended; copies share it.
class Delivery {
public:
    Delivery() : state_(std::make_shared<State>()) { }
    // Waits for the report.
    const DeliveryReport& get() const
    {
        std::unique_lock<SrwLock> guard(state_->lock);
        state_->done.wait(guard, [this] { return state_->report.has_value(); });
        return *state_->report;
    }
    void wait() const { get(); }
    // Gives the report; once only.
    void complete(DeliveryReport report) const
    {
        const std::lock_guard<SrwLock> guard(state_->lock);
        state_->report = std::move(report);
        state_->done.notifyAll();
    }

private:
    struct State {
        SrwLock lock;
        ConditionVariable done;
        std::optional<DeliveryReport> report;
    };
    std::shared_ptr<State> state_;
};

// Where held deliveries wait (see WmiService::holdDeliveries).
enum class HoldPoint {
    beforeIndicate,  // on the delivery thread, right before Indicate is called
    insideIndicate,  // inside Indicate: in the sink's first Get on one of the delivery's objects
};

// One answered call in the service's log. `target`: the namespace, path or
// query; Class.Method for ExecMethod and GetMethod; Class.Property for Get, Put
// and Next; else the class (Indicate and SetStatus: the event class).
struct CallRecord {
    std::string call;
    std::wstring className;
    std::wstring target;
    std::wstring instance;  // the instance the call is about, if any
    HRESULT result;
    DWORD thread;  // GetCurrentThreadId() of the caller
};

// The locator, connections and objects handed out and not yet destroyed, and
// the sum of their references (the locator factory is not counted).
struct ReferenceCounts {
    long liveObjects = 0;
    long references = 0;
};

// An event subscription the service holds a sink for (cancelled ones are not listed).
struct SubscriptionInfo {
    std::wstring className;
    std::optional<std::wstring> instanceName;  // the WHERE InstanceName="..." filter
};

// A method and the names of its parameters ("ReturnValue" among the out ones
// when it has one). A side without parameters has no signature object.
struct Method {
    std::wstring name;
    std::vector<std::wstring> in;
    std::vector<std::wstring> out;
};

// A class: its properties with their defaults, in order, and its methods.
struct ClassDef {
    std::wstring name;
    PropertyValues properties;
    std::vector<Method> methods;
};

// What a method handler sees of an ExecMethod call, and the out parameters it fills.
struct MethodCall {
    std::wstring className;
    std::wstring instanceName;  // empty for a call on the class path
    std::wstring method;
    PropertyValues in;  // every declared in-parameter, null when not given
    PropertyValues out;  // to fill; names not declared as out-parameters are added too

    Value input(const std::wstring& name) const;  // null when absent
    void setOutput(const std::wstring& name, Value value);
};

// Answers the call; a failure is ExecMethod's result, with no out object.
using MethodHandler = std::function<HRESULT(MethodCall& call)>;

class ServiceCore;

// Every member is thread-safe; sim/README.md tells what the COM side does.
// Scripting errors (an unknown class or instance) throw std::invalid_argument.
class WmiService {
public:
    WmiService();
    ~WmiService();  // shutdown()
    WmiService(const WmiService&) = delete;
    WmiService& operator=(const WmiService&) = delete;

    // ---- The model --------------------------------------------------------------
    // Defines or replaces a class; instances added before keep their values.
    void defineClass(ClassDef definition);
    // Adds or replaces an instance: the class defaults, InstanceName, then `values`.
    void addInstance(const std::wstring& className, const std::wstring& instanceName,
                     const PropertyValues& values = {});
    void removeInstance(const std::wstring& className, const std::wstring& instanceName);
    // Sets, adds or (Value::absent()) removes one property; later GetObject calls see it.
    void setProperty(const std::wstring& className, const std::wstring& instanceName,
                     const std::wstring& name, Value value);
    // ExecMethod of (class, method) runs `handler` on the calling thread, with
    // no lock of the service held. A method without handler answers WBEM_E_NOT_SUPPORTED.
    void onMethod(const std::wstring& className, const std::wstring& method, MethodHandler handler);
    // A new object of the service made from `object`, as an event's objects are
    // (one reference for the caller); its calls are logged and fail as scripted.
    IWbemClassObject* makeObject(const Object& object);

    // ---- Failures and latency ---------------------------------------------------
    void injectFault(Fault fault);
    void clearFaults();
    // Every call named `call` sleeps this long before answering; zero removes it.
    void setLatency(const std::string& call, std::chrono::milliseconds delay);

    // ---- Observation ------------------------------------------------------------
    std::vector<CallRecord> calls() const;
    void clearCalls();
    ReferenceCounts references() const;
    // One line per live object ("ClassObject Zt_NetAdapter refs=1"), for failure messages.
    std::vector<std::string> liveObjects() const;
    std::vector<SubscriptionInfo> subscriptions() const;

    // ---- Events (delivered on kDeliveryThreads threads of the service) ----------
    static constexpr std::size_t kDeliveryThreads = 3;
    // Schedules a delivery to each subscription matching now; the future is
    // ready once each has been indicated or dropped.
    Delivery fire(const Event& event);
    // Until every delivery fired so far has ended (cancel and shutdown
    // clean-up included); false on timeout (e.g. deliveries are held).
    bool drain(std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;
    // From now on each delivery waits at `point` until releaseDeliveries() (or
    // shutdown). A held delivery not yet admitted to Indicate is dropped if its
    // subscription is cancelled meanwhile.
    void holdDeliveries(HoldPoint point = HoldPoint::beforeIndicate);
    void releaseDeliveries();
    // Until at least `count` deliveries wait at the hold point; false on timeout.
    bool waitForHeld(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;
    // On: a delivery thread ends as soon as it finds no work, as the platform's
    // pooled threads end whenever they like; later events get new threads.
    // shutdown() still waits for the end of each.
    void setPooledDeliveryThreads(bool on);
    // Delivery threads that may still take an event (pooled: not yet gone).
    std::size_t deliveryThreads() const;

    // ---- Calls where none may be ----------------------------------------------
    // From now on, every call, AddRef and Release of the service's objects made
    // while `forbidden` answers true is recorded (e.g. "inside a thread's exit,
    // under the loader lock"). Set before the service is used; null: off.
    void watchForbiddenCalls(std::function<bool()> forbidden);
    // What was recorded: "Release ServicesObject", "GetObject Zt_NetAdapter", ...
    std::vector<std::string> forbiddenCalls() const;

    // ---- COM --------------------------------------------------------------------
    // A new class factory for CLSID_WbemLocator, with one reference for the caller.
    IClassFactory* createLocatorFactory();
    // Later service calls answer WBEM_E_SHUTTING_DOWN; queued and held
    // deliveries are dropped; waits for those in Indicate, joins the delivery
    // threads and ends every subscription. Not from inside Indicate.
    void shutdown();

private:
    std::shared_ptr<ServiceCore> core_;
};

}  // namespace sim
