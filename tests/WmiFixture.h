// The one fixture of tests that use the simulated WMI service: a simulated
// adapter registered as the process's WMI locator, a small test class, and
// checks that every reference the service handed out came back and that every
// thread ended its WMI use. Module code keeps one connection per thread, so
// test bodies that use the service run on threads of their own (onNewThread).
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "TraceCapture.h"
#include "host/HostPlatform.h"
#include "sim/SimAdapter.h"
#include "wmi/WbemServices.h"

// Runs `body` on a thread of its own that ends its WMI use before it returns,
// as the module's own threads do, and waits for it.
template <typename Body> void onNewThread(Body&& body)
{
    sim::onNewThread([&body] {
        body();
        endThreadWbemServices();
    });
}

// A property value whose VT_UNKNOWN holds no interface.
sim::Value noInterface();

class WmiFixture : public ::testing::Test {
protected:
    explicit WmiFixture(sim::AdapterSettings settings = {});

    TraceAll capture_;
    sim::SimAdapter sim_;
    sim::WmiService& service_;
    sim::NdisProvider* const ndis_;
    sim::ZtDriver* const driver_;

    // "Test_Adapter": InstanceName, Active, Speed (VT_UI1), Count (VT_I4),
    // Name (VT_BSTR), Unset (null), Details (an object); methods "Reset"
    // (in "Level", out "ReturnValue") and "Probe" (no in-parameters).
    // One instance, "eth 0 #1".
    void SetUp() override;
    // Every delivery ended, the driver stopped, nothing the service handed out
    // still referenced, no thread ended with its connection still held.
    void TearDown() override;

    // A script for a case: `call` on `target` fails with `hr`.
    std::function<void()> failing(const char* call, const wchar_t* target, HRESULT hr)
    {
        return [=] { service_.injectFault(sim::Fault::on(call, hr).forTarget(target)); };
    }
    int callsOf(const std::string& name) const { return static_cast<int>(targetsOf(name).size()); }
    // What the calls of that name were made on, in order.
    std::vector<std::wstring> targetsOf(const std::string& name) const;

private:
    int tlsValuesLeft_ = 0;
};
