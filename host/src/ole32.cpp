// The COM runtime: per-thread apartments with the platform's init counting,
// process-wide class objects for CoCreateInstance, and the security calls.
// No object's code runs under the state lock: objects may call back in.
#include <memory>
#include <new>
#include <utility>

#include "HostState.h"
#include "host/HostPlatform.h"

namespace host {

// One CoRegisterClassObject; holds the reference the runtime keeps.
class ClassRegistration {
public:
    ClassRegistration(const CLSID& clsid, IUnknown* object, DWORD context)
        : clsid_(clsid), object_(object), context_(context)
    {
        object_->AddRef();
    }
    ~ClassRegistration() { object_->Release(); }
    ClassRegistration(const ClassRegistration&) = delete;
    ClassRegistration& operator=(const ClassRegistration&) = delete;

    bool servesInProcess(const CLSID& clsid, DWORD context) const
    {
        return clsid_ == clsid && (context_ & context & CLSCTX_INPROC_SERVER) != 0;
    }
    IUnknown* object() const { return object_; }

private:
    CLSID clsid_;
    IUnknown* object_;
    DWORD context_;
};

}  // namespace host

namespace {

struct ThreadApartment {
    unsigned generation = 0;
    int depth = 0;  // successful CoInitializeEx calls not yet balanced
    bool multithreaded = false;
};

thread_local ThreadApartment apartment;

// The calling thread's apartment; one from before the last reset counts as none.
// Call with the state lock held.
ThreadApartment& currentApartment(const host::State& s)
{
    if (apartment.generation != s.comGeneration) {
        apartment = ThreadApartment{s.comGeneration, 0, false};
    }
    return apartment;
}

struct ReleaseInterface {
    void operator()(IUnknown* object) const { object->Release(); }
};

HRESULT scripted(HRESULT result)
{
    return FAILED(result) ? result : S_OK;  // a success value clears the script
}

}  // namespace

HRESULT CoInitializeEx(LPVOID /*reserved*/, DWORD coInit)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    ++s.coInitializeExCalls;
    if (FAILED(s.coInitializeExFailure)) {
        return s.coInitializeExFailure;
    }
    auto& apt = currentApartment(s);
    const bool multithreaded = (coInit & COINIT_APARTMENTTHREADED) == 0;
    if (apt.depth > 0 && apt.multithreaded != multithreaded) {
        return RPC_E_CHANGED_MODE;
    }
    apt.multithreaded = multithreaded;
    return apt.depth++ == 0 ? S_OK : S_FALSE;
}

void CoUninitialize()
{
    auto& s = host::state();
    std::shared_ptr<const std::function<void()>> hook;
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        ++s.coUninitializeCalls;
        auto& apt = currentApartment(s);
        if (apt.depth == 0) {
            return;
        }
        if (apt.depth > 1) {
            --apt.depth;
            return;
        }
        hook = s.coUninitializeHook;
    }
    // The thread is still initialised while the hook looks around.
    if (hook) {
        (*hook)();
    }
    const std::lock_guard<std::mutex> guard(s.lock);
    auto& apt = currentApartment(s);
    if (apt.depth > 0) {
        --apt.depth;
    }
}

HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR /*securityDescriptor*/, LONG authServiceCount,
                             SOLE_AUTHENTICATION_SERVICE* /*authServices*/, void* /*reserved1*/,
                             DWORD /*authnLevel*/, DWORD /*impLevel*/, void* /*authList*/,
                             DWORD /*capabilities*/, void* /*reserved3*/)
{
    if (authServiceCount < -1) {
        return E_INVALIDARG;  // -1: COM chooses; else the count of the list
    }
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (s.securityInitialized) {
        return RPC_E_TOO_LATE;
    }
    s.securityInitialized = true;
    return S_OK;
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, LPVOID* object)
{
    auto& s = host::state();
    std::shared_ptr<host::ClassRegistration> registration;
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        ++s.coCreateInstanceCalls;
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = nullptr;
        if (currentApartment(s).depth == 0) {
            return CO_E_NOTINITIALIZED;
        }
        if (outer != nullptr) {
            return CLASS_E_NOAGGREGATION;
        }
        for (const auto& entry : s.classObjects) {
            if (entry.second->servesInProcess(clsid, context)) {
                registration = entry.second;
                break;
            }
        }
    }
    if (!registration) {
        return REGDB_E_CLASSNOTREG;
    }
    // `registration` keeps the class object alive if it is revoked meanwhile.
    IClassFactory* rawFactory = nullptr;
    const HRESULT hr
        = registration->object()->QueryInterface(IID_IClassFactory, reinterpret_cast<void**>(&rawFactory));
    if (FAILED(hr) || rawFactory == nullptr) {
        return FAILED(hr) ? hr : E_NOINTERFACE;
    }
    const std::unique_ptr<IClassFactory, ReleaseInterface> factory(rawFactory);
    return factory->CreateInstance(nullptr, iid, object);
}

HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* factory, DWORD context, DWORD /*flags*/,
                              LPDWORD cookie)
{
    if (factory == nullptr || cookie == nullptr) {
        return E_INVALIDARG;
    }
    *cookie = 0;
    try {
        // Made before the lock and destroyed after it if the insert fails.
        auto registration = std::make_shared<host::ClassRegistration>(clsid, factory, context);
        auto& s = host::state();
        const std::lock_guard<std::mutex> guard(s.lock);
        const DWORD assigned = s.nextCookie;
        s.classObjects.emplace(assigned, std::move(registration));
        ++s.nextCookie;
        *cookie = assigned;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT CoRevokeClassObject(DWORD cookie)
{
    std::shared_ptr<host::ClassRegistration> revoked;  // released after the lock
    {
        auto& s = host::state();
        const std::lock_guard<std::mutex> guard(s.lock);
        const auto found = s.classObjects.find(cookie);
        if (found == s.classObjects.end()) {
            return E_INVALIDARG;
        }
        revoked = std::move(found->second);
        s.classObjects.erase(found);
    }
    return S_OK;
}

HRESULT CoSetProxyBlanket(IUnknown* proxy, DWORD /*authnService*/, DWORD /*authzService*/,
                          OLECHAR_PTR /*serverPrincipal*/, DWORD /*authnLevel*/, DWORD /*impLevel*/,
                          RPC_AUTH_IDENTITY_HANDLE /*authInfo*/, DWORD /*capabilities*/)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    ++s.coSetProxyBlanketCalls;
    if (proxy == nullptr) {
        return E_INVALIDARG;
    }
    return s.coSetProxyBlanketFailure;
}

namespace host {

void resetCom()
{
    std::map<DWORD, std::shared_ptr<ClassRegistration>> revoked;
    std::shared_ptr<const std::function<void()>> hook;
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    revoked.swap(s.classObjects);
    hook.swap(s.coUninitializeHook);
    ++s.comGeneration;
    s.coInitializeExFailure = S_OK;
    s.coSetProxyBlanketFailure = S_OK;
    s.securityInitialized = false;
    s.coInitializeExCalls = 0;
    s.coUninitializeCalls = 0;
    s.coCreateInstanceCalls = 0;
    s.coSetProxyBlanketCalls = 0;
}

void failCoInitializeEx(HRESULT result)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.coInitializeExFailure = scripted(result);
}

void failCoSetProxyBlanket(HRESULT result)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.coSetProxyBlanketFailure = scripted(result);
}

void onCoUninitialize(std::function<void()> hook)
{
    std::shared_ptr<const std::function<void()>> replaced;  // destroyed after the lock
    auto next = hook ? std::make_shared<const std::function<void()>>(std::move(hook)) : nullptr;
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    replaced = std::exchange(s.coUninitializeHook, std::move(next));
}

int comInitDepth()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return currentApartment(s).depth;
}

namespace {
int readLocked(int State::*member)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.*member;
}
}  // namespace

int coInitializeExCalls()
{
    return readLocked(&State::coInitializeExCalls);
}

int coUninitializeCalls()
{
    return readLocked(&State::coUninitializeCalls);
}

int coCreateInstanceCalls()
{
    return readLocked(&State::coCreateInstanceCalls);
}

int coSetProxyBlanketCalls()
{
    return readLocked(&State::coSetProxyBlanketCalls);
}

}  // namespace host
