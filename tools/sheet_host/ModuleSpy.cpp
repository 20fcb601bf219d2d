#include "tools/sheet_host/ModuleSpy.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

#include "platform/Threading.h"

namespace {

using CreatePage = HPROPSHEETPAGE(WINAPI*)(LPCPROPSHEETPAGEW);

// The spy's state: the module's callbacks may run on any thread.
struct SpyState {
    SrwLock lock;
    std::vector<std::string> lines;
    std::string partial;
    CreatePage realCreatePage = nullptr;
    std::map<LPARAM, LPFNPSPCALLBACKW> callbacks;  // by the page's lParam
    ModuleSpy::PageCounts counts;
    ModuleSpy::IconCounts icons;
    std::set<HANDLE> liveIcons;
};

// Lives as long as the process: the module keeps the page function it was
// given, and the sheet may call page callbacks until its pages are gone.
SpyState& spyState()
{
    static SpyState state;
    return state;
}

void WINAPI spyOutputDebugString(LPCSTR text)
{
    if (text == nullptr) {
        return;
    }
    const std::lock_guard<SrwLock> guard(spyState().lock);
    spyState().partial += text;
    std::size_t end = 0;
    while ((end = spyState().partial.find('\n')) != std::string::npos) {
        std::string line = spyState().partial.substr(0, end);
        spyState().partial.erase(0, end + 1);
        // The suffix names a source line, which moves with every edit.
        const std::size_t suffix = line.rfind(" @");
        if (suffix != std::string::npos) {
            line.resize(suffix);
        }
        spyState().lines.push_back(line);
    }
}

UINT CALLBACK spyPageCallback(HWND window, UINT message, LPPROPSHEETPAGEW page)
{
    LPFNPSPCALLBACKW callback = nullptr;
    {
        const std::lock_guard<SrwLock> guard(spyState().lock);
        const auto found = spyState().callbacks.find(page != nullptr ? page->lParam : 0);
        if (found != spyState().callbacks.end()) {
            callback = found->second;
        }
        if (message == PSPCB_CREATE) {
            ++spyState().counts.created;
        } else if (message == PSPCB_RELEASE) {
            ++spyState().counts.released;
        }
    }
    return callback != nullptr ? callback(window, message, page) : (message == PSPCB_CREATE ? 1 : 0);
}

HPROPSHEETPAGE WINAPI spyCreatePropertySheetPage(LPCPROPSHEETPAGEW page)
{
    if (page == nullptr || (page->dwFlags & PSP_USECALLBACK) == 0 || page->pfnCallback == nullptr) {
        return spyState().realCreatePage(page);
    }
    // The description is the module's: change a copy of all of it.
    std::vector<BYTE> copy(page->dwSize);
    std::memcpy(copy.data(), page, page->dwSize);
    auto* description = reinterpret_cast<PROPSHEETPAGEW*>(copy.data());
    {
        const std::lock_guard<SrwLock> guard(spyState().lock);
        spyState().callbacks[page->lParam] = page->pfnCallback;
        std::vector<UINT>& sizes = spyState().counts.descriptionSizes;
        if (std::find(sizes.begin(), sizes.end(), page->dwSize) == sizes.end()) {
            sizes.push_back(page->dwSize);
        }
    }
    description->pfnCallback = spyPageCallback;
    HPROPSHEETPAGE handle = spyState().realCreatePage(description);
    if (handle != nullptr) {
        const std::lock_guard<SrwLock> guard(spyState().lock);
        ++spyState().counts.made;
    }
    return handle;
}

FARPROC WINAPI spyGetProcAddress(HMODULE module, LPCSTR name)
{
    FARPROC procedure = GetProcAddress(module, name);
    // Names only: an ordinal is a small number in place of the pointer.
    if (procedure == nullptr || reinterpret_cast<ULONG_PTR>(name) <= 0xFFFF
        || std::strcmp(name, "CreatePropertySheetPageW") != 0) {
        return procedure;
    }
    {
        const std::lock_guard<SrwLock> guard(spyState().lock);
        spyState().realCreatePage = reinterpret_cast<CreatePage>(reinterpret_cast<void*>(procedure));
    }
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&spyCreatePropertySheetPage));
}

HANDLE WINAPI spyLoadImage(HINSTANCE instance, LPCWSTR name, UINT type, int cx, int cy, UINT flags)
{
    HANDLE image = LoadImageW(instance, name, type, cx, cy, flags);
    if (image != nullptr && type == IMAGE_ICON && (flags & LR_SHARED) == 0) {
        const std::lock_guard<SrwLock> guard(spyState().lock);
        ++spyState().icons.loaded;
        spyState().liveIcons.insert(image);
    }
    return image;
}

BOOL WINAPI spyDestroyIcon(HICON icon)
{
    const BOOL destroyed = DestroyIcon(icon);
    const std::lock_guard<SrwLock> guard(spyState().lock);
    if (destroyed != FALSE && spyState().liveIcons.erase(icon) != 0) {
        ++spyState().icons.destroyed;
    }
    return destroyed;
}

}  // namespace

ModuleSpy::ModuleSpy(HMODULE module)
{
    {
        const std::lock_guard<SrwLock> guard(spyState().lock);
        spyState().lines.clear();
        spyState().partial.clear();
        spyState().counts = {};
        spyState().icons = {};
        spyState().liveIcons.clear();
    }
    patch_ = std::make_unique<ImportPatch>(
        module, "kernel32.dll",
        std::vector<ImportPatch::Replacement>{
            {"OutputDebugStringA", reinterpret_cast<const void*>(&spyOutputDebugString)},
            {"GetProcAddress", reinterpret_cast<const void*>(&spyGetProcAddress)}});
    user32_
        = std::make_unique<ImportPatch>(module, "user32.dll",
                                        std::vector<ImportPatch::Replacement>{
                                            {"LoadImageW", reinterpret_cast<const void*>(&spyLoadImage)},
                                            {"DestroyIcon", reinterpret_cast<const void*>(&spyDestroyIcon)}});
}

ModuleSpy::~ModuleSpy()
{
    user32_.reset();
    patch_.reset();
}

std::vector<std::string> ModuleSpy::takeTraceLines()
{
    const std::lock_guard<SrwLock> guard(spyState().lock);
    std::vector<std::string> lines;
    lines.swap(spyState().lines);
    return lines;
}

ModuleSpy::PageCounts ModuleSpy::pageCounts() const
{
    const std::lock_guard<SrwLock> guard(spyState().lock);
    return spyState().counts;
}

ModuleSpy::IconCounts ModuleSpy::iconCounts() const
{
    const std::lock_guard<SrwLock> guard(spyState().lock);
    return spyState().icons;
}
