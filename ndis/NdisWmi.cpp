#include "ndis/NdisWmi.h"

#include <cwchar>

#include "platform/Threading.h"
#include "trace/FormatString.h"
#include "trace/Trace.h"
#include "wmi/WbemServices.h"

namespace {

// NDIS_LINK_SPEED_UNKNOWN: the miniport doesn't know its link speed.
constexpr std::uint64_t linkSpeedUnknown = ~0ULL;

// In the order of registration.
const wchar_t* const notificationClasses[] = {
    L"MSNdis_NotifyAdapterArrival",
    L"MSNdis_NotifyAdapterRemoval",
    L"MSNdis_StatusMediaConnect",
    L"MSNdis_StatusMediaDisconnect",
};

}  // namespace

std::uint64_t parseLinkSpeed(const wchar_t* text)
{
    while (*text == L' ' || *text == L'\t') {
        ++text;
    }
    std::uint64_t value = 0;
    const wchar_t* digit = text;
    for (; *digit >= L'0' && *digit <= L'9'; ++digit) {
        const auto d = static_cast<std::uint64_t>(*digit - L'0');
        if (value > (UINT64_MAX - d) / 10) {
            return 0;
        }
        value = value * 10 + d;
    }
    return digit == text ? 0 : value;
}

NdisWmi::NdisWmi(const wchar_t* instance, NdisEvents events) : instance_(instance != nullptr ? instance : L"")
{
    ZT_TRACE(5, "NdisWmi(%S)", instance_.c_str());
    if (events != NdisEvents::None) {
        registerForNotifications_(events);
    }
}

NdisWmi::~NdisWmi()
{
    ZT_TRACE(5, "~NdisWmi");
    if (sink_) {
        if (subscribedThrough_) {
            const HRESULT hr = subscribedThrough_->CancelAsyncCall(sink_.get());
            ZT_TRACE(1, "CancelAsyncCall() -> %#x", static_cast<unsigned>(hr));
        }
        subscribedThrough_.reset();
        // A delivery the service had under way may still be running: wait for
        // it to leave this object, and let no later one in.
        sink_->detachOwner();
        sink_.reset();
    }
    clearCallbacks();
}

void NdisWmi::registerForNotifications_(NdisEvents events)
{
    sink_.attach(new NdisEventsSink(this));
    WbemServices& services = threadWbemServices();
    subscribedThrough_ = com_ptr<IWbemServices>(services.get(), true);
    for (const wchar_t* eventClass : notificationClasses) {
        if (events == NdisEvents::Arrivals && eventClass != notificationClasses[0]) {
            continue;
        }
        std::wstring query = std::wstring(L"SELECT * FROM ") + eventClass;
        if (!instance_.empty()) {
            query += formatString(L" WHERE InstanceName=\"%s\"", instance_.c_str());
        }
        const HRESULT hr = services.execNotificationQueryAsync(query, sink_.get());
        if (FAILED(hr)) {
            ZT_TRACE(0, "[!] NdisWmi: register '%S' notification failed -> %#x", eventClass,
                     static_cast<unsigned>(hr));
            failedSubscriptions_.push_back({eventClass, hr});
        }
    }
}

void NdisWmi::bindCallbacks(AdapterCallback arrived, AdapterCallback removed, MediaCallback mediaChanged)
{
    const std::lock_guard<SrwLock> guard(callbacksLock_);
    adapterArrivedCallback_ = std::move(arrived);
    adapterRemovedCallback_ = std::move(removed);
    mediaStateChangedCallback_ = std::move(mediaChanged);
}

void NdisWmi::clearCallbacks()
{
    callbacksGate_.close();
    const std::lock_guard<SrwLock> guard(callbacksLock_);
    adapterArrivedCallback_ = nullptr;
    adapterRemovedCallback_ = nullptr;
    mediaStateChangedCallback_ = nullptr;
}

template <typename Callback, typename... Args>
void NdisWmi::invoke_(const Callback& callback, const Args&... args)
{
    const GatePass pass(callbacksGate_);
    if (!pass) {
        return;
    }
    Callback bound;
    {
        const std::lock_guard<SrwLock> guard(callbacksLock_);
        bound = callback;
    }
    if (bound) {
        bound(args...);
    }
}

void NdisWmi::onAdapterArrived(const std::wstring& instanceName)
{
    ZT_TRACE(3, "NdisWmi: adapter arrived '%S'", instanceName.c_str());
    invoke_(adapterArrivedCallback_, instanceName);
}

void NdisWmi::onAdapterRemoved(const std::wstring& instanceName)
{
    ZT_TRACE(3, "NdisWmi: adapter removed '%S'", instanceName.c_str());
    invoke_(adapterRemovedCallback_, instanceName);
}

void NdisWmi::onMediaConnected(const std::wstring& instanceName)
{
    onMediaStateChanged_(instanceName, MediaConnectState::Connected);
}

void NdisWmi::onMediaDisconnected(const std::wstring& instanceName)
{
    onMediaStateChanged_(instanceName, MediaConnectState::Disconnected);
}

void NdisWmi::onMediaStateChanged_(const std::wstring& instanceName, MediaConnectState state)
{
    ZT_TRACE(1, "NdisWmi: media state changed on '%S' -> %d", instanceName.c_str(), static_cast<int>(state));
    invoke_(mediaStateChangedCallback_, instanceName, state);
}

namespace {

std::uint64_t speedOf(const WbemClassObject& linkState)
{
    const variant& speed = linkState[L"XmitLinkSpeed"];
    if (speed.isEmpty()) {
        return 0;
    }
    if (speed.vartype() != VT_BSTR || speed.get().bstrVal == nullptr) {
        ZT_TRACE(0, "[!] XmitLinkSpeed is not text (type %d)", static_cast<int>(speed.vartype()));
        return 0;
    }
    const std::uint64_t value = parseLinkSpeed(speed.get().bstrVal);
    return value == linkSpeedUnknown ? 0 : value;
}

MediaConnectState mediaOf(const WbemClassObject& linkState)
{
    const variant& state = linkState[L"MediaConnectState"];
    if (state.isEmpty()) {
        return MediaConnectState::Unknown;
    }
    // The low 16 bits of whatever integer the provider delivers.
    return static_cast<MediaConnectState>(state.get().lVal & 0xFFFF);
}

}  // namespace

std::uint64_t NdisWmi::linkSpeed() const
{
    if (instance_.empty()) {
        ZT_TRACE(2, "/!\\ NdisWmi: instance is not set");
        return 0;
    }
    return speedOf(getLinkStateData_());
}

MediaConnectState NdisWmi::mediaConnectState() const
{
    if (instance_.empty()) {
        ZT_TRACE(2, "/!\\ NdisWmi: instance is not set");
        return MediaConnectState::Unknown;
    }
    return mediaOf(getLinkStateData_());
}

NdisLinkState NdisWmi::linkState() const
{
    if (instance_.empty()) {
        ZT_TRACE(2, "/!\\ NdisWmi: instance is not set");
        return {};
    }
    const WbemClassObject linkState = getLinkStateData_();
    return {mediaOf(linkState), speedOf(linkState)};
}
