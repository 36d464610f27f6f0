#pragma once

#include "Bitmap.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace platform::ImageDecoder {

enum class Container { jpeg, png, heic, heif, other };

// Decided by the bytes alone: magic numbers, and for ISO media files the brands in 'ftyp'.
Container sniff(std::span<const std::uint8_t> data) noexcept;

struct Properties {
    int width = 0; // as stored, before any orientation is applied
    int height = 0;
    std::optional<std::string> software; // the TIFF/EXIF IFD0 Software entry, when it is text
};

// Reads the header and metadata without decoding pixels. Throws CodecError.
Properties readProperties(std::span<const std::uint8_t> data, Container container);

// Decodes the first (primary) image upright: EXIF orientation for JPEG and PNG, the container's
// rotation and mirror boxes for HEIF. Throws CodecError.
Bitmap decodeUpright(std::span<const std::uint8_t> data, Container container);

// Applies an EXIF orientation (1..8) to a bitmap; other values leave it unchanged.
Bitmap applyOrientation(Bitmap image, int orientation);

} // namespace platform::ImageDecoder
