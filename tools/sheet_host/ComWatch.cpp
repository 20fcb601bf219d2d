#include "tools/sheet_host/ComWatch.h"

#include <atomic>
#include <mutex>

#include "platform/Threading.h"
#include "tools/sheet_host/LoaderLock.h"

namespace {

struct WatchState {
    SrwLock lock;
    std::vector<std::string> underLoaderLock;
    std::atomic<int> underLoaderLockCount{0};
    int initializations = 0;
    int uninitializations = 0;
};

// Lives as long as the process: the replacements stay in the module.
WatchState& watchState()
{
    static WatchState state;
    return state;
}

void noteCall(const char* name)
{
    if (holdsLoaderLock()) {
        ++watchState().underLoaderLockCount;
        const std::lock_guard<SrwLock> guard(watchState().lock);
        watchState().underLoaderLock.emplace_back(name);
    }
}

HRESULT WINAPI watchedCoCreateInstance(REFCLSID clsid, LPUNKNOWN outer, DWORD context, REFIID iid,
                                       LPVOID* object)
{
    noteCall("CoCreateInstance");
    return CoCreateInstance(clsid, outer, context, iid, object);
}

HRESULT WINAPI watchedCoInitializeEx(LPVOID reserved, DWORD model)
{
    noteCall("CoInitializeEx");
    const HRESULT result = CoInitializeEx(reserved, model);
    if (SUCCEEDED(result)) {
        const std::lock_guard<SrwLock> guard(watchState().lock);
        ++watchState().initializations;
    }
    return result;
}

HRESULT WINAPI watchedCoInitializeSecurity(PSECURITY_DESCRIPTOR descriptor, LONG count,
                                           SOLE_AUTHENTICATION_SERVICE* services, void* reserved1,
                                           DWORD authentication, DWORD impersonation, void* list,
                                           DWORD capabilities, void* reserved3)
{
    noteCall("CoInitializeSecurity");
    return CoInitializeSecurity(descriptor, count, services, reserved1, authentication, impersonation, list,
                                capabilities, reserved3);
}

HRESULT WINAPI watchedCoSetProxyBlanket(IUnknown* proxy, DWORD authentication, DWORD authorization,
                                        OLECHAR* principal, DWORD level, DWORD impersonation,
                                        RPC_AUTH_IDENTITY_HANDLE identity, DWORD capabilities)
{
    noteCall("CoSetProxyBlanket");
    return CoSetProxyBlanket(proxy, authentication, authorization, principal, level, impersonation, identity,
                             capabilities);
}

void WINAPI watchedCoUninitialize()
{
    noteCall("CoUninitialize");
    {
        const std::lock_guard<SrwLock> guard(watchState().lock);
        ++watchState().uninitializations;
    }
    CoUninitialize();
}

}  // namespace

ComWatch::ComWatch(HMODULE module)
    : patch_(module, "ole32.dll",
             std::vector<ImportPatch::Replacement>{
                 {"CoCreateInstance", reinterpret_cast<const void*>(&watchedCoCreateInstance)},
                 {"CoInitializeEx", reinterpret_cast<const void*>(&watchedCoInitializeEx)},
                 {"CoInitializeSecurity", reinterpret_cast<const void*>(&watchedCoInitializeSecurity)},
                 {"CoSetProxyBlanket", reinterpret_cast<const void*>(&watchedCoSetProxyBlanket)},
                 {"CoUninitialize", reinterpret_cast<const void*>(&watchedCoUninitialize)}})
{
    patch_.keepInPlace();
    const std::lock_guard<SrwLock> guard(watchState().lock);
    watchState().underLoaderLock.clear();
    watchState().underLoaderLockCount = 0;
    watchState().initializations = 0;
    watchState().uninitializations = 0;
}

std::vector<std::string> ComWatch::callsUnderLoaderLock()
{
    const std::lock_guard<SrwLock> guard(watchState().lock);
    return watchState().underLoaderLock;
}

int ComWatch::callsUnderLoaderLockSoFar()
{
    return watchState().underLoaderLockCount;
}

int ComWatch::initializationsLeft()
{
    const std::lock_guard<SrwLock> guard(watchState().lock);
    return watchState().initializations - watchState().uninitializations;
}

int ComWatch::initializations()
{
    const std::lock_guard<SrwLock> guard(watchState().lock);
    return watchState().initializations;
}
