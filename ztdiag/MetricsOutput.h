// The ZT adapters as metrics for the Prometheus textfile collectors: what a
// scrape read of each adapter, and what a watch counted. A value that isn't
// known is left out, never written as 0.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "installer/DeviceClassSet.h"
#include "ztdiag/AdapterSelector.h"
#include "ztdiag/Reports.h"

struct AdapterMetrics {
    AdapterReport report;  // the scrape's reading
    std::wstring instanceId;
    std::wstring hardwareId;
    std::wstring connectionName;  // empty: unknown
    double scrapeSeconds = 0;
    // The service answered what a working adapter is asked (its state and its
    // link); an adapter that isn't working is asked nothing and succeeds.
    bool scrapeSucceeded = false;

    // Counted by a watch, written only when `watched`.
    bool watched = false;
    std::uint64_t linkChanges = 0;
    std::uint64_t downshifts = 0;
    std::uint64_t removals = 0;
    double lastChangeSeconds = 0;  // Unix time of the last link change; 0: none seen
};

// An adapter as the device manager and IP Helper alone tell it: a scrape the
// service hasn't answered, failed unless the device isn't working (it isn't asked).
AdapterMetrics unscrapedAdapter(const ZtAdapterDevice& device, const AdapterConnection& connection);
// An adapter read as the listing reads it, with the time it took; on the
// calling (service) thread.
AdapterMetrics scrapeAdapter(const ZtAdapterDevice& device, const AdapterConnection& connection);

// The whole exposition, UTF-8, ending with a newline.
std::string metricsText(const std::vector<AdapterMetrics>& adapters);
