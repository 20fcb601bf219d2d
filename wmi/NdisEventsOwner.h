// What the NDIS event sink knows of its owner: one handler for each event
// class it is subscribed to, called on the delivering thread with the event's
// instance name.
#pragma once

#include <string>

class NdisEventsOwner {
public:
    virtual void onAdapterArrived(const std::wstring& instanceName) = 0;
    virtual void onAdapterRemoved(const std::wstring& instanceName) = 0;
    virtual void onMediaConnected(const std::wstring& instanceName) = 0;
    virtual void onMediaDisconnected(const std::wstring& instanceName) = 0;

protected:
    // Never deleted through this interface.
    ~NdisEventsOwner() = default;
};
