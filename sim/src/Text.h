// Internal: WMI name comparison (ignoring case) and the two grammars the
// service reads: object paths and WQL event queries.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sim {

bool equalsNoCase(std::wstring_view a, std::wstring_view b);
bool startsWithNoCase(std::wstring_view text, std::wstring_view prefix);

struct NoCaseLess {
    bool operator()(const std::wstring& a, const std::wstring& b) const;
};

// Lossy (non-ASCII becomes '?'): for log lines only.
std::string narrow(std::wstring_view text);

// `Class` or `Class.InstanceName="name"` (the name verbatim up to the closing quote).
struct ObjectPath {
    std::wstring className;
    std::optional<std::wstring> instanceName;
};
std::optional<ObjectPath> parseObjectPath(std::wstring_view path);
std::wstring instancePath(const std::wstring& className, const std::wstring& instanceName);

// `SELECT * FROM Class` with an optional `WHERE InstanceName = "name"`; keywords
// ignore case, the name is verbatim.
struct EventQuery {
    std::wstring className;
    std::optional<std::wstring> instanceName;
};
std::optional<EventQuery> parseEventQuery(std::wstring_view query);

}  // namespace sim
