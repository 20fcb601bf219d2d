#include "sim/LocatorRegistration.h"

namespace sim {

LocatorRegistration::LocatorRegistration(WmiService& service)
{
    IClassFactory* factory = service.createLocatorFactory();
    result_ = CoRegisterClassObject(CLSID_WbemLocator, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                                    &cookie_);
    registered_ = SUCCEEDED(result_);
    factory->Release();  // the COM runtime holds its own reference while registered
}

LocatorRegistration::~LocatorRegistration()
{
    revoke();
}

HRESULT LocatorRegistration::revoke()
{
    if (!registered_) {
        return S_OK;
    }
    registered_ = false;
    return CoRevokeClassObject(cookie_);
}

}  // namespace sim
