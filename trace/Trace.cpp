#include "trace/Trace.h"

#include <cstdarg>
#include <cstdio>

#include "platform.h"

int traceLevel = 0;

void traceMessage(int level, const char* format, ...)
{
    if (level > traceLevel) {
        return;
    }
    constexpr int bufferSize = 512;
    char line[bufferSize];
    va_list args;
    va_start(args, format);
    // The counted formatter of the C runtime: %S takes wide text. It leaves the
    // buffer unterminated and answers negative when the text does not fit.
    const int written = _vsnprintf(line, bufferSize - 1, format, args);
    va_end(args);
    if (written < 0 || written >= bufferSize - 1) {
        if (written != bufferSize - 1) {
            line[bufferSize - 2] = '\n';  // cut, but keep lines apart in the debugger
        }
        line[bufferSize - 1] = '\0';
    } else {
        line[written] = '\0';
    }
    OutputDebugStringA(line);
}
