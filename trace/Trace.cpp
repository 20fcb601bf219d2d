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
    // The formatter fills the whole count when the text is too long, so this
    // mark survives only a formatter that gave up early.
    line[bufferSize - 2] = '\0';
    va_list args;
    va_start(args, format);
    // The counted formatter of the C runtime: %S takes wide text. It leaves the
    // buffer unterminated and answers negative when the text does not fit, and
    // also when it can't convert a wide argument to narrow text.
    const int written = _vsnprintf(line, bufferSize - 1, format, args);
    va_end(args);
    if (written >= 0 && written < bufferSize - 1) {
        line[written] = '\0';
    } else if (written == bufferSize - 1 || line[bufferSize - 2] != '\0') {
        if (written != bufferSize - 1) {
            line[bufferSize - 2] = '\n';  // cut, but keep lines apart in the debugger
        }
        line[bufferSize - 1] = '\0';
    } else {
        // What the formatter left can't be told from what was on the stack; the
        // statement's format still says what and where, so it stands instead.
        int length = 0;
        while (length < bufferSize - 1 && format[length] != '\0') {
            line[length] = format[length];
            ++length;
        }
        if (length == bufferSize - 1 && format[length] != '\0') {
            line[bufferSize - 2] = '\n';
        }
        line[length] = '\0';
    }
    OutputDebugStringA(line);
}
