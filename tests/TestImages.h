#pragma once

// Builders for the images and files the tests need, made in memory rather than committed.

#include "Bitmap.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace testing_support {

// A bitmap whose every pixel differs from its neighbours, so that any stray write shows.
Bitmap patterned(int width, int height);

// Number of pixels that are exactly (0, 0, 0).
std::size_t blackPixels(const Bitmap& image);

// The bounding box {x0, y0, x1, y1} (half-open, top-left origin) of exactly black pixels.
struct Box {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    bool operator==(const Box&) const = default;
};
std::optional<Box> blackBox(const Bitmap& image);

// Chunk types of a PNG file, in order; a run of one type (image data split over IDATs) counts once.
std::vector<std::string> pngChunks(std::span<const std::uint8_t> png);

// A PNG of 8-bit RGBA pixels (4 bytes a pixel) with libpng, for alpha and colour-type cases.
// `transparent` becomes a tRNS chunk: the alpha of each palette entry, or the one grey or RGB value
// that is fully transparent.
std::vector<std::uint8_t> encodePng(int width, int height, int colorType, int bitDepth,
                                    const std::vector<std::uint8_t>& samples,
                                    const std::vector<std::uint8_t>& exif = {},
                                    const std::vector<std::uint8_t>& transparent = {});

// A progressive JPEG whose every AC coefficient of every component has a scan of its own, refined
// bit by bit over `refinements` more scans each: 1 + 189 x (1 + refinements) scans in all.
std::vector<std::uint8_t> encodeManyScanJpeg(const Bitmap& image, int refinements);

// A baseline or progressive JPEG (quality 92), optionally with an EXIF block (APP1).
std::vector<std::uint8_t> encodeJpeg(const Bitmap& image, bool progressive = false,
                                     const std::vector<std::uint8_t>& exif = {});

// A CMYK JPEG written the way Adobe applications write it (inverted, with an APP14 marker).
std::vector<std::uint8_t> encodeAdobeCmykJpeg(int width, int height, std::uint8_t c, std::uint8_t m,
                                              std::uint8_t y, std::uint8_t k);

// A little-endian TIFF block with IFD0 entries for Orientation and, when given, Software.
std::vector<std::uint8_t> exifBlock(std::optional<int> orientation, std::optional<std::string> software);

struct HeicImage {
    Bitmap pixels;
    int orientation = 1; // written as the container's rotation and mirror boxes
};

// A HEIC file with libheif's HEVC encoder: every image given, the one at `primary` marked primary,
// and optionally an EXIF block attached to it.
std::vector<std::uint8_t> encodeHeic(const std::vector<HeicImage>& images, std::size_t primary = 0,
                                     const std::vector<std::uint8_t>& exif = {});

// A PNG whose header declares the given size, followed by a token IDAT and IEND: enough for any
// reader of headers, nothing to decode.
std::vector<std::uint8_t> pngHeaderOnly(std::uint32_t width, std::uint32_t height);

// A memory figure of this process from /proc/self/status, in KiB ("VmRSS:", "VmHWM:").
long residentKiB(const char* field);

std::vector<std::uint8_t> readBytes(const std::filesystem::path& file);
void writeBytes(const std::filesystem::path& file, std::span<const std::uint8_t> bytes);

// A fresh folder under the system's temporary directory, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    std::vector<std::string> entries() const; // sorted names, hidden ones included

private:
    std::filesystem::path path_;
};

} // namespace testing_support
