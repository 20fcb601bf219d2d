#include "wmi/WbemServices.h"

#include <memory>

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

// Each thread's record, as a plain pointer in a slot of the platform's thread
// local storage: a thread's end runs nothing of it (that would be under the
// loader lock). The slot lives as long as the module; a record a thread still
// holds when the module goes is abandoned, not ended.
class ContextSlot {
public:
    ContextSlot() noexcept : index_(TlsAlloc())
    {
        if (index_ == TLS_OUT_OF_INDEXES) {
            ZT_TRACE(0, "[!] TlsAlloc() failed w/status %#x", static_cast<unsigned>(GetLastError()));
        }
    }
    ContextSlot(const ContextSlot&) = delete;
    ContextSlot& operator=(const ContextSlot&) = delete;
    ~ContextSlot()
    {
        if (index_ != TLS_OUT_OF_INDEXES) {
            TlsFree(index_);
        }
    }

    ThreadWbemContext* get() const
    {
        return index_ == TLS_OUT_OF_INDEXES ? nullptr : static_cast<ThreadWbemContext*>(TlsGetValue(index_));
    }
    bool set(ThreadWbemContext* context) const
    {
        return index_ != TLS_OUT_OF_INDEXES && TlsSetValue(index_, context) != FALSE;
    }

private:
    DWORD index_;
};

ContextSlot contextSlot;

}  // namespace

WbemServices::WbemServices(Unconnected /*tag*/)
{
}

WbemServices& threadWbemServices()
{
    if (ThreadWbemContext* context = contextSlot.get()) {
        return context->services;
    }
    auto context = std::make_unique<ThreadWbemContext>();
    if (!contextSlot.set(context.get())) {
        // No slot to keep it in: this thread's calls fail, with no connection left behind.
        ZT_TRACE(0, "[!] No thread local slot for the WMI connection");
        static WbemServices unconnected{WbemServices::Unconnected{}};
        return unconnected;
    }
    return context.release()->services;
}

void endThreadWbemServices()
{
    const std::unique_ptr<ThreadWbemContext> context(contextSlot.get());
    if (context) {
        contextSlot.set(nullptr);
    }
}

BorrowedThreadScope::BorrowedThreadScope() : hadConnection_(contextSlot.get() != nullptr)
{
}

BorrowedThreadScope::~BorrowedThreadScope()
{
    if (!hadConnection_) {
        endThreadWbemServices();
    }
}
