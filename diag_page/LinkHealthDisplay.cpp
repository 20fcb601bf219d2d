// The link and health groups, and the line that tells why an adapter isn't ready.
#include "diag_page/ZethoriaDiagPage.h"
#include "installer/ModuleRecord.h"
#include "nic/ZtNic.h"
#include "resources/resource.h"
#include "trace/FormatString.h"
#include "trace/Trace.h"

namespace {

constexpr double temperatureLimit = 100.0;
constexpr DWORD problemDisabled = 22;  // CM_PROB_DISABLED
constexpr int problemCodeReads = 20;
constexpr DWORD problemCodeWait = 20;

// The chord that shows or hides the temperatures: Ctrl+Shift+T held at a tick.
constexpr int chordLetter = 'T';
constexpr int chordModifier = VK_CONTROL;
constexpr int chordSecondModifier = VK_SHIFT;

bool isDown(int key)
{
    return (static_cast<unsigned short>(GetKeyState(key)) & 0x8000U) != 0;
}

bool chordDown()
{
    return isDown(chordLetter) && isDown(chordModifier) && GetKeyState(chordSecondModifier) != 0;
}

std::wstring temperatureText(bool present, double value)
{
    return present ? formatString(L"%g\u00B0C", value) : std::wstring(L"<?>\u00B0C");
}

DWORD problemCode()
{
    const std::shared_ptr<DevPropertiesReader> reader = moduleRecord.currentReader();
    return reader ? reader->getProblemCode() : 0xFFFFFFFF;
}

}  // namespace

const wchar_t* linkSpeedText(std::uint64_t speed)
{
    static constexpr struct {
        std::uint64_t speed;
        const wchar_t* text;
    } speeds[] = {
        {10000000ULL, L"10.0 Mbps"},  {100000000ULL, L"100.0 Mbps"}, {1000000000ULL, L"1.0 Gbps"},
        {2500000000ULL, L"2.5 Gbps"}, {5000000000ULL, L"5.0 Gbps"},  {10000000000ULL, L"10.0 Gbps"},
    };
    for (const auto& entry : speeds) {
        if (entry.speed == speed) {
            return entry.text;
        }
    }
    return L"<unknown>";
}

void ZethoriaDiagPage::updateLinkInfo_()
{
    std::wstring speedText = L"Speed ";
    const HWND icon = GetDlgItem(hwnd_, IDC_LINK_ICON);
    if (nic_ && nic_->mediaState() == MediaConnectState::Connected) {
        SetDlgItemTextW(hwnd_, IDC_LINK_STATUS, L"Connected");
        SendMessageW(icon, STM_SETICON, reinterpret_cast<WPARAM>(iconOk_), 0);
        speedText += linkSpeedText(nic_->linkSpeed());
    } else {
        SetDlgItemTextW(hwnd_, IDC_LINK_STATUS, L"Disconnected");
        SendMessageW(icon, STM_SETICON, reinterpret_cast<WPARAM>(iconUnknown_), 0);
        speedText += L"<unknown>";
    }
    SetDlgItemTextW(hwnd_, IDC_LINK_SPEED, speedText.c_str());
}

void ZethoriaDiagPage::updateHealth_()
{
    if (chordDown()) {
        showTemperatures_ = !showTemperatures_;
        ShowWindow(GetDlgItem(hwnd_, IDC_TEMPERATURE_DETAIL), showTemperatures_ ? SW_SHOW : SW_HIDE);
    }
    const HWND icon = GetDlgItem(hwnd_, IDC_HEALTH_ICON);
    ZtThermalInfo thermal;
    if (ready_()) {
        thermal = nic_->getThermalInfo();
    }
    if ((thermal.flags & (ZtThermalInfo::phyValid | ZtThermalInfo::macValid)) == 0) {
        // Not ready, or the read failed: nothing is known, which isn't "high".
        SetDlgItemTextW(hwnd_, IDC_TEMPERATURE, L"Temperature <unknown>");
        SendMessageW(icon, STM_SETICON, reinterpret_cast<WPARAM>(iconUnknown_), 0);
    } else if (thermal.macTemperature <= temperatureLimit || thermal.phyTemperature <= temperatureLimit) {
        SendMessageW(icon, STM_SETICON, reinterpret_cast<WPARAM>(iconOk_), 0);
        SetDlgItemTextW(hwnd_, IDC_TEMPERATURE, L"Temperature is ok");
    } else {
        SendMessageW(icon, STM_SETICON, reinterpret_cast<WPARAM>(iconHigh_), 0);
        SetDlgItemTextW(hwnd_, IDC_TEMPERATURE, L"Temperature is high");
    }
    if (showTemperatures_) {
        const std::wstring line = L"PHY: "
            + temperatureText((thermal.flags & ZtThermalInfo::phyValid) != 0, thermal.phyTemperature)
            + L"\tMAC: "
            + temperatureText((thermal.flags & ZtThermalInfo::macValid) != 0, thermal.macTemperature);
        SetDlgItemTextW(hwnd_, IDC_TEMPERATURE_DETAIL, line.c_str());
    }
}

void ZethoriaDiagPage::showDeviceStatus_()
{
    // A device that is being started or stopped reads 0 for a moment.
    for (int reads = 1; problemCode() == 0 && reads < problemCodeReads; ++reads) {
        Sleep(problemCodeWait);
    }
    const DWORD code = problemCode();
    if (code == problemDisabled) {
        resultsList_.addLine(L"Device is disabled", DiagResultsList::ImageWarning);
    } else if (code == 0) {
        resultsList_.addLine(L"Unable to query device", DiagResultsList::ImageWarning);
    } else {
        resultsList_.addLine(formatString(L"Device has a problem (code %d)", static_cast<int>(code)),
                             DiagResultsList::ImageWarning);
    }
}
