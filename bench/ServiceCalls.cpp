#include "ServiceCalls.h"

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

sim::AdapterSettings benchAdapter()
{
    sim::AdapterSettings settings;
    settings.linkSpeed = 5000000000ULL;
    settings.driver.cableLength = 100;
    return settings;
}

ServiceCalls serviceCalls(const sim::WmiService& service)
{
    ServiceCalls counted;
    for (const sim::CallRecord& call : service.calls()) {
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
