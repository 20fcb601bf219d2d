#include "installer/CoDeviceInstall.h"

#include <gtest/gtest.h>

#include "RecordingPage.h"
#include "TraceCapture.h"
#include "host/HostActivation.h"
#include "host/HostPlatform.h"
#include "installer/ModuleRecord.h"

namespace {

const wchar_t* const listedId = L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02";
const wchar_t* const lastListedId = L"PCI\\VEN_7E5C&DEV_93F4&SUBSYS_0B217E5C&REV_02";

using PagePtr = std::unique_ptr<PropertyPageBase>;
constexpr PageFactory pageWithSheetPage = []() -> PagePtr { return std::make_unique<RecordingPage>(); };
constexpr PageFactory pageWithoutSheetPage = []() -> PagePtr {
    host::failCreatePropertySheetPage(ERROR_NOT_ENOUGH_MEMORY);
    auto page = std::make_unique<RecordingPage>();
    host::failCreatePropertySheetPage(0);
    return page;
};
constexpr PageFactory noPage = []() -> PagePtr { return nullptr; };

class CoDeviceInstallTest : public ::testing::Test {
protected:
    TraceAll capture_;
    SP_DEVINFO_DATA device_ = host::makeDevice(3);

    void SetUp() override
    {
        RecordingPage::live = 0;
        moduleRecord.deviceReader.reset();
        givePages(0);
        host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, 0);
    }
    void TearDown() override
    {
        host::destroyAllPropertySheetPages();
        EXPECT_EQ(RecordingPage::live, 0) << "every page object is owned by exactly one sheet page";
        EXPECT_EQ(host::liveImageLists(), 0) << "a page never shown destroys its results' images";
        moduleRecord.deviceReader.reset();
    }

    // The installer's record as earlier co-installers left it: `count` pages, from 0x1000 on.
    void givePages(DWORD count, const SP_DEVINFO_DATA* device = nullptr)
    {
        SP_ADDPROPERTYPAGE_DATA data{};
        data.ClassInstallHeader.cbSize = sizeof(SP_CLASSINSTALL_HEADER);
        data.ClassInstallHeader.InstallFunction = DIF_ADDPROPERTYPAGE_ADVANCED;
        for (DWORD i = 0; i < count; ++i) {
            data.DynamicPages[i] = reinterpret_cast<HPROPSHEETPAGE>(std::uintptr_t{0x1000} + i);
        }
        data.NumDynamicPages = count;
        host::setAddPropertyPageData(device != nullptr ? *device : device_, data);
    }
    DWORD install(DI_FUNCTION function = DIF_ADDPROPERTYPAGE_ADVANCED)
    {
        return CoDeviceInstall(function, host::deviceInfoSet(), &device_, nullptr);
    }
    DWORD addPage(PageFactory factory)
    {
        return addPropertyPageAdvanced(host::deviceInfoSet(), &device_, factory);
    }
};

TEST_F(CoDeviceInstallTest, otherFunctionCodesOnlyTraceTheEntry)
{
    for (const DI_FUNCTION function : {0x01U, 0x22U, 0x24U, 0xFFFFFFFFU}) {
        host::clearDebugOutput();
        EXPECT_EQ(install(function), NO_ERROR);
        EXPECT_EQ(tracedMessages(),
                  Messages{"ztprop: CoDeviceInstall called, fn = " + std::to_string(function)});
    }
    EXPECT_EQ(host::getClassInstallParamsCalls(), 0);
    EXPECT_EQ(host::setClassInstallParamsCalls(), 0);
    EXPECT_TRUE(host::initCommonControlsCalls().empty());
    EXPECT_EQ(moduleRecord.deviceReader, nullptr);
}

TEST_F(CoDeviceInstallTest, hardwareIdDecidesWhetherTheDeviceGetsThePage)
{
    struct Case {
        const char* what;
        std::vector<std::wstring> ids;  // empty: property absent
        bool listed;
    };
    const Case cases[] = {
        {"listed id alone", {listedId}, true},
        {"last row of the table", {lastListedId}, true},
        {"lower case", {L"pci\\ven_7e5c&dev_c3e1&subsys_e4363c91&rev_02"}, false},
        {"without revision", {L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91"}, false},
        {"other revision", {L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_03"}, false},
        {"listed id with a tail", {std::wstring(listedId) + L"&X"}, false},
        {"other vendor", {L"PCI\\VEN_6E3A&DEV_0F41&SUBSYS_00006E3A&REV_02"}, false},
        {"no hardware ids", {}, false},
    };
    for (const auto& c : cases) {
        host::destroyAllPropertySheetPages();
        host::reset();
        SetUp();
        givePages(2);
        if (!c.ids.empty()) {
            host::setDeviceStringList(device_, DEVPKEY_Device_HardwareIds, c.ids);
        }
        EXPECT_EQ(addPage(pageWithSheetPage), NO_ERROR) << c.what;
        const auto data = host::addPropertyPageData(device_);
        EXPECT_EQ(host::setClassInstallParamsCalls(), 1) << c.what << ": stored back in either case";
        EXPECT_EQ(data.NumDynamicPages, c.listed ? 3U : 2U) << c.what;
        EXPECT_EQ(data.DynamicPages[2] != nullptr, c.listed) << c.what;
        EXPECT_EQ(RecordingPage::live, c.listed ? 1 : 0) << c.what;
        EXPECT_EQ(traced("NIC doesn't support cable diagnostics feature"), !c.listed) << c.what;
    }
}

TEST_F(CoDeviceInstallTest, pageArrayHasTwentyPlaces)
{
    host::setDeviceStringList(device_, DEVPKEY_Device_HardwareIds, {listedId});
    givePages(19);
    EXPECT_EQ(addPage(pageWithSheetPage), NO_ERROR);
    auto data = host::addPropertyPageData(device_);
    EXPECT_EQ(data.NumDynamicPages, 20U);
    EXPECT_NE(data.DynamicPages[19], nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data.DynamicPages[18]), 0x1000U + 18);

    host::destroyAllPropertySheetPages();
    host::reset();
    host::setDeviceStringList(device_, DEVPKEY_Device_HardwareIds, {listedId});
    givePages(20);
    EXPECT_EQ(install(), NO_ERROR);
    EXPECT_EQ(tracedMessages(), (Messages{"ztprop: CoDeviceInstall called, fn = 35", "/!\\ Too many pages"}));
    EXPECT_EQ(host::setClassInstallParamsCalls(), 0);
    EXPECT_EQ(host::devicePropertyCalls(), 0) << "hardware ids are not read for a full array";
    EXPECT_EQ(host::addPropertyPageData(device_).NumDynamicPages, 20U);
    EXPECT_NE(moduleRecord.deviceReader, nullptr) << "the reader is replaced for every request";
}

TEST_F(CoDeviceInstallTest, failedGetReturnsItsCodeAndTouchesNothing)
{
    host::failGetClassInstallParams(ERROR_INVALID_HANDLE);
    EXPECT_EQ(install(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(tracedMessages(),
              (Messages{
                  "ztprop: CoDeviceInstall called, fn = 35",
                  "[!] SetupDiGetClassInstallParams() failed, code 6",
                  "/!\\ ztprop: DIF_ADDPROPERTYPAGE_ADVANCED -> failed, code 6",
              }));
    EXPECT_EQ(host::setClassInstallParamsCalls(), 0);
    EXPECT_EQ(moduleRecord.deviceReader, nullptr);
    ASSERT_EQ(host::initCommonControlsCalls().size(), 1U);
    EXPECT_EQ(host::initCommonControlsCalls()[0].dwSize, 8U);
    EXPECT_EQ(host::initCommonControlsCalls()[0].dwICC, 0x4001U);
}

// A problem code does not withhold the page: the page shows it.
TEST_F(CoDeviceInstallTest, listedDeviceGetsTheDiagnosticsPage)
{
    host::setDeviceStringList(device_, DEVPKEY_Device_HardwareIds, {L"PCI\\OTHER", listedId});
    host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, 22);
    givePages(1);
    EXPECT_EQ(install(), static_cast<DWORD>(NO_ERROR));
    EXPECT_EQ(tracedMessages(),
              (Messages{
                  "ztprop: CoDeviceInstall called, fn = 35",
                  "Hardware IDs count 2:",
                  "    HWID: PCI\\OTHER",
                  "    HWID: PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02",
                  "DEVPKEY_Device_ProblemCode 22",
                  "Initializing the property page",
                  "Creating the page...",
                  "PropSheetPageProc() called, msg = 0",
                  "ZethoriaDiagPage()",
              }));
    const auto data = host::addPropertyPageData(device_);
    ASSERT_EQ(data.NumDynamicPages, 2U);
    const PROPSHEETPAGEW* page = host::pageDescription(data.DynamicPages[1]);
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->dwSize, 104U);
}

TEST_F(CoDeviceInstallTest, pageObjectWithoutSheetPageIsDeleted)
{
    host::setDeviceStringList(device_, DEVPKEY_Device_HardwareIds, {listedId});
    for (const PageFactory factory : {pageWithoutSheetPage, noPage}) {
        host::clearDebugOutput();
        EXPECT_EQ(addPage(factory), ERROR_OUTOFMEMORY);
        EXPECT_EQ(RecordingPage::live, 0);
        EXPECT_EQ(tracedMessages().back(), "[!] Failed to create/init diagnostics property page object");
    }
    EXPECT_EQ(host::setClassInstallParamsCalls(), 0);
}

TEST_F(CoDeviceInstallTest, pageThatCannotBeStoredIsReleasedWithItsObject)
{
    host::setDeviceStringList(device_, DEVPKEY_Device_HardwareIds, {listedId});
    givePages(4);
    host::failSetClassInstallParams(ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(addPage(pageWithSheetPage), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(host::livePropertySheetPages(), 0);
    EXPECT_EQ(RecordingPage::live, 0);
    const auto messages = tracedMessages();
    const auto failed
        = std::find(messages.begin(), messages.end(), "[!] SetupDiSetClassInstallParams() failed, code 8");
    ASSERT_NE(failed, messages.end());
    EXPECT_EQ(std::vector<std::string>(failed + 1, messages.end()),
              (Messages{"PropSheetPageProc() called, msg = 1", "PropSheetPageProc(): all pages released"}))
        << "the page's release deletes it";
    EXPECT_EQ(host::addPropertyPageData(device_).NumDynamicPages, 4U);
}

TEST_F(CoDeviceInstallTest, failedStoreForAnUnlistedDeviceIsReportedToo)
{
    host::setDeviceStringList(device_, DEVPKEY_Device_HardwareIds, {L"PCI\\VEN_3A9D"});
    host::failSetClassInstallParams(ERROR_INVALID_USER_BUFFER);
    EXPECT_EQ(install(), ERROR_INVALID_USER_BUFFER);
    const auto messages = tracedMessages();
    ASSERT_GE(messages.size(), 2U);
    EXPECT_EQ(messages[messages.size() - 2], "[!] SetupDiSetClassInstallParams() failed, code 1784");
    EXPECT_EQ(messages.back(), "/!\\ ztprop: DIF_ADDPROPERTYPAGE_ADVANCED -> failed, code 1784");
}

TEST_F(CoDeviceInstallTest, eachRequestReplacesTheReaderWithOneForItsDevice)
{
    SP_DEVINFO_DATA second = host::makeDevice(4);
    host::setDeviceStringList(device_, DEVPKEY_Device_HardwareIds, {listedId});
    host::setDeviceString(device_, DEVPKEY_Device_FriendlyName, L"first");
    host::setDeviceStringList(second, DEVPKEY_Device_HardwareIds, {listedId});
    host::setDeviceString(second, DEVPKEY_Device_FriendlyName, L"second");
    givePages(0, &second);

    EXPECT_EQ(addPage(pageWithSheetPage), NO_ERROR);
    EXPECT_EQ(moduleRecord.deviceReader->getAdapterName(), L"first");
    EXPECT_EQ(addPage(pageWithSheetPage), NO_ERROR);
    EXPECT_EQ(RecordingPage::live, 2) << "two requests, two page objects";
    EXPECT_EQ(addPropertyPageAdvanced(host::deviceInfoSet(), &second, pageWithSheetPage), NO_ERROR);
    EXPECT_EQ(moduleRecord.deviceReader->getAdapterName(), L"second");
}

}  // namespace
