// PNG chunks with their CRCs around a zlib stream, both from zlib.
#include "PngFile.h"

#include <cstddef>
#include <stdexcept>
#include <zlib.h>

#include "IcoFile.h"

namespace icongen {

namespace {

void put32BigEndian(std::vector<std::uint8_t>& out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<std::uint8_t>((value >> static_cast<unsigned>(shift)) & 0xFFU));
    }
}

void chunk(std::vector<std::uint8_t>& out, const char* type, const std::vector<std::uint8_t>& body)
{
    put32BigEndian(out, static_cast<std::uint32_t>(body.size()));
    const std::size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), body.begin(), body.end());
    const std::uint8_t* typed = out.data() + start;
    put32BigEndian(out, static_cast<std::uint32_t>(::crc32(0, typed, static_cast<uInt>(out.size() - start))));
}

// The zlib stream (RFC 1950, 1951) of `data`.
std::vector<std::uint8_t> zlibCompress(const std::vector<std::uint8_t>& data)
{
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    std::vector<std::uint8_t> out(size);
    if (compress2(out.data(), &size, data.data(), static_cast<uLong>(data.size()), Z_BEST_COMPRESSION)
        != Z_OK) {
        throw std::runtime_error("zlib could not compress the image");
    }
    out.resize(size);
    return out;
}

}  // namespace

std::vector<std::uint8_t> encodePng(const IcoImage& image)
{
    const bool truecolour = image.bitCount == 32;
    const auto width = static_cast<std::size_t>(image.width);
    // Scanlines of filter type 0; a paletted pixel is index 0, the transparent entry.
    const std::size_t rowBytes
        = truecolour ? width * 4 : (width * static_cast<std::size_t>(image.bitCount) + 7) / 8;
    std::vector<std::uint8_t> raw;
    raw.reserve((rowBytes + 1) * static_cast<std::size_t>(image.height));
    for (std::size_t y = 0; y < static_cast<std::size_t>(image.height); ++y) {
        raw.push_back(0);
        if (!truecolour) {
            raw.insert(raw.end(), rowBytes, 0);
            continue;
        }
        for (std::size_t x = 0; x < width; ++x) {
            const std::uint8_t* bgra = &image.bgra[(y * width + x) * 4];
            raw.insert(raw.end(), {bgra[2], bgra[1], bgra[0], bgra[3]});
        }
    }

    std::vector<std::uint8_t> header;
    put32BigEndian(header, static_cast<std::uint32_t>(image.width));
    put32BigEndian(header, static_cast<std::uint32_t>(image.height));
    header.push_back(truecolour ? 8 : static_cast<std::uint8_t>(image.bitCount));
    header.push_back(truecolour ? 6 : 3);  // RGBA, or palette
    header.insert(header.end(), {0, 0, 0});  // deflate, adaptive filtering, no interlace

    std::vector<std::uint8_t> out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    chunk(out, "IHDR", header);
    if (!truecolour) {
        chunk(out, "PLTE", {0, 0, 0});
        chunk(out, "tRNS", {0});
    }
    chunk(out, "IDAT", zlibCompress(raw));
    chunk(out, "IEND", {});
    return out;
}

}  // namespace icongen
