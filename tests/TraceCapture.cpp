#include "TraceCapture.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "host/HostPlatform.h"
#include "trace/Trace.h"

std::vector<TraceLine> tracedLines()
{
    std::vector<TraceLine> lines;
    for (const auto& text : host::debugOutput()) {
        TraceLine line{text, "", -1};
        const auto at = text.rfind(" @");
        const auto plus = text.rfind('+');
        if (at != std::string::npos && plus != std::string::npos && plus > at && text.back() == '\n') {
            line.message = text.substr(0, at);
            line.function = text.substr(at + 2, plus - at - 2);
            line.line = std::atoi(text.c_str() + plus + 1);
        }
        lines.push_back(line);
    }
    return lines;
}

Messages tracedMessages()
{
    Messages messages;
    for (const auto& line : tracedLines()) {
        messages.push_back(line.message);
    }
    return messages;
}

bool traced(const std::string& message)
{
    const Messages messages = tracedMessages();
    return std::find(messages.begin(), messages.end(), message) != messages.end();
}

Messages tracedStartingWith(std::initializer_list<const char*> prefixes)
{
    Messages messages;
    for (auto& message : tracedMessages()) {
        if (std::any_of(prefixes.begin(), prefixes.end(),
                        [&](const char* p) { return message.rfind(p, 0) == 0; })) {
            messages.push_back(std::move(message));
        }
    }
    return messages;
}

TraceAll::TraceAll() : saved_(traceLevel)
{
    host::reset();
    traceLevel = 5;
}

TraceAll::~TraceAll()
{
    traceLevel = saved_;
    host::reset();
}
