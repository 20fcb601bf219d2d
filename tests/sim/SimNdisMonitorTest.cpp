// The module's NDIS monitor (NdisWmi) against the simulated NDIS provider:
// the link state query end to end, and destroying the monitor while
// deliveries are paused inside its sink's Indicate on several threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

#include "SimClient.h"
#include "ndis/NdisWmi.h"
#include "sim/Ndis.h"
#include "wmi/WbemServices.h"

namespace simtest {
namespace {

using namespace std::chrono_literals;

const wchar_t* const adapter = L"Zt Ethernet #3 \\ lab";

class SimNdisMonitorTest : public SimTest {
protected:
    void SetUp() override
    {
        SimTest::SetUp();
        ndis_.emplace(service());
        ndis_->addAdapter(adapter);
    }
    void TearDown() override
    {
        EXPECT_TRUE(service().drain(10s));
        service().shutdown();
        ndis_.reset();
        SimTest::TearDown();
    }
    // Module code keeps a connection per thread: run it on a thread that ends it.
    template <class Body> static void onModuleThread(Body&& body)
    {
        std::thread thread([&] {
            body();
            endThreadWbemServices();
        });
        thread.join();
    }

    std::optional<sim::NdisProvider> ndis_;
};

TEST_F(SimNdisMonitorTest, theQueryReadsTheAddressedAdaptersLinkState)
{
    sim::LinkState state;
    state.xmitLinkSpeed = 2500000000ULL;
    state.mediaConnectState = sim::ndis::mediaDisconnected;
    ndis_->setLinkState(adapter, state);
    ndis_->addAdapter(L"Other");

    onModuleThread([&] {
        const NdisWmi monitor(adapter);
        EXPECT_EQ(monitor.linkSpeed(), 2500000000ULL);
        EXPECT_EQ(monitor.mediaConnectState(), MediaConnectState::Disconnected);
    });

    const auto requests = ndis_->requests();
    ASSERT_EQ(requests.size(), 2U);
    for (const sim::LinkStateRequest& request : requests) {
        EXPECT_EQ(request.result, S_OK);
        EXPECT_EQ(request.instanceName, adapter);
        EXPECT_EQ(request.size.number, 0xFFFF);
        EXPECT_EQ(request.timeout.number, 5);
    }
}

TEST_F(SimNdisMonitorTest, destroyingTheMonitorWithDeliveriesPausedInsideIndicate)
{
    std::atomic<int> callbacks{0};
    std::atomic<int> callbacksSeen{0};
    onModuleThread([&] {
        std::optional<NdisWmi> monitor;
        monitor.emplace(adapter);
        monitor->bindCallbacks([&](const std::wstring&) { ++callbacks; },
                               [&](const std::wstring&) { ++callbacks; },
                               [&](const std::wstring&, MediaConnectState) { ++callbacks; });
        ASSERT_EQ(service().subscriptions().size(), 4U);

        service().holdDeliveries(sim::HoldPoint::insideIndicate);
        ndis_->disconnect(adapter);
        ndis_->connect(adapter);
        ndis_->disconnect(adapter);
        ASSERT_TRUE(service().waitForHeld(sim::WmiService::kDeliveryThreads));
        EXPECT_EQ(service().deliveryCounts().inIndicate, sim::WmiService::kDeliveryThreads);

        monitor.reset();  // cancels, closes its sink's gate, drops its reference

        EXPECT_TRUE(service().subscriptions().empty());
        service().releaseDeliveries();
        ASSERT_TRUE(service().drain(10s));
        callbacksSeen = callbacks.load();
    });

    EXPECT_EQ(callbacksSeen.load(), 0) << "no callback runs for a monitor that is gone";
    EXPECT_EQ(service().deliveryCounts().indicated, sim::WmiService::kDeliveryThreads);
    int statuses = 0;
    for (const sim::CallRecord& call : service().calls()) {
        statuses
            += call.call == "SetStatus" && call.result == static_cast<HRESULT>(WBEM_E_CALL_CANCELLED) ? 1 : 0;
    }
    EXPECT_EQ(statuses, 4) << "each of the monitor's four subscriptions ends once";
}

}  // namespace
}  // namespace simtest
