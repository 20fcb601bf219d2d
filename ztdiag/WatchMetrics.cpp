#include "ztdiag/WatchMetrics.h"

namespace {

// Days since 1970-01-01 of a date of the proleptic Gregorian calendar.
long long daysSinceEpoch(int year, unsigned month, unsigned day)
{
    year -= month <= 2 ? 1 : 0;
    const long long era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<long long>(dayOfEra) - 719468;
}

}  // namespace

double unixSeconds(const WatchTime& time)
{
    const SYSTEMTIME& t = time.local;
    const long long days = daysSinceEpoch(t.wYear, t.wMonth, t.wDay);
    const long long seconds = days * 86400 + t.wHour * 3600LL + t.wMinute * 60LL + t.wSecond
        - (time.offsetKnown ? time.utcOffsetMinutes * 60LL : 0);
    return static_cast<double>(seconds) + t.wMilliseconds / 1000.0;
}

AdapterMetrics* WatchMetrics::find_(const std::wstring& adapter)
{
    for (AdapterMetrics& metrics : adapters_) {
        if (metrics.report.name == adapter) {
            return &metrics;
        }
    }
    return nullptr;
}

void WatchMetrics::read(AdapterMetrics reading)
{
    reading.watched = true;
    if (AdapterMetrics* known = find_(reading.report.name)) {
        reading.linkChanges = known->linkChanges;
        reading.downshifts = known->downshifts;
        reading.removals = known->removals;
        reading.lastChangeSeconds = known->lastChangeSeconds;
        *known = std::move(reading);
        return;
    }
    adapters_.push_back(std::move(reading));
}

void WatchMetrics::temperatures(const std::wstring& adapter, const ZtThermalInfo& thermal)
{
    if (AdapterMetrics* known = find_(adapter)) {
        known->report.thermal = thermal;
    }
}

void WatchMetrics::apply(const WatchEvent& event)
{
    AdapterMetrics* const known = find_(event.adapter);
    if (known == nullptr) {
        return;
    }
    AdapterReport& report = known->report;
    switch (event.kind) {
    case WatchEvent::Connected:
    case WatchEvent::Speed:
        report.media = MediaConnectState::Connected;
        report.linkSpeed = event.linkSpeed;
        known->downshifts += event.downshift ? 1 : 0;
        break;
    case WatchEvent::Disconnected:
        report.media = MediaConnectState::Disconnected;
        report.linkSpeed = 0;
        break;
    case WatchEvent::Removed:
        // Gone: nothing of its link or temperatures is known until it is back.
        ++known->removals;
        report.media = MediaConnectState::Unknown;
        report.linkSpeed = 0;
        report.thermal = {};
        return;
    case WatchEvent::Arrived:
        report.media = MediaConnectState::Unknown;
        return;
    case WatchEvent::State:
    case WatchEvent::Added:
    case WatchEvent::Health:
        return;
    }
    ++known->linkChanges;
    known->lastChangeSeconds = unixSeconds(event.time);
}
