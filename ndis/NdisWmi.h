// Watches one adapter through the NDIS classes: subscribes to its arrival,
// removal and media events (delivered to the bound callbacks on the service's
// threads) and queries its link speed and media state on demand; or, made to
// hear no events, only queries; or hears only arrivals (of any adapter when
// the instance is empty). Constructed and destroyed on one thread; the
// queries may run on any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "ndis/MediaConnectState.h"
#include "platform/Threading.h"
#include "wmi/CallGate.h"
#include "wmi/NdisEventsOwner.h"
#include "wmi/NdisEventsSink.h"
#include "wmi/WbemClassObject.h"
#include "wmi/com_ptr.h"

// Whether a monitor subscribes to its adapter's events: a reader that looks
// once (a listing) opens no subscription for the service to keep.
enum class NdisEvents {
    Subscribe,
    None,  // the queries only; the bound callbacks are never called
    Arrivals,  // only the arrival callback: of the adapter, or of any with an empty instance
};

// An event class the service refused to subscribe to, and its answer.
struct NdisSubscriptionFailure {
    std::wstring eventClass;  // "MSNdis_StatusMediaConnect"
    HRESULT result;
};

// Both values of one link state query: unknown state and 0 speed when it fails.
struct NdisLinkState {
    MediaConnectState media = MediaConnectState::Unknown;
    std::uint64_t speed = 0;  // bits per second; 0: unknown, as linkSpeed()
};

// Its sink calls the NdisEventsOwner handlers; nothing else is to.
class NdisWmi : public NdisEventsOwner {
public:
    using AdapterCallback = std::function<void(const std::wstring& instanceName)>;
    using MediaCallback = std::function<void(const std::wstring& instanceName, MediaConnectState state)>;

    explicit NdisWmi(const wchar_t* instance, NdisEvents events = NdisEvents::Subscribe);
    NdisWmi(const NdisWmi&) = delete;
    NdisWmi& operator=(const NdisWmi&) = delete;
    virtual ~NdisWmi();

    // Binds the three callbacks; events before this find none and are dropped.
    // Safe while deliveries run.
    void bindCallbacks(AdapterCallback arrived, AdapterCallback removed, MediaCallback mediaChanged);
    // Empties the callbacks and returns once none of them is still running:
    // after it no callback runs. Not to be called from a callback.
    void clearCallbacks();

    // Bits per second; 0 when there is no answer or NDIS doesn't know it
    // (NDIS_LINK_SPEED_UNKNOWN).
    std::uint64_t linkSpeed() const;
    MediaConnectState mediaConnectState() const;
    // Both from one query.
    NdisLinkState linkState() const;

    // The subscriptions the constructor asked for and the service refused, in
    // the order asked; empty when all stand (or none was asked for).
    const std::vector<NdisSubscriptionFailure>& failedSubscriptions() const { return failedSubscriptions_; }

private:
    void onAdapterArrived(const std::wstring& instanceName) override;
    void onAdapterRemoved(const std::wstring& instanceName) override;
    void onMediaConnected(const std::wstring& instanceName) override;
    void onMediaDisconnected(const std::wstring& instanceName) override;
    void onMediaStateChanged_(const std::wstring& instanceName, MediaConnectState state);
    void registerForNotifications_(NdisEvents events);
    WbemClassObject getLinkStateData_() const;

    template <typename Callback, typename... Args>
    void invoke_(const Callback& callback, const Args&... args);

    SrwLock callbacksLock_;
    CallGate callbacksGate_;
    AdapterCallback adapterArrivedCallback_;
    AdapterCallback adapterRemovedCallback_;
    MediaCallback mediaStateChangedCallback_;
    const std::wstring instance_;
    com_ptr<NdisEventsSink> sink_;
    // The connection the queries were made on: only it can cancel them, and
    // the object may be destroyed on another thread than the one that made it.
    com_ptr<IWbemServices> subscribedThrough_;
    std::vector<NdisSubscriptionFailure> failedSubscriptions_;
};

// The text of "XmitLinkSpeed" as a number: plain unsigned decimal, leading
// blanks skipped, digits up to the first non-digit; no digits or an overflow
// give 0, which callers read as no data. `text` is zero-terminated.
std::uint64_t parseLinkSpeed(const wchar_t* text);

// The NDIS records of a link state query, filled; empty on failure.
com_ptr<IWbemClassObject> createNdisObjectHeader();
com_ptr<IWbemClassObject> createWmiMethodHeader();
