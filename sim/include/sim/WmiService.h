// An in-process WMI service for namespace root\wmi: the IWbemLocator class
// factory and what it leads to, driven by a scripted class/instance model.
#pragma once

#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform.h"
#include "sim/ClassDef.h"
#include "sim/Events.h"
#include "sim/Fault.h"
#include "sim/MethodCall.h"
#include "sim/Observation.h"
#include "sim/Value.h"

namespace sim {

class ServiceCore;

// Every member is thread-safe. Class, property and method names are matched
// ignoring case, as WMI does; instance names are matched exactly. Scripting
// errors (an unknown class or instance) throw std::invalid_argument.
class WmiService {
public:
    WmiService();
    ~WmiService();  // shutdown()
    WmiService(const WmiService&) = delete;
    WmiService& operator=(const WmiService&) = delete;

    // ---- The model ------------------------------------------------------------
    // Defines or replaces a class; instances added before keep their shape.
    void defineClass(ClassDef definition);
    // Adds or replaces an instance: the class defaults, InstanceName (when the
    // class declares it) set to `instanceName`, then `values`. Names the class
    // doesn't declare are added after its properties.
    void addInstance(const std::wstring& className, const std::wstring& instanceName,
                     const PropertyValues& values = {});
    void removeInstance(const std::wstring& className, const std::wstring& instanceName);
    // Sets (or adds) one property of an instance; later GetObject calls see it.
    void setProperty(const std::wstring& className, const std::wstring& instanceName,
                     const std::wstring& name, Value value);
    // The instance lacks the property from now on: Get answers WBEM_E_NOT_FOUND.
    void removeProperty(const std::wstring& className, const std::wstring& instanceName,
                        const std::wstring& name);
    std::optional<Value> property(const std::wstring& className, const std::wstring& instanceName,
                                  const std::wstring& name) const;
    // ExecMethod of (class, method) runs `handler` on the calling thread, with
    // no lock of the service held. A method without handler answers WBEM_E_NOT_SUPPORTED.
    void onMethod(const std::wstring& className, const std::wstring& method, MethodHandler handler);

    // ---- Failures and latency -------------------------------------------------
    void injectFault(Fault fault);
    void clearFaults();
    // Every call named `call` sleeps this long before answering; zero removes it.
    void setLatency(const std::string& call, std::chrono::milliseconds delay);

    // ---- Observation ----------------------------------------------------------
    std::vector<CallRecord> calls() const;
    void clearCalls();
    ReferenceCounts references() const;
    // One line per live object handed out ("ClassObject Sim_Widget (instance) refs=1"),
    // for failure messages.
    std::vector<std::string> liveObjects() const;
    std::vector<SubscriptionInfo> subscriptions() const;

    // ---- Events ---------------------------------------------------------------
    // Delivery runs on a pool of kDeliveryThreads threads of the service, started
    // by the first fire and joined by shutdown(). Each (event, matching
    // subscription) pair is one delivery: one Indicate call with new objects
    // the service releases when it returns. Deliveries run concurrently, also
    // several to one sink, in no promised order; the objects of one call keep
    // the event's order. Every delivery is logged as call "Indicate" (class and
    // target: the event class; instance: the first object's InstanceName;
    // result: what Indicate returned, or the drop reason) and honours faults
    // (the delivery is dropped) and latency (slept on the delivery thread).
    //
    // CancelAsyncCall(sink) takes the connection's subscriptions with that sink
    // out under the lock that admits deliveries to Indicate, so no delivery is
    // admitted after it; those admitted before it (already inside Indicate, or
    // about to enter it) are not waited for. Each cancelled subscription keeps
    // its sink reference until its last admitted Indicate has returned; then,
    // on the thread that saw it end (the cancelling one if none was in flight,
    // before CancelAsyncCall returns), the sink gets SetStatus(
    // WBEM_STATUS_COMPLETE, WBEM_E_CALL_CANCELLED, nullptr, nullptr) once and
    // then its Release. shutdown() does the same with WBEM_E_SHUTTING_DOWN.
    static constexpr std::size_t kDeliveryThreads = 3;

    // Schedules a delivery to each subscription matching now; the future is
    // ready once each has been indicated or dropped. An undefined event class
    // throws std::invalid_argument; after shutdown() the report is empty.
    std::shared_future<DeliveryReport> fire(const Event& event);
    // Until every delivery fired so far has ended (cancel and shutdown
    // clean-up included); false on timeout (e.g. deliveries are held).
    bool drain(std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;
    // From now on each delivery waits at `point` until releaseDeliveries() (or
    // shutdown). A held delivery that is not yet admitted to Indicate is dropped
    // if its subscription is cancelled meanwhile.
    void holdDeliveries(HoldPoint point = HoldPoint::beforeIndicate);
    // Lets every waiting delivery go on and stops holding new ones.
    void releaseDeliveries();
    // Until at least `count` deliveries wait at the hold point / are inside
    // Indicate; false on timeout.
    bool waitForHeld(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;
    bool waitForInIndicate(std::size_t count,
                           std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;
    DeliveryCounts deliveryCounts() const;

    // ---- COM ------------------------------------------------------------------
    // A new class factory for CLSID_WbemLocator, with one reference for the caller.
    IClassFactory* createLocatorFactory();
    // Later service calls answer WBEM_E_SHUTTING_DOWN; queued and held
    // deliveries are dropped; waits for deliveries inside Indicate to return and
    // joins the delivery threads; ends every subscription as CancelAsyncCall
    // does (SetStatus with WBEM_E_SHUTTING_DOWN, then Release). Not to be
    // called from inside Indicate.
    void shutdown();

private:
    std::shared_ptr<ServiceCore> core_;
};

}  // namespace sim
