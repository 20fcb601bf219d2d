// One connection to the namespace "root\wmi", used only by the thread that
// made it. Each thread gets its own through threadWbemServices().
#pragma once

#include <string>

#include "platform.h"
#include "wmi/WbemClassObject.h"
#include "wmi/com_ptr.h"

class WbemServices {
public:
    // Connects; a failure leaves the object without a connection, for good.
    WbemServices();
    WbemServices(const WbemServices&) = delete;
    WbemServices& operator=(const WbemServices&) = delete;
    ~WbemServices() = default;
    // No connection, and no attempt to make one.
    struct Unconnected { };
    explicit WbemServices(Unconnected tag);

    bool isConnected() const { return static_cast<bool>(services_); }
    // The connection itself, for CancelAsyncCall; null if not connected.
    IWbemServices* get() const { return services_.get(); }

    // A new, unread instance of the class; empty on failure.
    com_ptr<IWbemClassObject> createInstance(const std::wstring& className) const;
    // A class or an instance by path, with its properties read; empty on failure.
    WbemClassObject getObject(const std::wstring& path) const;
    // Runs a method synchronously. On success the output replaces *out (if
    // given); on failure *out stays as it was.
    HRESULT execMethod(const std::wstring& path, const std::wstring& method, IWbemClassObject* inParams,
                       WbemClassObject* out) const;
    // Starts an event query delivering to `sink`; returns at once.
    HRESULT execNotificationQueryAsync(const std::wstring& query, IWbemObjectSink* sink) const;

private:
    com_ptr<IWbemServices> services_;
};

// The calling thread's connection, made (with the thread's COM initialisation)
// at the first call and kept until endThreadWbemServices(). One attempt: a
// failed connection stays failed. Never fails itself. Nothing ends it when the
// thread ends: whoever knows the thread is done with the service ends it.
WbemServices& threadWbemServices();

// Ends the calling thread's connection, then its COM initialisation. The
// module's threads call this before they return, the page's thread when its
// last page goes; a later threadWbemServices() starts afresh.
void endThreadWbemServices();

// For work on a thread the module doesn't own (the service's delivery
// threads): a connection this scope's work made is ended when the scope ends,
// so it isn't left to that thread's exit. One the thread had before stays.
class BorrowedThreadScope {
public:
    BorrowedThreadScope();
    BorrowedThreadScope(const BorrowedThreadScope&) = delete;
    BorrowedThreadScope& operator=(const BorrowedThreadScope&) = delete;
    ~BorrowedThreadScope();

private:
    bool hadConnection_;
};
