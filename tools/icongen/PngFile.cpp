// PNG chunks with their CRCs around a zlib stream; the deflate encoder emits one
// final block of fixed Huffman codes, with the longest match among the last
// positions that started with the same three bytes.
#include "PngFile.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "IcoFile.h"

namespace icongen {

namespace {

// Writes bits least significant first, as deflate packs them.
class BitWriter {
public:
    void bits(std::uint32_t value, int count)
    {
        for (int i = 0; i < count; ++i) {
            putBit_((value >> i) & 1U);
        }
    }
    // A Huffman code goes most significant bit first.
    void code(std::uint32_t value, int length)
    {
        for (int i = length - 1; i >= 0; --i) {
            putBit_((value >> i) & 1U);
        }
    }
    std::vector<std::uint8_t> finish()
    {
        if (used_ != 0) {
            out_.push_back(current_);
        }
        return out_;
    }

private:
    void putBit_(std::uint32_t b)
    {
        current_ = static_cast<std::uint8_t>(current_ | (b << used_));
        if (++used_ == 8) {
            out_.push_back(current_);
            current_ = 0;
            used_ = 0;
        }
    }

    std::vector<std::uint8_t> out_;
    std::uint8_t current_ = 0;
    int used_ = 0;
};

// The fixed literal/length code of RFC 1951, 3.2.6.
void literalCode(BitWriter& out, int symbol)
{
    if (symbol < 144) {
        out.code(0x30U + static_cast<std::uint32_t>(symbol), 8);
    } else if (symbol < 256) {
        out.code(0x190U + static_cast<std::uint32_t>(symbol - 144), 9);
    } else if (symbol < 280) {
        out.code(static_cast<std::uint32_t>(symbol - 256), 7);
    } else {
        out.code(0xC0U + static_cast<std::uint32_t>(symbol - 280), 8);
    }
}

constexpr std::array<int, 29> lengthBase = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                            31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr std::array<int, 29> lengthExtra
    = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr std::array<int, 30> distanceBase
    = {1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
       193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr std::array<int, 30> distanceExtra
    = {0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

// The index of the last base not above `value`.
template <std::size_t N> std::size_t slotOf(const std::array<int, N>& bases, int value)
{
    return static_cast<std::size_t>(std::upper_bound(bases.begin(), bases.end(), value) - bases.begin()) - 1;
}

void match(BitWriter& out, int length, int distance)
{
    const std::size_t l = slotOf(lengthBase, length);
    literalCode(out, 257 + static_cast<int>(l));
    out.bits(static_cast<std::uint32_t>(length - lengthBase[l]), lengthExtra[l]);
    const std::size_t d = slotOf(distanceBase, distance);
    out.code(static_cast<std::uint32_t>(d), 5);
    out.bits(static_cast<std::uint32_t>(distance - distanceBase[d]), distanceExtra[d]);
}

std::vector<std::uint8_t> deflate(const std::vector<std::uint8_t>& data)
{
    constexpr std::size_t window = 32768;
    constexpr std::size_t maxLength = 258;
    constexpr std::size_t candidates = 64;  // positions tried per match, newest first
    constexpr std::size_t hashSize = 1U << 15U;
    std::vector<std::ptrdiff_t> head(hashSize, -1);
    std::vector<std::ptrdiff_t> previous(data.size(), -1);
    const auto hashAt = [&data](std::size_t i) {
        return ((std::size_t{data[i]} << 10U) ^ (std::size_t{data[i + 1]} << 5U) ^ data[i + 2]) % hashSize;
    };
    const auto remember = [&](std::size_t i) {
        if (i + 2 < data.size()) {
            const std::size_t h = hashAt(i);
            previous[i] = head[h];
            head[h] = static_cast<std::ptrdiff_t>(i);
        }
    };

    BitWriter out;
    out.bits(1, 1);  // the final block
    out.bits(1, 2);  // fixed Huffman codes
    std::size_t i = 0;
    while (i < data.size()) {
        std::size_t bestLength = 0;
        std::size_t bestDistance = 0;
        if (i + 2 < data.size()) {
            std::ptrdiff_t candidate = head[hashAt(i)];
            for (std::size_t tries = 0; candidate >= 0 && tries < candidates; ++tries) {
                const auto from = static_cast<std::size_t>(candidate);
                if (i - from > window) {
                    break;
                }
                const std::size_t limit = std::min(maxLength, data.size() - i);
                std::size_t length = 0;
                while (length < limit && data[from + length] == data[i + length]) {
                    ++length;
                }
                if (length > bestLength) {
                    bestLength = length;
                    bestDistance = i - from;
                }
                candidate = previous[from];
            }
        }
        if (bestLength >= 3) {
            match(out, static_cast<int>(bestLength), static_cast<int>(bestDistance));
        } else {
            literalCode(out, data[i]);
            bestLength = 1;
        }
        for (std::size_t k = 0; k < bestLength; ++k) {
            remember(i + k);
        }
        i += bestLength;
    }
    literalCode(out, 256);  // end of block
    return out.finish();
}

void put32BigEndian(std::vector<std::uint8_t>& out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<std::uint8_t>((value >> static_cast<unsigned>(shift)) & 0xFFU));
    }
}

std::uint32_t crc32(const std::uint8_t* bytes, std::size_t count)
{
    std::uint32_t crc = 0xFFFFFFFFU;
    for (std::size_t i = 0; i < count; ++i) {
        crc ^= bytes[i];
        for (int k = 0; k < 8; ++k) {
            crc = (crc >> 1U) ^ (0xEDB88320U & (0U - (crc & 1U)));
        }
    }
    return crc ^ 0xFFFFFFFFU;
}

void chunk(std::vector<std::uint8_t>& out, const char* type, const std::vector<std::uint8_t>& body)
{
    put32BigEndian(out, static_cast<std::uint32_t>(body.size()));
    const std::size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), body.begin(), body.end());
    put32BigEndian(out, crc32(out.data() + start, out.size() - start));
}

}  // namespace

std::vector<std::uint8_t> zlibCompress(const std::vector<std::uint8_t>& data)
{
    std::vector<std::uint8_t> out = {0x78, 0x01};  // deflate, 32 KiB window, no dictionary
    const std::vector<std::uint8_t> body = deflate(data);
    out.insert(out.end(), body.begin(), body.end());
    std::uint32_t a = 1;
    std::uint32_t b = 0;
    for (const std::uint8_t byte : data) {
        a = (a + byte) % 65521U;
        b = (b + a) % 65521U;
    }
    put32BigEndian(out, (b << 16U) | a);
    return out;
}

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
