#include "ztpanel/demo/ScriptedUser.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <vector>

#include "tools/sheet_host/Output.h"
#include "tools/sheet_host/PageReader.h"
#include "tools/sheet_host/Screenshot.h"
#include "tools/sheet_host/Text.h"
#include "ztpanel/PanelResources.h"

namespace {

constexpr int messageBoxText = 0xFFFF;  // the static that holds a message box's text

// This process's visible dialog windows, in Z order.
std::vector<HWND> ownDialogs()
{
    std::vector<HWND> found;
    EnumWindows(
        [](HWND window, LPARAM list) -> BOOL {
            DWORD process = 0;
            GetWindowThreadProcessId(window, &process);
            wchar_t name[16] = {};
            GetClassNameW(window, name, 16);
            if (process == GetCurrentProcessId() && IsWindowVisible(window)
                && std::wstring(name) == L"#32770") {
                reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
            }
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&found));
    return found;
}

// Each line of `text` on a line of its own, the first after `label`.
void sayText(const std::string& label, const std::wstring& text)
{
    std::size_t start = 0;
    std::string prefix = label + " ";
    for (;;) {
        const std::size_t end = text.find(L'\n', start);
        const std::wstring line = text.substr(start, end - start);
        say(line.empty() ? std::string() : prefix + narrow(line));
        if (end == std::wstring::npos) {
            return;
        }
        prefix = "  ";
        start = end + 1;
    }
}

// The settle markers that the sheet's thread has taken from its queue.
std::atomic<long> markersTaken{0};

UINT settleMarker()
{
    static const UINT message = RegisterWindowMessageW(L"ZtPanelDemoSettle");
    return message;
}

LRESULT CALLBACK countMarkers(int code, WPARAM removed, LPARAM taken)
{
    if (code == HC_ACTION && removed == PM_REMOVE
        && reinterpret_cast<const MSG*>(taken)->message == settleMarker()) {
        ++markersTaken;
    }
    return CallNextHookEx(nullptr, code, removed, taken);
}

// Counts the markers one thread takes from its queue, while it lives.
class MarkerHook {
public:
    explicit MarkerHook(DWORD thread) : hook_(SetWindowsHookExW(WH_GETMESSAGE, countMarkers, nullptr, thread))
    {
    }
    ~MarkerHook()
    {
        if (hook_ != nullptr) {
            UnhookWindowsHookEx(hook_);
        }
    }
    MarkerHook(const MarkerHook&) = delete;
    MarkerHook& operator=(const MarkerHook&) = delete;

private:
    HHOOK hook_;
};

void press(HWND dialog, int button)
{
    PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                 reinterpret_cast<LPARAM>(GetDlgItem(dialog, button)));
}

}  // namespace

ScriptedUser::ScriptedUser(Choices choices, DemoWorld& world)
    : choices_(std::move(choices)), world_(world), thread_([this] { run_(); })
{
}

ScriptedUser::~ScriptedUser()
{
    stop_ = true;
    thread_.join();
}

void ScriptedUser::setDll(HMODULE dll)
{
    const std::lock_guard<SrwLock> guard(lock_);
    dll_ = dll;
}

void ScriptedUser::run_()
{
    while (!stop_) {
        for (HWND window : ownDialogs()) {
            if (!seen_.insert(window).second) {
                continue;
            }
            if (SendMessageW(window, PSM_GETTABCONTROL, 0, 0) != 0) {
                readSheet_(window);
            } else if (GetDlgItem(window, IDC_CHOOSER_LIST) != nullptr) {
                answerChooser_(window);
            } else {
                answerMessageBox_(window);
            }
        }
        waitRealTime(std::chrono::milliseconds(50));
    }
}

void ScriptedUser::answerMessageBox_(HWND box)
{
    wchar_t text[2048] = {};
    GetDlgItemTextW(box, messageBoxText, text, 2048);
    sayText("message box " + quoted(windowText(box)) + ":", text);
    press(box, IDOK);
}

void ScriptedUser::answerChooser_(HWND chooser)
{
    HWND list = GetDlgItem(chooser, IDC_CHOOSER_LIST);
    const auto rows = static_cast<int>(SendMessageW(list, LB_GETCOUNT, 0, 0));
    const auto selected = static_cast<int>(SendMessageW(list, LB_GETCURSEL, 0, 0));
    say("chooser " + quoted(windowText(chooser)) + ":");
    for (int row = 0; row < rows; ++row) {
        std::wstring text(static_cast<std::size_t>(SendMessageW(list, LB_GETTEXTLEN, row, 0)), L'\0');
        SendMessageW(list, LB_GETTEXT, row, reinterpret_cast<LPARAM>(text.data()));
        say("  " + std::to_string(row) + ": " + narrow(text) + (row == selected ? " (selected)" : ""));
    }
    if (choices_.row < 0) {
        say("chooser: Cancel");
        press(chooser, IDCANCEL);
        return;
    }
    say("chooser: Open row " + std::to_string(choices_.row));
    SendMessageW(list, LB_SETCURSEL, static_cast<WPARAM>(choices_.row), 0);
    press(chooser, IDOK);
}

void ScriptedUser::settle_(HWND sheet)
{
    // The page's first reads and the events they start are the service's work,
    // then messages posted to the sheet's thread, whose handling may read again.
    // A round ends once a marker posted after the service's work has come out
    // of that thread's queue, so everything posted before it was handled.
    const MarkerHook hook(GetWindowThreadProcessId(sheet, nullptr));
    for (int round = 0; round < 3; ++round) {
        world_.service().drain();
        const long before = markersTaken;
        PostMessageW(sheet, settleMarker(), 0, 0);
        for (int wait = 0; wait < 1000 && markersTaken == before; ++wait) {
            waitRealTime(std::chrono::milliseconds(10));
        }
    }
}

void ScriptedUser::readSheet_(HWND sheet)
{
    settle_(sheet);
    say("sheet " + quoted(windowText(sheet)));
    std::string titles;
    for (int index = 0; index < TabCtrl_GetItemCount(PropSheet_GetTabControl(sheet)); ++index) {
        titles += " " + quoted(sheetTabTitle(sheet, index));
    }
    say("sheet: tabs" + titles);
    const auto readPage = [&](const std::string& label) {
        HMODULE dll = nullptr;
        {
            const std::lock_guard<SrwLock> guard(lock_);
            dll = dll_;
        }
        HWND page = PropSheet_GetCurrentPageHwnd(sheet);
        say("page " + label + ":");
        if (dll == nullptr || page == nullptr) {
            say("  none");
            return;
        }
        for (const std::string& line : PageReader(dll).read(page)) {
            say(line);
        }
    };
    if (choices_.readPage) {
        readPage("open");
    }
    if (!choices_.screenshot.empty()) {
        say(std::string("screenshot: ")
            + (saveWindowBitmap(sheet, choices_.screenshot) ? "saved " : "failed ")
            + narrow(choices_.screenshot));
    }
    if (choices_.removeAdapter) {
        say("the adapter is removed");
        world_.remove();
        settle_(sheet);
        readPage("after the removal");
    }
    say("sheet: OK");
    press(sheet, IDOK);
}
