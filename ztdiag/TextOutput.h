// The tool's text output, in the words the page uses: the listing as blocks
// of "Label : value" lines, the cable test's lines, one line per watch event.
// Each text ends with a line break.
#pragma once

#include <string>
#include <vector>

#include "ztdiag/Reports.h"

std::wstring listingText(const std::vector<AdapterReport>& adapters);
std::wstring cableTestText(const CableTestReport& report);
std::wstring watchText(const WatchEvent& event);

// "Ready", or why the device isn't (the page's line for it).
std::wstring adapterStateText(const AdapterReport& adapter);
// "Connected, 2.5 Gbps", "Disconnected", or "<unknown>" (isLinkKnown); an
// unknown speed reads "Connected, <unknown>".
std::wstring linkText(MediaConnectState media, std::uint64_t linkSpeed);
// ISO 8601 local time with milliseconds and the UTC offset,
// "2024-05-14T09:30:00.250+02:00"; without the offset when it isn't known.
std::wstring timestampText(const WatchTime& time);
