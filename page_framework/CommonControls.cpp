#include "page_framework/CommonControls.h"

#include <cstring>
#include <vector>

#include "trace/Trace.h"

namespace {

// An address inside the module, to ask the platform for the module's context.
const char moduleAnchor = 0;

// In the order of CommonControls::Slot.
const char* const procedureNames[]
    = {"InitCommonControlsEx", "CreatePropertySheetPageW", "DestroyPropertySheetPage",
       "ImageList_Create",     "ImageList_ReplaceIcon",    "ImageList_Destroy"};

// A description this long reaches hActCtx.
constexpr std::size_t fusionDescriptionSize = offsetof(PROPSHEETPAGEW, hActCtx) + sizeof(HANDLE);

// FARPROC is only a placeholder type: the function behind it is `Function`.
template <typename Function> Function as(FARPROC procedure)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(procedure));
}

}  // namespace

CommonControls::~CommonControls()
{
    HMODULE library = library_.load();
    if (library != nullptr) {
        FreeLibrary(library);
    }
}

bool CommonControls::noActivationSupport_(DWORD error) noexcept
{
    switch (error) {
    case ERROR_INVALID_FUNCTION:
    case ERROR_NOT_SUPPORTED:
    case ERROR_CALL_NOT_IMPLEMENTED:
    case ERROR_MOD_NOT_FOUND:
    case ERROR_PROC_NOT_FOUND:
        if (!noActivation_.exchange(true)) {
            ZT_TRACE(2, "/!\\ No activation contexts (code %d): common controls are called plainly",
                     static_cast<int>(error));
        }
        return true;
    default:
        return false;
    }
}

// Asks for the context by address rather than creating one from the manifest
// resource: the loader already made it when it mapped the module, it lives as
// long as the module, and with NO_ADDREF there is no handle to release, which
// could not be done at unload time anyway. A null answer means the module has
// no manifest context; activating null then runs under the process's default.
bool CommonControls::moduleContext_(HANDLE& context) noexcept
{
    if (contextKnown_.load()) {
        context = context_.load();
        return true;
    }
    ACTIVATION_CONTEXT_BASIC_INFORMATION info{};
    if (!QueryActCtxW(QUERY_ACTCTX_FLAG_ACTCTX_IS_ADDRESS | QUERY_ACTCTX_FLAG_NO_ADDREF,
                      const_cast<char*>(&moduleAnchor), nullptr, ActivationContextBasicInformation, &info,
                      sizeof info, nullptr)) {
        return false;
    }
    // Two threads may both ask; they get the same answer.
    context_.store(info.hActCtx);
    contextKnown_.store(true);
    context = info.hActCtx;
    return true;
}

CommonControls::Activation CommonControls::activate_(ULONG_PTR& cookie, HANDLE& context) noexcept
{
    if (noActivation_.load()) {
        return Activation::plain;
    }
    if (moduleContext_(context) && ActivateActCtx(context, &cookie)) {
        return Activation::active;
    }
    const DWORD error = GetLastError();
    if (noActivationSupport_(error)) {
        SetLastError(NO_ERROR);
        return Activation::plain;
    }
    ZT_TRACE(0, "[!] Activating the module's context failed, code %d", static_cast<int>(error));
    return Activation::failed;
}

void CommonControls::deactivate_(ULONG_PTR cookie) noexcept
{
    // The caller reads the called function's error, not the deactivation's.
    const DWORD error = GetLastError();
    if (!DeactivateActCtx(0, cookie)) {
        ZT_TRACE(0, "[!] DeactivateActCtx() failed, code %d", static_cast<int>(GetLastError()));
    }
    SetLastError(error);
}

HMODULE CommonControls::loadLibrary_() noexcept
{
    HMODULE library = library_.load();
    if (library != nullptr) {
        return library;
    }
    // Loaded inside the context, so the redirected version 6 library is the one.
    HMODULE loaded = LoadLibraryW(L"Comctl32.dll");
    if (loaded == nullptr) {
        ZT_TRACE(0, "[!] LoadLibrary(Comctl32.dll) failed, code %d", static_cast<int>(GetLastError()));
        return nullptr;
    }
    if (!library_.compare_exchange_strong(library, loaded)) {
        FreeLibrary(loaded);  // another thread was first; keep one reference only
        return library;
    }
    return loaded;
}

FARPROC CommonControls::resolve_(Slot slot) noexcept
{
    FARPROC procedure = procedures_[slot].load();
    if (procedure != nullptr) {
        return procedure;
    }
    HMODULE library = loadLibrary_();
    if (library == nullptr) {
        return nullptr;
    }
    procedure = GetProcAddress(library, procedureNames[slot]);
    if (procedure == nullptr) {
        ZT_TRACE(0, "[!] GetProcAddress(%s) failed, code %d", procedureNames[slot],
                 static_cast<int>(GetLastError()));
        return nullptr;
    }
    procedures_[slot].store(procedure);
    return procedure;
}

// Activates, resolves, runs call(function, context) and deactivates. The
// context is null for plain calls.
template <typename Function, typename Result, typename Call>
Result CommonControls::invoke_(Slot slot, Result failure, Call call) noexcept
{
    ULONG_PTR cookie = 0;
    HANDLE context = nullptr;
    const Activation activation = activate_(cookie, context);
    if (activation == Activation::failed) {
        return failure;
    }
    Result result = failure;
    const FARPROC procedure = resolve_(slot);
    if (procedure != nullptr) {
        result = call(as<Function>(procedure), activation == Activation::active, context);
    }
    if (activation == Activation::active) {
        deactivate_(cookie);
    }
    return result;
}

BOOL CommonControls::initCommonControlsEx(const INITCOMMONCONTROLSEX* init) noexcept
{
    using Function = decltype(&::InitCommonControlsEx);
    return invoke_<Function>(initSlot, BOOL{FALSE},
                             [init](Function function, bool, HANDLE) { return function(init); });
}

HPROPSHEETPAGE CommonControls::createPropertySheetPage(LPCPROPSHEETPAGEW page) noexcept
{
    using Function = decltype(&::CreatePropertySheetPageW);
    return invoke_<Function>(
        createPageSlot, HPROPSHEETPAGE{nullptr}, [page](Function function, bool active, HANDLE context) {
            if (!active || page == nullptr || page->dwSize < fusionDescriptionSize
                || (page->dwFlags & PSP_USEFUSIONCONTEXT) != 0) {
                return function(page);
            }
            // The caller's description is const, and may be longer than the
            // platform's structure: copy all of it.
            try {
                std::vector<PROPSHEETPAGEW> copy((page->dwSize + sizeof(PROPSHEETPAGEW) - 1)
                                                 / sizeof(PROPSHEETPAGEW));
                std::memcpy(copy.data(), page, page->dwSize);
                copy[0].dwFlags |= PSP_USEFUSIONCONTEXT;
                copy[0].hActCtx = context;
                return function(copy.data());
            } catch (...) {
                ZT_TRACE(0, "[!] Out of memory copying a sheet page description");
                SetLastError(ERROR_OUTOFMEMORY);
                return HPROPSHEETPAGE{nullptr};
            }
        });
}

BOOL CommonControls::destroyPropertySheetPage(HPROPSHEETPAGE page) noexcept
{
    using Function = decltype(&::DestroyPropertySheetPage);
    return invoke_<Function>(destroyPageSlot, BOOL{FALSE},
                             [page](Function function, bool, HANDLE) { return function(page); });
}

HIMAGELIST CommonControls::imageListCreate(int cx, int cy, UINT flags, int initial, int grow) noexcept
{
    using Function = decltype(&::ImageList_Create);
    return invoke_<Function>(createListSlot, HIMAGELIST{nullptr}, [=](Function function, bool, HANDLE) {
        return function(cx, cy, flags, initial, grow);
    });
}

int CommonControls::imageListReplaceIcon(HIMAGELIST list, int index, HICON icon) noexcept
{
    using Function = decltype(&::ImageList_ReplaceIcon);
    // -1, not 0: 0 is the index of a first icon.
    return invoke_<Function>(replaceIconSlot, -1,
                             [=](Function function, bool, HANDLE) { return function(list, index, icon); });
}

BOOL CommonControls::imageListDestroy(HIMAGELIST list) noexcept
{
    using Function = decltype(&::ImageList_Destroy);
    return invoke_<Function>(destroyListSlot, BOOL{FALSE},
                             [list](Function function, bool, HANDLE) { return function(list); });
}

CommonControls& commonControls()
{
    // Never destroyed: see the destructor.
    static auto* const instance = new CommonControls;
    return *instance;
}
