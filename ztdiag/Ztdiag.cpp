#include "ztdiag/Ztdiag.h"

#include <exception>

#include "nic/AdapterTexts.h"
#include "resources/resource.h"
#include "trace/FormatString.h"
#include "ztdiag/Commands.h"

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
        L"  ztdiag watch [ADAPTER] [--json]\n"
        L"      Prints a line for each link change, removal and arrival of the adapter and\n"
        L"      each change of its temperature health (read every 1.5 seconds), with the\n"
        L"      time and its UTC offset, until Ctrl+C; a connection slower than the one\n"
        L"      before is marked as a downshift. Without a name: every ZT adapter, and\n"
        L"      each that arrives meanwhile.\n"
        L"  ztdiag --help | --version\n"
        L"\n"
        L"ADAPTER is a name as the listing shows it, in quotes if it has blanks, or the\n"
        L"adapter's device instance id; case doesn't matter. With one adapter on the\n"
        L"machine it may be left out. --json prints one JSON document (watch: one JSON\n"
        L"object per line).\n"
        L"\n"
        L"Exit codes:\n"
        L"  0   all good\n"
        L"  1   the cable test found a fault on a pair\n"
        L"  2   the adapter isn't there or can't be tested (not found, not ready,\n"
        L"      firmware too old)\n"
        L"  3   the management service failed, or didn't answer within %s\n"
        L"      (the cable test: %s)\n"
        L"  64  usage error\n",
        version, durationText(limits.service).c_str(), durationText(limits.cableTest).c_str());
}

// "ztdiag: <message>" and the usage line on the error stream; gives exitUsage.
int usageError(Console& console, const std::wstring& message)
{
    console.err(L"ztdiag: " + message + L"\n" + usageLine + L"\n");
    return exitUsage;
}

// The adapters that `name` names, by their name or device instance id, case
// ignored. None is preferred for its exact spelling: the user was told case
// doesn't matter, so names that differ only in case name both adapters.
std::vector<const ZtAdapterDevice*> adaptersNamed(const std::vector<ZtAdapterDevice>& adapters,
                                                  const std::wstring& name)
{
    std::vector<const ZtAdapterDevice*> named;
    for (const ZtAdapterDevice& device : adapters) {
        if (sameIgnoringCase(device.name, name) || sameIgnoringCase(device.instanceId, name)) {
            named.push_back(&device);
        }
    }
    return named;
}

std::wstring quotedInstanceId(const ZtAdapterDevice& device)
{
    return device.instanceId.empty() ? std::wstring(unknownText) : L"'" + device.instanceId + L"'";
}

// Each adapter as the user can name it: its name, and its device instance id
// where another adapter has that name too.
std::wstring nameList(const std::vector<ZtAdapterDevice>& adapters)
{
    std::wstring names;
    for (const ZtAdapterDevice& device : adapters) {
        names += (names.empty() ? L"'" : L", '") + device.name + L"'";
        if (adaptersNamed(adapters, device.name).size() > 1) {
            names += L" (device instance id " + quotedInstanceId(device) + L")";
        }
    }
    return names;
}

int unknownAdapter(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters)
{
    const std::wstring& name = context.command.adapter;
    if (adapters.empty()) {
        return context.fail(exitNotTestable, L"no ZT adapter named '" + name + L"': there is no ZT adapter");
    }
    return context.fail(exitNotTestable,
                        L"no ZT adapter named '" + name + L"'; the ZT adapters are " + nameList(adapters));
}

int ambiguousAdapter(const CommandContext& context, const std::vector<const ZtAdapterDevice*>& named)
{
    std::wstring ids;
    for (const ZtAdapterDevice* device : named) {
        ids += (ids.empty() ? L"" : L", ") + quotedInstanceId(*device);
    }
    return usageError(context.console,
                      L"'" + context.command.adapter + L"' names " + std::to_wstring(named.size())
                          + L" ZT adapters; give the device instance id of the one to "
                          + (context.command.kind == CommandKind::Watch ? L"watch: " : L"test: ") + ids);
}

int dispatch(const CommandContext& context)
{
    const Command& command = context.command;
    if (command.kind == CommandKind::Help) {
        context.console.out(helpText(context.limits));
        return exitOk;
    }
    if (command.kind == CommandKind::Version) {
        context.console.out(std::wstring(L"ztdiag ") + version + L"\n");
        return exitOk;
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
    if (!command.adapter.empty()) {
        const std::vector<const ZtAdapterDevice*> named = adaptersNamed(adapters, command.adapter);
        if (named.empty()) {
            return unknownAdapter(context, adapters);
        }
        if (named.size() > 1) {
            return ambiguousAdapter(context, named);
        }
        const ZtAdapterDevice& chosen = *named.front();
        return command.kind == CommandKind::CableTest ? runCableTest(context, chosen)
                                                      : watchAdapters(context, {chosen});
    }
    if (adapters.empty()) {
        return context.fail(exitNotTestable, L"no ZT adapter found");
    }
    if (command.kind == CommandKind::Watch) {
        return watchAdapters(context, adapters);
    }
    if (adapters.size() > 1) {
        return usageError(context.console,
                          std::to_wstring(adapters.size()) + L" ZT adapters: name the one to test: "
                              + nameList(adapters));
    }
    return runCableTest(context, adapters.front());
}

}  // namespace

int CommandContext::fail(int code, const std::wstring& message) const
{
    console.err(L"ztdiag: " + message + L"\n");
    return code;
}

int CommandContext::timedOut(std::chrono::milliseconds limit) const
{
    return fail(exitServiceFailed, L"the management service didn't answer within " + durationText(limit));
}

int ztdiagMain(const std::vector<std::wstring>& args, Console& console, const ZtdiagLimits& limits)
{
    try {
        Command command;
        std::wstring error;
        if (!parseCommandLine(args, command, error)) {
            return usageError(console, error);
        }
        return dispatch(CommandContext{console, limits, command});
    } catch (const std::exception&) {
        // Only allocation fails this way, or a thread that can't be made.
        console.err(L"ztdiag: out of memory or threads\n");
        return exitServiceFailed;
    }
}
