#pragma once

#include "Bitmap.h"

#include <cstdint>
#include <span>
#include <vector>

namespace platform::PngCodec {

// Encodes an opaque RGB PNG holding only the chunks an image needs: IHDR, IDAT, IEND.
// Throws CodecError.
std::vector<std::uint8_t> encode(const Bitmap& image);

struct Header {
    int width = 0;
    int height = 0;
    int imageCount = 0; // 1 for a PNG; an APNG's extra frames are not images of their own
};

// Reads the header only: no pixel memory is allocated. Throws CodecError.
Header readHeader(std::span<const std::uint8_t> data);

// Decodes to 8-bit RGB: 16-bit samples are reduced, grey and palette expanded, alpha composited
// onto white. Throws CodecError on any corruption, including a bad CRC.
Bitmap decode(std::span<const std::uint8_t> data);

} // namespace platform::PngCodec
