#include "tools/sheet_host/Output.h"

#include <cstdio>
#include <mutex>

#include "platform/Threading.h"

namespace {

struct OutputState {
    SrwLock lock;
    bool holding = false;
    std::vector<std::string> held;
    // The run of rounds not printed yet; none while `first` is 0.
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    std::string summary;
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

// Prints the run of rounds that waits; the lock is held.
void printRounds(OutputState& state)
{
    if (state.first == 0) {
        return;
    }
    print((state.first == state.last
               ? "round " + std::to_string(state.first)
               : "rounds " + std::to_string(state.first) + " to " + std::to_string(state.last))
          + ": " + state.summary);
    state.first = 0;
}

}  // namespace

void say(const std::string& line)
{
    const std::lock_guard<SrwLock> guard(outputState().lock);
    if (outputState().holding) {
        outputState().held.push_back(line);
    } else {
        printRounds(outputState());
        print(line);
    }
}

void sayNow(const std::string& line)
{
    const std::lock_guard<SrwLock> guard(outputState().lock);
    printRounds(outputState());
    print(line);
}

void sayRound(std::uint32_t round, const std::string& summary)
{
    const std::lock_guard<SrwLock> guard(outputState().lock);
    OutputState& state = outputState();
    if (state.first != 0 && state.last + 1 == round && state.summary == summary) {
        state.last = round;
        return;
    }
    printRounds(state);
    state.first = round;
    state.last = round;
    state.summary = summary;
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
