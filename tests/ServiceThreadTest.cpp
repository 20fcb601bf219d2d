// The tool's service thread ends whatever its work throws at its own boundary:
// traced at level 0, the work reported failed, the process going on.
#include "ztdiag/ServiceThread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "TraceCapture.h"
#include "trace/Trace.h"

namespace {

using namespace std::chrono_literals;

TEST(ServiceThread, anExceptionOutOfTheWorkEndsAtTheThreadsBoundaryWithALevel0Line)
{
    // what, the work, whether it succeeded, the lines traced
    const std::tuple<const char*, void (*)(), bool, Messages> cases[] = {
        {"no exception", [] { std::this_thread::sleep_for(20ms); }, true, {}},
        {"out of memory",
         [] { throw std::bad_alloc(); },
         false,
         {"[!] ztdiag service thread: out of memory"}},
        {"a std::exception",
         [] { throw std::runtime_error("no answer"); },
         false,
         {"[!] ztdiag service thread: ended by an exception: no answer"}},
        {"anything else", [] { throw 7; }, false, {"[!] ztdiag service thread: ended by an exception"}},
    };
    for (const auto& [what, work, succeeded, lines] : cases) {
        const TraceAll capture;
        traceLevel = 0;  // failures only, as shipped
        {
            ServiceThread thread(work);
            // The work's end wakes the waiter: the limit is never reached.
            ASSERT_TRUE(thread.waitFor(std::chrono::hours(1))) << what;
            EXPECT_EQ(thread.succeeded(), succeeded) << what;
        }
        EXPECT_EQ(tracedMessages(), lines) << what;
    }
}

}  // namespace
