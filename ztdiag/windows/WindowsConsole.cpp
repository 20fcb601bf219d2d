#include "ztdiag/windows/WindowsConsole.h"

#include <mutex>

#include "platform/Threading.h"
#include "trace/ThreadBody.h"
#include "ztdiag/Utf8.h"

namespace {

// The handler onInterrupt set, for the console's thread.
SrwLock interruptLock;
std::function<void()> interruptHandler;

}  // namespace

WindowsConsole::WindowsConsole() : out_(open_(STD_OUTPUT_HANDLE)), err_(open_(STD_ERROR_HANDLE))
{
    SetConsoleCtrlHandler(&WindowsConsole::controlEvent, TRUE);
}

WindowsConsole::~WindowsConsole()
{
    SetConsoleCtrlHandler(&WindowsConsole::controlEvent, FALSE);
    const std::lock_guard<SrwLock> guard(interruptLock);
    interruptHandler = nullptr;
}

WindowsConsole::Stream WindowsConsole::open_(DWORD which)
{
    const HANDLE handle = GetStdHandle(which);
    DWORD mode = 0;
    const bool console
        = handle != nullptr && handle != INVALID_HANDLE_VALUE && GetConsoleMode(handle, &mode) != 0;
    return {handle, console};
}

bool WindowsConsole::write_(Stream& stream, const std::wstring& text)
{
    if (stream.closed) {
        return false;
    }
    // No stream at all (a program started without one) takes text as the null device would.
    if (stream.handle == nullptr || stream.handle == INVALID_HANDLE_VALUE || text.empty()) {
        return true;
    }
    if (stream.console) {
        DWORD written = 0;
        stream.closed
            = WriteConsoleW(stream.handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr)
            == 0;
        return !stream.closed;
    }
    // A file or a pipe gets text as Windows programs write it: UTF-8, CR LF.
    std::wstring lines;
    lines.reserve(text.size() + text.size() / 32);
    for (const wchar_t c : text) {
        if (c == L'\n') {
            lines += L'\r';
        }
        lines += c;
    }
    const std::string bytes = toUtf8(lines);
    // A pipe whose reader went fails with ERROR_NO_DATA or ERROR_BROKEN_PIPE;
    // a full disk with ERROR_DISK_FULL. Either way the rest would be lost too.
    DWORD written = 0;
    stream.closed
        = WriteFile(stream.handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) == 0
        || written != bytes.size();
    return !stream.closed;
}

bool WindowsConsole::out(const std::wstring& text)
{
    return write_(out_, text);
}

void WindowsConsole::err(const std::wstring& text)
{
    write_(err_, text);
}

void WindowsConsole::onInterrupt(std::function<void()> handler)
{
    const std::lock_guard<SrwLock> guard(interruptLock);
    interruptHandler = std::move(handler);
}

BOOL WINAPI WindowsConsole::controlEvent(DWORD type)
{
    if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT) {
        return FALSE;
    }
    const std::lock_guard<SrwLock> guard(interruptLock);
    if (!interruptHandler) {
        return FALSE;
    }
    // The system's thread runs this; a handler that fails leaves Ctrl+C to the
    // default handler, which ends the process as it would without one.
    return runThreadBody("ztdiag Ctrl+C handler", interruptHandler) ? TRUE : FALSE;
}
