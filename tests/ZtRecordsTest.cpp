#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>
#include <tuple>

#include "nic/CallbackRegistry.h"
#include "nic/ZtPairInfo.h"
#include "nic/ZtThermalInfo.h"

namespace {

TEST(ZtPairInfo, statusStringNamesTheFaultAndThePartnerPair)
{
    // index, status, text, partner; a bad index (4, -1) reads as pair A's row and has no partner
    const std::tuple<std::int32_t, std::uint8_t, const wchar_t*, const wchar_t*> cases[] = {
        {0, 0, L"OK", L""},
        {0, 1, L"connected to another pair (B)", L"B"},
        {1, 3, L"connected to another pair (A)", L"A"},
        {2, 3, L"connected to another pair (B)", L"B"},
        {3, 1, L"connected to another pair (A)", L"A"},
        {3, 2, L"connected to another pair (B)", L"B"},
        {1, 4, L"short circuit", L""},
        {2, 5, L"low mismatch", L""},
        {3, 6, L"high mismatch", L""},
        {1, 7, L"open circuit", L""},
        {0, 8, L"<unknown>", L""},
        {0, 200, L"<unknown>", L""},
        {4, 0, L"OK", L""},
        {-1, 2, L"connected to another pair (C)", L""},
    };
    for (const auto& [index, status, text, partner] : cases) {
        const ZtPairInfo pair(index, status);
        EXPECT_EQ(pair.statusString(), text) << index << "/" << int(status);
        EXPECT_EQ(pair.partnerName(), partner) << index << "/" << int(status);
    }
}

TEST(ZtThermalInfo, flagsSayWhichTemperatureIsValid)
{
    const double inf = INFINITY;
    // flags, the raw PHY and MAC values, the temperatures they give
    const std::tuple<std::uint8_t, std::int32_t, std::int32_t, double, double> cases[] = {
        {12, 5123, -250, 51.23, -2.5}, {4, 4000, 4100, 40.0, inf}, {8, 4000, 4100, inf, 41.0},
        {0, 4000, 4100, inf, inf},     {255, 0, 1, 0.0, 0.01},
    };
    for (const auto& [flags, phy, mac, phyExpected, macExpected] : cases) {
        const ZtThermalInfo info(flags, phy, mac);
        EXPECT_DOUBLE_EQ(info.phyTemperature, phyExpected) << int(flags);
        EXPECT_DOUBLE_EQ(info.macTemperature, macExpected) << int(flags);
    }
}

TEST(ZtPairInfo, theWordsBytesLowestFirst)
{
    const ZtPairInfo pair(1, 0x00120301U);
    EXPECT_EQ(pair.status, 1);
    EXPECT_EQ(pair.distance, 3);
    EXPECT_EQ(pair.farthestDistance, 18);
    EXPECT_EQ(pair.reserved, 0);
    EXPECT_EQ(ZtPairInfo(3, 0xFF000000U).reserved, 0xFF);
    const wchar_t* const names[] = {L"<unknown>", L"A", L"B", L"C", L"D", L"<unknown>"};
    for (int index = -1; index <= 4; ++index) {
        EXPECT_EQ(ZtPairInfo(index, 0).pairName(), names[index + 1]) << index;
    }
}

TEST(CallbackRegistry, keysAreOwnedByTheirFirstSubscriber)
{
    CallbackRegistry<int> registry;
    std::vector<std::string> calls;
    EXPECT_TRUE(registry.add(L"a", [&](int v) { calls.push_back("a" + std::to_string(v)); }));
    EXPECT_FALSE(registry.add(L"a", [&](int v) { calls.push_back("second" + std::to_string(v)); }));
    EXPECT_TRUE(registry.add(L"b", [&](int v) { calls.push_back("b" + std::to_string(v)); }));
    registry.notify(1);
    std::sort(calls.begin(), calls.end());  // the order among subscribers is not promised
    EXPECT_TRUE(registry.remove(L"a"));
    EXPECT_FALSE(registry.remove(L"a"));
    registry.notify(2);
    EXPECT_EQ(calls, (std::vector<std::string>{"a1", "b1", "b2"}));
}

TEST(CallbackRegistry, removedSubscriberIsNeverCalledAgain)
{
    // A subscriber's state dies right after remove(): notify on another thread
    // must not call into it from then on.
    CallbackRegistry<int> registry;
    std::atomic<bool> stop{false};
    std::thread notifier([&] {
        while (!stop) {
            registry.notify(1);
        }
    });
    for (int round = 0; round < 200; ++round) {
        auto alive = std::make_unique<std::atomic<int>>(0);
        auto* state = alive.get();
        registry.add(L"page", [state](int v) { state->fetch_add(v); });
        std::this_thread::yield();
        registry.remove(L"page");
        alive.reset();  // a call after remove() would touch freed memory (ASan)
    }
    stop = true;
    notifier.join();
}

}  // namespace
