// Arrival, removal and media events fired from several threads at a high rate
// while pages open and close on dialog threads of their own, cable runs start
// and end, the timer ticks and the category changes. No subscriber may be
// called once its page is gone, every worker must end and be joined, and every
// page must stay in one of its modes; a hang meets the test's time limit.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "PageModes.h"
#include "WmiFixture.h"
#include "diag_page/ZethoriaDiagPage.h"
#include "host/HostWindows.h"
#include "installer/ModuleRecord.h"
#include "resources/resource.h"
#include "sim/Ndis.h"
#include "sim/ZtDriver.h"
#include "tools/page_reader/PageSheet.h"

namespace {

using namespace std::chrono_literals;

const wchar_t* const adapter = L"ZT 5G Network Adapter";
constexpr std::uint64_t speeds[]
    = {100000000ULL, 1000000000ULL, 2500000000ULL, 5000000000ULL, 10000000000ULL};

constexpr int rounds = 10;
constexpr int dialogThreads = 2;
constexpr int eventThreads = 2;
constexpr int eventsPerThread = 60;
constexpr int sessionsPerDialog = 3;
constexpr int stepsPerSession = 25;
// A removal leaves the adapter object not ready, so the next arrival waits
// 500 ms or more on a delivery thread (2.5 s if the driver stays away): few per round.
constexpr int adapterCyclesPerThread = 1;

sim::ZtValues driverValues()
{
    sim::ZtValues values;
    values.cableLength = 40;
    values.cableTest = 10ms;
    return values;
}

class StressTest : public WmiFixture {
protected:
    StressTest() : WmiFixture({adapter, true, true, 5000000000ULL, true, driverValues()}) { }

    std::vector<SP_DEVINFO_DATA> devices_;

    // What the sim holds, changed only under scriptLock_.
    std::mutex scriptLock_;
    bool ndisPresent_ = true;
    bool driverPresent_ = true;

    std::mutex findingsLock_;
    std::vector<std::string> findings_;
    std::set<HWND> released_;  // pages whose sheet has closed
    int postsAfterRelease_ = 0;
    int completionsToDeadPages_ = 0;
    int workers_ = 0;

    void SetUp() override
    {
        WmiFixture::SetUp();
        // One device per dialog thread: each sheet's installer call reads back its own pages.
        for (int i = 0; i < dialogThreads; ++i) {
            devices_.push_back(workingZtDevice(static_cast<DWORD>(30 + i), adapter));
        }
        host::onPostToDestroyedWindow([this](HWND window, UINT message) {
            const std::lock_guard<std::mutex> guard(findingsLock_);
            postsAfterRelease_ += released_.count(window) != 0 ? 1 : 0;
            completionsToDeadPages_ += message == WM_CABLE_DIAG_DONE ? 1 : 0;
        });
    }
    void TearDown() override
    {
        host::onPostToDestroyedWindow(nullptr);
        WmiFixture::TearDown();
        moduleRecord.deviceReader.reset();
    }

    void driverBack_()
    {
        if (!driverPresent_) {
            driver_->addAdapter(adapter, driverValues());
            driverPresent_ = true;
        }
    }
    void finding_(std::string text)
    {
        const std::lock_guard<std::mutex> guard(findingsLock_);
        findings_.push_back(std::move(text));
    }

    // Fires events without waiting for them; removal and arrival a few times only.
    void fireEvents_(unsigned seed)
    {
        std::mt19937 random(seed);
        int cycles = 0;
        for (int i = 0; i < eventsPerThread; ++i) {
            const std::lock_guard<std::mutex> guard(scriptLock_);
            const auto choice = random() % 20;
            if (choice < 6 && ndisPresent_) {
                (void)ndis_->connect(adapter);
            } else if (choice < 12 && ndisPresent_) {
                (void)ndis_->disconnect(adapter);
            } else if (choice < 17 && ndisPresent_) {
                const std::uint64_t speed = speeds[random() % std::size(speeds)];
                ndis_->setLinkState(adapter, sim::LinkState::at(speed, true));
                (void)ndis_->changeLinkSpeed(adapter, speed, speed);
            } else if (choice == 17 && cycles < adapterCyclesPerThread) {
                if (ndisPresent_) {
                    (void)ndis_->remove(adapter);
                    ndisPresent_ = false;
                } else {
                    ++cycles;
                    driverBack_();
                    (void)ndis_->arrive(adapter,
                                        sim::LinkState::at(speeds[random() % std::size(speeds)], true));
                    ndisPresent_ = true;
                }
            } else if (choice == 18 && driverPresent_) {
                driver_->removeAdapter(adapter);  // ends a run under way at once
                driverPresent_ = false;
            } else if (choice == 18) {
                driverBack_();
            } else if (choice == 19 && driverPresent_) {
                // Runs under way wait a little longer, so pages close during them.
                driver_->holdCableTest(adapter);
                std::this_thread::sleep_for(5ms);
                driver_->releaseCableTest(adapter);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1 + random() % 3));
        }
    }

    // Back to a present adapter and driver, every event delivered.
    void restore_()
    {
        const std::lock_guard<std::mutex> guard(scriptLock_);
        driverBack_();
        if (!ndisPresent_) {
            ndis_->arrive(adapter, sim::LinkState::at(5000000000ULL, true)).wait();
            ndisPresent_ = true;
        }
        EXPECT_TRUE(service_.drain(10s));
    }

    void checkModes_(PageSheet& sheet, const char* when)
    {
        const std::string wrong = modeViolation(sheet.screen(), temperatureTimerRunning(sheet.page()));
        if (!wrong.empty()) {
            finding_(std::string(when) + ": " + wrong);
        }
    }

    // Pages open and close on this thread; the user runs, ticks and picks.
    void usePages_(int index, unsigned seed)
    {
        std::mt19937 random(seed);
        for (int session = 0; session < sessionsPerDialog; ++session) {
            HWND page = nullptr;
            {
                PageSheet sheet(host::deviceInfoSet(), devices_[static_cast<std::size_t>(index)]);
                page = sheet.page();
                if (page == nullptr) {
                    finding_("no page");
                    continue;
                }
                checkModes_(sheet, "open");
                for (int step = 0; step < stepsPerSession; ++step) {
                    const auto action = random() % 4;
                    if (action == 0) {
                        sheet.tick();
                    } else if (action == 1) {
                        sheet.click(IDC_RUN_DIAG);  // a click on the disabled button does nothing
                    } else if (action == 2) {
                        sheet.chooseCategory(static_cast<int>(random() % 3));
                    } else {
                        std::this_thread::sleep_for(1ms);
                        sheet.pump();
                    }
                    checkModes_(sheet, "step");
                }
                if (random() % 2 == 0) {
                    sheet.click(IDC_RUN_DIAG);  // closes during the run, if it started: waits for it
                } else {
                    sheet.pumpUntil(
                        [&] {
                            const PageScreen s = sheet.screen();
                            return s.lines.empty() || s.lines.front().image != DiagResultsList::ImageInfo;
                        },
                        5s);
                    checkModes_(sheet, "before close");
                }
                sheet.close();
            }
            const std::lock_guard<std::mutex> guard(findingsLock_);
            released_.insert(page);
        }
        const std::lock_guard<std::mutex> guard(findingsLock_);
        workers_ += host::createThreadCalls();  // this thread's: its pages' workers
    }
};

TEST_F(StressTest, eventsPagesRunsAndTicksTogether)
{
    const auto started = std::chrono::steady_clock::now();
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::thread> threads;
        threads.reserve(eventThreads + dialogThreads);
        for (int i = 0; i < eventThreads; ++i) {
            threads.emplace_back([this, round, i] { fireEvents_(static_cast<unsigned>(round * 100 + i)); });
        }
        for (int i = 0; i < dialogThreads; ++i) {
            threads.emplace_back(
                [this, round, i] { usePages_(i, static_cast<unsigned>(round * 100 + 50 + i)); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        restore_();
    }
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    const std::vector<std::string> messages = tracedMessages();
    const auto countOf = [&messages](const std::string& line) {
        return static_cast<int>(std::count(messages.begin(), messages.end(), line));
    };
    std::cout << "stress: " << rounds << " rounds, " << rounds * dialogThreads * sessionsPerDialog
              << " pages, " << workers_ << " cable runs, " << rounds * eventThreads * eventsPerThread
              << " scripted events in " << seconds << " s; "
              << countOf("~ZethoriaDiagPage(): waiting diagnostics thread to complete")
              << " pages closed during a run, " << countOf("ZtNic: adapter arrived") << " arrivals, "
              << countOf("ZtNic: adapter removed") << " removals seen\n";
    RecordProperty("rounds", rounds);
    RecordProperty("cableRuns", workers_);

    const std::lock_guard<std::mutex> guard(findingsLock_);
    EXPECT_EQ(findings_, std::vector<std::string>{});
    EXPECT_EQ(postsAfterRelease_, 0) << "a subscriber or worker posted to a page that was gone";
    EXPECT_GT(workers_, 0);
    EXPECT_EQ(countOf("Cable diag thread: enter"), workers_);
    EXPECT_EQ(countOf("Cable diag thread: exit"), workers_) << "every worker ended";
    EXPECT_LE(completionsToDeadPages_, countOf("~ZethoriaDiagPage(): waiting diagnostics thread to complete"))
        << "a completion that found no page was joined by the page's destructor";
    EXPECT_EQ(countOf("/!\\ Cable diagnostics completion without a worker"), 0);
    EXPECT_EQ(host::livePropertySheetPages(), 0);
    EXPECT_TRUE(service_.subscriptions().empty()) << "every page's subscriptions are cancelled";
}

}  // namespace
