#include "tools/sheet_host/SheetHost.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <optional>
#include <utility>

#include "platform/Threading.h"
#include "resources/resource.h"
#include "tools/sheet_host/KeyChord.h"
#include "tools/sheet_host/LoaderLock.h"
#include "tools/sheet_host/Output.h"
#include "tools/sheet_host/Screenshot.h"
#include "tools/sheet_host/Text.h"
#include "ztpanel/DevicePages.h"
#include "ztpanel/Panel.h"

namespace {

constexpr UINT problemDisabled = 22;  // CM_PROB_DISABLED
constexpr DWORD settleLimitMs = 30000;
constexpr DWORD awaitLimitMs = 20000;
// The watchdog's limits: past one the run is stuck, and ends with every thread's stack.
constexpr std::chrono::seconds sheetRunLimit{150};  // open, the steps (each with a limit of its own), close
constexpr std::chrono::seconds endLimit{20};  // a thread's end, FreeLibrary, the service's stop
constexpr std::chrono::seconds callLimit{30};  // LoadLibraryW, CoDeviceInstall

std::string hex(std::uint32_t value)
{
    char text[16] = {};
    std::snprintf(text, sizeof text, "%#x", value);
    return text;
}

DWORD millisecondsOf(const std::wstring& text)
{
    return static_cast<DWORD>(std::wcstoul(text.c_str(), nullptr, 10));
}

}  // namespace

SheetHost::SheetHost(Scenario scenario, Watchdog& watchdog, std::uint32_t round)
    : scenario_(std::move(scenario)),
      watchdog_(watchdog),
      freeDll_(scenario_.freeDll[(round - 1) % scenario_.freeDll.size()])
{
    // A hang under the loader lock ends the run before the teardown tells of it.
    watchdog_.setReport([this] {
        return std::vector<std::string>{
            "loader lock so far: " + std::to_string(serviceCallsUnderLoaderLock_) + " service calls, "
            + std::to_string(ComWatch::callsUnderLoaderLockSoFar()) + " COM calls under it"};
    });
}

SheetHost::~SheetHost()
{
    watchdog_.setReport(nullptr);
    sheet_.reset();
}

SheetHost::Outcome SheetHost::run()
{
    sim::AdapterSettings adapter = scenario_.adapter;
    adapter.name = scenario_.friendlyName;
    adapter.present = scenario_.problemCode == 0;
    adapter_ = std::make_unique<sim::SimAdapter>(std::move(adapter));
    if (FAILED(adapter_->registration())) {
        say("wmi: locator registration failed, " + hex(static_cast<std::uint32_t>(adapter_->registration())));
        outcome_.exitCode = 2;
        return outcome_;
    }
    // Each call into the service notes its thread, whose end the teardown
    // waits for, and is recorded if made under the loader lock.
    adapter_->service().watchForbiddenCalls([this] {
        callers_.note();
        const bool held = holdsLoaderLock();
        serviceCallsUnderLoaderLock_ += held ? 1 : 0;
        return held;
    });
    adapter_->service().setPooledDeliveryThreads(scenario_.pooledDeliveries);
    say("wmi: simulated locator registered from the multithreaded apartment");
    if (scenario_.pooledDeliveries) {
        say("wmi: a delivery thread ends whenever it finds no work");
    }
    // Device Manager asks for pages on one thread and runs each sheet on a
    // thread of its own; the module keeps nothing for that thread's end.
    if (install_() && scenario_.installFunction == DIF_ADDPROPERTYPAGE_ADVANCED) {
        Thread sheetThread([this] {
            watchdog_.nameThread("sheet");
            runSheet_();
            watchdog_.nameThread({});
        });
        {
            // A person closes an interactive sheet whenever they like.
            std::optional<Watchdog::Wait> wait;
            if (!scenario_.interactive) {
                wait.emplace(watchdog_, "the sheet's run until it closed", sheetRunLimit);
            }
            waitUntilSheetClosed_();
        }
        if (freeDll_ == FreeDll::sheetThreadAlive) {
            freeModule_(", the sheet's thread still running");
            letSheetThreadEnd_();
        }
        {
            const Watchdog::Wait wait(watchdog_, "the sheet thread's end after its sheet closed", endLimit);
            sheetThread.join();
        }
        say("sheet thread: ended");
    }
    teardown_();
    return outcome_;
}

void SheetHost::runSheet_()
{
    openSheet_();
    for (const Step& step : scenario_.steps) {
        if (sheet_ == nullptr) {
            say("step " + step.name + ": the sheet is closed");
            continue;
        }
        runStep_(step);
    }
    if (scenario_.interactive) {
        while (sheet_ != nullptr) {
            pump_(INFINITE);
        }
    }
    closeSheet_();
    {
        const std::lock_guard<SrwLock> guard(lock_);
        sheetClosed_ = true;
        changed_.notifyAll();
    }
    if (freeDll_ == FreeDll::onSheetThread) {
        freeModule_(" on the sheet's thread");
    } else if (freeDll_ == FreeDll::sheetThreadAlive) {
        // The installer frees the DLL meanwhile; this thread returns after.
        std::unique_lock<SrwLock> guard(lock_);
        changed_.wait(guard, [this] { return sheetMayEnd_; });
    }
}

void SheetHost::waitUntilSheetClosed_()
{
    std::unique_lock<SrwLock> guard(lock_);
    changed_.wait(guard, [this] { return sheetClosed_; });
}

void SheetHost::letSheetThreadEnd_()
{
    const std::lock_guard<SrwLock> guard(lock_);
    sheetMayEnd_ = true;
    changed_.notifyAll();
}

void SheetHost::setProblemCode_(std::uint32_t code)
{
    devices_.with(
        [&](sim::DeviceTable& t) { t.setUint32(device_.DevInst, DEVPKEY_Device_ProblemCode, code); });
}

bool SheetHost::install_()
{
    devices_.with([&](sim::DeviceTable& t) {
        if (scenario_.hasHardwareIds) {
            t.setStringList(device_.DevInst, DEVPKEY_Device_HardwareIds, scenario_.hardwareIds);
        }
        if (!scenario_.friendlyName.empty()) {
            t.setString(device_.DevInst, DEVPKEY_Device_FriendlyName, scenario_.friendlyName);
        }
        t.setString(device_.DevInst, DEVPKEY_Device_DeviceDesc, L"ZT Ethernet Adapter");
    });
    setProblemCode_(scenario_.problemCode);

    const std::wstring path = scenario_.dll.empty() ? besideProgram(L"ztprop.dll") : scenario_.dll;
    {
        const Watchdog::Wait wait(watchdog_, "LoadLibraryW of the DLL", callLimit);
        loadStart_ = std::chrono::steady_clock::now();
        module_ = std::make_unique<CoInstallerModule>(path);
    }
    if (module_->handle() == nullptr || module_->entry() == nullptr) {
        say("dll: " + std::string(module_->handle() == nullptr ? "LoadLibraryW" : "GetProcAddress")
            + " failed, code " + std::to_string(module_->error()));
        outcome_.exitCode = 1;
        return false;
    }
    // Wine has no SetupDiGetClassInstallParamsW: the module's SetupAPI imports
    // lead to this host's device installer instead.
    setupApi_ = std::make_unique<ImportPatch>(
        module_->handle(), "setupapi.dll",
        SetupApiStandIn::replacements(
            {"SetupDiGetClassInstallParamsW", "SetupDiSetClassInstallParamsW", "SetupDiGetDevicePropertyW"}));
    spy_ = std::make_unique<ModuleSpy>(module_->handle());
    com_ = std::make_unique<ComWatch>(module_->handle());
    reader_ = std::make_unique<PageReader>(module_->handle());
    icons_ = std::make_unique<IconCatalog>(module_->handle());
    const auto joined = [](const std::vector<std::string>& names) {
        std::string text;
        for (const auto& name : names) {
            text += " " + name;
        }
        return text;
    };
    say("dll: loaded; setupapi imports replaced:" + joined(setupApi_->patched()));
    say("dll: ole32 imports watched:" + joined(com_->patched()));

    // The record as the installer hands it over: other installers' pages first.
    std::vector<HPROPSHEETPAGE> given;
    for (std::uint32_t index = 0; index < scenario_.existingPages; ++index) {
        given.push_back(
            hostPages_.create(L"Page " + std::to_wstring(index + 1), L"A page of another installer."));
    }
    const HDEVINFO set = devices_.with([](sim::DeviceTable& t) { return t.installerSet(); });
    DevicePages asked;
    {
        const Watchdog::Wait wait(watchdog_, "CoDeviceInstall", callLimit);
        if (scenario_.installFunction == DIF_ADDPROPERTYPAGE_ADVANCED) {
            asked = askForPages(module_->entry(), set, device_, given);
        } else {
            COINSTALLER_CONTEXT_DATA context{};
            asked.result = module_->entry()(scenario_.installFunction, set, &device_, &context);
        }
    }
    flushTrace_();
    say("CoDeviceInstall(" + hex(scenario_.installFunction) + ") = " + std::to_string(asked.result));
    if (scenario_.installFunction != DIF_ADDPROPERTYPAGE_ADVANCED) {
        return true;
    }
    // The first store is the installer's own record.
    const int stores = devices_.with([](sim::DeviceTable& t) { return t.stores(); }) - 1;
    say("record: stored " + std::to_string(stores) + " time(s), pages " + std::to_string(asked.given) + " -> "
        + std::to_string(asked.pages.size()));
    sheetPages_.push_back(hostPages_.create(L"General", L"ZT Ethernet Adapter"));
    for (std::size_t index = 0; index < asked.pages.size(); ++index) {
        sheetPages_.push_back(asked.pages[index]);
        if (index >= asked.given) {
            say("record: page " + std::to_string(index) + " is the module's");
            if (diagIndex_ < 0) {
                diagIndex_ = static_cast<int>(sheetPages_.size()) - 1;
            }
        }
    }
    return true;
}

void SheetHost::openSheet_()
{
    sheet_ = std::make_unique<DeviceSheet>(scenario_.friendlyName, std::move(sheetPages_),
                                           diagIndex_ >= 0 ? static_cast<UINT>(diagIndex_) : 0);
    sheetPages_.clear();
    if (sheet_->window() == nullptr) {
        say("sheet: PropertySheetW failed, code " + std::to_string(sheet_->error()));
        sheet_.reset();
        outcome_.exitCode = 1;
        return;
    }
    if (scenario_.timeOpen) {
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - loadStart_;
        say("timing: the sheet open " + std::to_string(took.count()) + " ms after LoadLibraryW");
    }
    HWND sheet = sheet_->window();
    SetWindowPos(sheet, HWND_TOP, 40, 40, 0, 0, SWP_NOSIZE | SWP_SHOWWINDOW);
    SetForegroundWindow(sheet);
    settle_();
    std::string tabs;
    const int count = TabCtrl_GetItemCount(PropSheet_GetTabControl(sheet));
    for (int index = 0; index < count; ++index) {
        tabs += " " + quoted(sheetTabTitle(sheet, index));
    }
    say("sheet: tabs" + tabs);
    const int current = PropSheet_HwndToIndex(sheet, PropSheet_GetCurrentPageHwnd(sheet));
    say("sheet: showing " + quoted(sheetTabTitle(sheet, current)));
    if (diagPage_() != nullptr) {
        dump_("open");
    }
}

HWND SheetHost::diagPage_() const
{
    if (sheet_ == nullptr || diagIndex_ < 0) {
        return nullptr;
    }
    return PropSheet_IndexToHwnd(sheet_->window(), diagIndex_);
}

bool SheetHost::pumpQueued_()
{
    // OK, Cancel or the close box: a modeless sheet leaves its destruction to its owner.
    if (sheet_ != nullptr && !sheet_->pumpQueued()) {
        closeSheet_();
    }
    return sheet_ != nullptr;
}

void SheetHost::pump_(DWORD milliseconds)
{
    const auto start = std::chrono::steady_clock::now();
    while (pumpQueued_()) {
        const auto elapsed = static_cast<DWORD>(
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
                .count());
        if (milliseconds != INFINITE && elapsed >= milliseconds) {
            return;
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE,
                                  milliseconds == INFINITE ? INFINITE : milliseconds - elapsed, QS_ALLINPUT);
    }
}

void SheetHost::settle_()
{
    const auto start = std::chrono::steady_clock::now();
    int quiet = 0;
    // Twice in a row nothing left: a handled message may have caused more.
    while (quiet < 2) {
        if (!pumpQueued_()) {
            return;
        }
        const bool delivered = adapter_->service().drain(std::chrono::milliseconds(0));
        quiet = delivered && GetQueueStatus(QS_ALLINPUT) == 0 ? quiet + 1 : 0;
        if (std::chrono::steady_clock::now() - start > std::chrono::milliseconds(settleLimitMs)) {
            say("settle: events still under way after " + std::to_string(settleLimitMs) + " ms");
            return;
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
    }
}

void SheetHost::flushTrace_()
{
    if (spy_ == nullptr) {
        return;
    }
    for (const auto& line : spy_->takeTraceLines()) {
        say("trace: " + line);
    }
}

void SheetHost::dump_(const std::string& label)
{
    flushTrace_();
    HWND page = diagPage_();
    say("page" + (label.empty() ? std::string() : " " + label) + ":");
    if (page == nullptr) {
        say("  not created");
        return;
    }
    for (const auto& line : reader_->read(page)) {
        say(line);
    }
}

void SheetHost::runStep_(const Step& step)
{
    const auto& args = step.arguments;
    const std::string& name = step.name;
    HWND page = diagPage_();
    if (name == "wait") {
        pump_(millisecondsOf(args[0]));
    } else if (name == "settle") {
        settle_();
    } else if (name == "dump") {
        dump_(args.empty() ? std::string() : narrow(args[0]));
    } else if (name == "screenshot") {
        settle_();
        RedrawWindow(sheet_->window(), nullptr, nullptr,
                     RDW_INVALIDATE | RDW_UPDATENOW | RDW_ALLCHILDREN | RDW_FRAME);
        pump_(100);
        say(std::string("screenshot: ") + (saveWindowBitmap(sheet_->window(), args[0]) ? "saved " : "failed ")
            + narrow(args[0]));
    } else if (name == "click-run") {
        HWND button = page != nullptr ? GetDlgItem(page, IDC_RUN_DIAG) : nullptr;
        if (button == nullptr || !IsWindowEnabled(button)) {
            say("click-run: the button is " + std::string(button == nullptr ? "missing" : "disabled"));
            return;
        }
        say("click-run");
        const int runs = adapter_->startedCableTests();
        SendMessageW(button, BM_CLICK, 0, 0);
        // Until the run has reached the driver (and dropped the link), if it does.
        const auto start = std::chrono::steady_clock::now();
        while (adapter_->startedCableTests() == runs && pumpQueued_()
               && std::chrono::steady_clock::now() - start < std::chrono::seconds(5)) {
            MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
        }
        settle_();
    } else if (name == "category") {
        HWND combo = page != nullptr ? GetDlgItem(page, IDC_CABLE_CATEGORY) : nullptr;
        if (combo == nullptr || !IsWindowEnabled(combo)) {
            say("category " + quoted(args[0]) + ": the combo box is "
                + (combo == nullptr ? "missing" : "disabled"));
            return;
        }
        const LRESULT row = SendMessageW(combo, CB_FINDSTRINGEXACT, static_cast<WPARAM>(-1),
                                         reinterpret_cast<LPARAM>(args[0].c_str()));
        if (row == CB_ERR) {
            say("category " + quoted(args[0]) + ": no such row");
            return;
        }
        say("category " + quoted(args[0]));
        // What the combo box tells its dialog when a person picks a row.
        SendMessageW(combo, CB_SETCURSEL, static_cast<WPARAM>(row), 0);
        SendMessageW(page, WM_COMMAND, MAKEWPARAM(IDC_CABLE_CATEGORY, CBN_SELCHANGE),
                     reinterpret_cast<LPARAM>(combo));
        settle_();
    } else if (name == "unplug" || name == "plug" || name == "renegotiate" || name == "disable"
               || name == "enable" || name == "remove" || name == "arrive") {
        say(name + (args.empty() ? std::string() : " " + narrow(args[0])));
        const bool wait = args.empty() || args[0] != L"nowait";
        if (name == "unplug") {
            adapter_->unplug();
        } else if (name == "plug") {
            adapter_->plug();
        } else if (name == "renegotiate") {
            adapter_->renegotiate(std::wcstoull(args[0].c_str(), nullptr, 10));
        } else if (name == "disable") {
            setProblemCode_(problemDisabled);
            adapter_->remove();
        } else if (name == "enable") {
            setProblemCode_(0);
            adapter_->arrive();
        } else if (name == "remove") {
            adapter_->remove();
        } else {
            adapter_->arrive();
        }
        if (wait) {
            settle_();
        }
    } else if (name == "heat") {
        const auto hundredths = [](const std::wstring& text) {
            return static_cast<std::int32_t>(std::lround(std::wcstod(text.c_str(), nullptr) * 100.0));
        };
        say("heat " + narrow(args[0]) + " " + narrow(args[1]));
        adapter_->heat(hundredths(args[0]), hundredths(args[1]));
    } else if (name == "chord") {
        // The page reads the chord at its timer's ticks: held until the detail line
        // changes, so that exactly one tick sees it.
        HWND detail = page != nullptr ? GetDlgItem(page, IDC_TEMPERATURE_DETAIL) : nullptr;
        const bool shown = detail != nullptr && IsWindowVisible(detail);
        const DWORD limit = millisecondsOf(args[1]);
        bool changed = false;
        try {
            const KeyChord chord(args[0]);
            const auto start = std::chrono::steady_clock::now();
            while (!changed && std::chrono::steady_clock::now() - start < std::chrono::milliseconds(limit)
                   && pumpQueued_()) {
                MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
                changed = detail != nullptr && (IsWindowVisible(detail) != FALSE) != shown;
            }
        } catch (const std::exception& error) {
            say(std::string("chord: ") + error.what());
            return;
        }
        say("chord " + narrow(args[0]) + ": "
            + (changed ? std::string(shown ? "detail hidden" : "detail shown")
                       : "no change within " + narrow(args[1]) + " ms"));
    } else if (name == "await-line") {
        if (page == nullptr) {
            say("await-line " + quoted(args[0]) + ": no page");
            return;
        }
        const DWORD limit = args.size() > 1 ? millisecondsOf(args[1]) : awaitLimitMs;
        const auto start = std::chrono::steady_clock::now();
        while (pumpQueued_()) {
            for (const ListLine& line : reader_->screen(diagPage_()).lines) {
                if (line.text.find(args[0]) != std::wstring::npos) {
                    settle_();
                    say("await-line " + quoted(args[0]) + ": seen");
                    return;
                }
            }
            if (std::chrono::steady_clock::now() - start > std::chrono::milliseconds(limit)) {
                say("await-line " + quoted(args[0]) + ": not seen within " + std::to_string(limit) + " ms");
                return;
            }
            MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
        }
    } else if (name == "list-images") {
        // Each image of the results list's image list, named by its pixels.
        HWND list = page != nullptr ? GetDlgItem(page, IDC_RESULTS_LIST) : nullptr;
        auto* images = reinterpret_cast<HIMAGELIST>(SendMessageW(list, LVM_GETIMAGELIST, LVSIL_SMALL, 0));
        std::string text = "list images:";
        for (int i = 0; images != nullptr && i < ImageList_GetImageCount(images); ++i) {
            HICON icon = ImageList_GetIcon(images, i, ILD_NORMAL);
            text += " " + iconName(icons_->resourceId(icon));
            DestroyIcon(icon);
        }
        say(text);
    } else if (name == "select-page") {
        PropSheet_SetCurSel(sheet_->window(), nullptr, static_cast<int>(millisecondsOf(args[0])));
        settle_();
        say("select-page " + narrow(args[0]));
    } else if (name == "close") {
        closeSheet_();
    }
}

void SheetHost::closeSheet_()
{
    if (sheet_ == nullptr) {
        return;
    }
    // Nothing pumps into a sheet being destroyed.
    const std::unique_ptr<DeviceSheet> sheet = std::move(sheet_);
    const int started = adapter_->startedCableTests();
    const int finished = adapter_->finishedCableTests();
    // The pages are released here; a page may wait for its work to end.
    {
        const Watchdog::Wait wait(watchdog_, "the sheet's destruction", callLimit);
        sheet->close();
    }
    say("sheet: closed");
    if (started != 0) {
        say("cable tests: started " + std::to_string(started) + ", finished " + std::to_string(finished)
            + " before closing, " + std::to_string(adapter_->finishedCableTests()) + " after");
    }
}

sim::ReferenceCounts SheetHost::reportReferences_(const std::string& when)
{
    sim::WmiService& service = adapter_->service();
    const sim::ReferenceCounts counts = service.references();
    say("wmi " + when + ": objects live " + std::to_string(counts.liveObjects) + ", references "
        + std::to_string(counts.references));
    if (counts.liveObjects != 0) {
        for (const auto& line : service.liveObjects()) {
            std::string text = "wmi ";
            text.append(when).append(":   ").append(line);
            say(text);
        }
    }
    return counts;
}

void SheetHost::freeModule_(const std::string& where)
{
    // Pages no sheet took are the installer's to destroy.
    for (HPROPSHEETPAGE page : sheetPages_) {
        if (page != nullptr) {
            DestroyPropertySheetPage(page);
        }
    }
    sheetPages_.clear();
    flushTrace_();
    if (spy_ != nullptr) {
        const ModuleSpy::PageCounts counts = spy_->pageCounts();
        say("dll pages: made " + std::to_string(counts.made) + ", created " + std::to_string(counts.created)
            + ", released " + std::to_string(counts.released));
        std::string sizes;
        for (const UINT size : counts.descriptionSizes) {
            sizes += " " + std::to_string(size);
        }
        const ModuleSpy::IconCounts icons = spy_->iconCounts();
        say("dll: page descriptions" + (sizes.empty() ? std::string(" none") : sizes + " bytes")
            + "; icons loaded " + std::to_string(icons.loaded) + ", destroyed "
            + std::to_string(icons.destroyed));
    }
    // A sink of the module gets its last calls on the service's threads: the
    // DLL goes once those have returned. The service itself runs on.
    sim::WmiService& service = adapter_->service();
    if (!service.drain(std::chrono::seconds(10))) {
        say("wmi: deliveries still under way after 10000 ms");
    }
    int made = 0;
    int ended = 0;
    for (const auto& call : service.calls()) {
        if (call.call == "ExecNotificationQueryAsync" && SUCCEEDED(call.result)) {
            ++made;
        } else if (call.call == "SetStatus") {
            ++ended;
        }
    }
    say("wmi: subscriptions made " + std::to_string(made) + ", ended " + std::to_string(ended) + ", live "
        + std::to_string(service.subscriptions().size()));
    reportReferences_("before unload");
    spy_.reset();
    setupApi_.reset();
    reader_.reset();
    icons_.reset();
    {
        // GetModuleHandleW takes the loader lock too.
        const Watchdog::Wait wait(watchdog_, "FreeLibrary of the DLL" + where, endLimit);
        module_->unload();
        outcome_.unloaded = !module_->inProcess();
    }
    say(std::string("dll: ") + (outcome_.unloaded ? "unloaded" : "still loaded") + " after FreeLibrary"
        + where);
}

void SheetHost::teardown_()
{
    // The module keeps nothing for a thread's end and no thread pins it: it
    // goes while the service's delivery threads still run, as the installer
    // frees it, and the service stops after.
    if (module_ != nullptr && module_->handle() != nullptr) {
        freeModule_("");
    }
    outcome_.left = reportReferences_("after unload");
    {
        const Watchdog::Wait wait(watchdog_, "the service's stop", endLimit);
        adapter_->stop();
    }
    say("wmi: service stopped, its threads ended");
    {
        const Watchdog::Wait wait(watchdog_, "the end of the threads that called the service", endLimit);
        callers_.waitForAll();
    }
    say("threads: each one that called the service has ended");
    const std::vector<std::string> serviceCalls = adapter_->service().forbiddenCalls();
    const std::vector<std::string> comCalls
        = com_ != nullptr ? ComWatch::callsUnderLoaderLock() : std::vector<std::string>();
    outcome_.serviceCallsUnderLoaderLock = static_cast<int>(serviceCalls.size());
    outcome_.comCallsUnderLoaderLock = static_cast<int>(comCalls.size());
    say("loader lock: " + std::to_string(serviceCalls.size()) + " service calls, "
        + std::to_string(comCalls.size()) + " COM calls under it");
    for (const auto& call : serviceCalls) {
        say("loader lock:   " + call);
    }
    for (const auto& call : comCalls) {
        say("loader lock:   " + call);
    }
    if (com_ != nullptr) {
        const int left = ComWatch::initializationsLeft();
        say(ComWatch::initializations() == 0 ? std::string("dll COM: no CoInitializeEx")
                : left == 0                  ? std::string("dll COM: each CoInitializeEx undone")
                            : "dll COM: " + std::to_string(left) + " CoInitializeEx not undone");
    }
}
