#include "ztdiag/Ztdiag.h"

#include <exception>

#include "nic/AdapterTexts.h"
#include "resources/resource.h"
#include "trace/FormatString.h"
#include "ztdiag/AdapterSelector.h"
#include "ztdiag/Commands.h"
#include "ztdiag/JsonOutput.h"

namespace {

const wchar_t* const version = L"" ZTPROP_VERSION_TEXT;

int seconds(std::chrono::milliseconds limit)
{
    return static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(limit).count());
}

// "20 seconds", or "250 ms" for a limit below a second.
std::wstring durationText(std::chrono::milliseconds limit)
{
    return limit < std::chrono::seconds(1) ? formatString(L"%d ms", static_cast<int>(limit.count()))
                                           : formatString(L"%d seconds", seconds(limit));
}

std::wstring helpText(const ZtdiagLimits& limits)
{
    return formatString(
        L"ztdiag %s: link, health and cable test of ZT network adapters\n"
        L"\n"
        L"  ztdiag [--json]\n"
        L"      Lists every ZT adapter: its device state, link state and speed, temperature\n"
        L"      health with both temperatures, firmware version and whether it can run a\n"
        L"      cable test.\n"
        L"  ztdiag cable-test [ADAPTER] [--category 5e|6|6a] [--json]\n"
        L"      Runs the driver's cable test (up to 8 seconds; the link goes down meanwhile)\n"
        L"      and gives each wire pair's verdict, the distance to a fault, and the cable\n"
        L"      length, corrected for the cable category at 2.5 and 5 Gbps (default 5e).\n"
        L"      Ctrl+C waits for the driver's test to end and the link to come back;\n"
        L"      Ctrl+C again leaves at once.\n"
        L"  ztdiag watch [ADAPTER] [--metrics FILE] [--json]\n"
        L"      Prints a line for each link change, removal and arrival of the adapter and\n"
        L"      each change of its temperature health (read every 1.5 seconds), with the\n"
        L"      time and its UTC offset, until Ctrl+C; a connection slower than the one\n"
        L"      before is marked as a downshift. Without a name: every ZT adapter, and\n"
        L"      each that arrives meanwhile. --metrics keeps FILE current for a\n"
        L"      textfile collector, with counts of link changes, downshifts and removals.\n"
        L"  ztdiag metrics [ADAPTER] [--output FILE]\n"
        L"      Writes what the listing reads in the Prometheus text format, for a\n"
        L"      textfile collector: to the output, or into FILE, replaced at once.\n"
        L"  ztdiag --help | --version\n"
        L"\n"
        L"ADAPTER is the adapter's name as the listing shows it, in quotes if it has\n"
        L"blanks; its connection's name (\"Ethernet 2\"), interface index or MAC address\n"
        L"(00-1B-21-3A-4F-5C, 00:1b:21:3a:4f:5c or 001B213A4F5C), as the listing shows\n"
        L"them too; or its device instance id. Case doesn't matter; words that name more\n"
        L"than one adapter are refused. With one adapter on the machine it may be left\n"
        L"out. --json prints one JSON document (watch: one JSON object per line); an\n"
        L"error is then also one line of JSON on the output,\n"
        L"{\"error\":{\"code\":<exit code>,\"message\":\"<the error line without ztdiag:>\"}}.\n"
        L"--quiet prints nothing at all, on either stream: the exit code tells.\n"
        L"\n"
        L"Exit codes:\n"
        L"  0   all good\n"
        L"  1   the cable test found a fault on a pair\n"
        L"  2   the adapter isn't there or can't be tested (not found, not ready,\n"
        L"      firmware too old)\n"
        L"  3   the management service failed, or didn't answer within %s\n"
        L"      (the cable test: %s)\n"
        L"  64  usage error\n"
        L"  73  the metrics file can't be written (the old one is left as it was)\n"
        L"  74  the output was closed (the reader of a pipe went away)\n"
        L"  130 a cable test interrupted by Ctrl+C\n",
        version, durationText(limits.service).c_str(), durationText(limits.cableTest).c_str());
}

// Every error the tool tells, in one place: "ztdiag: <message>" on the error
// stream, for a usage error with the usage line; with --json also `document`
// (the error object) on the output, whether or not that can still be written:
// the error is the answer either way.
int tellError(Console& console, bool json, int code, const std::wstring& message,
              std::wstring (*document)(int, const std::wstring&) = errorJson)
{
    console.err(L"ztdiag: " + message + L"\n" + (code == exitUsage ? usageLine + std::wstring(L"\n") : L""));
    if (json) {
        console.out(document(code, message));
    }
    return code;
}

// --quiet: nothing reaches either stream; Ctrl+C still reaches the command.
class QuietConsole : public Console {
public:
    explicit QuietConsole(Console& console) : console_(console) { }
    bool out(const std::wstring&) override { return true; }
    void err(const std::wstring&) override { }
    bool isTerminal() const override { return false; }
    void onInterrupt(std::function<void()> handler) override { console_.onInterrupt(std::move(handler)); }

private:
    Console& console_;
};

int unknownAdapter(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters,
                   const std::vector<AdapterConnection>& connections)
{
    const std::wstring& name = context.command.adapter;
    if (adapters.empty()) {
        return context.fail(exitNotTestable, L"no ZT adapter named '" + name + L"': there is no ZT adapter");
    }
    return context.fail(exitNotTestable,
                        L"no ZT adapter named '" + name + L"'; the ZT adapters are "
                            + adapterNameList(adapters, connections));
}

const wchar_t* oneToWhat(CommandKind kind)
{
    switch (kind) {
    case CommandKind::Watch:
        return L"watch: ";
    case CommandKind::Metrics:
        return L"read: ";
    default:
        return L"test: ";
    }
}

// Each named adapter's device instance id; where the text names them in
// different ways, each with how it names which.
int ambiguousAdapter(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters,
                     const std::vector<AdapterMatch>& named)
{
    bool byNameOnly = true;
    for (const AdapterMatch& match : named) {
        byNameOnly = byNameOnly && match.key == AdapterKey::DeviceName;
    }
    std::wstring ids;
    for (const AdapterMatch& match : named) {
        const ZtAdapterDevice& device = adapters[match.adapter];
        ids += (ids.empty() ? L"" : L", ") + quotedInstanceId(device);
        if (!byNameOnly) {
            ids += std::wstring(L" (the ") + adapterKeyName(match.key) + L" of '" + device.name + L"')";
        }
    }
    return context.fail(exitUsage,
                        L"'" + context.command.adapter + L"' names " + std::to_wstring(named.size())
                            + L" ZT adapters; give the device instance id of the one to "
                            + oneToWhat(context.command.kind) + ids);
}

// An ADAPTER given empty names no adapter: it isn't "the only one" nor "all".
int emptyAdapterName(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters,
                     const std::vector<AdapterConnection>& connections)
{
    return context.fail(exitUsage,
                        adapters.empty() ? std::wstring(L"an empty adapter name; there is no ZT adapter")
                                         : L"an empty adapter name; the ZT adapters are "
                                + adapterNameList(adapters, connections));
}

// The one adapter the command's ADAPTER names, or the error that it names none or several.
int runOnNamed(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters)
{
    const Command& command = context.command;
    const std::vector<AdapterConnection> connections = findAdapterConnections(adapters);
    if (command.adapter.empty()) {
        return emptyAdapterName(context, adapters, connections);
    }
    const std::vector<AdapterMatch> named = adaptersNamed(adapters, connections, command.adapter);
    if (named.empty()) {
        return unknownAdapter(context, adapters, connections);
    }
    if (named.size() > 1) {
        return ambiguousAdapter(context, adapters, named);
    }
    const ZtAdapterDevice& chosen = adapters[named.front().adapter];
    switch (command.kind) {
    case CommandKind::CableTest:
        return runCableTest(context, chosen);
    case CommandKind::Metrics:
        return writeMetrics(context, {chosen});
    default:
        return watchAdapters(context, {chosen});
    }
}

int dispatch(const CommandContext& context)
{
    const Command& command = context.command;
    if (command.kind == CommandKind::Help || command.kind == CommandKind::Version) {
        const std::wstring text = command.kind == CommandKind::Help
            ? helpText(context.limits)
            : std::wstring(L"ztdiag ") + version + L"\n";
        return context.console.out(text) ? exitOk : context.outputClosed();
    }
    std::vector<ZtAdapterDevice> adapters;
    DWORD error = 0;
    if (!findZtAdapters(adapters, error)) {
        return context.fail(exitServiceFailed,
                            formatString(L"can't list the network adapters (SetupAPI error %u)",
                                         static_cast<unsigned>(error)));
    }
    if (command.kind == CommandKind::List) {
        return listAdapters(context, adapters);
    }
    if (command.kind == CommandKind::Metrics && !command.adapterGiven) {
        return writeMetrics(context, adapters);
    }
    if (command.adapterGiven) {
        return runOnNamed(context, adapters);
    }
    if (adapters.empty()) {
        return context.fail(exitNotTestable, L"no ZT adapter found");
    }
    if (command.kind == CommandKind::Watch) {
        return watchAdapters(context, adapters);
    }
    if (adapters.size() > 1) {
        return context.fail(exitUsage,
                            std::to_wstring(adapters.size()) + L" ZT adapters: name the one to test: "
                                + adapterNameList(adapters, findAdapterConnections(adapters)));
    }
    return runCableTest(context, adapters.front());
}

}  // namespace

int CommandContext::fail(int code, const std::wstring& message) const
{
    return tellError(console, command.json, code, message);
}

int CommandContext::failEmptyListing(int code, const std::wstring& message) const
{
    return tellError(console, command.json, code, message, emptyListingJson);
}

int CommandContext::timedOut(std::chrono::milliseconds limit) const
{
    return fail(exitServiceFailed, L"the management service didn't answer within " + durationText(limit));
}

int CommandContext::outputClosed() const
{
    console.err(L"ztdiag: the output was closed\n");
    return exitOutputClosed;
}

int ztdiagMain(const std::vector<std::wstring>& args, Console& console, const ZtdiagLimits& limits)
{
    Command command;
    try {
        std::wstring error;
        const bool read = parseCommandLine(args, command, error);
        QuietConsole quiet(console);
        Console& shown = command.quiet ? quiet : console;
        if (!read) {
            return tellError(shown, command.json, exitUsage, error);
        }
        return dispatch(CommandContext{shown, limits, command});
    } catch (const std::exception&) {
        // Only allocation fails this way, or a thread that can't be made.
        try {
            if (!command.quiet) {
                tellError(console, command.json, exitServiceFailed, L"out of memory or threads");
            }
        } catch (const std::exception&) {
        }
        return exitServiceFailed;
    }
}
