// The order in which the host's window system delivers what the page's threads
// post and what its timers fire: the module's tests rely on it.
#include <gtest/gtest.h>

#include <thread>
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

TEST_F(Messaging, postsGoToTheWindowsThreadInOrderAndDieWithIt)
{
    std::thread([this] {
        EXPECT_TRUE(PostMessageW(dialog_, WM_USER + 1, 0, 0));
        EXPECT_EQ(host::pumpMessages(), 0) << "not this thread's window";
    }).join();
    PostMessageW(dialog_, WM_USER + 2, 0, 0);
    EXPECT_EQ(host::pumpMessages(), 2);
    EXPECT_EQ(log_, (std::vector<UINT>{WM_USER + 1, WM_USER + 2}));

    PostMessageW(dialog_, WM_USER + 3, 0, 0);
    DestroyWindow(dialog_);
    EXPECT_EQ(host::pumpMessages(), 0) << "dropped with its window";
    EXPECT_FALSE(PostMessageW(dialog_, WM_USER + 4, 0, 0));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST_F(Messaging, timersFireOnTheClockOnePendingAtATimeAfterThePosts)
{
    EXPECT_EQ(SetTimer(dialog_, 1101, 1500, nullptr), 1101U);
    host::advanceClock(1499);
    EXPECT_EQ(host::pumpMessages(), 0);
    host::advanceClock(5001);
    EXPECT_EQ(host::pumpMessages(), 1) << "one pending at a time";
    host::advanceClock(1500);
    PostMessageW(dialog_, WM_USER, 0, 0);
    EXPECT_EQ(host::pumpMessages(), 2);
    EXPECT_EQ(log_.back(), 1101U) << "WM_TIMER after posted messages";
    EXPECT_TRUE(KillTimer(dialog_, 1101));
    EXPECT_TRUE(host::liveTimers(dialog_).empty());
}

}  // namespace
