// Events the simulated service delivers to its subscriptions on its own
// threads: what a test fires, what it gets back, and how it holds deliveries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform.h"
#include "sim/Value.h"

namespace sim {

// One object of an event as the sink receives it: an instance of `className`
// (the class's defaults when it is defined, then `values`). Names in `missing`
// (ignoring case; system names such as "__Class" too) are absent from the
// object: Get answers WBEM_E_NOT_FOUND and enumeration skips them.
struct EventObject {
    std::wstring className;
    PropertyValues values;
    std::vector<std::wstring> missing;
};

// What is fired: subscriptions to `className` (ignoring case) receive the
// objects, in this order, in one Indicate(count, array) call each. A
// subscription with WHERE InstanceName="x" receives only the objects whose
// InstanceName is the string x exactly (none: no call for it).
struct Event {
    std::wstring className;
    std::vector<EventObject> objects;

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

// Where held deliveries wait (see WmiService::holdDeliveries).
enum class HoldPoint {
    beforeIndicate,  // on the delivery thread, right before Indicate is called
    insideIndicate,  // inside Indicate: in the sink's first Get on one of the delivery's objects
};

// The service's delivery state, for tests and failure messages.
struct DeliveryCounts {
    std::uint64_t fired = 0;  // events fired
    std::uint64_t indicated = 0;  // Indicate calls that returned
    std::uint64_t dropped = 0;  // deliveries that ended without Indicate
    std::size_t pending = 0;  // deliveries queued or under way
    std::size_t inIndicate = 0;  // deliveries admitted to Indicate that haven't returned
    std::size_t held = 0;  // deliveries waiting at the hold point
    std::size_t threads = 0;  // delivery threads running
};

}  // namespace sim
