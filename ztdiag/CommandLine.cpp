#include "ztdiag/CommandLine.h"

#include "platform.h"

namespace {

const struct {
    const wchar_t* name;
    CableCategory category;
} categories[] = {{L"5e", Cat5e}, {L"6", Cat6}, {L"6a", Cat6a}};

bool parseCategory(const std::wstring& text, CableCategory& category)
{
    for (const auto& entry : categories) {
        if (sameIgnoringCase(text, entry.name)) {
            category = entry.category;
            return true;
        }
    }
    return false;
}

bool isHelp(const std::wstring& arg)
{
    return arg == L"--help" || arg == L"-h" || arg == L"-?" || arg == L"/?";
}

}  // namespace

bool sameIgnoringCase(const std::wstring& a, const std::wstring& b)
{
    return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

const wchar_t* const usageLine
    = L"Usage: ztdiag [cable-test [ADAPTER] [--category 5e|6|6a] | watch [ADAPTER]] [--json]"
      L" (ztdiag --help tells more)";

const wchar_t* categoryName(CableCategory category)
{
    for (const auto& entry : categories) {
        if (entry.category == category) {
            return entry.name;
        }
    }
    return L"?";
}

bool parseCommandLine(const std::vector<std::wstring>& args, Command& command, std::wstring& error)
{
    for (const std::wstring& arg : args) {
        if (isHelp(arg)) {
            command.kind = CommandKind::Help;
            return true;
        }
        if (arg == L"--version") {
            command.kind = CommandKind::Version;
            return true;
        }
    }
    bool haveCommand = false;
    bool haveCategory = false;
    std::vector<std::wstring> names;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::wstring& arg = args[i];
        if (arg == L"--json") {
            command.json = true;
        } else if (arg == L"--category" || arg.rfind(L"--category=", 0) == 0) {
            std::wstring value;
            if (arg.size() > 10) {
                value = arg.substr(11);
            } else if (i + 1 < args.size()) {
                value = args[++i];
            } else {
                error = L"--category needs a value: 5e, 6 or 6a";
                return false;
            }
            if (!parseCategory(value, command.category)) {
                error = L"unknown cable category '" + value + L"'; the categories are 5e, 6 and 6a";
                return false;
            }
            haveCategory = true;
        } else if (arg.size() > 1 && arg[0] == L'-') {
            error = L"unknown option '" + arg + L"'";
            return false;
        } else if (!haveCommand && names.empty() && (arg == L"cable-test" || arg == L"watch")) {
            command.kind = arg == L"watch" ? CommandKind::Watch : CommandKind::CableTest;
            haveCommand = true;
        } else {
            names.push_back(arg);
        }
    }
    if (!haveCommand && !names.empty()) {
        error = L"unknown command '" + names.front() + L"'; the commands are cable-test and watch";
        return false;
    }
    if (names.size() > 1) {
        error = L"one adapter at a time: '" + names[0] + L"' and '" + names[1]
            + L"' (put a name with blanks in quotes)";
        return false;
    }
    if (haveCategory && command.kind != CommandKind::CableTest) {
        error = L"--category goes with cable-test only";
        return false;
    }
    if (!names.empty()) {
        command.adapter = names.front();
        command.adapterGiven = true;
    }
    return true;
}
