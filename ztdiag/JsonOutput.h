// The tool's JSON output, made with the JSON library: one document for the
// listing and the cable test, one single-line object per watch event, and one
// for an error. The fields are the README's ("From a terminal"). Each text
// ends with a line break.
#pragma once

#include <string>
#include <vector>

#include "ztdiag/Reports.h"

std::wstring listingJson(const std::vector<AdapterReport>& adapters);
std::wstring cableTestJson(const CableTestReport& report);
std::wstring watchJson(const WatchEvent& event);
// {"error": {"code": <exit code>, "message": "..."}} on one line, so that it
// reads as a document and as a line of `watch`.
std::wstring errorJson(int code, const std::wstring& message);
// The listing with no adapter and that error, on one line too:
// {"adapters": [], "error": {...}}.
std::wstring emptyListingJson(int code, const std::wstring& message);
