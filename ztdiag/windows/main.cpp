// ztdiag.exe: the console tool on the real platform.
#include <string>
#include <vector>

#include "platform.h"
#include "ztdiag/Ztdiag.h"
#include "ztdiag/windows/WindowsConsole.h"

int wmain(int argc, wchar_t** argv)
{
    const std::vector<std::wstring> args(argv + 1, argv + argc);
    WindowsConsole console;
    const int code = ztdiagMain(args, console);
    // A service that didn't answer leaves its thread inside a call: ExitProcess
    // ends it before anything is torn down under it. Nothing is buffered.
    ExitProcess(static_cast<UINT>(code));
}
