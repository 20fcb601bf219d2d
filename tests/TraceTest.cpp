#include "trace/Trace.h"

#include <gtest/gtest.h>

#include <string>

#include "TraceCapture.h"
#include "host/HostPlatform.h"

namespace {

// Each traces from a different kind of function; the suffix must name it the
// way a reader of the trace would look it up in the source.
void freeFunction()
{
    ZT_TRACE(0, "[!] from a free function");
}

class Traced {
public:
    Traced() { ZT_TRACE(4, "Traced()"); }
    ~Traced() { ZT_TRACE(4, "~Traced()"); }
    unsigned long long member(int value) const
    {
        ZT_TRACE(3, "member %d", value);
        return 0;
    }
    void withLambda()
    {
        auto inner = [this](int value) { ZT_TRACE(3, "lambda %d", value + field_); };
        inner(1);
    }
    bool operator()(int) const
    {
        ZT_TRACE(5, "call operator");
        return true;
    }

private:
    int field_ = 1;
};

}  // namespace

TEST(Trace, suffixNamesTheEnclosingFunction)
{
    TraceAll capture;
    freeFunction();
    {
        Traced traced;
        traced.member(7);
        traced.withLambda();
        traced(0);
    }
    const auto lines = tracedLines();
    struct Expected {
        const char* message;
        const char* function;
    };
    const Expected expected[] = {
        {"[!] from a free function", "freeFunction"},
        {"Traced()", "Traced::Traced"},
        {"member 7", "Traced::member"},
        {"lambda 2", "Traced::withLambda"},
        {"call operator", "Traced::operator()"},
        {"~Traced()", "Traced::~Traced"},
    };
    ASSERT_EQ(lines.size(), std::size(expected));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].message, expected[i].message) << "line " << i;
        EXPECT_EQ(lines[i].function, expected[i].function) << "line " << i;
        EXPECT_GT(lines[i].line, 0) << "line " << i;
    }
}

TEST(Trace, suffixCarriesTheStatementsLineAndALineFeed)
{
    TraceAll capture;
    const int line = __LINE__ + 1;
    ZT_TRACE(0, "[!] here");
    const auto out = host::debugOutput();
    ASSERT_EQ(out.size(), 1U);
    EXPECT_EQ(out[0],
              "[!] here @Trace_suffixCarriesTheStatementsLineAndALineFeed_Test::TestBody+"
                  + std::to_string(line) + "\n");
}

TEST(Trace, levelsUpToTraceLevelAreWritten)
{
    TraceAll capture;
    struct Case {
        int traceLevel;
        int level;
        bool written;
    };
    const Case cases[] = {
        {0, 0, true}, {0, 1, false}, {0, 5, false}, {3, 0, true}, {3, 2, true},
        {3, 3, true}, {3, 4, false}, {3, 5, false}, {5, 5, true}, {-1, 0, false},
    };
    for (const auto& c : cases) {
        host::clearDebugOutput();
        traceLevel = c.traceLevel;
        traceMessage(c.level, "x\n");
        EXPECT_EQ(host::debugOutput().size(), c.written ? 1U : 0U)
            << "traceLevel " << c.traceLevel << ", level " << c.level;
    }
}

TEST(Trace, argumentsAreFormattedAndWideTextBecomesNarrow)
{
    TraceAll capture;
    const std::wstring wide = L"PCI\\VEN_7E5C";
    traceMessage(0, "%d %u %llu %s %#x %S %g\n", -3, 4U, 18446744073709551615ULL, "narrow", 0x80041002U,
                 wide.c_str(), 1.5);
    EXPECT_EQ(host::debugOutput(),
              std::vector<std::string>{"-3 4 18446744073709551615 narrow 0x80041002 PCI\\VEN_7E5C 1.5\n"});
}

TEST(Trace, lineOf511CharactersIsHandedOverWhole)
{
    TraceAll capture;
    const std::string text(510, 'a');
    traceMessage(0, "%s\n", text.c_str());
    const auto out = host::debugOutput();
    ASSERT_EQ(out.size(), 1U);
    EXPECT_EQ(out[0], text + "\n");
}

TEST(Trace, longerLineIsCutTo510CharactersAndKeepsItsLineFeed)
{
    TraceAll capture;
    for (const std::size_t length : {511U, 512U, 4000U}) {
        host::clearDebugOutput();
        const std::string text(length, 'b');
        traceMessage(0, "%s\n", text.c_str());
        const auto out = host::debugOutput();
        ASSERT_EQ(out.size(), 1U) << length;
        EXPECT_EQ(out[0], std::string(510, 'b') + "\n") << length;
    }
}

// Found by fuzzing: a wide argument with no narrow form (here in the C
// locale) makes the formatter give up without writing, and the line handed
// over was whatever the stack held. The format stands in for it.
TEST(Trace, wideArgumentWithoutNarrowFormLeavesTheFormat)
{
    TraceAll capture;
    const std::wstring name = L"\x0421\x0435\x0442\x044C #2";
    traceMessage(0, "[!] adapter '%S' failed\n", name.c_str());
    EXPECT_EQ(host::debugOutput(), std::vector<std::string>{"[!] adapter '%S' failed\n"});

    host::clearDebugOutput();
    const std::string longFormat = std::string(600, 'f') + "%S\n";
    traceMessage(0, longFormat.c_str(), name.c_str());
    EXPECT_EQ(host::debugOutput(), std::vector<std::string>{std::string(510, 'f') + "\n"});
}
