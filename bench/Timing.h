// Runs one Google Benchmark by name and gives its time per iteration: the
// least of a few repetitions, which a machine shared with other work
// disturbs least.
#pragma once

#include <string>

// Nanoseconds of real time per iteration of the registered benchmark `name`;
// a negative number if no benchmark has that name.
double nanosecondsPerIteration(const std::string& name);
