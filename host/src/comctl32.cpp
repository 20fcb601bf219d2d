// Common controls initialisation, sheet page handles and image lists. A page
// handle owns a copy of its description; creation and destruction call the
// page's callback with PSPCB_ADDREF and PSPCB_RELEASE, as the real sheet does.
// An image list holds its icons' handles, one slot each.
#include <algorithm>
#include <cstring>
#include <memory>

#include "ActivationState.h"
#include "HostState.h"
#include "host/HostActivation.h"
#include "host/HostPlatform.h"

struct _PSP {
    PROPSHEETPAGEW description;
};

struct HostImageList {
    int cx = 0;
    int cy = 0;
    UINT flags = 0;
    std::vector<HICON> icons;
};

namespace {
// The live image lists, under the state's lock.
std::vector<std::unique_ptr<HostImageList>> imageLists;

HostImageList* findImageList(HIMAGELIST list)
{
    for (auto& owned : imageLists) {
        if (owned.get() == list) {
            return owned.get();
        }
    }
    return nullptr;
}
}  // namespace

BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* init)
{
    host::recordControlsCall("InitCommonControlsEx");
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
    host::recordControlsCall("CreatePropertySheetPageW");
    if (page == nullptr || page->dwSize < offsetof(PROPSHEETPAGEW, pszHeaderTitle)
        || page->dwSize > sizeof(PROPSHEETPAGEW)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    {
        auto& s = host::state();
        const std::lock_guard<std::mutex> guard(s.lock);
        if (s.createPageError != 0) {
            SetLastError(s.createPageError);
            return nullptr;
        }
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
    host::recordControlsCall("DestroyPropertySheetPage");
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

HIMAGELIST ImageList_Create(int cx, int cy, UINT flags, int initial, int grow)
{
    host::recordControlsCall("ImageList_Create");
    if (cx <= 0 || cy <= 0 || initial < 0 || grow < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto list = std::make_unique<HostImageList>();
    list->cx = cx;
    list->cy = cy;
    list->flags = flags;
    list->icons.reserve(static_cast<std::size_t>(initial));
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    imageLists.push_back(std::move(list));
    return imageLists.back().get();
}

int ImageList_ReplaceIcon(HIMAGELIST list, int index, HICON icon)
{
    host::recordControlsCall("ImageList_ReplaceIcon");
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    HostImageList* found = findImageList(list);
    if (found == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return -1;
    }
    const auto count = static_cast<int>(found->icons.size());
    if (icon == nullptr || index < -1 || index >= count) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return -1;
    }
    if (index == -1) {
        found->icons.push_back(icon);
        return count;
    }
    found->icons[static_cast<std::size_t>(index)] = icon;
    return index;
}

BOOL ImageList_Destroy(HIMAGELIST list)
{
    host::recordControlsCall("ImageList_Destroy");
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    const auto found = std::find_if(imageLists.begin(), imageLists.end(),
                                    [list](const auto& owned) { return owned.get() == list; });
    if (found == imageLists.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    imageLists.erase(found);
    return TRUE;
}

BOOL ImageList_GetIconSize(HIMAGELIST list, int* cx, int* cy)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    const HostImageList* found = findImageList(list);
    if (found == nullptr || cx == nullptr || cy == nullptr) {
        return FALSE;
    }
    *cx = found->cx;
    *cy = found->cy;
    return TRUE;
}

int ImageList_GetImageCount(HIMAGELIST list)
{
    auto& s = host::state();
    const std::lock_guard<std::mutex> guard(s.lock);
    const HostImageList* found = findImageList(list);
    return found != nullptr ? static_cast<int>(found->icons.size()) : 0;
}

namespace host {

int liveImageLists()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    return static_cast<int>(imageLists.size());
}

void resetImageLists()
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    imageLists.clear();
}

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

namespace host {

void failCreatePropertySheetPage(DWORD error)
{
    auto& s = state();
    const std::lock_guard<std::mutex> guard(s.lock);
    s.createPageError = error;
}

PROPSHEETPAGEW* pageDescription(HPROPSHEETPAGE page)
{
    return page != nullptr ? &page->description : nullptr;
}

}  // namespace host
