// The console tool's entry: the command line in, text or JSON out through a
// Console, and the exit code back. The Windows program's main calls it, and
// so can tests. Runs on the calling thread; the service work of a command runs
// on a thread of its own, waited for with the limits below.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "ztdiag/Console.h"

// The exit codes, as the help and the README list them.
enum ExitCode : int {
    exitOk = 0,
    exitCableFault = 1,  // the cable test found a fault on a pair
    exitNotTestable = 2,  // the adapter isn't there or can't be tested
    exitServiceFailed = 3,  // the management service failed or didn't answer in time
    exitUsage = 64,
    exitCantWrite = 73,  // the metrics file can't be written; the old one is left
    exitOutputClosed = 74,  // the output was closed (the reader of a pipe went away)
    exitInterrupted = 130,  // Ctrl+C ended a command before its result
};

// How long the main thread waits for the management service.
struct ZtdiagLimits {
    // A listing, or a watch's subscriptions and its end.
    std::chrono::milliseconds service{std::chrono::seconds(20)};
    // The whole cable test run, the driver's test (up to 8 seconds) included.
    std::chrono::milliseconds cableTest{std::chrono::seconds(40)};
    // After the driver's test, for the link the test took down to come back.
    std::chrono::milliseconds linkReturn{std::chrono::seconds(5)};
    // A watch reads each adapter's temperatures this often, as the page does.
    std::chrono::milliseconds healthPeriod{1500};
};

// `args` without the program's name.
int ztdiagMain(const std::vector<std::wstring>& args, Console& console, const ZtdiagLimits& limits = {});
