// The one table scripts/bench prints: each group of rows registers itself
// here with a function that measures and gives its rows. To add rows (the
// page's, say), add a .cpp file to bench/ with a static RowGroup and list it
// in bench/CMakeLists.txt; nothing else changes.
#pragma once

#include <string>
#include <vector>

struct Row {
    std::string what;  // what was measured
    std::string measured;  // the figure, with its unit
    std::string goal;  // the figure aimed at; empty if there is none
    std::string verdict;  // "met", "MISSED", or empty for information
    std::string note;  // why a figure misses its goal, or how to read it
};

using RowSource = std::vector<Row> (*)();

// Registers `source` under `order`: groups are measured and printed in
// ascending order ("10 trace", "20 format", "30 wmi", "50 page" ...).
class RowGroup {
public:
    RowGroup(const char* order, RowSource source) noexcept;
};

// Each registered group's rows, in order.
std::vector<Row> measureAllRows();

// "met" if `ok`, else "MISSED".
std::string verdict(bool ok);
// A number with `digits` decimals.
std::string fixed(double value, int digits);
