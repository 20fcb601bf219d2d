// Internal: the state one WmiService and all the COM objects it handed out
// share: the model, handlers, faults, latency, call log, subscriptions and the
// reference tracker, behind one lock (the tracker has its own).
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Codes.h"
#include "ComObject.h"
#include "Model.h"
#include "Text.h"
#include "platform.h"
#include "sim/ClassDef.h"
#include "sim/Fault.h"
#include "sim/MethodCall.h"
#include "sim/Observation.h"

namespace sim {

// What a call is about, for the log, the faults and the latency.
struct CallInfo {
    std::string call;
    std::wstring className;
    std::wstring target;
    std::wstring instance;
    bool needsService = false;  // refused with WBEM_E_SHUTTING_DOWN after shutdown
};

struct Subscription {
    std::uint64_t connection;
    std::wstring className;
    std::optional<std::wstring> instanceName;
    IWbemObjectSink* sink;  // one reference, the subscription's
};

class ServiceCore : public std::enable_shared_from_this<ServiceCore> {
public:
    // ---- The model (scripting side throws std::invalid_argument) --------------
    void defineClass(ClassDef definition);
    void addInstance(const std::wstring& className, const std::wstring& instanceName,
                     const PropertyValues& values);
    void removeInstance(const std::wstring& className, const std::wstring& instanceName);
    void setProperty(const std::wstring& className, const std::wstring& instanceName,
                     const std::wstring& name, Value value);
    void removeProperty(const std::wstring& className, const std::wstring& instanceName,
                        const std::wstring& name);
    std::optional<Value> property(const std::wstring& className, const std::wstring& instanceName,
                                  const std::wstring& name) const;
    void onMethod(const std::wstring& className, const std::wstring& method, MethodHandler handler);

    // ---- What the COM objects read (copies, taken under the lock) -------------
    std::shared_ptr<const ClassDef> findClass(const std::wstring& name) const;
    std::optional<Slots> instanceSlots(const std::wstring& className, const std::wstring& instanceName) const;
    MethodHandler findHandler(const std::wstring& className, const std::wstring& method) const;

    // ---- Calls --------------------------------------------------------------
    // Sleeps the call's latency, answers a scripted fault or runs `body`, logs
    // the result. Never throws: memory exhaustion answers WBEM_E_OUT_OF_MEMORY.
    template <class Body> HRESULT serve(const CallInfo& info, Body&& body) noexcept
    {
        HRESULT result = codes::failed;
        try {
            if (const auto refused = admit_(info)) {
                result = *refused;
            } else {
                result = body();
            }
        } catch (const std::bad_alloc&) {
            result = codes::outOfMemory;
        } catch (...) {
            result = codes::failed;
        }
        record_(info, result);
        return result;
    }

    void injectFault(Fault fault);
    void clearFaults();
    void setLatency(const std::string& call, std::chrono::milliseconds delay);
    std::vector<CallRecord> calls() const;
    void clearCalls();

    // ---- Subscriptions ------------------------------------------------------
    std::uint64_t newConnectionId();
    // False after shutdown; the caller then keeps its sink reference.
    bool subscribe(Subscription subscription);
    // The sinks of the connection's subscriptions with `sink`, taken out; the
    // caller releases them outside the lock.
    std::vector<Subscription> unsubscribe(std::uint64_t connection, IWbemObjectSink* sink);
    std::vector<SubscriptionInfo> subscriptions() const;
    // Marks the service shut down and releases every sink it held.
    void shutdown();

    // ---- Objects ------------------------------------------------------------
    Tracker& tracker() { return tracker_; }
    // The VARIANT a client gets for `value`: a copy, or new objects for embedded ones.
    HRESULT toVariant(const Value& value, VARIANT* out);

private:
    struct Instance {
        std::wstring name;
        Slots slots;
    };
    struct ClassEntry {
        std::shared_ptr<const ClassDef> definition;
        std::vector<Instance> instances;
    };
    struct FaultState {
        Fault fault;
        int matched = 0;
        int fired = 0;
    };

    std::optional<HRESULT> admit_(const CallInfo& info);
    void record_(const CallInfo& info, HRESULT result) noexcept;
    ClassEntry& entry_(const std::wstring& className);
    Instance& instance_(const std::wstring& className, const std::wstring& instanceName);
    const Instance* findInstance_(const std::wstring& className, const std::wstring& instanceName) const;
    IWbemClassObject* embeddedObject_(const Object& object);

    mutable std::mutex lock_;
    std::map<std::wstring, ClassEntry, NoCaseLess> classes_;
    std::map<std::wstring, MethodHandler, NoCaseLess> handlers_;  // by "Class.Method"
    std::vector<FaultState> faults_;
    std::map<std::string, std::chrono::milliseconds> latency_;
    std::vector<CallRecord> log_;
    std::vector<Subscription> subscriptions_;
    std::uint64_t nextConnection_ = 1;
    bool shutDown_ = false;
    Tracker tracker_;
};

}  // namespace sim
