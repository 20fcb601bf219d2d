// The diagnostics page on a simulated adapter, opened through the co-installer
// in a sheet, read back as the user sees it.
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

#include "PageModes.h"
#include "WmiFixture.h"
#include "diag_page/DiagResultsList.h"
#include "host/HostActivation.h"
#include "installer/ModuleRecord.h"
#include "nic/ZtNic.h"
#include "resources/resource.h"
#include "sim/Ndis.h"
#include "sim/ZtDriver.h"

namespace {

using namespace std::chrono_literals;
using Lines = std::vector<ListLine>;
using sim::ZtDriver;

const wchar_t* const adapter = L"ZT 5G Network Adapter";
constexpr std::uint64_t gbps = 1000000000ULL;

constexpr int blank = DiagResultsList::ImageBlank;
constexpr int ok = DiagResultsList::ImageOk;
constexpr int error = DiagResultsList::ImageError;
constexpr int warning = DiagResultsList::ImageWarning;
constexpr int info = DiagResultsList::ImageInfo;

class DiagPageTest : public WmiFixture {
protected:
    DiagPageTest() : WmiFixture({adapter}) { }

    SP_DEVINFO_DATA device_ = workingZtDevice(21, adapter);
    const ListLine started_{L"Cable diagnostics started (can take up to 8 seconds)...", info};
    const ListLine goodCable_{L"The overall status of cable is good", ok};
    const ListLine length50_{L"Approx cable length: 50 meters", ok};

    void TearDown() override
    {
        WmiFixture::TearDown();
        moduleRecord.deviceReader.reset();
    }

    // Opens the page on a thread of its own, runs `body` there, closes the sheet.
    template <typename Body> void withPage(Body body)
    {
        onNewThread([&] {  // which ends the thread's WMI use after the sheet
            PageSheet sheet(host::deviceInfoSet(), device_);
            ASSERT_EQ(sheet.installResult(), static_cast<DWORD>(NO_ERROR));
            ASSERT_NE(sheet.page(), nullptr);
            body(sheet);
        });
    }
};

TEST_F(DiagPageTest, opensOnAReadyAdapter)
{
    driver_->setCableLength(adapter, 50);
    withPage([&](PageSheet& sheet) {
        const PageScreen s = sheet.screen();
        const std::vector<std::string> groups = describePage(s);  // link, health, detail first
        EXPECT_EQ(groups[0], R"(  link: lamp_ok "Connected" "Speed 1.0 Gbps")");
        EXPECT_EQ(groups[1], R"(  health: lamp_ok "Temperature is ok")");
        EXPECT_EQ(groups[2], "  detail: hidden \"PHY: 100.00\u00B0C\\tMAC: 100.00\u00B0C\"")
            << "the template's text until shown";
        // At 1 Gbps the category isn't offered, the length is the driver's own.
        EXPECT_EQ(s.lines, (Lines{length50_}));
        EXPECT_EQ(modeViolation(s, temperatureTimerRunning(sheet.page())), "");
        EXPECT_EQ(s.category, L"");
        // Later threads are told the process's security is set already; nothing else fails.
        for (const std::string& line : tracedStartingWith({"[!]"})) {
            EXPECT_EQ(line.rfind("[!] CoInitializeSecurity()", 0), 0U) << line;
        }
        RECT page{};
        GetWindowRect(sheet.page(), &page);
        EXPECT_EQ(std::make_pair(page.right - page.left, page.bottom - page.top),
                  (std::pair<LONG, LONG>(378, 354)));
        const HWND list = sheet.control(IDC_RESULTS_LIST);
        EXPECT_EQ(SendMessageW(list, LVM_GETEXTENDEDLISTVIEWSTYLE, 0, 0),
                  LVS_EX_FULLROWSELECT | LVS_EX_DOUBLEBUFFER);
        const auto images
            = reinterpret_cast<HIMAGELIST>(SendMessageW(list, LVM_GETIMAGELIST, LVSIL_SMALL, 0));
        int cx = 0, cy = 0;
        EXPECT_TRUE(ImageList_GetIconSize(images, &cx, &cy));
        EXPECT_EQ(std::make_pair(cx, cy), std::make_pair(18, 18));
        EXPECT_EQ(ImageList_GetImageCount(images), 5);
        ndis_->disconnect(adapter).wait();
        ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().linkStatus == L"Disconnected"; }));
        EXPECT_EQ(sheet.screen().lines, Lines{}) << "without a link there is no length to show";
    });
}

TEST_F(DiagPageTest, modesOfAnAdapterThatIsNotReadyOrTooOld)
{
    struct Case {
        const char* name = nullptr;
        std::optional<DWORD> problemCode;  // none: the property can't be read
        std::size_t waits = 0;  // of 20 ms each for a driver that doesn't answer
        const wchar_t* line = nullptr;  // shown with the warning image
        bool settles = false;  // the problem code turns 22 at the last wait
        bool oldFirmware = false;  // the only mode of these that reads temperatures
    };
    const Case cases[] = {
        {"disabled", 22, 0, L"Device is disabled"},
        {"problem", 28, 0, L"Device has a problem (code 28)"},
        {"unreadable code", std::nullopt, 0, L"Device has a problem (code -1)"},
        {"silent", 0, 19, L"Unable to query device"},
        {"settles during the wait", 0, 4, L"Device is disabled", true},
        {"old firmware", 0, 0, L"Current version of firmware doesn't support cable diagnostics", false, true},
    };
    // A link and a length at which a ready adapter would offer the category.
    ndis_->setLinkState(adapter, sim::LinkState::at(5 * gbps));
    driver_->setCableLength(adapter, 50);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.problemCode) {
            host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, *c.problemCode);
        } else {
            host::removeDeviceProperty(device_, DEVPKEY_Device_ProblemCode);
        }
        service_.clearFaults();
        if (c.waits > 0) {  // the driver's control class can't be read: the adapter object isn't ready
            service_.injectFault(
                sim::Fault::on("GetObject", WBEM_E_NOT_FOUND).forTarget(ZtDriver::adapterClass));
        }
        std::size_t sleeps = 0;
        host::onSleep([&](DWORD) {
            if (c.settles && ++sleeps == c.waits) {
                host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, 22);
            }
        });
        driver_->setFirmware(adapter, 1, 5, c.oldFirmware ? 65 : 66);
        withPage([&](PageSheet& sheet) {
            const PageScreen s = sheet.screen();
            EXPECT_EQ(s.lines, (Lines{{c.line, warning}}));
            EXPECT_EQ(modeViolation(s, temperatureTimerRunning(sheet.page())), "");
            EXPECT_EQ(host::sleepCalls(), std::vector<DWORD>(c.waits, 20));
            if (!c.oldFirmware) {
                EXPECT_EQ(describePage(s)[1], R"(  health: lamp_unknown "Temperature <unknown>")");
                // The page's mode decides, not the button's state that another program may set.
                EnableWindow(sheet.control(IDC_RUN_DIAG), TRUE);
                ndis_->connect(adapter).wait();
                sheet.pump();
                EXPECT_EQ(sheet.screen().lines, s.lines) << "no cable length line beside the device line";
                EXPECT_FALSE(sheet.screen().categoryEnabled);
                EXPECT_FALSE(sheet.screen().categoryLabelEnabled);
                return;
            }
            ndis_->disconnect(adapter).wait();
            ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().linkStatus == L"Disconnected"; }));
            EXPECT_EQ(sheet.screen().lines, s.lines) << "the first media event leaves the line";
            ndis_->connect(adapter).wait();
            ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().linkStatus == L"Connected"; }));
            EXPECT_EQ(sheet.screen().lines, Lines{}) << "the second removes it for good";
            EXPECT_FALSE(sheet.screen().runEnabled);
        });
    }
    host::onSleep(nullptr);
}

TEST_F(DiagPageTest, cableRunWithAFaultyPairWhileTheDriverTakesTheLinkDown)
{
    ndis_->setLinkState(adapter, sim::LinkState::at(5 * gbps));
    driver_->setCableLength(adapter, 50);
    driver_->setPairs(adapter, {0, ZtDriver::pairWord(ZtDriver::pairOpen, 12, 30), 0, 0});
    driver_->onLinkDrop([&](const std::wstring& name) { ndis_->disconnect(name).wait(); });
    driver_->holdCableTest(adapter);
    withPage([&](PageSheet& sheet) {
        PageScreen s = sheet.screen();
        EXPECT_EQ(s.lines, (Lines{{L"Approx cable length: 46 meters", ok}}));
        EXPECT_TRUE(s.categoryEnabled);
        EXPECT_EQ(s.category, L"5e") << "the first offer selects the first row";

        sheet.click(IDC_RUN_DIAG);
        s = sheet.screen();
        EXPECT_EQ(s.lines, Lines{started_});
        EXPECT_EQ(modeViolation(s, temperatureTimerRunning(sheet.page())), "");

        ASSERT_TRUE(driver_->waitUntilCableTestRunning(adapter));
        ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().linkStatus == L"Disconnected"; }));
        s = sheet.screen();
        EXPECT_EQ(describePage(s)[0], R"(  link: lamp_unknown "Disconnected" "Speed <unknown>")");
        EXPECT_EQ(s.lines, Lines{started_}) << "the run's own media event changes only the link group";
        EXPECT_FALSE(s.runEnabled);
        EXPECT_TRUE(traced("Media state changed because of diagnostics -> do nothing"));

        sheet.click(IDC_RUN_DIAG);  // disabled: nothing happens
        driver_->releaseCableTest(adapter);
        ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().runEnabled; }));
        const Lines results{{L"Diagnostics results by pairs:", blank},
                            {L"Pair A: OK", ok},
                            {L"Pair B: open circuit, distance 12 meters", error},
                            {L"Pair C: OK", ok},
                            {L"Pair D: OK", ok}};
        s = sheet.screen();
        EXPECT_EQ(s.lines, results) << "no length line while the link is down";
        EXPECT_FALSE(s.categoryEnabled);

        // The link's return is the first media event after the run: the
        // results stay and the length follows them.
        ndis_->connect(adapter).wait();
        ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().linkStatus == L"Connected"; }));
        Lines withLength = results;
        withLength.push_back({L"Approx cable length: 46 meters", ok});
        s = sheet.screen();
        EXPECT_EQ(s.linkIcon, IDI_LAMP_OK);
        EXPECT_EQ(s.lines, withLength);
        EXPECT_TRUE(s.categoryEnabled);
        EXPECT_EQ(s.category, L"5e");

        // Another category corrects the same line in place.
        sheet.chooseCategory(2);
        withLength.back() = {L"Approx cable length: 56 meters", ok};
        EXPECT_EQ(sheet.screen().lines, withLength);

        // The second event clears the list for good.
        ndis_->disconnect(adapter).wait();
        ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().linkStatus == L"Disconnected"; }));
        s = sheet.screen();
        EXPECT_EQ(s.lines, Lines{});
        EXPECT_FALSE(s.categoryEnabled);
        EXPECT_TRUE(s.runEnabled);
    });
    EXPECT_EQ(driver_->cableTests(adapter), 1);
}

TEST_F(DiagPageTest, outcomesOfARun)
{
    struct Case {
        const char* name;
        std::vector<std::uint32_t> pairs;
        Lines lines;
        HRESULT execMethod = 0;
        DWORD threadError = 0;  // the worker thread can't be made
    };
    const auto word
        = [](std::uint8_t status, std::uint8_t distance) { return ZtDriver::pairWord(status, distance); };
    const Case cases[] = {
        {"no pairs at all", {}, {goodCable_, length50_}},
        {"cross connections and an odd status",
         {word(1, 3), word(200, 5), word(3, 0), word(1, 9)},
         {{L"Diagnostics results by pairs:", blank},
          {L"Pair A: connected to another pair (B), distance 3 meters", error},
          {L"Pair B: <unknown>, distance 5 meters", error},
          {L"Pair C: connected to another pair (B), distance 0 meters", error},
          {L"Pair D: connected to another pair (A), distance 9 meters", error},
          length50_}},
        {"a fifth record",
         {0, 0, 0, 0, word(4, 7)},
         {{L"Diagnostics results by pairs:", blank},
          {L"Pair A: OK", ok},
          {L"Pair B: OK", ok},
          {L"Pair C: OK", ok},
          {L"Pair D: OK", ok},
          {L"Pair <unknown>: short circuit, distance 7 meters", error},
          length50_}},
        {"the driver fails", {0, 0, 0, 0}, {{L"An error occurred", error}, length50_}, WBEM_E_FAILED},
        {"no worker",
         {0, 0, 0, 0},
         {{L"Failed to start cable diagnostics", error}},
         0,
         ERROR_NOT_ENOUGH_MEMORY},
    };
    driver_->setCableLength(adapter, 50);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        driver_->setPairs(adapter, c.pairs);
        service_.clearFaults();
        if (FAILED(c.execMethod)) {
            // Opening reads the cable length first; the second method call is the test.
            service_.injectFault(
                sim::Fault::on("ExecMethod", c.execMethod).forTarget(ZtDriver::adapterClass).onlyCall(2));
        }
        withPage([&](PageSheet& sheet) {
            host::failCreateThread(c.threadError);
            sheet.click(IDC_RUN_DIAG);
            host::failCreateThread(0);
            ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().runEnabled; }));
            EXPECT_EQ(sheet.screen().lines, c.lines);
            if (c.threadError != 0) {  // the button is left for another try
                EXPECT_TRUE(traced("[!] Failed to start cable diagnostics worker thread"));
                sheet.click(IDC_RUN_DIAG);
                ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().runEnabled; }));
                EXPECT_EQ(sheet.screen().lines, (Lines{goodCable_, length50_}));
            }
        });
    }
}

TEST_F(DiagPageTest, closingDuringARunWaitsForTheWorker)
{
    driver_->holdCableTest(adapter);
    std::atomic<bool> released{false};
    std::thread releaser;
    withPage([&](PageSheet& sheet) {
        sheet.click(IDC_RUN_DIAG);
        ASSERT_TRUE(driver_->waitUntilCableTestRunning(adapter));
        releaser = std::thread([&] {
            std::this_thread::sleep_for(200ms);
            released = true;
            driver_->releaseCableTest(adapter);
        });
        sheet.close();
        EXPECT_TRUE(released) << "the sheet closed while the worker still ran";
        const auto messages = tracedMessages();
        const auto waiting = std::find(messages.begin(), messages.end(),
                                       "~ZethoriaDiagPage(): waiting diagnostics thread to complete");
        ASSERT_NE(waiting, messages.end());
        EXPECT_NE(std::find(waiting, messages.end(), "Cable diag thread: exit"), messages.end());
    });
    releaser.join();
}

// Device Manager lives for days: what a page makes goes with it.
TEST_F(DiagPageTest, fiftySheetsWithRunsAndTicksLeaveNoHandleBehind)
{
    const auto count = [](const char* function) {
        const auto calls = host::commonControlsCalls();
        return std::count_if(calls.begin(), calls.end(),
                             [&](const auto& call) { return call.function == function; });
    };
    for (int i = 0; i < 50; ++i) {
        withPage([&](PageSheet& sheet) {
            sheet.tick();
            sheet.click(IDC_RUN_DIAG);
            ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().runEnabled; }));
            sheet.tick();
            sheet.close();
            EXPECT_EQ(host::liveThreadHandles(), 0) << "the page's thread made the workers";
        });
    }
    EXPECT_EQ(host::liveIcons(), 0);
    EXPECT_EQ(host::liveImageLists(), 0);
    EXPECT_EQ(count("ImageList_Destroy"), count("ImageList_Create")) << "each image list destroyed once";
}

TEST_F(DiagPageTest, anAdapterDisabledDuringARunIsShownAfterIt)
{
    driver_->holdCableTest(adapter);
    withPage([&](PageSheet& sheet) {
        sheet.click(IDC_RUN_DIAG);
        ASSERT_TRUE(driver_->waitUntilCableTestRunning(adapter));
        host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, 22);
        ndis_->remove(adapter).wait();
        ASSERT_TRUE(sheet.pumpUntil([&] { return traced("ZtNic: adapter removed"); }));
        sheet.pump();
        PageScreen s = sheet.screen();
        EXPECT_EQ(s.lines, Lines{started_}) << "the run still owns the page";
        EXPECT_FALSE(s.runEnabled);

        driver_->removeAdapter(adapter);  // ends the run at once
        ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().lines != Lines{started_}; }));
        s = sheet.screen();
        EXPECT_EQ(s.lines, (Lines{{L"Device is disabled", warning}}));
        EXPECT_EQ(modeViolation(s, temperatureTimerRunning(sheet.page())), "") << "no run, no timer";
        EXPECT_EQ(s.temperature, L"Temperature <unknown>");

        // Back again: the page is usable as before.
        host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, 0);
        driver_->addAdapter(adapter);
        ndis_->arrive(adapter, sim::LinkState::at(gbps)).wait();
        ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().runEnabled; }));
        EXPECT_EQ(sheet.screen().lines, Lines{});
        EXPECT_TRUE(temperatureTimerRunning(sheet.page()));
    });
    EXPECT_EQ(driver_->cableTests(adapter), 1);
}

TEST_F(DiagPageTest, aMediaEventBeforeTheArrivalReachesThePageOffersNoCableControls)
{
    ndis_->setLinkState(adapter, sim::LinkState::at(5 * gbps));
    driver_->setCableLength(adapter, 50);
    withPage([&](PageSheet& sheet) {
        driver_->removeAdapter(adapter);
        ndis_->remove(adapter).wait();
        sheet.pump();
        const Lines silent{{L"Unable to query device", warning}};
        ASSERT_EQ(sheet.screen().lines, silent);
        driver_->addAdapter(adapter);
        driver_->setCableLength(adapter, 50);
        const auto arrival = ndis_->arrive(adapter, sim::LinkState::at(5 * gbps));
        // The adapter object is ready, and pauses before it tells the page.
        const std::shared_ptr<ZtNic> nic = moduleRecord.sharedNic.lock();
        ASSERT_NE(nic, nullptr);
        ASSERT_TRUE(sheet.pumpUntil([&] { return nic->isReady(); }));
        ndis_->connect(adapter).wait();
        sheet.pump();
        PageScreen s = sheet.screen();
        EXPECT_EQ(s.lines, silent);
        EXPECT_EQ(modeViolation(s, temperatureTimerRunning(sheet.page())), "");

        arrival.wait();
        sheet.pump();
        s = sheet.screen();
        EXPECT_TRUE(s.runEnabled);
        EXPECT_TRUE(s.categoryEnabled);
        EXPECT_EQ(s.lines, (Lines{{L"Approx cable length: 46 meters", ok}}));
    });
}

TEST_F(DiagPageTest, linkSpeedsAndTheCategoryChoice)
{
    struct Case {
        std::uint64_t speed;
        const wchar_t* text;
        bool offered;
        const wchar_t* length;
    };
    const Case cases[] = {
        {10000000ULL, L"Speed 10.0 Mbps", false, L"Approx cable length: 50 meters"},
        {100000000ULL, L"Speed 100.0 Mbps", false, L"Approx cable length: 50 meters"},
        {gbps, L"Speed 1.0 Gbps", false, L"Approx cable length: 50 meters"},
        {2500000000ULL, L"Speed 2.5 Gbps", true, L"Approx cable length: 63 meters"},
        {2500000001ULL, L"Speed <unknown>", false, L"Approx cable length: 50 meters"},
        {5 * gbps, L"Speed 5.0 Gbps", true, L"Approx cable length: 54 meters"},
        {10 * gbps, L"Speed 10.0 Gbps", false, L"Approx cable length: 50 meters"},
    };
    ndis_->setLinkState(adapter, sim::LinkState::at(5 * gbps));
    withPage([&](PageSheet& sheet) {
        EXPECT_EQ(sheet.screen().lines, Lines{}) << "a length of 0 adds nothing by itself";
        sheet.chooseCategory(2);
        EXPECT_EQ(sheet.screen().lines, (Lines{{L"Unable to determine cable length", warning}}));
        driver_->setCableLength(adapter, 35);
        sheet.chooseCategory(0);
        EXPECT_EQ(sheet.screen().lines, (Lines{{L"Approx cable length: 30 meters", ok}}));
        driver_->setCableLength(adapter, 50);
        sheet.chooseCategory(1);  // the user's row stays from here on
        for (const auto& c : cases) {
            ndis_->setLinkState(adapter, sim::LinkState::at(c.speed));
            ndis_->connect(adapter).wait();
            ASSERT_TRUE(sheet.pumpUntil([&] { return sheet.screen().speed == c.text; })) << c.speed;
            const PageScreen s = sheet.screen();
            EXPECT_EQ(s.linkStatus, L"Connected");
            EXPECT_EQ(s.categoryEnabled, c.offered) << c.speed;
            EXPECT_EQ(s.categoryLabelEnabled, c.offered) << c.speed;
            EXPECT_EQ(s.category, L"6") << c.speed;
            EXPECT_EQ(s.lines, (Lines{{c.length, ok}})) << c.speed;
        }
    });
}

TEST_F(DiagPageTest, healthFollowsTheTemperaturesAtEachTick)
{
    struct Case {
        const char* name;
        std::int32_t phy, mac;
        int flags;
        const char* health;  // the group as the page reader words it
        const wchar_t* detail;
    };
    const char* const fine = R"(  health: lamp_ok "Temperature is ok")";
    const char* const high = R"(  health: lamp_high "Temperature is high")";
    const char* const unknown = R"(  health: lamp_unknown "Temperature <unknown>")";
    const Case cases[] = {
        {"both in order", 4500, 5425, 12, fine, L"PHY: 45\u00B0C\tMAC: 54.25\u00B0C"},
        {"PHY at the limit", 10000, 13000, 12, fine, L"PHY: 100\u00B0C\tMAC: 130\u00B0C"},
        {"MAC at the limit", 13000, 10000, 12, fine, L"PHY: 130\u00B0C\tMAC: 100\u00B0C"},
        {"PHY hot, MAC cool", 12000, 9000, 12, fine, L"PHY: 120\u00B0C\tMAC: 90\u00B0C"},
        {"both above", 10001, 10001, 12, high, L"PHY: 100.01\u00B0C\tMAC: 100.01\u00B0C"},
        {"only MAC, hot", 0, 12000, 8, high, L"PHY: <?>\u00B0C\tMAC: 120\u00B0C"},
        {"only PHY", 6050, 0, 4, fine, L"PHY: 60.5\u00B0C\tMAC: <?>\u00B0C"},
        {"neither", 4500, 4500, 0, unknown, L"PHY: <?>\u00B0C\tMAC: <?>\u00B0C"},
    };
    withPage([&](PageSheet& sheet) {
        // A failed read is unknown, not high; the next tick reads again.
        service_.injectFault(
            sim::Fault::on("GetObject", WBEM_E_FAILED).forTarget(ZtDriver::diagnosticsClass));
        sheet.tick();
        service_.clearFaults();
        EXPECT_EQ(describePage(sheet.screen())[1], unknown);
        // Ctrl+Shift+T held at a tick shows the temperatures.
        const auto down = static_cast<SHORT>(0x8000);
        const auto tickWithT = [&](SHORT state) {
            host::setKeyState('T', state);
            sheet.tick();
            return sheet.screen().detailVisible;
        };
        host::setKeyState(VK_CONTROL, down);
        host::setKeyState(VK_SHIFT, down);
        EXPECT_FALSE(tickWithT(0)) << "two keys are not the chord";
        EXPECT_EQ(describePage(sheet.screen())[1], fine);
        EXPECT_TRUE(tickWithT(down));
        EXPECT_EQ(sheet.screen().detail, L"PHY: 45\u00B0C\tMAC: 50\u00B0C");
        EXPECT_FALSE(tickWithT(down)) << "held over two ticks it toggles twice";
        EXPECT_FALSE(tickWithT(1)) << "toggled, not down";
        host::setKeyState('T', down);
        EXPECT_FALSE(tickWithT(0)) << "pressed and released between two ticks: not seen";
        ASSERT_TRUE(tickWithT(down));
        host::setKeyState('T', 0);
        for (const auto& c : cases) {
            SCOPED_TRACE(c.name);
            driver_->setTemperatures(adapter, c.phy, c.mac);
            driver_->setThermalFlags(adapter, static_cast<std::uint8_t>(c.flags));
            const auto before = describePage(sheet.screen());
            EXPECT_NE(before[1] + before[2], c.health + ("  detail: shown " + quoted(c.detail)));
            sheet.tick();
            const auto after = describePage(sheet.screen());
            EXPECT_EQ(after[1], c.health);
            EXPECT_EQ(after[2], "  detail: shown " + quoted(c.detail));
        }
    });
}

TEST_F(DiagPageTest, layoutSharesTheWidthAndGivesTheListTheFreeHeight)
{
    using Corner = std::pair<LONG, LONG>;  // left, top
    withPage([&](PageSheet& sheet) {
        const auto at = [&](int id) {  // a control's rectangle in the page's client coordinates
            RECT rect{};
            GetWindowRect(sheet.control(id), &rect);
            MapWindowPoints(nullptr, sheet.page(), reinterpret_cast<POINT*>(&rect), 2);
            return rect;
        };
        const auto corner = [&](int id) { return Corner{at(id).left, at(id).top}; };
        const int cy = 354;
        for (const int cx : {378, 378, 377, 377, 500, 500}) {  // each twice: a second layout changes nothing
            SCOPED_TRACE(cx);
            SetWindowPos(sheet.page(), nullptr, 0, 0, cx, cy, SWP_NOMOVE | SWP_NOZORDER);
            const int margin = at(IDC_BANNER).left;
            const int top = at(IDC_BANNER).bottom;
            const int half = cx / 2;
            const RECT linkCaption = at(IDC_LINK_CAPTION);
            EXPECT_EQ(corner(IDC_LINK_CAPTION), Corner(margin, top));
            EXPECT_EQ(corner(IDC_HEALTH_CAPTION), Corner(half, top));
            const int captionMid = (linkCaption.bottom - linkCaption.top) / 2;
            const RECT line = at(IDC_LINK_LINE);
            EXPECT_EQ(
                std::make_tuple(line.left, line.top, line.right, line.bottom),
                std::make_tuple(linkCaption.right, top + captionMid, half - margin, top + captionMid + 1))
                << "the link group ends a margin before the middle";
            EXPECT_EQ(at(IDC_HEALTH_LINE).left, at(IDC_HEALTH_CAPTION).right);
            EXPECT_EQ(at(IDC_HEALTH_LINE).right, cx - margin);
            const RECT linkIcon = at(IDC_LINK_ICON);
            const RECT healthIcon = at(IDC_HEALTH_ICON);
            EXPECT_EQ(corner(IDC_LINK_ICON), Corner(margin, top + 2 * captionMid + 3));
            EXPECT_EQ(corner(IDC_HEALTH_ICON), Corner(half, linkIcon.top));
            EXPECT_EQ(corner(IDC_LINK_STATUS), Corner(linkIcon.right + 3, at(IDC_TEMPERATURE).top));
            EXPECT_EQ(corner(IDC_LINK_SPEED), Corner(linkIcon.right + 3, linkIcon.bottom + 3));
            EXPECT_EQ(at(IDC_TEMPERATURE).left, healthIcon.right + 3);
            EXPECT_EQ(corner(IDC_TEMPERATURE_DETAIL), Corner(healthIcon.right + 3, linkIcon.bottom + 3))
                << "hidden or not";
            EXPECT_EQ(at(IDC_DIAG_LINE).right, cx - margin);
            const RECT button = at(IDC_RUN_DIAG);
            EXPECT_EQ(Corner(button.left, button.bottom), Corner(margin, cy - margin));
            const RECT list = at(IDC_RESULTS_LIST);
            EXPECT_EQ(std::make_tuple(list.left, list.right, list.bottom),
                      std::make_tuple(margin, cx - margin, button.top - 5));
            RECT listClient{};
            GetClientRect(sheet.control(IDC_RESULTS_LIST), &listClient);
            EXPECT_EQ(SendMessageW(sheet.control(IDC_RESULTS_LIST), LVM_GETCOLUMNWIDTH, 0, 0),
                      listClient.right - 3);
        }
    });
}

}  // namespace
