#include "trace/FormatString.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>

#include "platform.h"
#include "trace/Trace.h"

namespace {
constexpr long maxUnits = 1L << 24;
}

std::wstring formatStringList(const wchar_t* format, ...)
{
    // Twice the format's length fits most texts; otherwise the formatter's
    // answer tells how much to grow. The string is its own buffer, so a text
    // that fits costs one allocation.
    long size = 2 * static_cast<long>(std::wcslen(format));
    std::wstring text;
    for (;;) {
        text.assign(static_cast<std::size_t>(size), L'\0');
        va_list args;
        va_start(args, format);
        // The C runtime's counted formatter, where %s takes wide text (the host
        // layer's stand-in keeps that meaning). It answers negative when the text
        // is longer than the count, and the count itself when only the
        // terminating zero has no room.
        const int written = _vsnwprintf(text.data(), static_cast<std::size_t>(size), format, args);
        va_end(args);
        if (written >= 0 && written < size) {
            text.resize(static_cast<std::size_t>(written));
            return text;
        }
        if (written < 0 && size >= maxUnits) {
            // An encoding error fails at every size; don't grow until memory runs out.
            ZT_TRACE(0, "[!] formatString(): can't format '%S'", format);
            return {};
        }
        const long grow = static_cast<long>(written) - size + 1;
        size += grow < 0 ? -grow : grow;
    }
}
