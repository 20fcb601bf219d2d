// Encodes one image as a PNG file: truecolour with alpha for 32-bit images, a
// one-entry transparent palette at 4 or 8 bits for the fully transparent ones.
// zlib at its best compression: the same image gives the same bytes with the
// same zlib.
#pragma once

#include <cstdint>
#include <vector>

namespace icongen {

struct IcoImage;

// The PNG file of a valid image (see IcoImage); throws std::runtime_error if zlib fails.
std::vector<std::uint8_t> encodePng(const IcoImage& image);

}  // namespace icongen
