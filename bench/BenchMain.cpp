// Measures every registered row group and prints one table. Arguments:
//   --row "what|measured|goal|verdict|note"   a row measured outside (the DLL's)
//   --raw                                     Google Benchmark's own report instead
// Other arguments go to Google Benchmark.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Rows.h"

namespace {

Row parseRow(const std::string& text)
{
    std::vector<std::string> fields;
    std::size_t begin = 0;
    for (;;) {
        const std::size_t bar = text.find('|', begin);
        fields.push_back(text.substr(begin, bar == std::string::npos ? std::string::npos : bar - begin));
        if (bar == std::string::npos) {
            break;
        }
        begin = bar + 1;
    }
    fields.resize(5);
    return {fields[0], fields[1], fields[2], fields[3], fields[4]};
}

void print(const std::vector<Row>& rows)
{
    std::size_t what = 4;
    std::size_t measured = 8;
    std::size_t goal = 4;
    for (const Row& row : rows) {
        what = std::max(what, row.what.size());
        measured = std::max(measured, row.measured.size());
        goal = std::max(goal, row.goal.size());
    }
    const auto line = [&](const std::string& a, const std::string& b, const std::string& c,
                          const std::string& d, const std::string& e) {
        std::printf("%-*s | %-*s | %-*s | %-6s | %s\n", static_cast<int>(what), a.c_str(),
                    static_cast<int>(measured), b.c_str(), static_cast<int>(goal), c.c_str(), d.c_str(),
                    e.c_str());
    };
    line("what", "measured", "goal", "", "note");
    line(std::string(what, '-'), std::string(measured, '-'), std::string(goal, '-'), "------", "----");
    std::vector<std::string> notes;
    for (const Row& row : rows) {
        std::string mark;
        if (!row.note.empty()) {
            notes.push_back(row.note);
            mark = "[" + std::to_string(notes.size()) + "]";
        }
        line(row.what, row.measured, row.goal, row.verdict, mark);
    }
    std::printf("\n");
    for (std::size_t i = 0; i < notes.size(); ++i) {
        std::printf("[%zu] %s\n", i + 1, notes[i].c_str());
    }
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<Row> outside;
    bool raw = false;
    std::vector<char*> passOn{argv[0]};
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--row") == 0 && i + 1 < argc) {
            outside.push_back(parseRow(argv[++i]));
        } else if (std::strcmp(argv[i], "--raw") == 0) {
            raw = true;
        } else {
            passOn.push_back(argv[i]);
        }
    }
    int count = static_cast<int>(passOn.size());
    benchmark::Initialize(&count, passOn.data());
    if (raw) {
        benchmark::RunSpecifiedBenchmarks();
        return 0;
    }
    std::vector<Row> rows = measureAllRows();
    rows.insert(rows.end(), outside.begin(), outside.end());
    print(rows);
    return 0;
}
