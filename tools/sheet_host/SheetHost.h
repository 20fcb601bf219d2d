// Plays Device Manager and the device installer for one simulated adapter, one
// round of a run: loads the co-installer, asks it for pages, shows them in a
// modeless property sheet on a thread of its own, runs a scenario's steps on it,
// prints what the page shows, frees the DLL where the scenario says, and tears
// everything down, printing what was left behind and what ran under the loader lock.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/Threading.h"
#include "sim/SimAdapter.h"
#include "tools/sheet_host/CallerThreads.h"
#include "tools/sheet_host/ComWatch.h"
#include "tools/sheet_host/HostPages.h"
#include "tools/sheet_host/IconCatalog.h"
#include "tools/sheet_host/ImportPatch.h"
#include "tools/sheet_host/ModuleSpy.h"
#include "tools/sheet_host/PageReader.h"
#include "tools/sheet_host/Scenario.h"
#include "tools/sheet_host/SetupApiStandIn.h"
#include "tools/sheet_host/Watchdog.h"
#include "tools/sheet_host/Win32.h"
#include "ztpanel/CoInstallerModule.h"
#include "ztpanel/DeviceSheet.h"

class SheetHost {
public:
    // What a round left, for the summary of a repeated run.
    struct Outcome {
        int exitCode = 0;  // 0 unless the host itself failed
        bool unloaded = false;  // the DLL was out of the process after FreeLibrary
        int serviceCallsUnderLoaderLock = 0;  // the service's calls, AddRef and Release
        int comCallsUnderLoaderLock = 0;  // the DLL's calls of COM's functions
        sim::ReferenceCounts left;  // the service's objects after the unload, once the sheet's thread ended
    };

    // Output goes through say(), one fact a line; round N frees the DLL as the
    // scenario's freeDll[(N - 1) % size] says. One host at a time.
    SheetHost(Scenario scenario, Watchdog& watchdog, std::uint32_t round);
    ~SheetHost();
    SheetHost(const SheetHost&) = delete;
    SheetHost& operator=(const SheetHost&) = delete;

    // The whole round.
    Outcome run();

private:
    bool install_();
    // On the sheet's own thread: open, the steps, close, and the DLL's free if it is there.
    void runSheet_();
    // The installer's side of the sheet thread's end.
    void waitUntilSheetClosed_();
    void letSheetThreadEnd_();
    // FreeLibrary as the installer does; `where` ends the line that tells.
    void freeModule_(const std::string& where);
    void openSheet_();
    void runStep_(const Step& step);
    void closeSheet_();
    void teardown_();

    // Handles messages for `milliseconds`, or until the sheet is gone.
    void pump_(DWORD milliseconds);
    // Handles what is queued now; false once the sheet has closed itself.
    bool pumpQueued_();
    // Until fired events are delivered and the messages they caused are handled.
    void settle_();
    void dump_(const std::string& label);
    void flushTrace_();
    // The service's objects and references, "wmi WHEN: ..."; the counts.
    sim::ReferenceCounts reportReferences_(const std::string& when);
    void setProblemCode_(std::uint32_t code);
    HWND diagPage_() const;

    Scenario scenario_;
    Watchdog& watchdog_;
    FreeDll freeDll_;
    CallerThreads callers_;  // the service's watch notes threads in it until the service is gone
    std::atomic<int> serviceCallsUnderLoaderLock_{0};  // as the watch saw them, for a run that hangs
    std::unique_ptr<sim::SimAdapter> adapter_;
    // The device installer's side: the device's properties and class-install parameters.
    SetupApiStandIn devices_;
    // The host's own calls that hand the record over and read it back lead there too.
    ImportPatch installerCalls_{
        GetModuleHandleW(nullptr), "setupapi.dll",
        SetupApiStandIn::replacements({"SetupDiGetClassInstallParamsW", "SetupDiSetClassInstallParamsW"})};
    SP_DEVINFO_DATA device_ = sim::DeviceTable::device(1);
    HostPages hostPages_;
    std::unique_ptr<CoInstallerModule> module_;
    std::unique_ptr<ImportPatch> setupApi_;
    std::unique_ptr<ModuleSpy> spy_;
    std::unique_ptr<ComWatch> com_;
    std::unique_ptr<PageReader> reader_;
    std::unique_ptr<IconCatalog> icons_;
    std::vector<HPROPSHEETPAGE> sheetPages_;  // General, then the record's pages
    int diagIndex_ = -1;  // the module's page in the sheet
    std::chrono::steady_clock::time_point loadStart_{};  // LoadLibraryW's call
    std::unique_ptr<DeviceSheet> sheet_;
    Outcome outcome_;

    // The sheet's thread and the installer's meet at the sheet's close.
    SrwLock lock_;
    ConditionVariable changed_;
    bool sheetClosed_ = false;
    bool sheetMayEnd_ = false;
};
