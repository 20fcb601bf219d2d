// The model of one adapter: what is known of it (firmware, media state, link
// speed, whether the driver answers), its NDIS monitor, the driver's methods,
// and subscribers told of arrival, removal and media changes. Made and
// destroyed on the dialog thread; events update it on the service's delivery
// threads, the cable test runs on a worker. Each field is read and written
// whole (atomically), so a reader sees one consistent value per field.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "ndis/NdisWmi.h"
#include "nic/CableCategory.h"
#include "nic/CallbackRegistry.h"
#include "nic/ZtFwVersion.h"
#include "nic/ZtPairInfo.h"
#include "nic/ZtThermalInfo.h"
#include "platform/Threading.h"
#include "wmi/WbemClassObject.h"

class ZtNic {
public:
    // `deviceReady`: the device's problem code was read and is 0. With
    // NdisEvents::None it reads what it knows once and hears of no arrival,
    // removal or media change after.
    ZtNic(const std::wstring& instanceName, bool deviceReady, NdisEvents events = NdisEvents::Subscribe);
    ZtNic(const ZtNic&) = delete;
    ZtNic& operator=(const ZtNic&) = delete;
    ~ZtNic();

    CallbackRegistry<bool> nicChanged;  // true: arrived, false: removed
    CallbackRegistry<MediaConnectState> nicMediaChanged;

    bool isReady() const { return ready_; }
    MediaConnectState mediaState() const { return mediaState_; }
    std::uint64_t linkSpeed() const { return linkSpeed_; }
    ZtFwVersion fwVersion() const { return fwVersion_; }

    // Firmware 1.5.66 or later.
    bool isCableDiagSupported() const;
    // Runs the driver's cable test (blocks for its length) and appends one
    // record per wire pair; true if the answer can be trusted.
    bool performCableDiag(std::vector<ZtPairInfo>& results);
    // The driver's raw cable length in meters; 0 if none.
    std::uint32_t getCableLength();
    // The length to show: corrected for the category at 2.5 and 5 Gbps.
    std::uint32_t estimateCableLength(int category);
    // Read afresh; the default record on any failure.
    ZtThermalInfo getThermalInfo();

private:
    void init_();
    WbemClassObject getObject_(const std::wstring& className);
    bool execMethod_(const std::wstring& method, WbemClassObject& out);
    bool cableDiag_(std::vector<ZtPairInfo>& results);
    void onAdapterChanged_(const std::wstring& instanceName, bool arrived);
    void onMediaStateChanged_(const std::wstring& instanceName, MediaConnectState state);
    bool hasControlObject_() const;

    const std::wstring instanceName_;
    mutable SrwLock controlLock_;  // controlObject_ is replaced on delivery threads
    WbemClassObject controlObject_;
    std::atomic<ZtFwVersion> fwVersion_{ZtFwVersion{}};
    std::atomic<MediaConnectState> mediaState_{MediaConnectState::Unknown};
    std::atomic<std::uint64_t> linkSpeed_{0};
    NdisWmi ndis_;
    std::atomic<bool> ready_{false};
};

// Reads the driver's "diagRes" object: appends one record per element of its
// "pairs" array (4-byte elements, one dimension) and gives true, or gives false
// with the list untouched.
bool parseDiagResult(const WbemClassObject& diagRes, std::vector<ZtPairInfo>& results);
