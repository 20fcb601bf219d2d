// A simulated WMI service registered as the process's WMI locator, with a
// small test class, and checks that the module gave back every reference.
// Module code keeps one connection per thread, so test bodies that use the
// service run on threads of their own (onNewThread).
#pragma once

#include <gtest/gtest.h>

#include <thread>
#include <utility>

#include "TraceCapture.h"
#include "host/HostPlatform.h"
#include "sim/LocatorRegistration.h"
#include "sim/WmiService.h"

// Runs `body` on a new thread and waits for the thread to end, thread-exit
// clean-up included.
template <typename Body> void onNewThread(Body&& body)
{
    std::thread thread(std::forward<Body>(body));
    thread.join();
}

class WmiFixture : public ::testing::Test {
protected:
    TraceAll capture_;
    sim::WmiService service_;
    sim::LocatorRegistration registration_{service_};

    // "Test_Adapter": InstanceName, Active, Speed (uint8), Count (sint32),
    // Name (string), Unset (sint32, null), Details (object); methods "Reset"
    // (in "Level", out "ReturnValue") and "Probe" (no in-parameters).
    // One instance, "eth 0 #1".
    void SetUp() override;
    // Nothing the service handed out is still referenced.
    void TearDown() override;

    int callsOf(const std::string& name) const;
};
