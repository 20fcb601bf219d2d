// The three commands, each from the adapters the device manager lists to the
// exit code: the service work on a ServiceThread, the printing on the
// calling thread.
#pragma once

#include <string>
#include <vector>

#include "installer/DeviceClassSet.h"
#include "ztdiag/CommandLine.h"
#include "ztdiag/Console.h"
#include "ztdiag/Reports.h"
#include "ztdiag/Ztdiag.h"

struct CommandContext {
    Console& console;
    const ZtdiagLimits& limits;
    const Command& command;

    // "ztdiag: <message>" on the error stream (and the usage line for
    // exitUsage), with --json also errorJson on the output; gives `code`.
    int fail(int code, const std::wstring& message) const;
    // The same for the listing that found no adapter: emptyListingJson with --json.
    int failEmptyListing(int code, const std::wstring& message) const;
    // The line for a service that didn't answer within `limit`; gives exitServiceFailed.
    int timedOut(std::chrono::milliseconds limit) const;
    // Once Console::out failed: "ztdiag: the output was closed" on the error
    // stream, nothing more on the output; gives exitOutputClosed.
    int outputClosed() const;
};

// One adapter as the listing and the metrics show it, read on the calling
// (service) thread with no event subscription.
AdapterReport surveyAdapter(const ZtAdapterDevice& device);

int listAdapters(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters);
int runCableTest(const CommandContext& context, const ZtAdapterDevice& adapter);
int watchAdapters(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters);
int writeMetrics(const CommandContext& context, const std::vector<ZtAdapterDevice>& adapters);
// The metrics text to `path`, replaced at once, or to the output when `path`
// is empty: exitOk, or the error told.
int writeMetricsText(const CommandContext& context, const std::wstring& path, const std::string& text);
