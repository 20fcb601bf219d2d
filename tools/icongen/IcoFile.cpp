// The .ico container: ICONDIR, one ICONDIRENTRY per image, then each image as a headerless DIB or a PNG.
#include "IcoFile.h"

#include <algorithm>
#include <cstddef>
#include <fstream>

#include "PngFile.h"

namespace icongen {

namespace {

constexpr std::size_t dirHeaderSize = 6;
constexpr std::size_t dirEntrySize = 16;
constexpr std::uint32_t infoHeaderSize = 40;

void put16(std::vector<std::uint8_t>& out, std::uint32_t value)
{
    out.push_back(static_cast<std::uint8_t>(value & 0xFFU));
    out.push_back(static_cast<std::uint8_t>((value >> 8U) & 0xFFU));
}

void put32(std::vector<std::uint8_t>& out, std::uint32_t value)
{
    put16(out, value & 0xFFFFU);
    put16(out, value >> 16U);
}

// Bytes of one bitmap row, padded to a multiple of four as DIBs require.
std::uint32_t rowBytes(int width, int bitCount)
{
    return ((static_cast<std::uint32_t>(width) * static_cast<std::uint32_t>(bitCount) + 31U) / 32U) * 4U;
}

bool valid(const IcoImage& image)
{
    const bool sized = image.width >= 1 && image.width <= 256 && image.height >= 1 && image.height <= 256;
    const bool depth = image.bitCount == 4 || image.bitCount == 8 || image.bitCount == 32;
    if (!sized || !depth
        || image.bgra.size()
            != static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) * 4) {
        return false;
    }
    if (image.bitCount == 32) {
        return true;
    }
    // Paletted images get an all-black palette, so any visible pixel would be lost.
    for (std::size_t i = 3; i < image.bgra.size(); i += 4) {
        if (image.bgra[i] != 0) {
            return false;
        }
    }
    return true;
}

std::vector<std::uint8_t> encodeImage(const IcoImage& image)
{
    const std::uint32_t colourRow = rowBytes(image.width, image.bitCount);
    const std::uint32_t maskRow = rowBytes(image.width, 1);
    const auto height = static_cast<std::uint32_t>(image.height);
    const std::uint32_t paletteEntries
        = image.bitCount == 32 ? 0U : (1U << static_cast<unsigned>(image.bitCount));

    std::vector<std::uint8_t> out;
    put32(out, infoHeaderSize);
    put32(out, static_cast<std::uint32_t>(image.width));
    put32(out, height * 2);  // colour bitmap and mask, one above the other
    put16(out, 1);  // planes
    put16(out, static_cast<std::uint32_t>(image.bitCount));
    put32(out, 0);  // BI_RGB
    put32(out, (colourRow + maskRow) * height);
    put32(out, 0);
    put32(out, 0);
    put32(out, 0);
    put32(out, 0);
    out.insert(out.end(), static_cast<std::size_t>(paletteEntries) * 4, 0);

    const std::size_t width = static_cast<std::size_t>(image.width);
    for (std::uint32_t row = height; row-- > 0;) {  // bottom-up
        std::vector<std::uint8_t> line(colourRow, 0);
        if (image.bitCount == 32) {
            const std::size_t start = row * width * 4;
            std::copy(image.bgra.begin() + static_cast<std::ptrdiff_t>(start),
                      image.bgra.begin() + static_cast<std::ptrdiff_t>(start + width * 4), line.begin());
        }
        out.insert(out.end(), line.begin(), line.end());
    }
    for (std::uint32_t row = height; row-- > 0;) {
        // A set bit keeps the screen: transparent where alpha is below half.
        std::vector<std::uint8_t> line(maskRow, 0);
        for (std::size_t x = 0; x < width; ++x) {
            if (image.bgra[(row * width + x) * 4 + 3] < 128) {
                line[x / 8] = static_cast<std::uint8_t>(line[x / 8] | (0x80U >> (x % 8)));
            }
        }
        out.insert(out.end(), line.begin(), line.end());
    }
    return out;
}

}  // namespace

std::vector<std::uint8_t> encodeIco(const std::vector<IcoImage>& images)
{
    if (images.empty() || images.size() > 0xFFFF) {
        return {};
    }
    std::vector<std::vector<std::uint8_t>> encoded;
    for (const IcoImage& image : images) {
        if (!valid(image)) {
            return {};
        }
        encoded.push_back(image.width == 256 ? encodePng(image) : encodeImage(image));
    }

    std::vector<std::uint8_t> out;
    put16(out, 0);  // reserved
    put16(out, 1);  // icon, not cursor
    put16(out, static_cast<std::uint32_t>(images.size()));
    auto offset = static_cast<std::uint32_t>(dirHeaderSize + dirEntrySize * images.size());
    for (std::size_t i = 0; i < images.size(); ++i) {
        const IcoImage& image = images[i];
        out.push_back(static_cast<std::uint8_t>(image.width & 0xFF));  // 256 is stored as 0
        out.push_back(static_cast<std::uint8_t>(image.height & 0xFF));
        out.push_back(image.bitCount == 4 ? 16 : 0);  // palette size, 0 when 256 or more
        out.push_back(0);
        put16(out, 1);
        put16(out, static_cast<std::uint32_t>(image.bitCount));
        put32(out, static_cast<std::uint32_t>(encoded[i].size()));
        put32(out, offset);
        offset += static_cast<std::uint32_t>(encoded[i].size());
    }
    for (const auto& bytes : encoded) {
        out.insert(out.end(), bytes.begin(), bytes.end());
    }
    return out;
}

bool writeIco(const std::string& path, const std::vector<IcoImage>& images)
{
    const std::vector<std::uint8_t> bytes = encodeIco(images);
    if (bytes.empty()) {
        return false;
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(file);
}

}  // namespace icongen
