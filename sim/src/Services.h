// Internal: IWbemServices of one connection to root\wmi. It also answers
// IClientSecurity, so CoSetProxyBlanket succeeds on it as on a real WMI proxy.
#pragma once

#include <cstdint>
#include <memory>

#include "ComObject.h"
#include "platform.h"

namespace sim {

extern const IID kIidClientSecurity;

// IClientSecurity's vtable, declared here because the host layer lacks it.
// Not derived from IUnknown: the SDK's IUnknown has a public destructor.
struct ClientSecurityVtable {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryBlanket(IUnknown* proxy, DWORD* authnService, DWORD* authzService,
                                                   OLECHAR** serverPrincipal, DWORD* authnLevel,
                                                   DWORD* impLevel, void** authInfo, DWORD* capabilities)
        = 0;
    virtual HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown* proxy, DWORD authnService, DWORD authzService,
                                                 OLECHAR* serverPrincipal, DWORD authnLevel, DWORD impLevel,
                                                 void* authInfo, DWORD capabilities)
        = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyProxy(IUnknown* proxy, IUnknown** copy) = 0;

protected:
    ~ClientSecurityVtable() = default;
};

class Services final : public IWbemServices, public ClientSecurityVtable, public ComObject {
public:
    // A new connection with one reference for the caller.
    static Services* create(std::shared_ptr<ServiceCore> core);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return addReference(); }
    ULONG STDMETHODCALLTYPE Release() override { return releaseReference(); }

    HRESULT STDMETHODCALLTYPE QueryBlanket(IUnknown* proxy, DWORD* authnService, DWORD* authzService,
                                           OLECHAR** serverPrincipal, DWORD* authnLevel, DWORD* impLevel,
                                           void** authInfo, DWORD* capabilities) override;
    HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown* proxy, DWORD authnService, DWORD authzService,
                                         OLECHAR* serverPrincipal, DWORD authnLevel, DWORD impLevel,
                                         void* authInfo, DWORD capabilities) override;
    HRESULT STDMETHODCALLTYPE CopyProxy(IUnknown* proxy, IUnknown** copy) override;

    HRESULT STDMETHODCALLTYPE OpenNamespace(const BSTR strNamespace, LONG flags, IWbemContext* context,
                                            IWbemServices** workingNamespace,
                                            IWbemCallResult** result) override;
    HRESULT STDMETHODCALLTYPE CancelAsyncCall(IWbemObjectSink* sink) override;
    HRESULT STDMETHODCALLTYPE QueryObjectSink(LONG flags, IWbemObjectSink** responseHandler) override;
    HRESULT STDMETHODCALLTYPE GetObject(const BSTR objectPath, LONG flags, IWbemContext* context,
                                        IWbemClassObject** object, IWbemCallResult** callResult) override;
    HRESULT STDMETHODCALLTYPE GetObjectAsync(const BSTR objectPath, LONG flags, IWbemContext* context,
                                             IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE PutClass(IWbemClassObject* object, LONG flags, IWbemContext* context,
                                       IWbemCallResult** callResult) override;
    HRESULT STDMETHODCALLTYPE PutClassAsync(IWbemClassObject* object, LONG flags, IWbemContext* context,
                                            IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE DeleteClass(const BSTR className, LONG flags, IWbemContext* context,
                                          IWbemCallResult** callResult) override;
    HRESULT STDMETHODCALLTYPE DeleteClassAsync(const BSTR className, LONG flags, IWbemContext* context,
                                               IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE CreateClassEnum(const BSTR superclass, LONG flags, IWbemContext* context,
                                              IEnumWbemClassObject** enumerator) override;
    HRESULT STDMETHODCALLTYPE CreateClassEnumAsync(const BSTR superclass, LONG flags, IWbemContext* context,
                                                   IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE PutInstance(IWbemClassObject* instance, LONG flags, IWbemContext* context,
                                          IWbemCallResult** callResult) override;
    HRESULT STDMETHODCALLTYPE PutInstanceAsync(IWbemClassObject* instance, LONG flags, IWbemContext* context,
                                               IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE DeleteInstance(const BSTR objectPath, LONG flags, IWbemContext* context,
                                             IWbemCallResult** callResult) override;
    HRESULT STDMETHODCALLTYPE DeleteInstanceAsync(const BSTR objectPath, LONG flags, IWbemContext* context,
                                                  IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE CreateInstanceEnum(const BSTR filter, LONG flags, IWbemContext* context,
                                                 IEnumWbemClassObject** enumerator) override;
    HRESULT STDMETHODCALLTYPE CreateInstanceEnumAsync(const BSTR filter, LONG flags, IWbemContext* context,
                                                      IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR queryLanguage, const BSTR query, LONG flags,
                                        IWbemContext* context, IEnumWbemClassObject** enumerator) override;
    HRESULT STDMETHODCALLTYPE ExecQueryAsync(const BSTR queryLanguage, const BSTR query, LONG flags,
                                             IWbemContext* context,
                                             IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE ExecNotificationQuery(const BSTR queryLanguage, const BSTR query, LONG flags,
                                                    IWbemContext* context,
                                                    IEnumWbemClassObject** enumerator) override;
    HRESULT STDMETHODCALLTYPE ExecNotificationQueryAsync(const BSTR queryLanguage, const BSTR query,
                                                         LONG flags, IWbemContext* context,
                                                         IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE ExecMethod(const BSTR objectPath, const BSTR methodName, LONG flags,
                                         IWbemContext* context, IWbemClassObject* inParams,
                                         IWbemClassObject** outParams, IWbemCallResult** callResult) override;
    HRESULT STDMETHODCALLTYPE ExecMethodAsync(const BSTR objectPath, const BSTR methodName, LONG flags,
                                              IWbemContext* context, IWbemClassObject* inParams,
                                              IWbemObjectSink* responseHandler) override;

private:
    Services(std::shared_ptr<ServiceCore> core, std::uint64_t connection);
    HRESULT unsupported_(const char* call);

    std::uint64_t connection_;
};

// IWbemLocator: every ConnectServer to root\wmi makes a new Services.
class Locator final : public IWbemLocator, public ComObject {
public:
    explicit Locator(std::shared_ptr<ServiceCore> core);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return addReference(); }
    ULONG STDMETHODCALLTYPE Release() override { return releaseReference(); }
    HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR networkResource, const BSTR user, const BSTR password,
                                            const BSTR locale, LONG securityFlags, const BSTR authority,
                                            IWbemContext* context, IWbemServices** services) override;
};

// The class factory registered as CLSID_WbemLocator.
class LocatorFactory final : public IClassFactory, public ComObject {
public:
    explicit LocatorFactory(std::shared_ptr<ServiceCore> core);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return addReference(); }
    ULONG STDMETHODCALLTYPE Release() override { return releaseReference(); }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;
};

}  // namespace sim
