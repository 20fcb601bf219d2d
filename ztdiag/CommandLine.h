// The tool's command line: a command, its adapter, the cable category and
// the output form, or the reason it can't be read.
#pragma once

#include <string>
#include <vector>

#include "nic/CableCategory.h"

enum class CommandKind {
    List,  // no command word: every adapter
    CableTest,
    Watch,
    Metrics,
    Help,
    Version,
};

struct Command {
    CommandKind kind = CommandKind::List;
    // As the user named it (AdapterSelector.h). Left out, the only one
    // (cable-test) or all (watch); given empty, it names none.
    std::wstring adapter;
    bool adapterGiven = false;
    CableCategory category = Cat5e;  // the page's first offer
    bool json = false;
    // The metrics file: metrics --output (empty: the output stream), watch
    // --metrics (empty: none).
    std::wstring metricsFile;
    bool quiet = false;  // nothing on either stream: the exit code only
};

// Reads `args` (without the program's name). False, with a one-line
// `error`, for a usage error (the first one); --json and --quiet are read from
// the whole line even then. --help and --version win over everything else.
bool parseCommandLine(const std::vector<std::wstring>& args, Command& command, std::wstring& error);

// Equal but for the case of letters, as the platform compares names:
// ordinally, any letter in upper case (adapter names, instance ids, categories).
bool sameIgnoringCase(const std::wstring& a, const std::wstring& b);

// The category's name as the page's combo box shows it: "5e", "6", "6a".
const wchar_t* categoryName(CableCategory category);

// The one-line usage hint.
extern const wchar_t* const usageLine;
