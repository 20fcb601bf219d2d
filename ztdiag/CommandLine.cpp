#include "ztdiag/CommandLine.h"

#include <cwchar>

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

bool commandNamed(const std::wstring& arg, CommandKind& kind)
{
    const struct {
        const wchar_t* word;
        CommandKind kind;
    } words[] = {{L"cable-test", CommandKind::CableTest},
                 {L"watch", CommandKind::Watch},
                 {L"metrics", CommandKind::Metrics}};
    for (const auto& entry : words) {
        if (arg == entry.word) {
            kind = entry.kind;
            return true;
        }
    }
    return false;
}

// "--output" or "--metrics" if `arg` is that option, alone or with "=FILE".
const wchar_t* fileOption(const std::wstring& arg)
{
    for (const wchar_t* option : {L"--output", L"--metrics"}) {
        if (arg == option || arg.rfind(std::wstring(option) + L"=", 0) == 0) {
            return option;
        }
    }
    return nullptr;
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
    = L"Usage: ztdiag [cable-test [ADAPTER] [--category 5e|6|6a] | watch [ADAPTER] [--metrics FILE]"
      L" | metrics [ADAPTER] [--output FILE]] [--json] [--quiet]"
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
    bool helpOrVersion = false;
    CommandKind helpKind = CommandKind::Help;
    for (const std::wstring& arg : args) {
        if (isHelp(arg) || arg == L"--version") {
            helpKind = isHelp(arg) ? CommandKind::Help : CommandKind::Version;
            helpOrVersion = true;
            break;
        }
    }
    // The first usage error is the one told; the rest of the line is still
    // read for --json and --quiet, which say how to tell it.
    error.clear();
    const auto refuse = [&error](const std::wstring& reason) {
        if (error.empty()) {
            error = reason;
        }
    };
    bool haveCommand = false;
    bool haveCategory = false;
    const wchar_t* fileGiven = nullptr;  // the option that named the metrics file
    std::vector<std::wstring> names;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::wstring& arg = args[i];
        if (arg == L"--json") {
            command.json = true;
        } else if (arg == L"--quiet") {
            command.quiet = true;
        } else if (arg == L"--category" || arg.rfind(L"--category=", 0) == 0) {
            std::wstring value;
            if (arg.size() > 10) {
                value = arg.substr(11);
            } else if (i + 1 < args.size()) {
                value = args[++i];
            } else {
                refuse(L"--category needs a value: 5e, 6 or 6a");
                continue;
            }
            if (!parseCategory(value, command.category)) {
                refuse(L"unknown cable category '" + value + L"'; the categories are 5e, 6 and 6a");
            }
            haveCategory = true;
        } else if (const wchar_t* option = fileOption(arg)) {
            const std::size_t length = std::wcslen(option);
            if (arg.size() > length) {
                command.metricsFile = arg.substr(length + 1);
            } else if (i + 1 < args.size()) {
                command.metricsFile = args[++i];
            } else {
                refuse(std::wstring(option) + L" needs a file name");
                continue;
            }
            if (command.metricsFile.empty()) {
                refuse(std::wstring(L"an empty file name for ") + option);
            }
            fileGiven = option;
        } else if (arg.size() > 1 && arg[0] == L'-') {
            refuse(L"unknown option '" + arg + L"'");
        } else if (!haveCommand && names.empty() && commandNamed(arg, command.kind)) {
            haveCommand = true;
        } else {
            names.push_back(arg);
        }
    }
    if (helpOrVersion) {
        command.kind = helpKind;
        error.clear();
        return true;
    }
    if (!haveCommand && !names.empty()) {
        refuse(L"unknown command '" + names.front() + L"'; the commands are cable-test, watch and metrics");
    }
    if (names.size() > 1) {
        refuse(L"one adapter at a time: '" + names[0] + L"' and '" + names[1]
               + L"' (put a name with blanks in quotes)");
    }
    if (haveCategory && command.kind != CommandKind::CableTest) {
        refuse(L"--category goes with cable-test only");
    }
    if (fileGiven != nullptr && std::wcscmp(fileGiven, L"--output") == 0
        && command.kind != CommandKind::Metrics) {
        refuse(L"--output goes with metrics only");
    }
    if (fileGiven != nullptr && std::wcscmp(fileGiven, L"--metrics") == 0
        && command.kind != CommandKind::Watch) {
        refuse(L"--metrics goes with watch only");
    }
    if (command.kind == CommandKind::Metrics && command.json) {
        refuse(L"metrics are written in the Prometheus text format, never as JSON");
    }
    if (!names.empty()) {
        command.adapter = names.front();
        command.adapterGiven = true;
    }
    return error.empty();
}
