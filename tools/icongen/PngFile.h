// Encodes one image as a PNG file: truecolour with alpha for 32-bit images, a
// one-entry transparent palette at 4 or 8 bits for the fully transparent ones.
// Deflate with fixed Huffman codes and a deterministic match search, so the
// same image always gives the same bytes.
#pragma once

#include <cstdint>
#include <vector>

namespace icongen {

struct IcoImage;

// The zlib stream (RFC 1950, 1951) of `data`.
std::vector<std::uint8_t> zlibCompress(const std::vector<std::uint8_t>& data);

// The PNG file of a valid image (see IcoImage).
std::vector<std::uint8_t> encodePng(const IcoImage& image);

}  // namespace icongen
