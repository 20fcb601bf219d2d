// Internal: the COM objects of the service: the class objects (property maps
// of VARIANTs they own), the connections, the locator and its class factory.
#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Core.h"
#include "platform.h"
#include "platform/Threading.h"

namespace sim {

// QueryInterface: `self` for IUnknown and each of `iids`, else E_NOINTERFACE.
template <class Interface>
HRESULT queryInterface(Interface* self, REFIID iid, std::initializer_list<IID> iids, void** object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    for (const IID& known : iids) {
        if (iid == known || iid == IID_IUnknown) {
            *object = self;
            self->AddRef();
            return S_OK;
        }
    }
    return E_NOINTERFACE;
}

// Starts with one reference, for whoever made it; ends itself on the last Release.
class ComObject {
public:
    ComObject(std::shared_ptr<ServiceCore> core, std::string description);
    virtual ~ComObject();
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    const std::string& description() const { return description_; }
    ULONG references() const { return references_; }

protected:
    ULONG addReference();
    ULONG releaseReference();
    ServiceCore& core() const { return *core_; }
    const std::shared_ptr<ServiceCore>& sharedCore() const { return core_; }

private:
    std::shared_ptr<ServiceCore> core_;
    std::string description_;
    std::atomic<ULONG> references_{1};
};

// Answered by the service's own objects only: how it reads what it is given
// without going through (and logging) Get.
extern const IID iidSimObject;

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release ends it
class ClassObject final : public IWbemClassObject, public ComObject {
public:
    // With one reference for the caller (ServiceCore::makeObject makes them).
    // `definition`: its methods, if any.
    ClassObject(std::shared_ptr<ServiceCore> core, std::wstring className,
                std::shared_ptr<const ClassDef> definition, std::wstring instance, std::uint64_t delivery,
                PropertyValues properties);
    // The property's value, without the log and faults of Get.
    std::optional<Value> peek(const std::wstring& name) const;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        return queryInterface(static_cast<IWbemClassObject*>(this), iid, {IID_IWbemClassObject, iidSimObject},
                              object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return addReference(); }
    ULONG STDMETHODCALLTYPE Release() override { return releaseReference(); }

    HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type,
                                  LONG* flavor) override;
    HRESULT STDMETHODCALLTYPE Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) override;
    HRESULT STDMETHODCALLTYPE BeginEnumeration(LONG enumFlags) override;
    HRESULT STDMETHODCALLTYPE Next(LONG flags, BSTR* name, VARIANT* value, CIMTYPE* type,
                                   LONG* flavor) override;
    HRESULT STDMETHODCALLTYPE EndEnumeration() override;
    HRESULT STDMETHODCALLTYPE SpawnInstance(LONG flags, IWbemClassObject** newInstance) override;
    // The in-signature only (none without in-parameters, as in WMI); no out-signature.
    HRESULT STDMETHODCALLTYPE GetMethod(LPCWSTR name, LONG flags, IWbemClassObject** inSignature,
                                        IWbemClassObject** outSignature) override;

    SIM_NOT_SUPPORTED(GetQualifierSet, IWbemQualifierSet**)
    SIM_NOT_SUPPORTED(Delete, LPCWSTR)
    SIM_NOT_SUPPORTED(GetNames, LPCWSTR, LONG, VARIANT*, SAFEARRAY**)
    SIM_NOT_SUPPORTED(GetPropertyQualifierSet, LPCWSTR, IWbemQualifierSet**)
    SIM_NOT_SUPPORTED(Clone, IWbemClassObject**)
    SIM_NOT_SUPPORTED(GetObjectText, LONG, BSTR*)
    SIM_NOT_SUPPORTED(SpawnDerivedClass, LONG, IWbemClassObject**)
    SIM_NOT_SUPPORTED(CompareTo, LONG, IWbemClassObject*)
    SIM_NOT_SUPPORTED(GetPropertyOrigin, LPCWSTR, BSTR*)
    SIM_NOT_SUPPORTED(InheritsFrom, LPCWSTR)
    SIM_NOT_SUPPORTED(PutMethod, LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*)
    SIM_NOT_SUPPORTED(DeleteMethod, LPCWSTR)
    SIM_NOT_SUPPORTED(BeginMethodEnumeration, LONG)
    SIM_NOT_SUPPORTED(NextMethod, LONG, BSTR*, IWbemClassObject**, IWbemClassObject**)
    SIM_NOT_SUPPORTED(EndMethodEnumeration)
    SIM_NOT_SUPPORTED(GetMethodQualifierSet, LPCWSTR, IWbemQualifierSet**)
    SIM_NOT_SUPPORTED(GetMethodOrigin, LPCWSTR, BSTR*)

private:
    CallInfo call_(const char* call, const std::wstring& detail = {}) const;

    const std::wstring className_;
    const std::shared_ptr<const ClassDef> definition_;
    const std::wstring instance_;
    const std::uint64_t delivery_;
    mutable SrwLock lock_;
    PropertyValues properties_;  // embedded objects made, absent ones left out
    std::optional<std::size_t> cursor_;  // during an enumeration
    bool nonSystem_ = false;
};

// The property `name` of `object` if it is one of the service's own, else nullopt.
std::optional<Value> readProperty(IUnknown* object, const std::wstring& name);

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release ends it
class Services final : public IWbemServices, public IClientSecurity, public ComObject {
public:
    explicit Services(const std::shared_ptr<ServiceCore>& core);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        return iid == IID_IClientSecurity
            ? queryInterface(static_cast<IClientSecurity*>(this), iid, {IID_IClientSecurity}, object)
            : queryInterface(static_cast<IWbemServices*>(this), iid, {IID_IWbemServices}, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return addReference(); }
    ULONG STDMETHODCALLTYPE Release() override { return releaseReference(); }

    // In-process: there is no proxy whose security could change.
    HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown* /*proxy*/, DWORD /*authn*/, DWORD /*authz*/,
                                         OLECHAR* /*principal*/, DWORD /*level*/, DWORD /*impersonation*/,
                                         void* /*info*/, DWORD /*capabilities*/) override
    {
        return S_OK;
    }
    SIM_NOT_SUPPORTED(QueryBlanket, IUnknown*, DWORD*, DWORD*, OLECHAR**, DWORD*, DWORD*, void**, DWORD*)
    SIM_NOT_SUPPORTED(CopyProxy, IUnknown*, IUnknown**)
    HRESULT STDMETHODCALLTYPE GetObject(const BSTR objectPath, LONG flags, IWbemContext* context,
                                        IWbemClassObject** object, IWbemCallResult** callResult) override;
    HRESULT STDMETHODCALLTYPE ExecMethod(const BSTR objectPath, const BSTR methodName, LONG flags,
                                         IWbemContext* context, IWbemClassObject* inParams,
                                         IWbemClassObject** outParams, IWbemCallResult** callResult) override;
    HRESULT STDMETHODCALLTYPE ExecNotificationQueryAsync(const BSTR queryLanguage, const BSTR query,
                                                         LONG flags, IWbemContext* context,
                                                         IWbemObjectSink* responseHandler) override;
    HRESULT STDMETHODCALLTYPE CancelAsyncCall(IWbemObjectSink* sink) override;

    SIM_NOT_SUPPORTED(OpenNamespace, const BSTR, LONG, IWbemContext*, IWbemServices**, IWbemCallResult**)
    SIM_NOT_SUPPORTED(QueryObjectSink, LONG, IWbemObjectSink**)
    SIM_NOT_SUPPORTED(GetObjectAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    SIM_NOT_SUPPORTED(PutClass, IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**)
    SIM_NOT_SUPPORTED(PutClassAsync, IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*)
    SIM_NOT_SUPPORTED(DeleteClass, const BSTR, LONG, IWbemContext*, IWbemCallResult**)
    SIM_NOT_SUPPORTED(DeleteClassAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    SIM_NOT_SUPPORTED(CreateClassEnum, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
    SIM_NOT_SUPPORTED(CreateClassEnumAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    SIM_NOT_SUPPORTED(PutInstance, IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**)
    SIM_NOT_SUPPORTED(PutInstanceAsync, IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*)
    SIM_NOT_SUPPORTED(DeleteInstance, const BSTR, LONG, IWbemContext*, IWbemCallResult**)
    SIM_NOT_SUPPORTED(DeleteInstanceAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    SIM_NOT_SUPPORTED(CreateInstanceEnum, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
    SIM_NOT_SUPPORTED(CreateInstanceEnumAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    SIM_NOT_SUPPORTED(ExecQuery, const BSTR, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
    SIM_NOT_SUPPORTED(ExecQueryAsync, const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
    SIM_NOT_SUPPORTED(ExecNotificationQuery, const BSTR, const BSTR, LONG, IWbemContext*,
                      IEnumWbemClassObject**)
    SIM_NOT_SUPPORTED(ExecMethodAsync, const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                      IWbemObjectSink*)

private:
    const std::uint64_t connection_;
};

// IWbemLocator: every ConnectServer to root\wmi makes a new Services.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release ends it
class Locator final : public IWbemLocator, public ComObject {
public:
    explicit Locator(std::shared_ptr<ServiceCore> core) : ComObject(std::move(core), "Locator") { }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        return queryInterface(static_cast<IWbemLocator*>(this), iid, {IID_IWbemLocator}, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return addReference(); }
    ULONG STDMETHODCALLTYPE Release() override { return releaseReference(); }
    HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR networkResource, const BSTR user, const BSTR password,
                                            const BSTR locale, LONG securityFlags, const BSTR authority,
                                            IWbemContext* context, IWbemServices** services) override;
};

// The class factory registered as CLSID_WbemLocator; not counted among the live objects.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release ends it
class LocatorFactory final : public IClassFactory {
public:
    explicit LocatorFactory(std::shared_ptr<ServiceCore> core) : core_(std::move(core)) { }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        return queryInterface(static_cast<IClassFactory*>(this), iid, {IID_IClassFactory}, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL /*lock*/) override { return S_OK; }

private:
    ~LocatorFactory() = default;
    std::shared_ptr<ServiceCore> core_;
    std::atomic<ULONG> references_{1};
};

}  // namespace sim
