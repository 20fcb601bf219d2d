#include "tools/sheet_host/Screenshot.h"

#include <cstdint>
#include <fstream>
#include <vector>

#include "tools/sheet_host/Text.h"

bool saveWindowBitmap(HWND window, const std::wstring& path)
{
    RECT rect{};
    if (!GetWindowRect(window, &rect)) {
        return false;
    }
    const int width = rect.right - rect.left;
    const int height = rect.bottom - rect.top;
    if (width <= 0 || height <= 0) {
        return false;
    }
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;  // bottom-up, as BMP files store rows
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    HDC screen = GetDC(nullptr);
    HDC memory = CreateCompatibleDC(screen);
    HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    bool copied = false;
    if (memory != nullptr && bitmap != nullptr) {
        HGDIOBJ previous = SelectObject(memory, bitmap);
        copied = BitBlt(memory, 0, 0, width, height, screen, rect.left, rect.top, SRCCOPY) != FALSE;
        GdiFlush();
        SelectObject(memory, previous);
    }
    bool written = false;
    if (copied) {
        const auto imageSize = static_cast<std::uint32_t>(width) * static_cast<std::uint32_t>(height) * 4;
        // GDI leaves the fourth byte of what it drew zero, and a viewer that reads
        // it as alpha shows the text transparent: the screen is opaque.
        auto* const pixels = static_cast<std::uint8_t*>(bits);
        for (std::uint32_t alpha = 3; alpha < imageSize; alpha += 4) {
            pixels[alpha] = 0xFF;
        }
        BITMAPFILEHEADER header{};
        header.bfType = 0x4D42;  // "BM"
        header.bfOffBits = sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER);
        header.bfSize = header.bfOffBits + imageSize;
        info.bmiHeader.biSizeImage = imageSize;
        std::ofstream file(narrow(path), std::ios::binary);
        file.write(reinterpret_cast<const char*>(&header), sizeof header);
        file.write(reinterpret_cast<const char*>(&info.bmiHeader), sizeof info.bmiHeader);
        file.write(static_cast<const char*>(bits), static_cast<std::streamsize>(imageSize));
        written = file.good();
    }
    if (bitmap != nullptr) {
        DeleteObject(bitmap);
    }
    if (memory != nullptr) {
        DeleteDC(memory);
    }
    ReleaseDC(nullptr, screen);
    return written;
}
