// What the module traced during a test, split into message and location.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

using Messages = std::vector<std::string>;

struct TraceLine {
    std::string message;  // the text before " @"
    std::string function;  // the name between "@" and "+"
    int line;  // the number after "+"
};

// Parses everything handed to OutputDebugStringA since the last host::reset().
std::vector<TraceLine> tracedLines();
// Just the messages, in order.
Messages tracedMessages();
// Whether one of them is exactly `message`.
bool traced(const std::string& message);
// The messages that start with one of `prefixes`, in order.
Messages tracedStartingWith(std::initializer_list<const char*> prefixes);

// Writes every level for the test's life, and starts from a clean platform.
class TraceAll {
public:
    TraceAll();
    ~TraceAll();
    TraceAll(const TraceAll&) = delete;
    TraceAll& operator=(const TraceAll&) = delete;

private:
    int saved_;
};
