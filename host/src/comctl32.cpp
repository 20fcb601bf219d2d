// Common controls initialisation and sheet page handles. A page handle owns a
// copy of its description; creation and destruction call the page's callback
// with PSPCB_ADDREF and PSPCB_RELEASE, as the real sheet does.
#include <algorithm>
#include <cstring>
#include <memory>

#include "HostState.h"
#include "host/HostPlatform.h"

struct _PSP {
    PROPSHEETPAGEW description;
};

BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* init)
{
    if (init == nullptr || init->dwSize != sizeof(INITCOMMONCONTROLSEX)) {
        return FALSE;
    }
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.initCommonControls.push_back(*init);
    return TRUE;
}

HPROPSHEETPAGE CreatePropertySheetPageW(LPCPROPSHEETPAGEW page)
{
    if (page == nullptr || page->dwSize < offsetof(PROPSHEETPAGEW, pszHeaderTitle)
        || page->dwSize > sizeof(PROPSHEETPAGEW)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto handle = std::make_unique<_PSP>();
    std::memcpy(&handle->description, page, page->dwSize);
    if ((page->dwFlags & PSP_USECALLBACK) != 0 && page->pfnCallback != nullptr) {
        page->pfnCallback(nullptr, PSPCB_ADDREF, &handle->description);
    }
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.livePages.push_back(handle.get());
    return handle.release();
}

BOOL DestroyPropertySheetPage(HPROPSHEETPAGE page)
{
    {
        auto& s = host::state();
        const std::lock_guard<std::mutex> guard(s.lock);
        const auto found = std::find(s.livePages.begin(), s.livePages.end(), page);
        if (found == s.livePages.end()) {
            return FALSE;
        }
        s.livePages.erase(found);
    }
    const std::unique_ptr<_PSP> owned(page);
    if ((owned->description.dwFlags & PSP_USECALLBACK) != 0 && owned->description.pfnCallback != nullptr) {
        owned->description.pfnCallback(nullptr, PSPCB_RELEASE, &owned->description);
    }
    return TRUE;
}

namespace host {

std::vector<INITCOMMONCONTROLSEX> initCommonControlsCalls()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return s.initCommonControls;
}

int livePropertySheetPages()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return static_cast<int>(s.livePages.size());
}

void destroyAllPropertySheetPages()
{
    std::vector<HPROPSHEETPAGE> pages;
    {
        auto& s = state();
        const std::lock_guard<std::mutex> guard(s.lock);
        pages = s.livePages;
    }
    for (auto* page : pages) {
        DestroyPropertySheetPage(page);
    }
}

}  // namespace host
