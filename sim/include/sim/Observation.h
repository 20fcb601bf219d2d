// What tests observe of the simulated service: the call log, the reference
// balance of the COM objects it handed out, and the event subscriptions it holds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <thread>

#include "platform.h"

namespace sim {

// One answered call. `target` is the call's subject as text:
//   ConnectServer: the namespace; GetObject: the path; ExecMethod: Class.Method;
//   ExecNotificationQueryAsync: the query; Get/Put/Next: Class.Property;
//   GetMethod: Class.Method; other object calls and CancelAsyncCall: the class.
struct CallRecord {
    std::string call;
    std::wstring className;
    std::wstring target;
    std::wstring instance;  // the instance the call is about, if any
    HRESULT result;
    std::thread::id thread;
};

// Objects handed out and not yet destroyed, and the sum of their references.
// The locator factory is counted apart: the COM runtime holds it while registered.
struct ReferenceCounts {
    long liveObjects = 0;
    long references = 0;
    long liveFactories = 0;
    long factoryReferences = 0;
};

// An event subscription the service holds a sink for (cancelled ones are not listed).
struct SubscriptionInfo {
    std::uint64_t connection;  // the IWbemServices object it was made on
    std::wstring className;
    std::optional<std::wstring> instanceName;  // the WHERE InstanceName="..." filter
    std::uint64_t id = 0;  // unique in the service, in the order subscriptions were made
    std::uint64_t indications = 0;  // its Indicate calls that have returned
};

}  // namespace sim
