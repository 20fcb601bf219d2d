#include "PageHarness.h"

#include <ostream>
#include <thread>

#include "host/HostPlatform.h"
#include "installer/CoDeviceInstall.h"
#include "resources/resource.h"

namespace {

std::wstring text(HWND window)
{
    std::wstring buffer(static_cast<std::size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
    const int length = GetWindowTextW(window, buffer.data(), static_cast<int>(buffer.size()));
    buffer.resize(static_cast<std::size_t>(length > 0 ? length : 0));
    return buffer;
}

int shownIcon(HWND staticControl)
{
    const auto icon = reinterpret_cast<HICON>(SendMessageW(staticControl, STM_GETICON, 0, 0));
    return icon != nullptr ? host::iconResourceId(icon) : 0;
}

std::vector<ListLine> listLines(HWND list)
{
    std::vector<ListLine> lines;
    const auto count = static_cast<int>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
    for (int i = 0; i < count; ++i) {
        wchar_t buffer[256] = {};
        LVITEMW item{};
        item.mask = LVIF_TEXT | LVIF_IMAGE;
        item.iItem = i;
        item.pszText = buffer;
        item.cchTextMax = 256;
        SendMessageW(list, LVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&item));
        lines.push_back({buffer, item.iImage});
    }
    return lines;
}

std::wstring selectedRow(HWND combo)
{
    const auto row = SendMessageW(combo, CB_GETCURSEL, 0, 0);
    if (row == CB_ERR) {
        return {};
    }
    wchar_t buffer[64] = {};
    SendMessageW(combo, CB_GETLBTEXT, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(buffer));
    return buffer;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ListLine& line)
{
    return out << std::string(line.text.begin(), line.text.end()) << " [" << line.image << "]";
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
    PageScreen s;
    s.linkStatus = text(control(IDC_LINK_STATUS));
    s.speed = text(control(IDC_LINK_SPEED));
    s.linkIcon = shownIcon(control(IDC_LINK_ICON));
    s.temperature = text(control(IDC_TEMPERATURE));
    s.healthIcon = shownIcon(control(IDC_HEALTH_ICON));
    s.detail = text(control(IDC_TEMPERATURE_DETAIL));
    s.detailVisible = IsWindowVisible(control(IDC_TEMPERATURE_DETAIL)) != FALSE;
    s.lines = listLines(control(IDC_RESULTS_LIST));
    s.runEnabled = IsWindowEnabled(control(IDC_RUN_DIAG)) != FALSE;
    s.categoryLabelEnabled = IsWindowEnabled(control(IDC_CABLE_CATEGORY_LABEL)) != FALSE;
    s.categoryEnabled = IsWindowEnabled(control(IDC_CABLE_CATEGORY)) != FALSE;
    s.category = selectedRow(control(IDC_CABLE_CATEGORY));
    return s;
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
