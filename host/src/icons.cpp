// Icons from the module's icon groups. A host icon is a record of the resource
// it came from and its size; shared icons (LR_SHARED, LoadIconW) are one handle
// per resource and size, and live until reset.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <mutex>
#include <tuple>

#include "ModuleResources.h"
#include "WindowSystem.h"

namespace {

constexpr int systemIconSize = 32;  // SM_CXICON and SM_CYICON at 96 dpi

struct IconRecord {
    int resourceId;
    SIZE size;
    bool shared;
};

struct Icons {
    std::mutex lock;
    std::map<HICON, IconRecord> live;
    std::map<std::tuple<int, LONG, LONG>, HICON> shared;
};

Icons& icons()
{
    static Icons instance;
    return instance;
}

std::atomic<std::uintptr_t> nextIcon{0x1C0010};

// The group's image nearest the wanted width, the deepest colour among equals.
const host::IconImageEntry& bestImage(const std::vector<host::IconImageEntry>& images, int wanted)
{
    return *std::min_element(images.begin(), images.end(), [wanted](const auto& a, const auto& b) {
        const int da = std::abs(a.width - wanted);
        const int db = std::abs(b.width - wanted);
        return da != db ? da < db : a.bitCount > b.bitCount;
    });
}

}  // namespace

HANDLE LoadImageW(HINSTANCE /*instance*/, LPCWSTR name, UINT type, int cx, int cy, UINT flags)
{
    // The module has icons only; any other kind of image is a type it lacks.
    if (type != IMAGE_ICON) {
        SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
        return nullptr;
    }
    if (!IS_INTRESOURCE(name)) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return nullptr;
    }
    const auto id = static_cast<WORD>(reinterpret_cast<ULONG_PTR>(name));
    std::vector<host::IconImageEntry> images;
    if (!host::findIconGroup(id, images)) {
        return nullptr;
    }
    // A zero size is the image's own, or the system's with LR_DEFAULTSIZE.
    const bool defaultSize = (flags & LR_DEFAULTSIZE) != 0;
    const auto& image = bestImage(images, cx != 0 ? cx : systemIconSize);
    const SIZE size{cx != 0 ? cx : (defaultSize ? systemIconSize : image.width),
                    cy != 0 ? cy : (defaultSize ? systemIconSize : image.height)};
    const bool shared = (flags & LR_SHARED) != 0;
    auto& all = icons();
    const std::lock_guard<std::mutex> guard(all.lock);
    const auto key = std::make_tuple(static_cast<int>(id), size.cx, size.cy);
    if (shared) {
        const auto found = all.shared.find(key);
        if (found != all.shared.end()) {
            return found->second;
        }
    }
    auto* icon = reinterpret_cast<HICON>(nextIcon.fetch_add(4));
    all.live[icon] = {id, size, shared};
    if (shared) {
        all.shared[key] = icon;
    }
    return icon;
}

HICON LoadIconW(HINSTANCE instance, LPCWSTR name)
{
    return static_cast<HICON>(LoadImageW(instance, name, IMAGE_ICON, 0, 0, LR_DEFAULTSIZE | LR_SHARED));
}

BOOL DestroyIcon(HICON icon)
{
    auto& all = icons();
    const std::lock_guard<std::mutex> guard(all.lock);
    const auto found = all.live.find(icon);
    if (found == all.live.end()) {
        SetLastError(ERROR_INVALID_ICON_HANDLE);
        return FALSE;
    }
    if (!found->second.shared) {
        all.live.erase(found);
    }
    return TRUE;
}

namespace host {

int iconResourceId(HICON icon)
{
    auto& all = icons();
    const std::lock_guard<std::mutex> guard(all.lock);
    const auto found = all.live.find(icon);
    return found != all.live.end() ? found->second.resourceId : 0;
}

SIZE iconSize(HICON icon)
{
    auto& all = icons();
    const std::lock_guard<std::mutex> guard(all.lock);
    const auto found = all.live.find(icon);
    return found != all.live.end() ? found->second.size : SIZE{0, 0};
}

int liveIcons()
{
    auto& all = icons();
    const std::lock_guard<std::mutex> guard(all.lock);
    return static_cast<int>(std::count_if(all.live.begin(), all.live.end(),
                                          [](const auto& each) { return !each.second.shared; }));
}

void resetIcons()
{
    auto& all = icons();
    const std::lock_guard<std::mutex> guard(all.lock);
    all.live.clear();
    all.shared.clear();
}

}  // namespace host
