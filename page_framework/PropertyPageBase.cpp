#include "page_framework/PropertyPageBase.h"

#include <cstddef>

#include "installer/ModuleRecord.h"
#include "installer/PropSheetPageProc.h"
#include "nic/ZtNic.h"
#include "page_framework/CommonControls.h"
#include "trace/FormatString.h"
#include "trace/Trace.h"

namespace {

constexpr WORD diagnosticsDialog = 107;

// The platform's full description since Windows Vista: the fields up to the
// activation context, then the header bitmap, 104 bytes on x64. Headers that
// declare less (mingw-w64's ends with the context, at 96) get the rest as zeroes.
constexpr std::size_t pageDescriptionSize = offsetof(PROPSHEETPAGEW, hActCtx) + 2 * sizeof(HANDLE);
constexpr std::size_t tailSize
    = pageDescriptionSize > sizeof(PROPSHEETPAGEW) ? pageDescriptionSize - sizeof(PROPSHEETPAGEW) : 1;
struct PageDescription {
    PROPSHEETPAGEW page;
    BYTE tail[tailSize];
};
static_assert(sizeof(PageDescription) >= pageDescriptionSize, "the description's bytes are all there");

}  // namespace

PropertyPageBase::PropertyPageBase()
{
    ZT_TRACE(1, "Initializing the property page");
    PageDescription description{};
    PROPSHEETPAGEW& page = description.page;
    page.dwSize = pageDescriptionSize;
    page.dwFlags = PSP_USECALLBACK;  // the tab's title comes from the template
    page.hInstance = moduleRecord.moduleInstance;
    page.pszTemplate = MAKEINTRESOURCEW(diagnosticsDialog);
    page.pfnDlgProc = &PropertyPageBase::dialogProc;
    page.lParam = reinterpret_cast<LPARAM>(this);
    page.pfnCallback = &PropSheetPageProc;
    ZT_TRACE(1, "Creating the page...");
    pageHandle_ = commonControls().createPropertySheetPage(&page);
    if (pageHandle_ == nullptr) {
        ZT_TRACE(0, "[!] Property page creation failed");
    }
    nicChangedKey_ = formatString(L"ppb_%p_nic_changed", static_cast<void*>(this));
    nicMediaChangedKey_ = formatString(L"ppb_%p_nic_media_changed", static_cast<void*>(this));
}

PropertyPageBase::~PropertyPageBase()
{
    // Unsubscribe before the reference goes: the adapter object must never
    // call into a page that is gone.
    if (nic_) {
        nic_->nicChanged.remove(nicChangedKey_);
        nic_->nicMediaChanged.remove(nicMediaChangedKey_);
    }
    nic_.reset();
}

void PropertyPageBase::onInit_(HWND window)
{
    hwnd_ = window;
    SetWindowLongPtrW(window, DWLP_USER, reinterpret_cast<LONG_PTR>(this));
    // 0 is also the answer for a window whose previous extended style was 0;
    // only the last error tells the two apart.
    SetLastError(ERROR_SUCCESS);
    if (SetWindowLongW(window, GWL_EXSTYLE, WS_EX_COMPOSITED) == 0 && GetLastError() != ERROR_SUCCESS) {
        ZT_TRACE(0, "[!] SetWindowLong() failed w/status %d", static_cast<int>(GetLastError()));
    }
    onInitDialog_();
    if (!nic_) {
        return;
    }
    // The callables run on the service's threads: they only post, and hold the
    // window handle, not the page.
    nic_->nicChanged.add(
        nicChangedKey_, [window](bool added) { PostMessageW(window, WM_PPB_NIC_CHANGED, added ? 1 : 0, 0); });
    nic_->nicMediaChanged.add(nicMediaChangedKey_, [window](MediaConnectState state) {
        PostMessageW(window, WM_PPB_NIC_MEDIA_CHANGED, static_cast<WPARAM>(static_cast<LONG_PTR>(state)), 0);
    });
}

INT_PTR CALLBACK PropertyPageBase::dialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    try {
        return dispatch_(window, message, wParam, lParam);
    } catch (...) {
        // Only allocation can throw (texts, subscriptions); the sheet must not see it.
        ZT_TRACE(0, "[!] PropertyPageBase: out of memory handling message %u", message);
        return FALSE;
    }
}

INT_PTR PropertyPageBase::dispatch_(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    auto* page = reinterpret_cast<PropertyPageBase*>(GetWindowLongPtrW(window, DWLP_USER));
    switch (message) {
    case WM_INITDIALOG: {
        const auto* description = reinterpret_cast<const PROPSHEETPAGEW*>(lParam);
        if (description != nullptr && description->lParam != 0) {
            reinterpret_cast<PropertyPageBase*>(description->lParam)->onInit_(window);
        }
        return TRUE;
    }
    case WM_NOTIFY:
    case WM_HELP:
    case WM_CONTEXTMENU:
        return TRUE;
    default:
        break;
    }
    if (page == nullptr) {
        return FALSE;  // before WM_INITDIALOG there is no page to call
    }
    switch (message) {
    case WM_SIZE:
        page->onSize_(LOWORD(static_cast<ULONG_PTR>(lParam)), HIWORD(static_cast<ULONG_PTR>(lParam)));
        return TRUE;
    case WM_COMMAND:
        page->onCommand_(wParam);
        return TRUE;
    case WM_TIMER:
        page->onTimer_(wParam);
        return TRUE;
    case WM_PPB_NIC_CHANGED:
        page->onNicChanged_(wParam != 0);
        return TRUE;
    case WM_PPB_NIC_MEDIA_CHANGED:
        page->onNicMediaStateChanged_(static_cast<MediaConnectState>(static_cast<std::int32_t>(wParam)));
        return TRUE;
    default:
        return message > WM_USER ? page->onUserMessage_(message, wParam, lParam) : FALSE;
    }
}

void PropertyPageBase::onCommand_(WPARAM wParam)
{
    if (HIWORD(wParam) == 0) {
        onCommandClicked_(wParam);
    } else {
        onCommandNotify_(wParam);
    }
}

void PropertyPageBase::onTimer_(UINT_PTR id)
{
    ZT_TRACE(5, "PropertyPageBase: Timer event (%d)", static_cast<int>(id));
}

void PropertyPageBase::onNicChanged_(bool added)
{
    ZT_TRACE(5, "PropertyPageBase: NIC changed -> %s", added ? "added" : "removed");
}

void PropertyPageBase::onNicMediaStateChanged_(MediaConnectState state)
{
    ZT_TRACE(5, "PropertyPageBase: NIC media state changed -> %d", static_cast<int>(state));
}
