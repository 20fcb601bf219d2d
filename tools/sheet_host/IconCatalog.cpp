#include "tools/sheet_host/IconCatalog.h"

#include "tools/page_reader/PageText.h"

namespace {

bool bitsOf(HBITMAP bitmap, int width, int height, std::vector<std::uint32_t>& out)
{
    if (bitmap == nullptr) {
        out.clear();
        return true;
    }
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    out.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0);
    HDC screen = GetDC(nullptr);
    const int rows
        = GetDIBits(screen, bitmap, 0, static_cast<UINT>(height), out.data(), &info, DIB_RGB_COLORS);
    ReleaseDC(nullptr, screen);
    return rows == height;
}

}  // namespace

IconCatalog::IconCatalog(HMODULE module) : module_(module)
{
}

bool IconCatalog::pixelsOf_(HICON icon, Pixels& out)
{
    ICONINFO info{};
    if (!GetIconInfo(icon, &info)) {
        return false;
    }
    BITMAP bitmap{};
    GetObjectW(info.hbmColor != nullptr ? info.hbmColor : info.hbmMask, sizeof bitmap, &bitmap);
    out.width = bitmap.bmWidth;
    out.height = info.hbmColor != nullptr ? bitmap.bmHeight : bitmap.bmHeight / 2;
    const bool ok = bitsOf(info.hbmColor, out.width, out.height, out.colour)
        && bitsOf(info.hbmMask, out.width, out.height, out.mask);
    if (info.hbmColor != nullptr) {
        DeleteObject(info.hbmColor);
    }
    if (info.hbmMask != nullptr) {
        DeleteObject(info.hbmMask);
    }
    return ok;
}

int IconCatalog::resourceId(HICON icon) const
{
    if (icon == nullptr) {
        return 0;
    }
    Pixels shown;
    if (!pixelsOf_(icon, shown)) {
        return -1;
    }
    for (const IconName& entry : moduleIcons()) {
        HANDLE loaded = LoadImageW(module_, MAKEINTRESOURCEW(entry.resourceId), IMAGE_ICON, shown.width,
                                   shown.height, 0);
        if (loaded == nullptr) {
            continue;
        }
        Pixels candidate;
        const bool same = pixelsOf_(static_cast<HICON>(loaded), candidate) && candidate.width == shown.width
            && candidate.height == shown.height && candidate.colour == shown.colour;
        DestroyIcon(static_cast<HICON>(loaded));
        if (same) {
            return entry.resourceId;
        }
    }
    return -1;
}
