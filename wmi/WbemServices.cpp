#include "wmi/WbemServices.h"

#include <optional>

#include "trace/Trace.h"
#include "wmi/bstr.h"
#include "wmi/co_init.h"

WbemServices::WbemServices()
{
    const HRESULT security = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                                  RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    if (FAILED(security)) {
        ZT_TRACE(0, "[!] CoInitializeSecurity() failed w/status %#x", static_cast<unsigned>(security));
    }

    com_ptr<IWbemLocator> locator;
    CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                     reinterpret_cast<void**>(locator.put()));
    if (!locator) {
        ZT_TRACE(0, "[!] Couldn't get WbemLocator");
        return;
    }

    const bstr ns(L"root\\wmi");
    com_ptr<IWbemServices> services;
    const HRESULT connected
        = locator->ConnectServer(ns.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, services.put());
    if (FAILED(connected)) {
        ZT_TRACE(0, "[!] Connect to namespace failed w/status %#x", static_cast<unsigned>(connected));
        return;
    }
    services_ = std::move(services);

    const HRESULT blanket
        = CoSetProxyBlanket(services_.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                            RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (FAILED(blanket)) {
        ZT_TRACE(0, "[!] set_proxy_blanket() failed w/status %#x", static_cast<unsigned>(blanket));
    }
}

com_ptr<IWbemClassObject> WbemServices::createInstance(const std::wstring& className) const
{
    if (!services_) {
        return {};
    }
    const bstr name(className.c_str());
    com_ptr<IWbemClassObject> classObject;
    const HRESULT found = services_->GetObject(name.get(), 0, nullptr, classObject.put(), nullptr);
    if (FAILED(found)) {
        ZT_TRACE(2, "/!\\ GetObject(%S) class -> %#x", className.c_str(), static_cast<unsigned>(found));
        return {};
    }
    com_ptr<IWbemClassObject> instance;
    const HRESULT spawned = classObject->SpawnInstance(0, instance.put());
    classObject.reset();
    if (FAILED(spawned)) {
        ZT_TRACE(2, "/!\\ SpawnInstance() of class %S -> %#x", className.c_str(),
                 static_cast<unsigned>(spawned));
        return {};
    }
    return instance;
}

WbemClassObject WbemServices::getObject(const std::wstring& path) const
{
    if (!services_) {
        ZT_TRACE(0, "[!] WbemServices: not initialized!");
        return {};
    }
    const bstr objectPath(path.c_str());
    IWbemClassObject* object = nullptr;
    const HRESULT hr = services_->GetObject(objectPath.get(), 0, nullptr, &object, nullptr);
    ZT_TRACE(3, "GetObject(%S) -> %#x", path.c_str(), static_cast<unsigned>(hr));
    if (FAILED(hr) && object != nullptr) {
        object->Release();  // a failed call hands over nothing
        object = nullptr;
    }
    return {object, false};
}

HRESULT WbemServices::execMethod(const std::wstring& path, const std::wstring& method,
                                 IWbemClassObject* inParams, WbemClassObject* out) const
{
    if (!services_) {
        ZT_TRACE(0, "[!] WbemServices: not initialized!");
        return E_FAIL;
    }
    const bstr objectPath(path.c_str());
    const bstr methodName(method.c_str());
    com_ptr<IWbemClassObject> result;
    const HRESULT hr = services_->ExecMethod(objectPath.get(), methodName.get(), 0, nullptr, inParams,
                                             out != nullptr ? result.put() : nullptr, nullptr);
    ZT_TRACE(3, "ExecMethod(%S:%S) -> %#x", path.c_str(), method.c_str(), static_cast<unsigned>(hr));
    if (SUCCEEDED(hr) && out != nullptr) {
        *out = WbemClassObject(result.detach(), false);
    }
    return hr;
}

HRESULT WbemServices::execNotificationQueryAsync(const std::wstring& query, IWbemObjectSink* sink) const
{
    if (!services_) {
        ZT_TRACE(0, "[!] WbemServices: not initialized!");
        return E_FAIL;
    }
    const bstr language(L"WQL");
    const bstr text(query.c_str());
    const HRESULT hr = services_->ExecNotificationQueryAsync(language.get(), text.get(), 0, nullptr, sink);
    ZT_TRACE(3, "ExecNotificationQueryAsync(%S) -> %#x", query.c_str(), static_cast<unsigned>(hr));
    return hr;
}

namespace {

// Built in this order and ended in reverse: the connection goes before COM.
struct ThreadWbemContext {
    co_init com;
    WbemServices services;
};

thread_local std::optional<ThreadWbemContext> threadContext;

}  // namespace

WbemServices& threadWbemServices()
{
    if (!threadContext) {
        threadContext.emplace();
    }
    return threadContext->services;
}

void endThreadWbemServices()
{
    threadContext.reset();
}

BorrowedThreadScope::BorrowedThreadScope() : hadConnection_(threadContext.has_value())
{
}

BorrowedThreadScope::~BorrowedThreadScope()
{
    if (!hadConnection_) {
        endThreadWbemServices();
    }
}
