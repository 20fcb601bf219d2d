// The sheet host's output: one fact a line on stdout, from any thread; while held
// back (the rounds of a repeated run), kept for the caller to compare and show.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A fact of the run: printed, or kept while lines are held back.
void say(const std::string& line);
// Printed at once even while lines are held back (a wait that timed out).
void sayNow(const std::string& line);
// A later round's summary. A run of consecutive rounds with the same summary is
// one line, "rounds FIRST to LAST: SUMMARY", printed once another line comes.
void sayRound(std::uint32_t round, const std::string& summary);
// From now on say() keeps its lines (true) or prints them (false).
void holdLines(bool hold);
// The lines kept since the last call.
std::vector<std::string> takeHeldLines();
