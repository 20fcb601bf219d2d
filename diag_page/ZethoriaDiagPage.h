// The "ZT Diagnostics" page: link and health groups, the cable test with its
// category choice, and the results list. Made by the page factory, deleted at
// PSPCB_RELEASE; every operation but the worker's body runs on the dialog's
// thread. Its mode follows from the adapter, the worker's registration, the
// media event count and the list; of it the page keeps only whether it offers
// the cable test.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "diag_page/DiagResultsList.h"
#include "diag_page/DiagThread.h"
#include "nic/CableCategory.h"
#include "nic/ZtPairInfo.h"
#include "page_framework/PropertyPageBase.h"

// Posted by the worker at the end of a run: wParam 1 success, 0 failure.
constexpr UINT WM_CABLE_DIAG_DONE = WM_USER + 1;
constexpr UINT_PTR TEMPERATURE_TIMER_ID = 1101;

class ZethoriaDiagPage : public PropertyPageBase {
public:
    ZethoriaDiagPage();
    // Stops the timer, then waits for a running worker: a run isn't cancelled.
    ~ZethoriaDiagPage() override;

protected:
    void onSize_(int width, int height) override;
    void onTimer_(UINT_PTR id) override;
    void onCommandClicked_(WPARAM wParam) override;
    INT_PTR onUserMessage_(UINT message, WPARAM wParam, LPARAM lParam) override;
    void onInitDialog_() override;
    void onCommandNotify_(WPARAM wParam) override;
    void onNicChanged_(bool added) override;
    void onNicMediaStateChanged_(MediaConnectState state) override;

private:
    static DWORD WINAPI cableDiagWorker_(void* page);

    void refreshDevice_();
    // The cable test (CableDiagRun.cpp).
    void runCableDiag_();
    void onCableDiagDone_(bool success);
    CableCategory selectedCableCategory_();
    std::uint32_t estimatedCableLength_();
    void updateCableControls_();
    void showResults_(const std::vector<ZtPairInfo>& results);
    // The link and health groups (LinkHealthDisplay.cpp).
    void updateLinkInfo_();
    void updateHealth_();
    void showDeviceStatus_();

    bool ready_() const;
    bool cableDiagSupported_() const;
    void enable_(int control, bool enabled);

    DiagResultsList resultsList_;
    DiagThread diagThread_;
    std::map<int, CableCategory> cableCategories_;
    std::vector<ZtPairInfo> pairResults_;  // the worker's alone while it is registered
    std::uint32_t mediaChangeCount_ = 0;
    HICON iconOk_ = nullptr;
    HICON iconUnknown_ = nullptr;
    HICON iconHigh_ = nullptr;
    bool showTemperatures_ = false;
    // The mode the page last settled in is Idle or Results shown (or Running
    // from there): the run button is the page's to offer. Not read back from
    // the button, whose state another program may change.
    bool offersCableTest_ = false;
    // An arrival or removal that came during a run, carried out after it.
    bool refreshOwed_ = false;
};
