// Error codes, the debugger, the C runtime's counted formatters, ordinal
// string comparison, and the time zone.
#include <algorithm>
#include <atomic>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <string>

#include "HostState.h"
#include "host/HostPlatform.h"

namespace {
thread_local DWORD lastError = 0;
std::atomic<long> wideFormatterCallCount{0};

// The host's printf family reads %s as narrow text and %ls as wide; msvcrt's
// wide formatter reads %s as wide and its narrow one reads %S as wide. Rewrite
// the format so the module's formats mean the same on both builds.
template <typename Char> std::basic_string<Char> hostFormat(const Char* format, Char wideInPlaceOf)
{
    std::basic_string<Char> out;
    for (const Char* p = format; *p != 0; ++p) {
        out.push_back(*p);
        if (*p != '%') {
            continue;
        }
        ++p;
        if (*p == '%') {
            out.push_back(*p);
            continue;
        }
        while (*p != 0 && std::wcschr(L"-+ #0123456789.*hlLqjzt", static_cast<wchar_t>(*p)) != nullptr) {
            out.push_back(*p++);
        }
        if (*p == 0) {
            break;
        }
        if (*p == wideInPlaceOf) {
            out.push_back('l');
            out.push_back('s');
        } else if (*p == 'S' || *p == 's') {
            out.push_back('s');  // the other of the two: narrow text on both
        } else {
            out.push_back(*p);
        }
    }
    return out;
}

// msvcrt's answer from a C99 one: -1 when the text does not fit `count`.
template <typename Char>
int counted(Char* buffer, std::size_t count, int needed, const std::basic_string<Char>& text)
{
    if (needed < 0) {
        return -1;
    }
    const std::size_t copy = std::min<std::size_t>(count, text.size());
    std::copy(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(copy), buffer);
    if (copy < count) {
        buffer[copy] = 0;
    }
    return static_cast<std::size_t>(needed) > count ? -1 : needed;
}

// The platform puts each UTF-16 unit in upper case by its own table. Here WCHAR
// is a whole character (32 bits), so the stand-in is the C library's towupper,
// per character, in a UTF-8 locale: in the "C" locale it would fold ASCII only.
wchar_t upperCase(wchar_t c)
{
    static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    return static_cast<wchar_t>(unicode != nullptr ? towupper_l(static_cast<wint_t>(c), unicode)
                                                   : std::towupper(static_cast<wint_t>(c)));
}
}  // namespace

DWORD GetLastError()
{
    return lastError;
}

void SetLastError(DWORD error)
{
    lastError = error;
}

void OutputDebugStringA(LPCSTR text)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.debugOutput.emplace_back(text != nullptr ? text : "");
}

int _vsnprintf(char* buffer, std::size_t count, const char* format, va_list args)
{
    const std::string hostFmt = hostFormat<char>(format, 'S');
    va_list measure;
    va_copy(measure, args);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): `args` is the caller's started list
    const int needed = std::vsnprintf(nullptr, 0, hostFmt.c_str(), measure);
    va_end(measure);
    if (needed < 0) {
        return -1;
    }
    std::string text(static_cast<std::size_t>(needed) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), hostFmt.c_str(), args);
    text.resize(static_cast<std::size_t>(needed));
    return counted(buffer, count, needed, text);
}

int _vsnwprintf(wchar_t* buffer, std::size_t count, const wchar_t* format, va_list args)
{
    ++wideFormatterCallCount;
    const std::wstring hostFmt = hostFormat<wchar_t>(format, L's');
    // vswprintf cannot measure; grow until the text fits.
    std::wstring text(256, L'\0');
    for (;;) {
        va_list attempt;
        va_copy(attempt, args);
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): `args` is the caller's started list
        const int n = std::vswprintf(text.data(), text.size(), hostFmt.c_str(), attempt);
        va_end(attempt);
        if (n >= 0) {
            text.resize(static_cast<std::size_t>(n));
            return counted(buffer, count, n, text);
        }
        if (text.size() > (1U << 24)) {
            return -1;  // an encoding error, not a short buffer
        }
        text.resize(text.size() * 2);
    }
}

int CompareStringOrdinal(LPCWSTR string1, int count1, LPCWSTR string2, int count2, BOOL ignoreCase)
{
    if (string1 == nullptr || string2 == nullptr || count1 < -1 || count2 < -1) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::size_t length1 = count1 == -1 ? std::wcslen(string1) : static_cast<std::size_t>(count1);
    const std::size_t length2 = count2 == -1 ? std::wcslen(string2) : static_cast<std::size_t>(count2);
    for (std::size_t i = 0; i < std::min(length1, length2); ++i) {
        const wchar_t a = ignoreCase ? upperCase(string1[i]) : string1[i];
        const wchar_t b = ignoreCase ? upperCase(string2[i]) : string2[i];
        if (a != b) {
            return a < b ? CSTR_LESS_THAN : CSTR_GREATER_THAN;
        }
    }
    if (length1 == length2) {
        return CSTR_EQUAL;
    }
    return length1 < length2 ? CSTR_LESS_THAN : CSTR_GREATER_THAN;
}

DWORD GetTimeZoneInformation(TIME_ZONE_INFORMATION* zone)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (s.timeZoneAnswer == TIME_ZONE_ID_INVALID) {
        SetLastError(ERROR_INVALID_DATA);
        return TIME_ZONE_ID_INVALID;
    }
    *zone = s.timeZone;
    return s.timeZoneAnswer;
}

namespace host {

void setTimeZone(LONG bias, DWORD answer, LONG standardBias, LONG daylightBias)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.timeZone = {};
    s.timeZone.Bias = bias;
    s.timeZone.StandardBias = standardBias;
    s.timeZone.DaylightBias = daylightBias;
    s.timeZoneAnswer = answer;
}

std::vector<std::string> debugOutput()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.debugOutput;
}

long wideFormatterCalls()
{
    return wideFormatterCallCount;
}

void clearDebugOutput()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.debugOutput.clear();
}

}  // namespace host
