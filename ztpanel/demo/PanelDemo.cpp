// ztpanel_demo.exe: ztpanel's code on the simulated adapter, for scripts/run-page
// and the Wine tests; never shipped. Its own settings come first, as
// --sim-NAME=VALUE; every other argument is the panel's. A scripted user answers
// each window and reads the sheet back, unless --sim-interactive leaves that to
// a person. At the end it tells what the run left: the DLL, its icons, the
// service's objects, the threads that called it, COM initializations.
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/WmiService.h"
#include "tools/sheet_host/CallerThreads.h"
#include "tools/sheet_host/ComWatch.h"
#include "tools/sheet_host/ImportPatch.h"
#include "tools/sheet_host/LoaderLock.h"
#include "tools/sheet_host/ModuleSpy.h"
#include "tools/sheet_host/Output.h"
#include "tools/sheet_host/SetupApiStandIn.h"
#include "tools/sheet_host/Text.h"
#include "tools/sheet_host/Watchdog.h"
#include "ztdiag/demo/DemoWorld.h"
#include "ztpanel/Panel.h"
// After the platform header, whose types it needs.
// clang-format off
#include <shellapi.h>
// clang-format on
#include "ztpanel/demo/ScriptedUser.h"

namespace {

constexpr std::chrono::seconds runLimit{90};

const char* const demoUsage
    = "ztpanel_demo [--sim-NAME=VALUE...] [ztpanel arguments]\n"
      "  --sim-help              this text\n"
      "  --sim-adapters=N        ZT adapters listed: 0, 1 (the one that works) or 2 (and one disabled)\n"
      "  --sim-link=down         no cable in\n"
      "  --sim-dll=PATH          the co-installer to load instead of ztprop.dll beside the program\n"
      "  --sim-choose=N|cancel   the scripted user's answer to the chooser (0)\n"
      "  --sim-screenshot=FILE   a BMP of the sheet once read\n"
      "  --sim-remove            the adapter goes while its sheet is open\n"
      "  --sim-sheet-only        the scripted user reads the sheet's title and tabs, not its page\n"
      "  --sim-interactive       no scripted user: a person answers\n"
      "  --sim-time-open         a line with the time from the panel's start to its sheet's opening\n";

struct DemoRun {
    DemoSettings world;
    ScriptedUser::Choices choices;
    std::wstring dll;
    bool interactive = false;
    bool timeOpen = false;
    std::vector<std::wstring> panelArgs;
};

DemoRun takeSettings(const std::vector<std::wstring>& args)
{
    DemoRun run;
    for (const std::wstring& arg : args) {
        if (arg.rfind(L"--sim-", 0) != 0) {
            run.panelArgs.push_back(arg);
            continue;
        }
        const std::size_t equals = arg.find(L'=');
        const std::wstring name = arg.substr(0, equals);
        const std::wstring value = equals == std::wstring::npos ? L"" : arg.substr(equals + 1);
        if (name == L"--sim-adapters" && (value == L"0" || value == L"1" || value == L"2")) {
            run.world.firstAdapter = value != L"0";
            run.world.secondAdapter = value == L"2";
        } else if (name == L"--sim-link") {
            run.world.linkUp = value != L"down";
        } else if (name == L"--sim-dll" && !value.empty()) {
            run.dll = value;
        } else if (name == L"--sim-choose") {
            run.choices.row = value == L"cancel" ? -1 : std::stoi(value);
        } else if (name == L"--sim-screenshot" && !value.empty()) {
            run.choices.screenshot = value;
        } else if (name == L"--sim-remove") {
            run.choices.removeAdapter = true;
        } else if (name == L"--sim-sheet-only") {
            run.choices.readPage = false;
        } else if (name == L"--sim-time-open") {
            run.timeOpen = true;
        } else if (name == L"--sim-interactive") {
            run.interactive = true;
        } else {
            throw std::invalid_argument("unknown setting");
        }
    }
    return run;
}

// The test build's side of the panel: the DLL's SetupAPI calls lead to the
// simulated devices, and what it loads and gives back is counted.
class DemoHooks : public PanelHooks {
public:
    explicit DemoHooks(ScriptedUser* user) : user_(user) { }

    void loaded(HMODULE dll) override
    {
        // Wine has no SetupDiGetClassInstallParamsW.
        setupApi_ = std::make_unique<ImportPatch>(
            dll, "setupapi.dll",
            SetupApiStandIn::replacements({"SetupDiGetClassInstallParamsW", "SetupDiSetClassInstallParamsW",
                                           "SetupDiGetDevicePropertyW"}));
        spy_ = std::make_unique<ModuleSpy>(dll);
        com_ = std::make_unique<ComWatch>(dll);
        if (user_ != nullptr) {
            user_->setDll(dll);
        }
    }

    void unloading(HMODULE /*dll*/) override
    {
        if (user_ != nullptr) {
            user_->setDll(nullptr);
        }
        pages_ = spy_->pageCounts();
        icons_ = spy_->iconCounts();
        spy_.reset();
        setupApi_.reset();
    }

    void sheetOpened(HWND /*sheet*/) override { opened_ = std::chrono::steady_clock::now(); }

    // When the sheet opened (read once the panel's run has ended).
    std::chrono::steady_clock::time_point opened() const { return opened_; }

    // What the DLL left, once the panel's run has ended: "dll unloaded; pages made 1,
    // released 1; icons loaded 3, destroyed 3; COM undone; ", or nothing if it wasn't loaded.
    std::string dllLeft(const std::wstring& name) const
    {
        if (com_ == nullptr) {
            return {};
        }
        const int initializations = ComWatch::initializationsLeft();
        return std::string("dll ") + (GetModuleHandleW(name.c_str()) == nullptr ? "unloaded" : "still loaded")
            + "; pages made " + std::to_string(pages_.made) + ", released " + std::to_string(pages_.released)
            + "; icons loaded " + std::to_string(icons_.loaded) + ", destroyed "
            + std::to_string(icons_.destroyed) + "; COM "
            + (initializations == 0 ? "undone" : std::to_string(initializations) + " left") + "; ";
    }

private:
    ScriptedUser* user_;
    std::unique_ptr<ImportPatch> setupApi_;
    std::unique_ptr<ModuleSpy> spy_;
    std::unique_ptr<ComWatch> com_;  // its patches stay with the module
    std::chrono::steady_clock::time_point opened_{};
    ModuleSpy::PageCounts pages_;
    ModuleSpy::IconCounts icons_;
};

int runDemo(HINSTANCE instance, const DemoRun& run, Watchdog& watchdog)
{
    DemoWorld world(run.world);
    if (!world.ready()) {
        say("ztpanel_demo: the simulated adapter couldn't be set up");
        return 70;
    }
    // Each call into the service notes its thread, whose end the run waits for.
    CallerThreads callers;
    world.service().watchForbiddenCalls([&callers] {
        callers.note();
        return holdsLoaderLock();
    });
    std::unique_ptr<ScriptedUser> user;
    if (!run.interactive) {
        user = std::make_unique<ScriptedUser>(run.choices, world);
    }
    DemoHooks hooks(user.get());
    PanelSettings settings;
    settings.args = run.panelArgs;
    settings.dllPath = run.dll.empty() ? besideProgram(L"ztprop.dll") : run.dll;
    settings.instance = instance;
    const auto start = std::chrono::steady_clock::now();
    const int code = runPanel(settings, hooks);
    user.reset();
    if (run.timeOpen && hooks.opened() > start) {
        const std::chrono::duration<double, std::milli> took = hooks.opened() - start;
        say("timing: the sheet open " + std::to_string(took.count()) + " ms after the panel's start");
    }
    // One line of what the run left behind.
    std::string left = hooks.dllLeft(settings.dllPath.substr(settings.dllPath.find_last_of(L"\\/") + 1));
    const sim::ReferenceCounts counts = world.service().references();
    left += "service objects " + std::to_string(counts.liveObjects) + ", references "
        + std::to_string(counts.references);
    {
        const Watchdog::Wait wait(watchdog, "the service's stop and its callers' ends",
                                  std::chrono::seconds(20));
        world.stop();
        callers.waitForAll();
    }
    say("left: " + left + "; callers ended; " + std::to_string(world.service().forbiddenCalls().size())
        + " calls under the loader lock");
    return code;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE /*previous*/, PWSTR /*commandLine*/, int /*show*/)
{
    int count = 0;
    LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &count);
    const std::vector<std::wstring> args(argv + 1, argv + count);
    LocalFree(argv);
    if (args.size() == 1 && args[0] == L"--sim-help") {
        std::fputs(demoUsage, stdout);
        return 0;
    }
    DemoRun run;
    try {
        run = takeSettings(args);
    } catch (const std::exception&) {
        std::fputs(demoUsage, stderr);
        return 64;
    }
    // Past its limit a run that hangs prints every thread's stack and ends with exit code 3.
    Watchdog watchdog;
    watchdog.nameThread("main");
    std::optional<Watchdog::Wait> wait;
    if (!run.interactive) {
        wait.emplace(watchdog, "the panel's run", runLimit);
    }
    return runDemo(instance, run, watchdog);
}
