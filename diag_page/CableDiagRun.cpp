// The cable test: its start, the worker, its end on the dialog's thread, and the
// category choice that corrects the cable length.
#include <utility>

#include "diag_page/ZethoriaDiagPage.h"
#include "nic/AdapterTexts.h"
#include "nic/ZtNic.h"
#include "resources/resource.h"
#include "trace/ThreadBody.h"
#include "trace/Trace.h"
#include "wmi/WbemServices.h"

namespace {
constexpr std::uint64_t speed2500M = 2500000000ULL;
constexpr std::uint64_t speed5G = 5000000000ULL;
}  // namespace

void ZethoriaDiagPage::runCableDiag_()
{
    if (diagThread_.registered()) {
        // The button is disabled while a worker runs; a second one would share
        // the results and leave a completion without its worker.
        ZT_TRACE(2, "/!\\ Cable diagnostics already running");
        return;
    }
    resultsList_.clear();
    pairResults_.clear();
    mediaChangeCount_ = 0;
    refreshOwed_ = false;
    if (!diagThread_.start(&ZethoriaDiagPage::cableDiagWorker_, this)) {
        ZT_TRACE(0, "[!] Failed to start cable diagnostics worker thread");
        resultsList_.addLine(L"Failed to start cable diagnostics", DiagResultsList::ImageError);
        return;
    }
    enable_(IDC_RUN_DIAG, false);
    enable_(IDC_CABLE_CATEGORY_LABEL, false);
    enable_(IDC_CABLE_CATEGORY, false);
    resultsList_.addLine(L"Cable diagnostics started (can take up to 8 seconds)...",
                         DiagResultsList::ImageInfo);
}

DWORD WINAPI ZethoriaDiagPage::cableDiagWorker_(void* argument)
{
    auto* page = static_cast<ZethoriaDiagPage*>(argument);
    ZT_TRACE(1, "Cable diag thread: enter");
    bool success = false;
    runThreadBody("Cable diag thread", [page, &success] {
        success = page->nic_ && page->nic_->performCableDiag(page->pairResults_);
    });
    // The dialog may be gone by now; then the post fails and the destructor joins.
    PostMessageW(page->hwnd_, WM_CABLE_DIAG_DONE, success ? 1 : 0, 0);
    ZT_TRACE(1, "Cable diag thread: exit");
    endThreadWbemServices();  // not left to thread-exit destructors under the loader lock
    return 0;
}

void ZethoriaDiagPage::onCableDiagDone_(bool success)
{
    if (!diagThread_.registered()) {
        ZT_TRACE(2, "/!\\ Cable diagnostics completion without a worker");
        return;
    }
    diagThread_.join();  // makes the worker's writes to pairResults_ visible
    resultsList_.clear();
    if (success) {
        showResults_(pairResults_);
    } else {
        resultsList_.addLine(L"An error occurred", DiagResultsList::ImageError);
    }
    enable_(IDC_RUN_DIAG, true);
    offersCableTest_ = true;  // Results shown
    updateCableControls_();
    if (std::exchange(refreshOwed_, false) && !(ready_() && cableDiagSupported_())) {
        // The adapter went away (or changed firmware) during the run: the page
        // says so instead of showing a result it can no longer stand by.
        refreshDevice_();
    }
}

void ZethoriaDiagPage::showResults_(const std::vector<ZtPairInfo>& results)
{
    if (!hasFaultyPair(results)) {
        resultsList_.addLine(cableGoodText, DiagResultsList::ImageOk);
        return;
    }
    resultsList_.addLine(L"Diagnostics results by pairs:", DiagResultsList::ImageBlank);
    for (const ZtPairInfo& pair : results) {
        resultsList_.addPairLine(pair);
    }
}

CableCategory ZethoriaDiagPage::selectedCableCategory_()
{
    const auto row
        = static_cast<int>(SendMessageW(GetDlgItem(hwnd_, IDC_CABLE_CATEGORY), CB_GETCURSEL, 0, 0));
    const auto found = cableCategories_.find(row);
    if (found != cableCategories_.end()) {
        return found->second;
    }
    ZT_TRACE(3, "invalid cable category selected (index %d), use default", row);
    return Cat5e;
}

std::uint32_t ZethoriaDiagPage::estimatedCableLength_()
{
    const CableCategory category = selectedCableCategory_();
    return nic_ ? nic_->estimateCableLength(category) : 0;
}

void ZethoriaDiagPage::updateCableControls_()
{
    const bool connected = nic_ && nic_->mediaState() == MediaConnectState::Connected;
    const std::uint64_t speed = nic_ ? nic_->linkSpeed() : 0;
    const bool offered = connected && (speed == speed5G || speed == speed2500M);
    enable_(IDC_CABLE_CATEGORY_LABEL, offered);
    enable_(IDC_CABLE_CATEGORY, offered);
    const HWND combo = GetDlgItem(hwnd_, IDC_CABLE_CATEGORY);
    if (offered && SendMessageW(combo, CB_GETCURSEL, 0, 0) == CB_ERR) {
        SendMessageW(combo, CB_SETCURSEL, 0, 0);  // the first offer picks "5e"; the user's row stays after
    }
    if (connected) {
        resultsList_.setCableLength(estimatedCableLength_(), false);
    } else {
        resultsList_.removeCableLength();
    }
}
