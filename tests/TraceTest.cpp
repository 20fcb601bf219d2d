#include "trace/Trace.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "TraceCapture.h"
#include "host/HostPlatform.h"

namespace {

// Each traces from a different kind of function; the suffix must name it the
// way a reader of the trace would look it up in the source. The other shapes
// of a signature are in the table of the next test.
void freeFunction()
{
    ZT_TRACE(0, "[!] from a free function");
}

class Traced {
public:
    Traced() { ZT_TRACE(4, "Traced()"); }
    ~Traced() { ZT_TRACE(4, "~Traced()"); }
    void withLambda()
    {
        auto inner = [this](int value) { ZT_TRACE(3, "lambda %d", value + field_); };
        inner(1);
    }

private:
    int field_ = 1;
};

}  // namespace

TEST(Trace, suffixNamesTheEnclosingFunction)
{
    TraceAll capture;
    const int line = __LINE__ + 1;
    ZT_TRACE(0, "[!] here");
    freeFunction();
    {
        Traced traced;
        traced.withLambda();
    }
    Messages seen;
    for (const auto& l : tracedLines()) {
        seen.push_back(l.message + " @" + l.function);
    }
    const std::string test = "Trace_suffixNamesTheEnclosingFunction_Test::TestBody";
    EXPECT_EQ(
        seen,
        (Messages{"[!] here @" + test, "[!] from a free function @freeFunction", "Traced() @Traced::Traced",
                  "lambda 2 @Traced::withLambda", "~Traced() @Traced::~Traced"}));
    EXPECT_EQ(host::debugOutput()[0], "[!] here @" + test + "+" + std::to_string(line) + "\n");
}

// The other compilers' signatures (GCC and Clang __PRETTY_FUNCTION__, MSVC
// __FUNCTION__) name the function as the host's compiler does.
TEST(Trace, suffixNamesTheFunctionInEveryCompilersSignature)
{
    const std::pair<const char*, const char*> cases[] = {
        {"long long int (* {anonymous}::Cc::resolve_(Cc::Slot))()", "Cc::resolve_"},
        {"{anonymous}::Cc::resolve_(Cc::Slot)::<lambda(int)>", "Cc::resolve_"},
        {"int ({anonymous}::S::* {anonymous}::S::pick(int))(int) const", "S::pick"},
        {"{anonymous}::S& {anonymous}::S::operator<<(int)", "S::operator<<"},
        {"bool S::operator<(const S&) const", "S::operator<"},
        {"S::operator bool() const", "S::operator bool"},
        {"S::operator()(int) const::<lambda()>", "S::operator()"},
        {"std::vector<T> S::make(T) [with T = int]", "S::make"},
        {"S::make<int>(int)::<lambda()>", "S::make"},
        {"Holder<void (*)(int)>::run()::<lambda(void (*)(int))>", "Holder::run"},
        {"int ((anonymous namespace)::S::*(anonymous namespace)::S::pick(int))(int) const", "S::pick"},
        {"void (*(anonymous namespace)::resolve(int))(int)", "resolve"},
        {"(anonymous namespace)::S &(anonymous namespace)::S::operator<<(int)", "S::operator<<"},
        {"auto (anonymous namespace)::S::pick(int)::(anonymous class)::operator()() const", "S::pick"},
        {"auto Holder<int>::run()::(anonymous class)::operator()(T) const [T = int]", "Holder::run"},
        {"Cc::resolve_", "Cc::resolve_"},
        {"`anonymous-namespace'::S::pick::<lambda_1>::operator ()", "S::pick"},
        {"S::operator <<", "S::operator<<"},
        {"S::operator ()", "S::operator()"},
        {"Holder<void (__cdecl*)(int)>::run", "Holder::run"},
    };
    for (const auto& [signature, function] : cases) {
        const auto format = trace_format::makeFormat<256>("m", signature, 7);
        EXPECT_EQ(std::string(format.text), std::string("m @") + function + "+7\n") << signature;
    }
}

TEST(Trace, levelsUpToTraceLevelAreWritten)
{
    TraceAll capture;
    // the trace level, a message's level, whether it is written
    const std::tuple<int, int, bool> cases[] = {
        {0, 0, true}, {0, 1, false}, {0, 5, false}, {3, 0, true}, {3, 2, true},
        {3, 3, true}, {3, 4, false}, {3, 5, false}, {5, 5, true}, {-1, 0, false},
    };
    for (const auto& [upTo, level, written] : cases) {
        host::clearDebugOutput();
        traceLevel = upTo;
        traceMessage(level, "x\n");
        EXPECT_EQ(host::debugOutput().size(), written ? 1U : 0U)
            << "traceLevel " << upTo << ", level " << level;
    }
}

TEST(Trace, argumentsAreFormattedAndWideTextBecomesNarrow)
{
    TraceAll capture;
    const std::wstring wide = L"PCI\\VEN_7E5C";
    traceMessage(0, "%d %u %llu %s %#x %S %g\n", -3, 4U, 18446744073709551615ULL, "narrow", 0x80041002U,
                 wide.c_str(), 1.5);
    EXPECT_EQ(host::debugOutput(),
              Messages{"-3 4 18446744073709551615 narrow 0x80041002 PCI\\VEN_7E5C 1.5\n"});
}

TEST(Trace, aLineIsCutTo510CharactersAndKeepsItsLineFeed)
{
    TraceAll capture;
    for (const std::size_t length : {510U, 511U, 512U, 4000U}) {
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
    EXPECT_EQ(host::debugOutput(), Messages{"[!] adapter '%S' failed\n"});

    host::clearDebugOutput();
    const std::string longFormat = std::string(600, 'f') + "%S\n";
    traceMessage(0, longFormat.c_str(), name.c_str());
    EXPECT_EQ(host::debugOutput(), Messages{std::string(510, 'f') + "\n"});
}
