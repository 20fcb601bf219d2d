// The person in front of ztpanel's demo: a thread that finds the program's
// windows as they appear (message boxes, the chooser, the property sheet), says
// what each shows, one fact a line, and answers it as told: a message box with
// OK, the chooser with a row or Cancel, the sheet, once read, with OK.
#pragma once

#include <atomic>
#include <set>
#include <string>

#include "platform/Threading.h"
#include "tools/sheet_host/Win32.h"
#include "ztdiag/demo/DemoWorld.h"

class ScriptedUser {
public:
    struct Choices {
        int row = 0;  // the chooser's row to open; -1: Cancel
        std::wstring screenshot;  // a BMP of the sheet once read; empty: none
        bool removeAdapter = false;  // the adapter goes while its sheet is open
        bool readPage = true;  // false: the sheet's title and tabs only
    };

    // Starts the thread; `world` must outlive this object.
    ScriptedUser(Choices choices, DemoWorld& world);
    ~ScriptedUser();  // stops and joins the thread
    ScriptedUser(const ScriptedUser&) = delete;
    ScriptedUser& operator=(const ScriptedUser&) = delete;

    // The DLL whose page a sheet shows (its icons are known by their pixels); null once unloaded.
    void setDll(HMODULE dll);

private:
    void run_();
    void answerMessageBox_(HWND box);
    void answerChooser_(HWND chooser);
    void readSheet_(HWND sheet);
    // Until the service and the sheet's thread have handled what the page started.
    void settle_(HWND sheet);

    Choices choices_;
    DemoWorld& world_;
    SrwLock lock_;
    HMODULE dll_ = nullptr;
    std::set<HWND> seen_;
    std::atomic<bool> stop_{false};
    Thread thread_;
};
