// printf-style formatting into a new wide string of any length. Stateless;
// any thread may call it. Conversions in use: %d %u %s (wide text) %g %p.
#pragma once

#include <string>
#include <type_traits>

// The formatting itself, with a C variadic list; use formatString.
std::wstring formatStringList(const wchar_t* format, ...);

template <typename... Args> std::wstring formatString(const std::wstring& format, Args... args)
{
    static_assert((std::is_trivially_copyable_v<Args> && ...),
                  "pass text as a pointer (c_str()), never as a string object");
    return formatStringList(format.c_str(), args...);
}
