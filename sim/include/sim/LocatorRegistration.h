// Registers a service's locator factory as CLSID_WbemLocator with the COM
// runtime (as a test host does) for as long as this object lives.
#pragma once

#include "platform.h"
#include "sim/WmiService.h"

namespace sim {

class LocatorRegistration {
public:
    // CoRegisterClassObject(CLSID_WbemLocator, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE).
    explicit LocatorRegistration(WmiService& service);
    ~LocatorRegistration();  // revoke()
    LocatorRegistration(const LocatorRegistration&) = delete;
    LocatorRegistration& operator=(const LocatorRegistration&) = delete;

    HRESULT result() const { return result_; }
    bool registered() const { return registered_; }
    // CoRevokeClassObject once; S_OK when there is nothing left to revoke.
    HRESULT revoke();

private:
    HRESULT result_ = E_FAIL;
    DWORD cookie_ = 0;
    bool registered_ = false;
};

}  // namespace sim
