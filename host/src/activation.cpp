// Activation contexts and late binding. Each thread has a real stack of
// activations; "Comctl32.dll" is the one library, refcounted, whose exports are
// the host's common controls.
#include <cwctype>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "ActivationState.h"
#include "HostState.h"
#include "host/HostActivation.h"

namespace {

struct Frame {
    ULONG_PTR cookie;
    HANDLE context;
};
thread_local std::vector<Frame> activationStack;
thread_local ULONG_PTR nextCookie = 1;

// Distinct addresses stand for the module's context and the library.
char moduleContextObject = 0;
char comctl32Object = 0;

struct ActivationState {
    std::mutex lock;
    bool supported = true;
    DWORD activateFailure = NO_ERROR;
    bool moduleContext = true;
    int activations = 0;
    int deactivations = 0;
    std::set<std::string> hidden;
    int loadLibraryCalls = 0;
    int getProcAddressCalls = 0;
    int comctl32References = 0;
    std::vector<host::ControlsCall> controlsCalls;
};

ActivationState& activationState()
{
    static ActivationState instance;
    return instance;
}

HANDLE moduleContextHandle()
{
    return &moduleContextObject;
}

HMODULE comctl32Handle()
{
    return reinterpret_cast<HMODULE>(&comctl32Object);
}

bool sameNameIgnoringCase(LPCWSTR name, const std::wstring& expected)
{
    std::wstring text(name);
    if (text.size() != expected.size()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (std::towlower(static_cast<wint_t>(text[i])) != std::towlower(static_cast<wint_t>(expected[i]))) {
            return false;
        }
    }
    return true;
}

// FARPROC is a placeholder type: the caller casts back to the real one.
template <typename Function> FARPROC exported(Function function)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

}  // namespace

HMODULE LoadLibraryW(LPCWSTR fileName)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    ++s.loadLibraryCalls;
    if (fileName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    // The platform adds ".dll" to a name without an extension.
    if (!sameNameIgnoringCase(fileName, L"Comctl32.dll") && !sameNameIgnoringCase(fileName, L"Comctl32")) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    ++s.comctl32References;
    return comctl32Handle();
}

FARPROC GetProcAddress(HMODULE module, LPCSTR procName)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    ++s.getProcAddressCalls;
    if (module != comctl32Handle() || s.comctl32References == 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    // A value below 0x10000 is an ordinal; the stand-in exports by name only.
    if (reinterpret_cast<std::uintptr_t>(procName) < 0x10000 || s.hidden.count(procName) != 0) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    const std::pair<const char*, FARPROC> exports[] = {
        {"InitCommonControlsEx", exported(&InitCommonControlsEx)},
        {"CreatePropertySheetPageW", exported(&CreatePropertySheetPageW)},
        {"DestroyPropertySheetPage", exported(&DestroyPropertySheetPage)},
        {"ImageList_Create", exported(&ImageList_Create)},
        {"ImageList_ReplaceIcon", exported(&ImageList_ReplaceIcon)},
        {"ImageList_Destroy", exported(&ImageList_Destroy)},
    };
    for (const auto& [name, address] : exports) {
        if (std::string(name) == procName) {
            return address;
        }
    }
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
}

BOOL FreeLibrary(HMODULE module)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (module != comctl32Handle() || s.comctl32References == 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    --s.comctl32References;
    return TRUE;
}

BOOL QueryActCtxW(DWORD flags, HANDLE actCtx, PVOID /*subInstance*/, ULONG infoClass, PVOID buffer,
                  SIZE_T bufferSize, SIZE_T* writtenOrRequired)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (!s.supported) {
        SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
        return FALSE;
    }
    // Only what the module asks: the basic information of the context of an address.
    if ((flags & QUERY_ACTCTX_FLAG_ACTCTX_IS_ADDRESS) == 0 || actCtx == nullptr
        || infoClass != ActivationContextBasicInformation) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (writtenOrRequired != nullptr) {
        *writtenOrRequired = sizeof(ACTIVATION_CONTEXT_BASIC_INFORMATION);
    }
    if (buffer == nullptr || bufferSize < sizeof(ACTIVATION_CONTEXT_BASIC_INFORMATION)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    auto* info = static_cast<ACTIVATION_CONTEXT_BASIC_INFORMATION*>(buffer);
    info->hActCtx = s.moduleContext ? moduleContextHandle() : nullptr;
    info->dwFlags = 0;
    return TRUE;
}

BOOL ActivateActCtx(HANDLE actCtx, ULONG_PTR* cookie)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    if (!s.supported) {
        SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
        return FALSE;
    }
    if (s.activateFailure != NO_ERROR) {
        SetLastError(s.activateFailure);
        return FALSE;
    }
    if (cookie == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    // Null is the process's default context.
    if (actCtx != nullptr && actCtx != moduleContextHandle()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    *cookie = nextCookie++;
    activationStack.push_back({*cookie, actCtx});
    ++s.activations;
    return TRUE;
}

BOOL DeactivateActCtx(DWORD /*flags*/, ULONG_PTR cookie)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    // The platform raises on a cookie that is not the innermost one.
    if (activationStack.empty() || activationStack.back().cookie != cookie) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    activationStack.pop_back();
    ++s.deactivations;
    // Successful calls may overwrite the last error; callers must not count on it.
    SetLastError(NO_ERROR);
    return TRUE;
}

namespace host {

void recordControlsCall(const char* function)
{
    const bool activated = !activationStack.empty();
    HANDLE context = activated ? activationStack.back().context : nullptr;
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.controlsCalls.push_back({function, activated, context});
}

void resetActivation()
{
    resetImageLists();
    activationStack.clear();
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.supported = true;
    s.activateFailure = NO_ERROR;
    s.moduleContext = true;
    s.activations = 0;
    s.deactivations = 0;
    s.hidden.clear();
    s.loadLibraryCalls = 0;
    s.getProcAddressCalls = 0;
    s.controlsCalls.clear();
}

void setActivationSupported(bool supported)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.supported = supported;
}

void failActivateActCtx(DWORD error)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.activateFailure = error;
}

void setModuleActivationContext(bool present)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.moduleContext = present;
}

HANDLE moduleActivationContext()
{
    return moduleContextHandle();
}

int activateActCtxCalls()
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.activations;
}

int deactivateActCtxCalls()
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.deactivations;
}

bool activationsBalanced()
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.activations == s.deactivations && activationStack.empty();
}

void hideProcedure(const std::string& name)
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.hidden.insert(name);
}

int loadLibraryCalls()
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.loadLibraryCalls;
}

int getProcAddressCalls()
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.getProcAddressCalls;
}

int comctl32References()
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.comctl32References;
}

std::vector<ControlsCall> commonControlsCalls()
{
    auto& s = activationState();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.controlsCalls;
}

}  // namespace host
