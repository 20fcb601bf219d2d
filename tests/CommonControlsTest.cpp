#include "page_framework/CommonControls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "TraceCapture.h"
#include "host/HostActivation.h"
#include "host/HostPlatform.h"

namespace {

const HICON anIcon = reinterpret_cast<HICON>(std::uintptr_t{0x10});
const INITCOMMONCONTROLSEX listView{sizeof(INITCOMMONCONTROLSEX), ICC_LISTVIEW_CLASSES};

// What the sheet was handed, seen through the page's PSPCB_ADDREF callback.
PROPSHEETPAGEW seen{};

UINT recordingCallback(HWND, UINT message, LPPROPSHEETPAGEW page)
{
    if (message == PSPCB_ADDREF) {
        seen = *page;
    }
    return 1;
}

PROPSHEETPAGEW description(DWORD size = sizeof(PROPSHEETPAGEW), DWORD flags = 0) noexcept
{
    PROPSHEETPAGEW page{};
    page.dwSize = size;
    page.dwFlags = PSP_USECALLBACK | flags;
    page.pfnCallback = &recordingCallback;
    return page;
}
const PROPSHEETPAGEW fullPage = description();

HIMAGELIST newList()
{
    return ImageList_Create(16, 16, ILC_COLOR32, 1, 1);
}

bool hasTracedFailure()
{
    return !tracedStartingWith({"[!] "}).empty();
}

class CommonControlsTest : public ::testing::Test {
protected:
    TraceAll capture_;
    int baseReferences_ = host::comctl32References();
    std::unique_ptr<CommonControls> controls_ = std::make_unique<CommonControls>();

    void TearDown() override
    {
        controls_.reset();
        EXPECT_EQ(host::comctl32References(), baseReferences_) << "the object gives its reference back";
        EXPECT_TRUE(host::activationsBalanced());
        host::reset();
    }
};

// One call of each function through the layer, with arguments it accepts.
struct Call {
    const char* function;
    std::function<bool(CommonControls&)> run;  // true if the call succeeded
};

const std::vector<Call>& everyFunction()
{
    static const std::vector<Call> calls = {
        {"InitCommonControlsEx", [](auto& c) { return c.initCommonControlsEx(&listView) != FALSE; }},
        {"CreatePropertySheetPageW", [](auto& c) { return c.createPropertySheetPage(&fullPage) != nullptr; }},
        {"DestroyPropertySheetPage",
         [](auto& c) { return c.destroyPropertySheetPage(CreatePropertySheetPageW(&fullPage)) != FALSE; }},
        {"ImageList_Create",
         [](auto& c) { return c.imageListCreate(16, 16, ILC_COLOR32 | ILC_MASK, 4, 4) != nullptr; }},
        {"ImageList_ReplaceIcon", [](auto& c) { return c.imageListReplaceIcon(newList(), -1, anIcon) == 0; }},
        {"ImageList_Destroy", [](auto& c) { return c.imageListDestroy(newList()) != FALSE; }},
    };
    return calls;
}

// The layer's calls of the host's functions; direct calls of the tests left out.
std::vector<host::ControlsCall> callsOf(const char* function)
{
    auto calls = host::commonControlsCalls();
    calls.erase(std::remove_if(calls.begin(), calls.end(),
                               [&](const auto& c) { return c.function != function || !c.activated; }),
                calls.end());
    return calls;
}

TEST_F(CommonControlsTest, eachFunctionIsResolvedOnceAndCalledInsideTheModulesContext)
{
    for (const auto& call : everyFunction()) {
        SCOPED_TRACE(call.function);
        const int lookups = host::getProcAddressCalls();
        EXPECT_TRUE(call.run(*controls_));
        EXPECT_EQ(host::getProcAddressCalls(), lookups + 1);
        EXPECT_TRUE(call.run(*controls_));
        EXPECT_EQ(host::getProcAddressCalls(), lookups + 1) << "the second call resolves nothing anew";

        const auto made = callsOf(call.function);
        ASSERT_EQ(made.size(), 2U);
        for (const auto& one : made) {
            EXPECT_EQ(one.context, host::moduleActivationContext());
        }
    }
    EXPECT_EQ(host::loadLibraryCalls(), 1) << "one load serves every function";
    EXPECT_EQ(host::comctl32References(), baseReferences_ + 1);
    EXPECT_EQ(host::activateActCtxCalls(), 2 * static_cast<int>(everyFunction().size()));
}

TEST_F(CommonControlsTest, theFusionContextIsAddedToAFullDescriptionThatLacksIt)
{
    const HANDLE callersContext = reinterpret_cast<HANDLE>(std::uintptr_t{0x77});
    struct Case {
        const char* name;
        DWORD size;
        DWORD flags;
        bool added;
    };
    const Case cases[] = {
        {"104 bytes, no flag", 104, 0, true},
        {"96 bytes, no flag", 96, 0, true},
        {"92 bytes, no flag", 92, 0, false},
        {"104 bytes, flag already set", 104, PSP_USEFUSIONCONTEXT, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        PROPSHEETPAGEW page = description(c.size, c.flags);
        page.hActCtx = (c.flags & PSP_USEFUSIONCONTEXT) != 0 ? callersContext : nullptr;
        const PROPSHEETPAGEW before = page;
        seen = {};
        ASSERT_NE(controls_->createPropertySheetPage(&page), nullptr);

        EXPECT_EQ((seen.dwFlags & PSP_USEFUSIONCONTEXT) != 0,
                  c.added || (c.flags & PSP_USEFUSIONCONTEXT) != 0);
        if (c.added) {
            EXPECT_EQ(seen.hActCtx, host::moduleActivationContext());
        } else if (c.size >= 96) {
            EXPECT_EQ(seen.hActCtx, callersContext) << "the caller's own context stays";
        }
        EXPECT_EQ(page.dwFlags, before.dwFlags) << "the caller's description is not changed";
        EXPECT_EQ(page.hActCtx, before.hActCtx);
    }
}

TEST_F(CommonControlsTest, withoutActivationSupportEveryLaterCallIsPlain)
{
    // 0: the query for the module's context is what fails, activation isn't tried.
    for (const DWORD code : {0U, 1U, 50U, 120U, 126U, 127U}) {
        SCOPED_TRACE(code);
        host::reset();
        CommonControls controls;
        host::setActivationSupported(code != 0);
        host::failActivateActCtx(code);
        for (const auto& call : everyFunction()) {
            EXPECT_TRUE(call.run(controls)) << call.function;
        }
        // Activation would work now, but the platform has already said it has none.
        host::setActivationSupported(true);
        host::failActivateActCtx(NO_ERROR);
        for (const auto& call : everyFunction()) {
            EXPECT_TRUE(call.run(controls)) << call.function;
        }
        EXPECT_EQ(host::activateActCtxCalls(), 0);
        const auto calls = host::commonControlsCalls();
        EXPECT_TRUE(std::none_of(calls.begin(), calls.end(), [](const auto& c) { return c.activated; }));
        EXPECT_FALSE(hasTracedFailure()) << "a platform without contexts is no failure";
    }
}

TEST_F(CommonControlsTest, anyOtherActivationFailureMakesNoCall)
{
    host::failActivateActCtx(ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(controls_->initCommonControlsEx(&listView));
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(controls_->createPropertySheetPage(&fullPage), nullptr);
    EXPECT_EQ(controls_->imageListCreate(16, 16, ILC_COLOR32, 1, 1), nullptr);
    EXPECT_EQ(controls_->imageListReplaceIcon(nullptr, -1, anIcon), -1);
    EXPECT_FALSE(controls_->imageListDestroy(nullptr));
    EXPECT_TRUE(host::commonControlsCalls().empty());
    EXPECT_EQ(host::loadLibraryCalls(), 0);
    EXPECT_TRUE(hasTracedFailure());

    // Not remembered: the next call activates again.
    host::failActivateActCtx(NO_ERROR);
    EXPECT_TRUE(controls_->initCommonControlsEx(&listView));
    EXPECT_EQ(host::activateActCtxCalls(), 1);
}

TEST_F(CommonControlsTest, theCallsLastErrorSurvivesTheDeactivation)
{
    PROPSHEETPAGEW tooShort = description(10, 0);
    SetLastError(NO_ERROR);
    EXPECT_EQ(controls_->createPropertySheetPage(&tooShort), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(controls_->imageListReplaceIcon(nullptr, -1, anIcon), -1);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(host::deactivateActCtxCalls(), 2);

    // A function that can't be found gives null; the others are found all the same.
    host::hideProcedure("ImageList_Create");
    EXPECT_EQ(controls_->imageListCreate(16, 16, ILC_COLOR32, 1, 1), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(host::liveImageLists(), 0);
    EXPECT_TRUE(hasTracedFailure());
    EXPECT_TRUE(controls_->initCommonControlsEx(&listView));
}

TEST_F(CommonControlsTest, withoutAManifestContextCallsRunUnderTheProcessDefault)
{
    host::setModuleActivationContext(false);
    EXPECT_TRUE(controls_->initCommonControlsEx(&listView));
    const auto calls = callsOf("InitCommonControlsEx");
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].context, nullptr);
}

TEST_F(CommonControlsTest, threadsShareOneLibraryReferenceAndBalanceTheirOwnActivations)
{
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this] {
            for (int i = 0; i < 25; ++i) {
                EXPECT_TRUE(controls_->initCommonControlsEx(&listView));
                EXPECT_TRUE(
                    controls_->imageListDestroy(controls_->imageListCreate(16, 16, ILC_COLOR32, 1, 1)));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(host::comctl32References(), baseReferences_ + 1);
    EXPECT_EQ(host::activateActCtxCalls(), 4 * 25 * 3);
}

}  // namespace
