// What `watch --metrics` keeps in its file: each adapter as read when the
// watch began (or it arrived), its link as the events tell it since, its
// temperatures as last read, and what only a watcher can count: link changes,
// downshifts and removals. Fed and read on the main thread.
#pragma once

#include <string>
#include <vector>

#include "ztdiag/MetricsOutput.h"
#include "ztdiag/Reports.h"

class WatchMetrics {
public:
    // An adapter read anew; one seen before keeps its counters.
    void read(AdapterMetrics reading);
    void temperatures(const std::wstring& adapter, const ZtThermalInfo& thermal);
    // A line of the watch, as classified (another speed, a downshift).
    void apply(const WatchEvent& event);

    std::string text() const { return metricsText(adapters_); }

private:
    AdapterMetrics* find_(const std::wstring& adapter);

    std::vector<AdapterMetrics> adapters_;
};

// Seconds since 1970 (UTC) of a watch's time; its local time if the offset isn't known.
double unixSeconds(const WatchTime& time);
