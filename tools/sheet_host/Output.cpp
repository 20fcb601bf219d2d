#include "tools/sheet_host/Output.h"

#include <cstdio>
#include <mutex>

#include "platform/Threading.h"

namespace {

struct OutputState {
    SrwLock lock;
    bool holding = false;
    std::vector<std::string> held;
};

OutputState& outputState()
{
    static OutputState state;
    return state;
}

void print(const std::string& line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace

void say(const std::string& line)
{
    const std::lock_guard<SrwLock> guard(outputState().lock);
    if (outputState().holding) {
        outputState().held.push_back(line);
    } else {
        print(line);
    }
}

void sayNow(const std::string& line)
{
    const std::lock_guard<SrwLock> guard(outputState().lock);
    print(line);
}

void holdLines(bool hold)
{
    const std::lock_guard<SrwLock> guard(outputState().lock);
    outputState().holding = hold;
}

std::vector<std::string> takeHeldLines()
{
    const std::lock_guard<SrwLock> guard(outputState().lock);
    std::vector<std::string> lines;
    lines.swap(outputState().held);
    return lines;
}
