// An in-process WMI service for namespace root\wmi: the IWbemLocator class
// factory and what it leads to, driven by a scripted class/instance model.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform.h"
#include "sim/ClassDef.h"
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

    // ---- COM ------------------------------------------------------------------
    // A new class factory for CLSID_WbemLocator, with one reference for the caller.
    IClassFactory* createLocatorFactory();
    // Releases every event sink held; later service calls answer WBEM_E_SHUTTING_DOWN.
    void shutdown();

private:
    std::shared_ptr<ServiceCore> core_;
};

}  // namespace sim
