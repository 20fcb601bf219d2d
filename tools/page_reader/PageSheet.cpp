#include "PageSheet.h"

#include <thread>

#include "host/HostPlatform.h"
#include "installer/CoDeviceInstall.h"
#include "resources/resource.h"

SP_DEVINFO_DATA workingZtDevice(DWORD devInst, const std::wstring& name)
{
    const SP_DEVINFO_DATA device = host::makeDevice(devInst);
    host::setDeviceStringList(device, DEVPKEY_Device_HardwareIds,
                              {L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02"});
    host::setDeviceString(device, DEVPKEY_Device_FriendlyName, name);
    host::setDeviceUint32(device, DEVPKEY_Device_ProblemCode, 0);
    return device;
}

PageSheet::PageSheet(HDEVINFO deviceInfoSet, SP_DEVINFO_DATA& device)
{
    SP_ADDPROPERTYPAGE_DATA request{};  // a sheet with no other pages yet
    request.ClassInstallHeader.cbSize = sizeof(SP_CLASSINSTALL_HEADER);
    request.ClassInstallHeader.InstallFunction = DIF_ADDPROPERTYPAGE_ADVANCED;
    host::setAddPropertyPageData(device, request);
    installResult_ = CoDeviceInstall(DIF_ADDPROPERTYPAGE_ADVANCED, deviceInfoSet, &device, nullptr);
    const SP_ADDPROPERTYPAGE_DATA data = host::addPropertyPageData(device);
    std::vector<HPROPSHEETPAGE> pages(data.DynamicPages, data.DynamicPages + data.NumDynamicPages);
    sheet_ = std::make_unique<host::PropertySheet>(pages);
    page_ = sheet_->page(pages.size() - 1);
}

PageSheet::~PageSheet()
{
    close();
}

PageScreen PageSheet::screen() const
{
    return readPageScreen(page_, host::iconResourceId);
}

void PageSheet::pump()
{
    host::pumpMessages();
}

bool PageSheet::pumpUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        pump();
        if (done()) {
            return true;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void PageSheet::tick()
{
    host::advanceClock(1500);
    pump();
}

void PageSheet::click(int id)
{
    host::click(control(id));
    pump();
}

void PageSheet::chooseCategory(int row)
{
    host::chooseComboRow(control(IDC_CABLE_CATEGORY), row);
    pump();
}

void PageSheet::close()
{
    if (sheet_) {
        sheet_->close();
        sheet_.reset();
        page_ = nullptr;
    }
}
