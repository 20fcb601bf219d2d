// Internal: the state one WmiService and all the COM objects it handed out
// share: the model, handlers, faults, latency and call log behind one lock; the
// reference tracker and the event hub (subscriptions, delivery) have their own.
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
#include "EventHub.h"
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

    // Logs a call the service made itself (e.g. SetStatus on a sink).
    void log(const CallInfo& info, HRESULT result) noexcept { record_(info, result); }

    void injectFault(Fault fault);
    void clearFaults();
    void setLatency(const std::string& call, std::chrono::milliseconds delay);
    std::vector<CallRecord> calls() const;
    void clearCalls();

    // ---- Subscriptions and events -------------------------------------------
    std::uint64_t newConnectionId();
    EventHub& events() { return events_; }
    // Later calls answer WBEM_E_SHUTTING_DOWN; then the hub shuts down.
    void shutdown();

    // ---- Objects ------------------------------------------------------------
    Tracker& tracker() { return tracker_; }
    // The VARIANT a client gets for `value`: a copy, or new objects for embedded ones.
    HRESULT toVariant(const Value& value, VARIANT* out);
    // A new object of delivery `delivery` (one reference for the caller).
    IWbemClassObject* eventObject(const EventObject& object, std::uint64_t delivery);

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
    std::uint64_t nextConnection_ = 1;
    bool shutDown_ = false;
    Tracker tracker_;
    EventHub events_{*this};  // last: its threads use the members above until it is gone
};

}  // namespace sim
