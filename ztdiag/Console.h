// What the tool writes to and hears from its terminal: the output and error
// streams, whether the output is a terminal, and the user's Ctrl+C. The
// Windows console in the program (windows/WindowsConsole.h), a recording one
// in tests. Written from the main thread only; see onInterrupt.
#pragma once

#include <functional>
#include <string>

class Console {
public:
    virtual ~Console() = default;

    // False once the output is closed (the reader of a pipe went away): the
    // text is lost and so is all that follows, and the command ends.
    virtual bool out(const std::wstring& text) = 0;
    virtual void err(const std::wstring& text) = 0;
    // True when the output goes to a terminal, not to a file or a pipe.
    virtual bool isTerminal() const = 0;
    // From now on Ctrl+C (or Ctrl+Break) calls `handler`, on any thread,
    // instead of ending the process; an empty handler restores the default.
    virtual void onInterrupt(std::function<void()> handler) = 0;
};
