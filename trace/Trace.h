// The module's one log: numbered levels, written to the debugger through
// OutputDebugStringA. Any thread may trace; nothing is locked or allocated.
#pragma once

#include "trace/Compiler.h"
#include "trace/TraceFormat.h"

// The highest level that is written. Only failures (level 0) by default.
extern int traceLevel;

// Formats one line into a 512-byte buffer and hands it over in one call. A line
// that does not fit is cut to 510 characters and keeps its closing line feed.
void traceMessage(int level, const char* format, ...) ZT_PRINTF_FORMAT(2, 3);

// Traces `message` with the statement's " @function+line" suffix, which is
// fixed at build time.
#define ZT_TRACE(level, message, ...)                                                                        \
    do {                                                                                                     \
        static constexpr auto ztTraceFormat_                                                                 \
            = ::trace_format::makeFormat<sizeof(message) + sizeof(ZT_FUNCTION_SIGNATURE) + 16>(              \
                message, ZT_FUNCTION_SIGNATURE, __LINE__);                                                   \
        ::traceMessage((level), ztTraceFormat_.text, ##__VA_ARGS__);                                         \
    } while (false)

// One statement whose level and message depend on a condition, e.g. a result
// that is either "DONE" at an info level or "FAILED" as a warning.
#define ZT_TRACE_EITHER(condition, levelIfTrue, messageIfTrue, levelIfFalse, messageIfFalse, ...)            \
    do {                                                                                                     \
        if (condition) {                                                                                     \
            ZT_TRACE(levelIfTrue, messageIfTrue, ##__VA_ARGS__);                                             \
        } else {                                                                                             \
            ZT_TRACE(levelIfFalse, messageIfFalse, ##__VA_ARGS__);                                           \
        }                                                                                                    \
    } while (false)
