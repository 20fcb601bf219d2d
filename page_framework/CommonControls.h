// The module's only way into the common controls: each call is bound late to
// "Comctl32.dll" and made inside the module's activation context.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>

#include "platform.h"

// Methods are the platform's functions of the same names in lowerCamelCase,
// with the same arguments and results. A call that cannot be made (the
// function is missing, or activation failed) answers null, FALSE or, for
// imageListReplaceIcon, -1, and leaves the failure's code for GetLastError.
// Every method may be called from any thread and lets no exception out.
class CommonControls {
public:
    CommonControls() = default;
    // Gives back the library reference this object took. The module's own
    // object (commonControls()) is never destroyed: FreeLibrary is not to be
    // called while the module itself is being unloaded.
    ~CommonControls();
    CommonControls(const CommonControls&) = delete;
    CommonControls& operator=(const CommonControls&) = delete;

    BOOL initCommonControlsEx(const INITCOMMONCONTROLSEX* init) noexcept;
    // A description of at least 96 bytes without PSP_USEFUSIONCONTEXT goes
    // to the platform as a copy that carries the flag and the module's context,
    // so the page's dialog is later created under that context as well.
    HPROPSHEETPAGE createPropertySheetPage(LPCPROPSHEETPAGEW page) noexcept;
    BOOL destroyPropertySheetPage(HPROPSHEETPAGE page) noexcept;
    HIMAGELIST imageListCreate(int cx, int cy, UINT flags, int initial, int grow) noexcept;
    int imageListReplaceIcon(HIMAGELIST list, int index, HICON icon) noexcept;
    BOOL imageListDestroy(HIMAGELIST list) noexcept;

private:
    enum class Activation { active, plain, failed };
    enum Slot : std::size_t {
        initSlot,
        createPageSlot,
        destroyPageSlot,
        createListSlot,
        replaceIconSlot,
        destroyListSlot,
        slotCount
    };

    Activation activate_(ULONG_PTR& cookie, HANDLE& context) noexcept;
    void deactivate_(ULONG_PTR cookie) noexcept;
    bool moduleContext_(HANDLE& context) noexcept;
    bool noActivationSupport_(DWORD error) noexcept;
    FARPROC resolve_(Slot slot) noexcept;
    HMODULE loadLibrary_() noexcept;
    template <typename Function, typename Result, typename Call>
    Result invoke_(Slot slot, Result failure, Call call) noexcept;

    // Set once the platform has shown that it has no activation contexts.
    std::atomic<bool> noActivation_{false};
    std::atomic<bool> contextKnown_{false};
    std::atomic<HANDLE> context_{nullptr};
    std::atomic<HMODULE> library_{nullptr};
    std::array<std::atomic<FARPROC>, slotCount> procedures_{};
};

// The module's one instance.
CommonControls& commonControls();
