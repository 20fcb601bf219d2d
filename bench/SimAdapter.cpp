#include "SimAdapter.h"

#include <chrono>

namespace {

bool isRoundTrip(const std::string& call)
{
    return call == "ConnectServer" || call == "GetObject" || call == "ExecMethod"
        || call == "ExecNotificationQueryAsync" || call == "CancelAsyncCall";
}

std::string narrow(const std::wstring& text)
{
    std::string out;
    for (const wchar_t c : text) {
        out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    }
    return out;
}

}  // namespace

SimAdapter::SimAdapter()
{
    ndis_.addAdapter(name, {sim::ndis::mediaConnected, sim::ndis::duplexFull, 5000000000ULL, 5000000000ULL});
    driver_.addAdapter(name);
    driver_.setCableTestDuration(name, std::chrono::milliseconds(0));
    driver_.setCableLength(name, 100);
}

SimAdapter::~SimAdapter()
{
    service_.drain();
    driver_.shutdown();
}

SimAdapter::Calls SimAdapter::calls() const
{
    Calls counted;
    for (const sim::CallRecord& call : service_.calls()) {
        if (isRoundTrip(call.call)) {
            ++counted.roundTrips;
            counted.trips.push_back(call.call + " " + narrow(call.target));
        } else if (call.call == "Indicate") {
            ++counted.deliveries;
        } else if (call.call != "SetStatus") {
            ++counted.objectCalls;
        }
    }
    return counted;
}
