// The tool's Console on Windows: WriteConsoleW on a console, UTF-8 with CR LF
// through WriteFile when a stream is redirected, Ctrl+C and Ctrl+Break through
// SetConsoleCtrlHandler. One per process.
#pragma once

#include "platform.h"
#include "ztdiag/Console.h"

class WindowsConsole : public Console {
public:
    WindowsConsole();
    ~WindowsConsole() override;
    WindowsConsole(const WindowsConsole&) = delete;
    WindowsConsole& operator=(const WindowsConsole&) = delete;

    bool out(const std::wstring& text) override;
    void err(const std::wstring& text) override;
    bool isTerminal() const override { return out_.console; }
    void onInterrupt(std::function<void()> handler) override;

    // The handler the console calls on its own thread: TRUE (handled) while an
    // interrupt handler is set, else FALSE, and the process ends as usual.
    static BOOL WINAPI controlEvent(DWORD type);

private:
    struct Stream {
        HANDLE handle = nullptr;
        bool console = false;
        bool closed = false;  // a write failed: nothing more is written
    };
    static Stream open_(DWORD which);
    static bool write_(Stream& stream, const std::wstring& text);

    Stream out_;
    Stream err_;
};
