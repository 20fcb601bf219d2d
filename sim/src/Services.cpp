#include "Services.h"

#include "ClassObject.h"
#include "ServiceCore.h"
#include "Text.h"

namespace sim {

// IID_IClientSecurity {0000013D-0000-0000-C000-000000000046}
const IID kIidClientSecurity = {0x0000013d, 0x0000, 0x0000, {0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

namespace {

template <class T> void clearOut(T** out)
{
    if (out != nullptr) {
        *out = nullptr;
    }
}

std::wstring text(const BSTR value)
{
    return value != nullptr ? std::wstring(value) : std::wstring();
}

// The parameter `name` of a client's parameters object; null when it lacks it.
Value parameter(IWbemClassObject* parameters, const std::wstring& name)
{
    return readProperty(parameters, name).value_or(Value());
}

}  // namespace

// ---- Services -------------------------------------------------------------------

Services::Services(std::shared_ptr<ServiceCore> core, std::uint64_t connection)
    : ComObject(std::move(core), ObjectKind::services, "Services #" + std::to_string(connection)),
      connection_(connection)
{
}

Services* Services::create(std::shared_ptr<ServiceCore> core)
{
    const std::uint64_t connection = core->newConnectionId();
    return new Services(std::move(core), connection);
}

HRESULT STDMETHODCALLTYPE Services::QueryInterface(REFIID iid, void** object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IUnknown || iid == IID_IWbemServices) {
        *object = static_cast<IWbemServices*>(this);
    } else if (iid == kIidClientSecurity) {
        *object = static_cast<ClientSecurityVtable*>(this);
    } else {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Services::QueryBlanket(IUnknown* /*proxy*/, DWORD* authnService,
                                                 DWORD* authzService, OLECHAR** serverPrincipal,
                                                 DWORD* authnLevel, DWORD* impLevel, void** authInfo,
                                                 DWORD* capabilities)
{
    const auto set = [](auto* out, auto value) {
        if (out != nullptr) {
            *out = value;
        }
    };
    set(authnService, RPC_C_AUTHN_WINNT);
    set(authzService, RPC_C_AUTHZ_NONE);
    set(serverPrincipal, static_cast<OLECHAR*>(nullptr));
    set(authnLevel, RPC_C_AUTHN_LEVEL_CALL);
    set(impLevel, RPC_C_IMP_LEVEL_IMPERSONATE);
    set(authInfo, static_cast<void*>(nullptr));
    set(capabilities, EOAC_NONE);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE Services::SetBlanket(IUnknown* /*proxy*/, DWORD /*authnService*/,
                                               DWORD /*authzService*/, OLECHAR* /*serverPrincipal*/,
                                               DWORD /*authnLevel*/, DWORD /*impLevel*/, void* /*authInfo*/,
                                               DWORD /*capabilities*/)
{
    return S_OK;  // in-process: there is no proxy whose security could change
}

HRESULT STDMETHODCALLTYPE Services::CopyProxy(IUnknown* /*proxy*/, IUnknown** copy)
{
    clearOut(copy);
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE Services::GetObject(const BSTR objectPath, LONG /*flags*/,
                                              IWbemContext* /*context*/, IWbemClassObject** object,
                                              IWbemCallResult** callResult)
{
    clearOut(object);
    clearOut(callResult);
    const std::wstring path = text(objectPath);
    const auto parsed = parseObjectPath(path);
    const CallInfo info{"GetObject", parsed ? parsed->className : L"", path,
                        parsed ? parsed->instanceName.value_or(L"") : L"", true};
    return core().serve(info, [&]() -> HRESULT {
        if (objectPath == nullptr || object == nullptr) {
            return codes::invalidParameter;
        }
        if (!parsed) {
            return codes::invalidObjectPath;
        }
        auto definition = core().findClass(parsed->className);
        if (!definition) {
            return codes::invalidClass;
        }
        ClassObject::State state;
        state.className = definition->name();
        state.fromService = true;
        if (parsed->instanceName) {
            auto slots = core().instanceSlots(definition->name(), *parsed->instanceName);
            if (!slots) {
                return codes::notFound;
            }
            state.genus = ClassObject::Genus::instance;
            state.slots = std::move(*slots);
            state.key = parsed->instanceName;
        } else {
            state.genus = ClassObject::Genus::classDefinition;
            state.slots = defaultSlots(*definition);
        }
        state.definition = std::move(definition);
        *object = ClassObject::create(sharedCore(), std::move(state));
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE Services::ExecMethod(const BSTR objectPath, const BSTR methodName, LONG /*flags*/,
                                               IWbemContext* /*context*/, IWbemClassObject* inParams,
                                               IWbemClassObject** outParams, IWbemCallResult** callResult)
{
    clearOut(outParams);
    clearOut(callResult);
    const std::wstring path = text(objectPath);
    const std::wstring methodText = text(methodName);
    const auto parsed = parseObjectPath(path);
    const std::wstring className = parsed ? parsed->className : path;
    const CallInfo info{"ExecMethod", parsed ? parsed->className : L"", className + L"." + methodText,
                        parsed ? parsed->instanceName.value_or(L"") : L"", true};
    return core().serve(info, [&]() -> HRESULT {
        if (objectPath == nullptr || methodName == nullptr) {
            return codes::invalidParameter;
        }
        if (!parsed) {
            return codes::invalidObjectPath;
        }
        const auto definition = core().findClass(parsed->className);
        if (!definition) {
            return codes::invalidClass;
        }
        const MethodDef* method = definition->findMethod(methodText);
        if (method == nullptr) {
            return codes::invalidMethod;
        }
        if (parsed->instanceName && !core().instanceSlots(definition->name(), *parsed->instanceName)) {
            return codes::notFound;
        }
        const MethodHandler handler = core().findHandler(definition->name(), method->name);
        if (!handler) {
            return codes::notSupported;
        }
        MethodCall call{definition->name(), parsed->instanceName.value_or(L""), method->name, {}, {}};
        for (const Parameter& in : method->in) {
            call.in.emplace_back(in.name, inParams != nullptr ? parameter(inParams, in.name) : Value());
        }
        const HRESULT result = handler(call);
        if (FAILED(result)) {
            return result;
        }
        if (outParams != nullptr && (!method->out.empty() || !call.out.empty())) {
            ClassObject::State state;
            state.className = L"__PARAMETERS";
            state.slots = parameterSlots(method->out);
            applyValues(state.slots, call.out);
            *outParams = ClassObject::create(sharedCore(), std::move(state));
        }
        return result;
    });
}

HRESULT STDMETHODCALLTYPE Services::ExecNotificationQueryAsync(const BSTR queryLanguage, const BSTR query,
                                                               LONG /*flags*/, IWbemContext* /*context*/,
                                                               IWbemObjectSink* responseHandler)
{
    const std::wstring queryText = text(query);
    const auto parsed = parseEventQuery(queryText);
    const CallInfo info{"ExecNotificationQueryAsync", parsed ? parsed->className : L"", queryText,
                        parsed ? parsed->instanceName.value_or(L"") : L"", true};
    return core().serve(info, [&]() -> HRESULT {
        if (queryLanguage == nullptr || query == nullptr || responseHandler == nullptr) {
            return codes::invalidParameter;
        }
        if (!equalsNoCase(text(queryLanguage), L"WQL")) {
            return codes::invalidQueryType;
        }
        if (!parsed) {
            return codes::invalidQuery;
        }
        const auto definition = core().findClass(parsed->className);
        if (!definition) {
            return codes::invalidClass;
        }
        responseHandler->AddRef();
        bool held = false;
        try {
            held = core().events().subscribe(
                {connection_, definition->name(), parsed->instanceName, responseHandler});
        } catch (...) {
            responseHandler->Release();
            throw;
        }
        if (!held) {
            responseHandler->Release();
            return codes::shuttingDown;
        }
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE Services::CancelAsyncCall(IWbemObjectSink* sink)
{
    EventHub::EntryList ended;
    const HRESULT result = core().serve(CallInfo{"CancelAsyncCall", L"", L"", L"", true}, [&]() -> HRESULT {
        if (sink == nullptr) {
            return codes::invalidParameter;
        }
        bool found = false;
        ended = core().events().cancel(connection_, sink, found);
        return found ? S_OK : codes::notFound;
    });
    // SetStatus and the subscriptions' references go outside every lock of the
    // service; those with a delivery still in Indicate end when it returns.
    core().events().finish(ended);
    return result;
}

// ---- Not part of the model ------------------------------------------------------

HRESULT Services::unsupported_(const char* call)
{
    return core().serve(CallInfo{call, L"", L"", L"", true}, [] { return codes::notSupported; });
}

HRESULT STDMETHODCALLTYPE Services::OpenNamespace(const BSTR /*strNamespace*/, LONG /*flags*/,
                                                  IWbemContext* /*context*/, IWbemServices** workingNamespace,
                                                  IWbemCallResult** result)
{
    clearOut(workingNamespace);
    clearOut(result);
    return unsupported_("OpenNamespace");
}

HRESULT STDMETHODCALLTYPE Services::QueryObjectSink(LONG /*flags*/, IWbemObjectSink** responseHandler)
{
    clearOut(responseHandler);
    return unsupported_("QueryObjectSink");
}

HRESULT STDMETHODCALLTYPE Services::GetObjectAsync(const BSTR /*objectPath*/, LONG /*flags*/,
                                                   IWbemContext* /*context*/,
                                                   IWbemObjectSink* /*responseHandler*/)
{
    return unsupported_("GetObjectAsync");
}

HRESULT STDMETHODCALLTYPE Services::PutClass(IWbemClassObject* /*object*/, LONG /*flags*/,
                                             IWbemContext* /*context*/, IWbemCallResult** callResult)
{
    clearOut(callResult);
    return unsupported_("PutClass");
}

HRESULT STDMETHODCALLTYPE Services::PutClassAsync(IWbemClassObject* /*object*/, LONG /*flags*/,
                                                  IWbemContext* /*context*/,
                                                  IWbemObjectSink* /*responseHandler*/)
{
    return unsupported_("PutClassAsync");
}

HRESULT STDMETHODCALLTYPE Services::DeleteClass(const BSTR /*className*/, LONG /*flags*/,
                                                IWbemContext* /*context*/, IWbemCallResult** callResult)
{
    clearOut(callResult);
    return unsupported_("DeleteClass");
}

HRESULT STDMETHODCALLTYPE Services::DeleteClassAsync(const BSTR /*className*/, LONG /*flags*/,
                                                     IWbemContext* /*context*/,
                                                     IWbemObjectSink* /*responseHandler*/)
{
    return unsupported_("DeleteClassAsync");
}

HRESULT STDMETHODCALLTYPE Services::CreateClassEnum(const BSTR /*superclass*/, LONG /*flags*/,
                                                    IWbemContext* /*context*/,
                                                    IEnumWbemClassObject** enumerator)
{
    clearOut(enumerator);
    return unsupported_("CreateClassEnum");
}

HRESULT STDMETHODCALLTYPE Services::CreateClassEnumAsync(const BSTR /*superclass*/, LONG /*flags*/,
                                                         IWbemContext* /*context*/,
                                                         IWbemObjectSink* /*responseHandler*/)
{
    return unsupported_("CreateClassEnumAsync");
}

HRESULT STDMETHODCALLTYPE Services::PutInstance(IWbemClassObject* /*instance*/, LONG /*flags*/,
                                                IWbemContext* /*context*/, IWbemCallResult** callResult)
{
    clearOut(callResult);
    return unsupported_("PutInstance");
}

HRESULT STDMETHODCALLTYPE Services::PutInstanceAsync(IWbemClassObject* /*instance*/, LONG /*flags*/,
                                                     IWbemContext* /*context*/,
                                                     IWbemObjectSink* /*responseHandler*/)
{
    return unsupported_("PutInstanceAsync");
}

HRESULT STDMETHODCALLTYPE Services::DeleteInstance(const BSTR /*objectPath*/, LONG /*flags*/,
                                                   IWbemContext* /*context*/, IWbemCallResult** callResult)
{
    clearOut(callResult);
    return unsupported_("DeleteInstance");
}

HRESULT STDMETHODCALLTYPE Services::DeleteInstanceAsync(const BSTR /*objectPath*/, LONG /*flags*/,
                                                        IWbemContext* /*context*/,
                                                        IWbemObjectSink* /*responseHandler*/)
{
    return unsupported_("DeleteInstanceAsync");
}

HRESULT STDMETHODCALLTYPE Services::CreateInstanceEnum(const BSTR /*filter*/, LONG /*flags*/,
                                                       IWbemContext* /*context*/,
                                                       IEnumWbemClassObject** enumerator)
{
    clearOut(enumerator);
    return unsupported_("CreateInstanceEnum");
}

HRESULT STDMETHODCALLTYPE Services::CreateInstanceEnumAsync(const BSTR /*filter*/, LONG /*flags*/,
                                                            IWbemContext* /*context*/,
                                                            IWbemObjectSink* /*responseHandler*/)
{
    return unsupported_("CreateInstanceEnumAsync");
}

HRESULT STDMETHODCALLTYPE Services::ExecQuery(const BSTR /*queryLanguage*/, const BSTR /*query*/,
                                              LONG /*flags*/, IWbemContext* /*context*/,
                                              IEnumWbemClassObject** enumerator)
{
    clearOut(enumerator);
    return unsupported_("ExecQuery");
}

HRESULT STDMETHODCALLTYPE Services::ExecQueryAsync(const BSTR /*queryLanguage*/, const BSTR /*query*/,
                                                   LONG /*flags*/, IWbemContext* /*context*/,
                                                   IWbemObjectSink* /*responseHandler*/)
{
    return unsupported_("ExecQueryAsync");
}

HRESULT STDMETHODCALLTYPE Services::ExecNotificationQuery(const BSTR /*queryLanguage*/, const BSTR /*query*/,
                                                          LONG /*flags*/, IWbemContext* /*context*/,
                                                          IEnumWbemClassObject** enumerator)
{
    clearOut(enumerator);
    return unsupported_("ExecNotificationQuery");
}

HRESULT STDMETHODCALLTYPE Services::ExecMethodAsync(const BSTR /*objectPath*/, const BSTR /*methodName*/,
                                                    LONG /*flags*/, IWbemContext* /*context*/,
                                                    IWbemClassObject* /*inParams*/,
                                                    IWbemObjectSink* /*responseHandler*/)
{
    return unsupported_("ExecMethodAsync");
}

// ---- Locator and its factory ----------------------------------------------------

Locator::Locator(std::shared_ptr<ServiceCore> core)
    : ComObject(std::move(core), ObjectKind::locator, "Locator")
{
}

HRESULT STDMETHODCALLTYPE Locator::QueryInterface(REFIID iid, void** object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IUnknown || iid == IID_IWbemLocator) {
        *object = static_cast<IWbemLocator*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT STDMETHODCALLTYPE Locator::ConnectServer(const BSTR networkResource, const BSTR /*user*/,
                                                 const BSTR /*password*/, const BSTR /*locale*/,
                                                 LONG /*securityFlags*/, const BSTR /*authority*/,
                                                 IWbemContext* /*context*/, IWbemServices** services)
{
    clearOut(services);
    const std::wstring resource = text(networkResource);
    return core().serve(CallInfo{"ConnectServer", L"", resource, L"", true}, [&]() -> HRESULT {
        if (networkResource == nullptr || services == nullptr) {
            return codes::invalidParameter;
        }
        // The local machine's root\wmi, with or without the "\\.\" server part.
        std::wstring_view name = resource;
        if (startsWithNoCase(name, L"\\\\.\\")) {
            name.remove_prefix(4);
        }
        if (!equalsNoCase(name, L"root\\wmi")) {
            return codes::invalidNamespace;
        }
        *services = Services::create(sharedCore());
        return S_OK;
    });
}

LocatorFactory::LocatorFactory(std::shared_ptr<ServiceCore> core)
    : ComObject(std::move(core), ObjectKind::factory, "LocatorFactory")
{
}

HRESULT STDMETHODCALLTYPE LocatorFactory::QueryInterface(REFIID iid, void** object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IUnknown || iid == IID_IClassFactory) {
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT STDMETHODCALLTYPE LocatorFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object)
{
    clearOut(object);
    return core().serve(CallInfo{"CreateInstance", L"", L"", L"", true}, [&]() -> HRESULT {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (outer != nullptr) {
            return CLASS_E_NOAGGREGATION;
        }
        auto* locator = new Locator(sharedCore());
        const HRESULT result = locator->QueryInterface(iid, object);
        locator->Release();
        return result;
    });
}

HRESULT STDMETHODCALLTYPE LocatorFactory::LockServer(BOOL /*lock*/)
{
    return S_OK;
}

}  // namespace sim
