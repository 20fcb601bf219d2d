#include "diag_page/ZethoriaDiagPage.h"

#include "installer/ModuleRecord.h"
#include "nic/AdapterTexts.h"
#include "nic/ZtNic.h"
#include "resources/resource.h"
#include "trace/Trace.h"

namespace {

constexpr int pageWidth = 378;
constexpr int pageHeight = 354;
constexpr UINT temperaturePeriod = 1500;

HICON loadSmallIcon(WORD id)
{
    return static_cast<HICON>(
        LoadImageW(moduleRecord.moduleInstance, MAKEINTRESOURCEW(id), IMAGE_ICON, 16, 16, 0));
}

}  // namespace

ZethoriaDiagPage::ZethoriaDiagPage()
{
    pairResults_.reserve(4);
    ZT_TRACE(4, "ZethoriaDiagPage()");
}

ZethoriaDiagPage::~ZethoriaDiagPage()
{
    ZT_TRACE(4, "~ZethoriaDiagPage()");
    KillTimer(hwnd_, TEMPERATURE_TIMER_ID);
    if (diagThread_.registered()) {
        ZT_TRACE(3, "~ZethoriaDiagPage(): waiting diagnostics thread to complete");
        diagThread_.join();
    }
    // Loaded unshared for this page; the sheet has destroyed the dialog, so no
    // static shows them any more.
    for (HICON icon : {iconOk_, iconUnknown_, iconHigh_}) {
        if (icon != nullptr) {
            DestroyIcon(icon);
        }
    }
}

bool ZethoriaDiagPage::ready_() const
{
    return nic_ && nic_->isReady();
}

bool ZethoriaDiagPage::cableDiagSupported_() const
{
    return nic_ && nic_->isCableDiagSupported();
}

void ZethoriaDiagPage::enable_(int control, bool enabled)
{
    EnableWindow(GetDlgItem(hwnd_, control), enabled ? TRUE : FALSE);
}

void ZethoriaDiagPage::onInitDialog_()
{
    resultsList_.attach(hwnd_);
    SetWindowPos(hwnd_, nullptr, 0, 0, pageWidth, pageHeight, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    iconOk_ = loadSmallIcon(IDI_LAMP_OK);
    iconUnknown_ = loadSmallIcon(IDI_LAMP_UNKNOWN);
    iconHigh_ = loadSmallIcon(IDI_LAMP_HIGH);

    // The combo box sorts its rows, so each row's index is taken from the answer.
    static constexpr struct {
        const wchar_t* text;
        CableCategory category;
    } rows[] = {{L"5e", Cat5e}, {L"6", Cat6}, {L"6a", Cat6a}};
    const HWND combo = GetDlgItem(hwnd_, IDC_CABLE_CATEGORY);
    for (const auto& row : rows) {
        const auto index
            = static_cast<int>(SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(row.text)));
        if (index >= 0) {
            cableCategories_.emplace(index, row.category);  // an index already there keeps its category
        }
    }
    enable_(IDC_CABLE_CATEGORY_LABEL, false);
    enable_(IDC_CABLE_CATEGORY, false);
    refreshDevice_();
}

void ZethoriaDiagPage::refreshDevice_()
{
    resultsList_.clear();
    enable_(IDC_RUN_DIAG, false);
    enable_(IDC_CABLE_CATEGORY_LABEL, false);
    enable_(IDC_CABLE_CATEGORY, false);
    updateLinkInfo_();
    updateHealth_();
    offersCableTest_ = false;
    if (ready_()) {
        SetTimer(hwnd_, TEMPERATURE_TIMER_ID, temperaturePeriod, nullptr);
        if (cableDiagSupported_()) {
            offersCableTest_ = true;
            enable_(IDC_RUN_DIAG, true);
            updateCableControls_();
            return;
        }
        resultsList_.addLine(firmwareUnsupportedText, DiagResultsList::ImageWarning);
        return;
    }
    showDeviceStatus_();
    KillTimer(hwnd_, TEMPERATURE_TIMER_ID);
}

void ZethoriaDiagPage::onTimer_(UINT_PTR id)
{
    if (id == TEMPERATURE_TIMER_ID) {
        updateHealth_();
    }
}

void ZethoriaDiagPage::onCommandClicked_(WPARAM wParam)
{
    if (LOWORD(wParam) == IDC_RUN_DIAG) {
        runCableDiag_();
    }
}

void ZethoriaDiagPage::onCommandNotify_(WPARAM wParam)
{
    // The combo box is the only control that sends this code.
    if (HIWORD(wParam) == CBN_SELCHANGE) {
        resultsList_.setCableLength(estimatedCableLength_(), true);
    }
}

INT_PTR ZethoriaDiagPage::onUserMessage_(UINT message, WPARAM wParam, LPARAM /*lParam*/)
{
    if (message != WM_CABLE_DIAG_DONE) {
        return 0;
    }
    onCableDiagDone_(wParam != 0);
    return 1;
}

void ZethoriaDiagPage::onNicChanged_(bool /*added*/)
{
    if (diagThread_.registered()) {
        // The worker owns the results until it is joined, and the button must
        // stay disabled: the refresh waits for the end of the run.
        ZT_TRACE(4, "NIC changed during cable diagnostics -> refresh after the run");
        refreshOwed_ = true;
        updateLinkInfo_();
        return;
    }
    refreshDevice_();
}

void ZethoriaDiagPage::onNicMediaStateChanged_(MediaConnectState /*state*/)
{
    updateLinkInfo_();
    if (diagThread_.registered()) {
        ZT_TRACE(4, "Media state changed because of diagnostics -> do nothing");
        return;
    }
    ++mediaChangeCount_;
    if (mediaChangeCount_ > 1) {
        resultsList_.clear();
    }
    // Only Idle and Results shown offer the cable controls. The adapter object
    // can't tell: a not-ready one may report supporting firmware, and an
    // arriving one is ready before its arrival reaches the page.
    if (offersCableTest_ && cableDiagSupported_()) {
        updateCableControls_();
    }
}
