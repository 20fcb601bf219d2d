#include "nic/ZtNic.h"

#include <chrono>

#include "platform/Threading.h"
#include "trace/Trace.h"
#include "wmi/WbemServices.h"

ZtNic::ZtNic(const std::wstring& instanceName, bool deviceReady, NdisEvents events)
    : instanceName_(instanceName), ndis_(instanceName.c_str(), events), ready_(deviceReady)
{
    ZT_TRACE(4, "ZtNic()");
    ndis_.bindCallbacks(
        [this](const std::wstring& name) { onAdapterChanged_(name, true); },
        [this](const std::wstring& name) { onAdapterChanged_(name, false); },
        [this](const std::wstring& name, MediaConnectState state) { onMediaStateChanged_(name, state); });
    if (ready_) {
        init_();
    } else {
        ZT_TRACE(2, "/!\\ ZtNic() device not ready -> suppress initialization");
    }
}

ZtNic::~ZtNic()
{
    ZT_TRACE(4, "~ZtNic()");
    // After this no event reaches the object, and none is still inside it.
    ndis_.clearCallbacks();
    ready_ = false;
}

bool ZtNic::hasControlObject_() const
{
    const std::lock_guard<SrwLock> guard(controlLock_);
    return !controlObject_.isEmpty();
}

void ZtNic::init_()
{
    const WbemClassObject firmware = getObject_(L"Zt_FirmwareVersion");
    if (!firmware.isEmpty()) {
        ZtFwVersion version = fwVersion_;
        const variant& major = firmware[L"major"];
        const variant& minor = firmware[L"minor"];
        const variant& revision = firmware[L"revision"];
        // The low bits of whatever integer the driver gives.
        if (major.vartype() != VT_EMPTY) {
            version.major = static_cast<std::uint8_t>(major.get().lVal);
        }
        if (minor.vartype() != VT_EMPTY) {
            version.minor = static_cast<std::uint8_t>(minor.get().lVal);
        }
        if (revision.vartype() != VT_EMPTY) {
            version.revision = static_cast<std::uint16_t>(revision.get().lVal);
        }
        fwVersion_ = version;
    }
    const ZtFwVersion version = fwVersion_;
    if (version.major != 0) {
        ZT_TRACE(1, "FW version: %S", version.toString().c_str());
    } else {
        ZT_TRACE(0, "[!] Couldn't obtain FW version");
    }

    WbemClassObject control = threadWbemServices().getObject(L"Zt_NetAdapter");
    const bool haveControl = !control.isEmpty();
    {
        const std::lock_guard<SrwLock> guard(controlLock_);
        controlObject_ = std::move(control);
    }
    if (!haveControl) {
        ZT_TRACE(0, "[!] Couldn't obtain control class -> initialization FAILED");
    }

    const MediaConnectState state = ndis_.mediaConnectState();
    mediaState_ = state;
    if (state == MediaConnectState::Connected) {
        linkSpeed_ = ndis_.linkSpeed();
    }
    ZT_TRACE(3, "ZtNic: media state %d, link speed %llu", static_cast<int>(state),
             static_cast<unsigned long long>(linkSpeed_.load()));
    ready_ = haveControl;
}

WbemClassObject ZtNic::getObject_(const std::wstring& className)
{
    const std::wstring path = objectInstancePath(className, instanceName_);
    ZT_TRACE(4, "object instance path = '%S'", path.c_str());
    WbemClassObject object = threadWbemServices().getObject(path);
    if (object.isEmpty()) {
        ZT_TRACE(2, "/!\\ get object '%S' failed!", path.c_str());
    }
    return object;
}

bool ZtNic::execMethod_(const std::wstring& method, WbemClassObject& out)
{
    const std::wstring path = objectInstancePath(L"Zt_NetAdapter", instanceName_);
    const HRESULT hr = threadWbemServices().execMethod(path, method, nullptr, &out);
    if (FAILED(hr)) {
        ZT_TRACE(0, "[!] failed to execute method '%S', hr = %#x", method.c_str(), static_cast<unsigned>(hr));
        return false;
    }
    return true;
}

void ZtNic::onAdapterChanged_(const std::wstring& /*instanceName*/, bool arrived)
{
    if (!arrived) {
        ZT_TRACE(3, "ZtNic: adapter removed");
        fwVersion_ = ZtFwVersion{};
        mediaState_ = MediaConnectState::Unknown;
        linkSpeed_ = 0;
        ready_ = false;
        nicChanged.notify(false);
        return;
    }
    ZT_TRACE(3, "ZtNic: adapter arrived");
    // The driver may come up a little after the adapter: a few tries, on the
    // delivery thread, which waits with them.
    for (int tries = 5; !ready_ && tries > 0; --tries) {
        ZT_TRACE(3, "ZtNic: trying to initialize... (%d)", tries);
        init_();
        waitRealTime(std::chrono::milliseconds(500));
    }
    ZT_TRACE_EITHER(ready_, 3, "ZtNic: initialization DONE!", 2, "/!\\ ZtNic: initialization FAILED!");
    nicChanged.notify(true);
}

void ZtNic::onMediaStateChanged_(const std::wstring& /*instanceName*/, MediaConnectState state)
{
    ZT_TRACE(3, "ZtNic: media state changed %d -> %d", static_cast<int>(mediaState_.load()),
             static_cast<int>(state));
    // The speed first: whoever sees the new state (the tool's cable test waits
    // for Connected on another thread) must see that connection's speed with it.
    if (state == MediaConnectState::Connected) {
        linkSpeed_ = ndis_.linkSpeed();
    }
    mediaState_ = state;
    nicMediaChanged.notify(state);
}

bool ZtNic::isCableDiagSupported() const
{
    const ZtFwVersion version = fwVersion_;
    return version.major != 0 && version.packed() >= 0x01050042U;
}
