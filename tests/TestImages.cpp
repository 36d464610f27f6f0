#include "TestImages.h"

#include <jpeglib.h>
#include <libheif/heif.h>
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace testing_support {

Bitmap patterned(int width, int height) {
    Bitmap image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p = image.row(y) + x * 3;
            p[0] = static_cast<std::uint8_t>(40 + (x * 7 + y * 3) % 200);
            p[1] = static_cast<std::uint8_t>(40 + (x * 5 + y * 11) % 200);
            p[2] = static_cast<std::uint8_t>(40 + (x + y) % 200);
        }
    }
    return image;
}

std::size_t blackPixels(const Bitmap& image) {
    std::size_t count = 0;
    for (std::size_t i = 0; i + 2 < image.pixels.size(); i += 3) {
        count += image.pixels[i] == 0 && image.pixels[i + 1] == 0 && image.pixels[i + 2] == 0;
    }
    return count;
}

std::optional<Box> blackBox(const Bitmap& image) {
    std::optional<Box> box;
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const std::uint8_t* p = image.at(x, y);
            if (p[0] || p[1] || p[2]) {
                continue;
            }
            if (!box) {
                box = Box{x, y, x + 1, y + 1};
            }
            box->x0 = std::min(box->x0, x);
            box->y0 = std::min(box->y0, y);
            box->x1 = std::max(box->x1, x + 1);
            box->y1 = std::max(box->y1, y + 1);
        }
    }
    return box;
}

std::vector<std::string> pngChunks(std::span<const std::uint8_t> png) {
    std::vector<std::string> chunks;
    std::size_t at = 8;
    while (at + 8 <= png.size()) {
        const std::uint32_t length = (std::uint32_t{png[at]} << 24) | (std::uint32_t{png[at + 1]} << 16) |
                                     (std::uint32_t{png[at + 2]} << 8) | png[at + 3];
        std::string type(reinterpret_cast<const char*>(png.data() + at + 4), 4);
        if (chunks.empty() || chunks.back() != type) {
            chunks.push_back(std::move(type));
        }
        at += 12 + std::size_t{length};
    }
    return chunks;
}

namespace {

void appendToVector(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<std::vector<std::uint8_t>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

} // namespace

std::vector<std::uint8_t> encodePng(int width, int height, int colorType, int bitDepth,
                                    const std::vector<std::uint8_t>& samples,
                                    const std::vector<std::uint8_t>& exif,
                                    const std::vector<std::uint8_t>& transparent) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    std::vector<std::uint8_t> out;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw std::runtime_error("test PNG encoding failed");
    }
    png_set_write_fn(png, &out, appendToVector, nullptr);
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), bitDepth,
                 colorType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE, PNG_FILTER_TYPE_BASE);
    if (colorType == PNG_COLOR_TYPE_PALETTE) {
        png_color palette[4] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}};
        png_set_PLTE(png, info, palette, 4);
    }
    if (!transparent.empty()) {
        png_color_16 colour{};
        if (colorType == PNG_COLOR_TYPE_GRAY) {
            colour.gray = transparent[0];
        } else if (colorType == PNG_COLOR_TYPE_RGB) {
            colour.red = transparent[0], colour.green = transparent[1], colour.blue = transparent[2];
        }
        const bool palette = colorType == PNG_COLOR_TYPE_PALETTE;
        png_set_tRNS(png, info, palette ? const_cast<png_bytep>(transparent.data()) : nullptr,
                     palette ? static_cast<int>(transparent.size()) : 0, palette ? nullptr : &colour);
    }
    if (!exif.empty()) {
        png_set_eXIf_1(png, info, static_cast<png_uint_32>(exif.size()), const_cast<png_bytep>(exif.data()));
    }
    png_write_info(png, info);
    const int channels = png_get_channels(png, info);
    const std::size_t rowBytes = (static_cast<std::size_t>(width) * channels * bitDepth + 7) / 8;
    for (int y = 0; y < height; ++y) {
        png_write_row(png, const_cast<png_bytep>(samples.data() + y * rowBytes));
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

namespace {

struct JpegWriter {
    jpeg_compress_struct info{};
    jpeg_error_mgr error{};
    unsigned char* buffer = nullptr;
    unsigned long size = 0;

    JpegWriter() {
        info.err = jpeg_std_error(&error);
        jpeg_create_compress(&info);
        jpeg_mem_dest(&info, &buffer, &size);
    }
    ~JpegWriter() {
        jpeg_destroy_compress(&info);
        std::free(buffer);
    }
    std::vector<std::uint8_t> bytes() const { return std::vector<std::uint8_t>(buffer, buffer + size); }
};

// The compressor set up for an RGB bitmap, with libjpeg's defaults.
void describeRgb(JpegWriter& w, const Bitmap& image) {
    w.info.image_width = static_cast<JDIMENSION>(image.width);
    w.info.image_height = static_cast<JDIMENSION>(image.height);
    w.info.input_components = 3;
    w.info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&w.info);
}

// Writes every row of the bitmap and ends the file; the compressor has been started.
std::vector<std::uint8_t> finishRgb(JpegWriter& w, const Bitmap& image) {
    while (w.info.next_scanline < w.info.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(image.row(static_cast<int>(w.info.next_scanline)));
        jpeg_write_scanlines(&w.info, &row, 1);
    }
    jpeg_finish_compress(&w.info);
    return w.bytes();
}

} // namespace

std::vector<std::uint8_t> encodeJpeg(const Bitmap& image, bool progressive,
                                     const std::vector<std::uint8_t>& exif) {
    JpegWriter w;
    describeRgb(w, image);
    jpeg_set_quality(&w.info, 92, TRUE);
    if (progressive) {
        jpeg_simple_progression(&w.info);
    }
    jpeg_start_compress(&w.info, TRUE);
    if (!exif.empty()) {
        std::vector<std::uint8_t> app1{'E', 'x', 'i', 'f', 0, 0};
        app1.insert(app1.end(), exif.begin(), exif.end());
        jpeg_write_marker(&w.info, JPEG_APP0 + 1, app1.data(), static_cast<unsigned>(app1.size()));
    }
    return finishRgb(w, image);
}

std::vector<std::uint8_t> encodeManyScanJpeg(const Bitmap& image, int refinements) {
    JpegWriter w;
    describeRgb(w, image);
    std::vector<jpeg_scan_info> scans;
    scans.push_back(jpeg_scan_info{3, {0, 1, 2, 0}, 0, 0, 0, 0});
    for (int component = 0; component < 3; ++component) {
        for (int band = 1; band < 64; ++band) {
            scans.push_back(jpeg_scan_info{1, {component, 0, 0, 0}, band, band, 0, refinements});
            for (int bit = refinements; bit > 0; --bit) {
                scans.push_back(jpeg_scan_info{1, {component, 0, 0, 0}, band, band, bit, bit - 1});
            }
        }
    }
    w.info.scan_info = scans.data();
    w.info.num_scans = static_cast<int>(scans.size());
    jpeg_start_compress(&w.info, TRUE);
    return finishRgb(w, image);
}

std::vector<std::uint8_t> encodeAdobeCmykJpeg(int width, int height, std::uint8_t c, std::uint8_t m,
                                              std::uint8_t y, std::uint8_t k) {
    JpegWriter w;
    w.info.image_width = static_cast<JDIMENSION>(width);
    w.info.image_height = static_cast<JDIMENSION>(height);
    w.info.input_components = 4;
    w.info.in_color_space = JCS_CMYK;
    jpeg_set_defaults(&w.info);
    jpeg_set_colorspace(&w.info, JCS_YCCK);
    w.info.write_Adobe_marker = TRUE;
    jpeg_set_quality(&w.info, 95, TRUE);
    jpeg_start_compress(&w.info, TRUE);
    // Adobe's convention: stored values are inverted (255 means no ink).
    std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * 4);
    for (int x = 0; x < width; ++x) {
        row[x * 4 + 0] = static_cast<std::uint8_t>(255 - c);
        row[x * 4 + 1] = static_cast<std::uint8_t>(255 - m);
        row[x * 4 + 2] = static_cast<std::uint8_t>(255 - y);
        row[x * 4 + 3] = static_cast<std::uint8_t>(255 - k);
    }
    while (w.info.next_scanline < w.info.image_height) {
        JSAMPROW p = row.data();
        jpeg_write_scanlines(&w.info, &p, 1);
    }
    jpeg_finish_compress(&w.info);
    return w.bytes();
}

std::vector<std::uint8_t> exifBlock(std::optional<int> orientation, std::optional<std::string> software) {
    std::vector<std::uint8_t> tiff{'I', 'I', 42, 0, 8, 0, 0, 0};
    auto u16 = [&](unsigned v) {
        tiff.push_back(static_cast<std::uint8_t>(v));
        tiff.push_back(static_cast<std::uint8_t>(v >> 8));
    };
    auto u32 = [&](unsigned v) {
        for (int i = 0; i < 4; ++i) {
            tiff.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
        }
    };
    const unsigned count = (orientation ? 1u : 0u) + (software ? 1u : 0u);
    u16(count);
    const unsigned dataOffset = 8 + 2 + count * 12 + 4;
    std::string text = software.value_or("");
    text.push_back('\0');
    if (orientation) {
        u16(0x0112); // Orientation, SHORT, 1 value
        u16(3);
        u32(1);
        u16(static_cast<unsigned>(*orientation));
        u16(0);
    }
    if (software) {
        u16(0x0131); // Software, ASCII
        u16(2);
        u32(static_cast<unsigned>(text.size()));
        if (text.size() <= 4) {
            std::string padded = text;
            padded.resize(4, '\0');
            tiff.insert(tiff.end(), padded.begin(), padded.end());
        } else {
            u32(dataOffset);
        }
    }
    u32(0); // no next IFD
    if (software && text.size() > 4) {
        tiff.insert(tiff.end(), text.begin(), text.end());
    }
    return tiff;
}

namespace {

void heifCheck(const heif_error& error) {
    if (error.code != heif_error_Ok) {
        throw std::runtime_error(std::string("test HEIC encoding failed: ") + error.message);
    }
}

heif_error appendHeif(heif_context*, const void* data, size_t size, void* userdata) {
    auto* out = static_cast<std::vector<std::uint8_t>*>(userdata);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    out->insert(out->end(), bytes, bytes + size);
    return heif_error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

} // namespace

std::vector<std::uint8_t> encodeHeic(const std::vector<HeicImage>& images, std::size_t primary,
                                     const std::vector<std::uint8_t>& exif) {
    heif_context* context = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    heifCheck(heif_context_get_encoder_for_format(context, heif_compression_HEVC, &encoder));
    heif_encoder_set_lossy_quality(encoder, 90);
    std::vector<heif_image_handle*> handles;
    for (const HeicImage& source : images) {
        heif_image* image = nullptr;
        heifCheck(heif_image_create(source.pixels.width, source.pixels.height, heif_colorspace_RGB,
                                    heif_chroma_interleaved_RGB, &image));
        heifCheck(heif_image_add_plane(image, heif_channel_interleaved, source.pixels.width,
                                       source.pixels.height, 8));
        int stride = 0;
        std::uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
        for (int y = 0; y < source.pixels.height; ++y) {
            std::memcpy(plane + static_cast<std::size_t>(y) * stride, source.pixels.row(y),
                        source.pixels.rowBytes());
        }
        heif_encoding_options* options = heif_encoding_options_alloc();
        options->image_orientation = static_cast<heif_orientation>(source.orientation);
        heif_image_handle* handle = nullptr;
        heifCheck(heif_context_encode_image(context, image, encoder, options, &handle));
        heif_encoding_options_free(options);
        heif_image_release(image);
        handles.push_back(handle);
    }
    heifCheck(heif_context_set_primary_image(context, handles.at(primary)));
    if (!exif.empty()) {
        heifCheck(heif_context_add_exif_metadata(context, handles.at(primary), exif.data(),
                                                 static_cast<int>(exif.size())));
    }
    std::vector<std::uint8_t> out;
    heif_writer writer{1, appendHeif};
    heifCheck(heif_context_write(context, &writer, &out));
    for (heif_image_handle* handle : handles) {
        heif_image_handle_release(handle);
    }
    heif_encoder_release(encoder);
    heif_context_free(context);
    return out;
}

std::vector<std::uint8_t> pngHeaderOnly(std::uint32_t width, std::uint32_t height) {
    std::vector<std::uint8_t> png{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    auto chunk = [&](const char* type, std::vector<std::uint8_t> data) {
        const auto length = static_cast<std::uint32_t>(data.size());
        for (int i = 3; i >= 0; --i) {
            png.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
        }
        std::vector<std::uint8_t> body(type, type + 4);
        body.insert(body.end(), data.begin(), data.end());
        png.insert(png.end(), body.begin(), body.end());
        const auto crc = static_cast<std::uint32_t>(::crc32(0, body.data(), static_cast<uInt>(body.size())));
        for (int i = 3; i >= 0; --i) {
            png.push_back(static_cast<std::uint8_t>(crc >> (8 * i)));
        }
    };
    std::vector<std::uint8_t> ihdr;
    for (std::uint32_t v : {width, height}) {
        for (int i = 3; i >= 0; --i) {
            ihdr.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
        }
    }
    ihdr.insert(ihdr.end(), {8, 2, 0, 0, 0}); // 8-bit RGB, deflate, no filter, no interlace
    chunk("IHDR", ihdr);
    chunk("IDAT", {0x78, 0x9C, 0x03, 0x00});
    chunk("IEND", {});
    return png;
}

long residentKiB(const char* field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field)) {
            return std::stol(line.substr(std::string(field).size()));
        }
    }
    return 0;
}

std::vector<std::uint8_t> readBytes(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::filesystem::path& file, std::span<const std::uint8_t> bytes) {
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quorvel-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                                 ignored);
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TempDir::entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace testing_support
