#include <gtest/gtest.h>

#include "RecordingPage.h"
#include "WmiFixture.h"
#include "host/HostWindows.h"
#include "installer/ModuleRecord.h"
#include "installer/PropSheetPageProc.h"
#include "nic/ZtNic.h"
#include "sim/Ndis.h"

namespace {

using Calls = RecordingPage::Calls;

const wchar_t* const adapter = L"ZT 10G Network Adapter #2";

// What a property sheet does with one page: build it, run its dialog, release it.
struct SheetPage {
    RecordingPage* page = new RecordingPage();
    HPROPSHEETPAGE handle = page->pageHandle();
    HWND window = nullptr;

    UINT create() { return PropSheetPageProc(nullptr, PSPCB_CREATE, host::pageDescription(handle)); }
    INT_PTR send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) const
    {
        return PropertyPageBase::dialogProc(window, message, wParam, lParam);
    }
    // In a new window unless the page has one.
    INT_PTR initDialog()
    {
        window = window != nullptr ? window : host::createWindow();
        return send(WM_INITDIALOG, 0, reinterpret_cast<LPARAM>(host::pageDescription(handle)));
    }
    void release()
    {
        DestroyPropertySheetPage(handle);
        if (window != nullptr) {
            host::destroyWindow(window);
        }
    }
};

class PropertyPageTest : public WmiFixture {
protected:
    SP_DEVINFO_DATA device_ = host::makeDevice(9);

    void SetUp() override
    {
        WmiFixture::SetUp();
        host::setDeviceString(device_, DEVPKEY_Device_FriendlyName, adapter);
        host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, 0);
        moduleRecord.deviceReader = std::make_shared<DevPropertiesReader>(host::deviceInfoSet(), &device_);
        moduleRecord.pageThreads.clear();
        moduleRecord.sharedNic.reset();
        RecordingPage::live = 0;
    }
    void TearDown() override
    {
        EXPECT_EQ(RecordingPage::live, 0);
        EXPECT_TRUE(moduleRecord.sharedNic.expired());
        moduleRecord.deviceReader.reset();
        WmiFixture::TearDown();
    }
};

TEST_F(PropertyPageTest, dialogProcedureDispatch)
{
    Calls calls;
    onNewThread([&] {
        RecordingPage::calls = &calls;
        SheetPage sheet;
        sheet.create();
        sheet.window = host::createWindow();
        struct Case {
            UINT message;
            WPARAM wParam;
            LPARAM lParam;
            INT_PTR result;
            Calls calls;
        };
        const Case cases[] = {
            {WM_SIZE, 0, 0x00C800F0, 1, {"size 240x200"}},
            {WM_COMMAND, 1003, 0, 1, {"clicked 1003"}},
            {WM_COMMAND, (1U << 16) | 1007U, 0, 1, {"notify 66543"}},
            {WM_TIMER, 1101, 0, 1, {"timer 1101"}},
            {WM_NOTIFY, 0, 0, 1, {}},
            {WM_HELP, 0, 0, 1, {}},
            {WM_CONTEXTMENU, 0, 0, 1, {}},
            {WM_PPB_NIC_CHANGED, 0, 0, 1, {"nic removed"}},
            {WM_PPB_NIC_CHANGED, 7, 0, 1, {"nic added"}},
            {WM_PPB_NIC_MEDIA_CHANGED, 2, 0, 1, {"media 2"}},
            {0x400, 0, 0, 0, {}},
            {0x401, 0, 0, 42, {"user 1025"}},
            {0x466, 0, 0, 0, {"user 1126"}},
            {0x4FF, 0, 0, 0, {"user 1279"}},  // throws
            {0x0200, 0, 0, 0, {}},
        };
        // Before WM_INITDIALOG there is no page: nothing is called, what it would handle gives 0.
        for (const auto& c : cases) {
            EXPECT_EQ(sheet.send(c.message, c.wParam, c.lParam), c.calls.empty() ? c.result : 0)
                << "before init, message " << c.message;
            EXPECT_EQ(calls, Calls{}) << c.message;
        }
        EXPECT_EQ(sheet.initDialog(), TRUE);
        EXPECT_EQ(calls, Calls{"init"});
        EXPECT_EQ(GetWindowLongPtrW(sheet.window, GWL_EXSTYLE), WS_EX_COMPOSITED);
        host::clearDebugOutput();
        for (const auto& c : cases) {
            calls.clear();
            EXPECT_EQ(sheet.send(c.message, c.wParam, c.lParam), c.result) << "message " << c.message;
            EXPECT_EQ(calls, c.calls) << "message " << c.message;
        }
        EXPECT_EQ(tracedMessages(), Calls{"[!] PropertyPageBase: out of memory handling message 1279"});
        sheet.release();

        SheetPage refusing;  // a window that refuses its style
        refusing.window = host::createWindow();
        host::destroyWindow(refusing.window);
        refusing.initDialog();
        EXPECT_TRUE(traced("[!] SetWindowLong() failed w/status 1400"));
        refusing.release();
    });
}

TEST_F(PropertyPageTest, pagesShareOneAdapterObjectThatDiesWithTheLast)
{
    onNewThread([&] {
        SheetPage first;
        EXPECT_EQ(first.create(), 1U);
        ZtNic* nic = first.page->nic();
        ASSERT_NE(nic, nullptr);
        EXPECT_TRUE(nic->isReady());
        EXPECT_EQ(moduleRecord.pageThreads.size(), 1U);

        const int propertyReads = host::devicePropertyCalls();
        SheetPage second;
        EXPECT_EQ(second.create(), 1U);
        EXPECT_EQ(second.page->nic(), nic) << "the second page shares the object";
        EXPECT_EQ(host::devicePropertyCalls(), propertyReads) << "and reads no property";
        EXPECT_EQ(moduleRecord.pageThreads.size(), 2U);

        host::clearDebugOutput();
        second.release();
        EXPECT_FALSE(moduleRecord.sharedNic.expired());
        EXPECT_EQ(moduleRecord.pageThreads.size(), 1U);
        const int uninitializes = host::coUninitializeCalls();
        first.release();
        EXPECT_TRUE(moduleRecord.sharedNic.expired());
        EXPECT_EQ(moduleRecord.pageThreads.size(), 0U);
        EXPECT_EQ(service_.references().liveObjects, 0) << "the thread's connection ends with its last page";
        EXPECT_EQ(host::coUninitializeCalls(), uninitializes + 1) << "and then its COM use";
        const auto messages = tracedMessages();
        EXPECT_EQ(std::count(messages.begin(), messages.end(), "PropSheetPageProc(): all pages released"), 1);
        EXPECT_EQ(std::count(messages.begin(), messages.end(), "~ZtNic()"), 1);

        // A new sheet: a new object, from the properties read anew.
        host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, 22);
        SheetPage again;
        again.create();
        ASSERT_NE(again.page->nic(), nullptr);
        EXPECT_FALSE(again.page->nic()->isReady()) << "problem code 22: not ready";
        again.release();

        SheetPage neverShown;
        neverShown.release();
        EXPECT_EQ(moduleRecord.pageThreads.size(), 0U);
    });
}

TEST_F(PropertyPageTest, adapterNotificationsReachTheDialogThreadAsPosts)
{
    Calls calls;
    std::atomic<int> postsToClosedPages{0};
    host::onPostToDestroyedWindow([&](HWND, UINT) { ++postsToClosedPages; });
    onNewThread([&] {
        RecordingPage::calls = &calls;
        SheetPage sheet;
        sheet.create();
        sheet.initDialog();
        SheetPage closed;  // on the same adapter object, which outlives it
        closed.create();
        closed.initDialog();
        closed.release();
        calls.clear();
        ndis_->disconnect(adapter).wait();  // on a delivery thread of the service
        ndis_->remove(adapter).wait();
        EXPECT_TRUE(calls.empty()) << "nothing runs on the page from a foreign thread";
        for (const auto& posted : host::takePosted(sheet.window)) {
            sheet.send(posted.message, posted.wParam, posted.lParam);
        }
        EXPECT_EQ(calls, (Calls{"media 2", "nic removed"}));
        EXPECT_EQ(postsToClosedPages, 0);
        sheet.release();
    });
}

}  // namespace
