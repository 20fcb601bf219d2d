#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <utility>
#include <vector>

#include "host/HostPlatform.h"
#include "host/HostWindows.h"

namespace {

std::vector<UINT>* dispatched = nullptr;

INT_PTR recordingProc(HWND, UINT message, WPARAM wParam, LPARAM)
{
    if (dispatched != nullptr && message != WM_SIZE && message != WM_INITDIALOG) {
        dispatched->push_back(message == WM_TIMER ? static_cast<UINT>(wParam) : message);
    }
    return TRUE;
}

class Messaging : public ::testing::Test {
protected:
    void SetUp() override
    {
        host::reset();
        dispatched = &log_;
        dialog_ = CreateDialogParamW(nullptr, MAKEINTRESOURCEW(108), nullptr, &recordingProc, 0);
        ASSERT_NE(dialog_, nullptr);
    }
    void TearDown() override
    {
        dispatched = nullptr;
        host::reset();
    }
    std::vector<UINT> log_;
    HWND dialog_ = nullptr;
};

TEST_F(Messaging, posts_goToTheQueueOfTheWindowsThreadAndThePumpDispatchesThem)
{
    std::thread([this] {
        EXPECT_TRUE(PostMessageW(dialog_, WM_USER + 1, 0, 0));
        EXPECT_EQ(host::pumpMessages(), 0) << "not this thread's window";
    }).join();
    PostMessageW(dialog_, WM_USER + 2, 0, 0);
    EXPECT_EQ(host::queuedMessages(), 2);
    EXPECT_EQ(host::pumpMessages(), 2);
    EXPECT_EQ(log_, (std::vector<UINT>{WM_USER + 1, WM_USER + 2}));

    PostMessageW(dialog_, WM_USER + 3, 0, 0);
    DestroyWindow(dialog_);
    EXPECT_EQ(host::pumpMessages(), 0) << "dropped with its window";
    EXPECT_FALSE(PostMessageW(dialog_, WM_USER, 0, 0));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_FALSE(IsWindow(dialog_));
}

TEST_F(Messaging, postsToDestroyedWindows_reachTheHookAndStillFail)
{
    std::vector<std::pair<HWND, UINT>> seen;
    host::onPostToDestroyedWindow([&](HWND window, UINT message) { seen.emplace_back(window, message); });
    EXPECT_TRUE(PostMessageW(dialog_, WM_USER + 1, 0, 0));
    EXPECT_FALSE(PostMessageW(reinterpret_cast<HWND>(std::uintptr_t{0x4}), WM_USER + 2, 0, 0))
        << "never a window: not reported";
    DestroyWindow(dialog_);
    EXPECT_FALSE(PostMessageW(dialog_, WM_USER + 3, 0, 0));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_EQ(seen, (std::vector<std::pair<HWND, UINT>>{{dialog_, WM_USER + 3}}));
    host::reset();
    EXPECT_FALSE(PostMessageW(dialog_, WM_USER + 4, 0, 0));
    EXPECT_EQ(seen.size(), 1U) << "reset removes the hook";
}

TEST_F(Messaging, timers_fireOnTheClockOnePendingAtATimeAndRestart)
{
    EXPECT_EQ(SetTimer(dialog_, 1101, 1500, nullptr), 1101U);
    const struct {
        std::uint64_t advance;
        int dispatched;
    } steps[] = {{1499, 0}, {1, 1}, {1500, 1}, {5000, 1}, {1499, 0}, {1, 1}};
    for (const auto& step : steps) {
        host::advanceClock(step.advance);
        EXPECT_EQ(host::pumpMessages(), step.dispatched) << "at " << host::clockNow();
    }
    EXPECT_EQ(host::clockNow(), 9500U);
    host::advanceClock(1500);
    PostMessageW(dialog_, WM_USER, 0, 0);
    EXPECT_EQ(host::liveTimers(dialog_).at(0).pending, true);
    EXPECT_EQ(SetTimer(dialog_, 1101, 1500, nullptr), 1101U) << "an existing id restarts";
    EXPECT_EQ(host::liveTimers(dialog_).at(0).dueAt, 12500U);
    EXPECT_EQ(host::pumpMessages(), 2);
    EXPECT_EQ(log_.back(), 1101U) << "WM_TIMER after posted messages";
    EXPECT_TRUE(KillTimer(dialog_, 1101));
    EXPECT_FALSE(KillTimer(dialog_, 1101));
    host::advanceClock(10000);
    EXPECT_EQ(host::pumpMessages(), 0);
}

TEST_F(Messaging, sleep_movesTheClockWithoutWaitingAndCallsTheHook)
{
    std::vector<std::uint64_t> seen;
    host::onSleep([&](DWORD) { seen.push_back(host::clockNow()); });
    Sleep(20);
    Sleep(20);
    std::thread([] { Sleep(5); }).join();
    EXPECT_EQ(host::sleepCalls(), (std::vector<DWORD>{20, 20}));
    EXPECT_EQ(host::allSleepCalls(), (std::vector<DWORD>{20, 20, 5}));
    EXPECT_EQ(seen, (std::vector<std::uint64_t>{20, 40, 45}));
    host::setKeyState(VK_SHIFT, static_cast<SHORT>(0x8000));
    EXPECT_EQ(GetKeyState(VK_SHIFT), static_cast<SHORT>(0x8000));
    EXPECT_EQ(GetKeyState('T'), 0);
}

DWORD WINAPI worker(LPVOID parameter)
{
    *static_cast<DWORD*>(parameter) = GetCurrentThreadId();
    return 7;
}

TEST_F(Messaging, createThread_runsARealThreadOrFailsAsScripted)
{
    DWORD seenId = 0;
    DWORD id = 0;
    HANDLE thread = CreateThread(nullptr, 0, &worker, &seenId, 0, &id);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(seenId, id);
    EXPECT_NE(id, GetCurrentThreadId());
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 7U);
    EXPECT_TRUE(CloseHandle(thread));
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_FAILED);

    host::failCreateThread(ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(CreateThread(nullptr, 0, &worker, &seenId, 0, &id), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(host::createThreadCalls(), 2);
}

}  // namespace
