// The tool's JSON output, made with the JSON library: one document for the
// listing and the cable test, one single-line object per watch event. The
// fields are the README's ("From a terminal"). Each text ends with a line break.
#pragma once

#include <string>
#include <vector>

#include "ztdiag/Reports.h"

std::wstring listingJson(const std::vector<AdapterReport>& adapters);
std::wstring cableTestJson(const CableTestReport& report);
std::wstring watchJson(const WatchEvent& event);
