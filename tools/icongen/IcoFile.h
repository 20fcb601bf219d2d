// Writes Windows .ico files: each image a BITMAPINFOHEADER, a bottom-up colour bitmap and a 1-bit AND mask,
// but for 256-pixel images a PNG file, as Windows has read them since Vista and as they are normally stored.
// 32-bit images carry their alpha; 4- and 8-bit images may only be fully transparent (the blank icon).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace icongen {

struct IcoImage {
    int width = 0;  // 1 to 256 pixels
    int height = 0;  // 1 to 256 pixels
    int bitCount = 32;  // 4, 8 or 32
    std::vector<std::uint8_t> bgra;  // width * height pixels, top row first
};

// The whole .ico file, or an empty vector when an image can't be stored as asked.
std::vector<std::uint8_t> encodeIco(const std::vector<IcoImage>& images);

// Writes the encoded images to path; false if encoding or writing failed.
bool writeIco(const std::string& path, const std::vector<IcoImage>& images);

}  // namespace icongen
