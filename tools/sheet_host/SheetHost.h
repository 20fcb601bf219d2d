// Plays Device Manager and the device installer for one simulated adapter: loads
// the co-installer, asks it for pages, shows them in a modeless property sheet on
// this thread, runs a scenario's steps on it, prints what the page shows, and
// tears everything down, printing what was left behind.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/SimAdapter.h"
#include "tools/sheet_host/CoInstallerModule.h"
#include "tools/sheet_host/DeviceInstaller.h"
#include "tools/sheet_host/HostPages.h"
#include "tools/sheet_host/IconCatalog.h"
#include "tools/sheet_host/ImportPatch.h"
#include "tools/sheet_host/ModuleSpy.h"
#include "tools/sheet_host/PageReader.h"
#include "tools/sheet_host/Scenario.h"
#include "tools/sheet_host/Win32.h"

class SheetHost {
public:
    // Output goes to stdout, one fact a line.
    explicit SheetHost(Scenario scenario);
    ~SheetHost();
    SheetHost(const SheetHost&) = delete;
    SheetHost& operator=(const SheetHost&) = delete;

    // The whole run; the process's exit code (0 unless the host itself failed).
    int run();

private:
    bool install_();
    // On the sheet's own thread: open, the steps, close.
    void runSheet_();
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
    void setProblemCode_(std::uint32_t code);
    HWND diagPage_() const;

    Scenario scenario_;
    std::unique_ptr<sim::SimAdapter> adapter_;
    DeviceInstaller installer_;
    HostPages hostPages_;
    std::unique_ptr<CoInstallerModule> module_;
    std::unique_ptr<ImportPatch> setupApi_;
    std::unique_ptr<ModuleSpy> spy_;
    std::unique_ptr<PageReader> reader_;
    std::unique_ptr<IconCatalog> icons_;
    std::vector<HPROPSHEETPAGE> sheetPages_;  // General, then the record's pages
    int diagIndex_ = -1;  // the module's page in the sheet
    HWND sheet_ = nullptr;
    bool failed_ = false;
};
