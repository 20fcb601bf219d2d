#include "Rows.h"

#include <cstdio>
#include <map>

namespace {

std::multimap<std::string, RowSource>& groups()
{
    static std::multimap<std::string, RowSource> registered;
    return registered;
}

}  // namespace

RowGroup::RowGroup(const char* order, RowSource source) noexcept
{
    groups().emplace(order, source);
}

std::vector<Row> measureAllRows()
{
    std::vector<Row> rows;
    for (const auto& group : groups()) {
        for (Row& row : group.second()) {
            rows.push_back(std::move(row));
        }
    }
    return rows;
}

std::string verdict(bool ok)
{
    return ok ? "met" : "MISSED";
}

std::string fixed(double value, int digits)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}
