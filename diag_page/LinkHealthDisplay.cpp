// The link and health groups, and the line that tells why an adapter isn't ready.
#include "diag_page/ZethoriaDiagPage.h"
#include "installer/ModuleRecord.h"
#include "nic/AdapterTexts.h"
#include "nic/ZtNic.h"
#include "resources/resource.h"
#include "trace/Trace.h"

namespace {

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

DWORD problemCode()
{
    const std::shared_ptr<DevPropertiesReader> reader = moduleRecord.currentReader();
    return reader ? reader->getProblemCode() : 0xFFFFFFFF;
}

}  // namespace

void ZethoriaDiagPage::updateLinkInfo_()
{
    std::wstring speedText = L"Speed ";
    const HWND icon = GetDlgItem(hwnd_, IDC_LINK_ICON);
    if (nic_ && nic_->mediaState() == MediaConnectState::Connected) {
        SetDlgItemTextW(hwnd_, IDC_LINK_STATUS, mediaStateText(MediaConnectState::Connected));
        SendMessageW(icon, STM_SETICON, reinterpret_cast<WPARAM>(iconOk_), 0);
        speedText += linkSpeedText(nic_->linkSpeed());
    } else {
        SetDlgItemTextW(hwnd_, IDC_LINK_STATUS, mediaStateText(MediaConnectState::Disconnected));
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
    const TemperatureHealth health = temperatureHealth(thermal);
    if (health == TemperatureHealth::Unknown) {
        SetDlgItemTextW(hwnd_, IDC_TEMPERATURE, temperatureHealthText(health));
        SendMessageW(icon, STM_SETICON, reinterpret_cast<WPARAM>(iconUnknown_), 0);
    } else {
        SendMessageW(icon, STM_SETICON,
                     reinterpret_cast<WPARAM>(health == TemperatureHealth::Ok ? iconOk_ : iconHigh_), 0);
        SetDlgItemTextW(hwnd_, IDC_TEMPERATURE, temperatureHealthText(health));
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
    resultsList_.addLine(deviceStatusText(problemCode(), ProblemCodeNumber::Signed),
                         DiagResultsList::ImageWarning);
}
