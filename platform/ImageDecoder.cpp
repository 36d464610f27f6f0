#include "ImageDecoder.h"

#include "PlatformError.h"
#include "PngCodec.h"

#include <exiv2/exiv2.hpp>
#include <jerror.h>
#include <jpeglib.h>
#include <libheif/heif.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace platform::ImageDecoder {
namespace {

// ---- Metadata (Exiv2) ----

void muteExiv2() {
    // Exiv2 prints warnings about malformed metadata to stderr; they may quote document content.
    static const bool muted = [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        return true;
    }();
    (void)muted;
}

struct ExifFacts {
    int orientation = 1;
    std::optional<std::string> software;
};

ExifFacts factsFrom(const Exiv2::ExifData& exif) {
    ExifFacts facts;
    const auto orientation = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
    if (orientation != exif.end() && orientation->count() > 0) {
        const long value = orientation->toLong(0);
        if (value >= 1 && value <= 8) {
            facts.orientation = static_cast<int>(value);
        }
    }
    const auto software = exif.findKey(Exiv2::ExifKey("Exif.Image.Software"));
    if (software != exif.end() && software->typeId() == Exiv2::asciiString) {
        std::string text = software->toString();
        while (!text.empty() && text.back() == '\0') {
            text.pop_back();
        }
        facts.software = std::move(text);
    }
    return facts;
}

// Metadata that cannot be read is treated as absent: the pixels decide whether the image is usable.
ExifFacts readExif(std::span<const std::uint8_t> data) {
    muteExiv2();
    try {
        auto image = Exiv2::ImageFactory::open(data.data(), static_cast<long>(data.size()));
        if (!image.get()) {
            return {};
        }
        image->readMetadata();
        return factsFrom(image->exifData());
    } catch (const std::exception&) {
        return {};
    }
}

ExifFacts readTiffExif(const std::uint8_t* data, std::size_t size) {
    muteExiv2();
    try {
        Exiv2::ExifData exif;
        Exiv2::ExifParser::decode(exif, data, static_cast<std::uint32_t>(size));
        return factsFrom(exif);
    } catch (const std::exception&) {
        return {};
    }
}

// ---- JPEG (libjpeg-turbo) ----

struct JpegError {
    jpeg_error_mgr manager{};
    std::jmp_buf jump{};
    char message[JMSG_LENGTH_MAX] = {};
};

[[noreturn]] void jpegFail(j_common_ptr info) {
    auto* error = reinterpret_cast<JpegError*>(info->err);
    info->err->format_message(info, error->message);
    std::longjmp(error->jump, 1);
}

// Warnings about corrupt data are common in camera files and harmless, but running out of data means
// part of the document would come out grey: that file is refused.
void jpegMessage(j_common_ptr info, int level) {
    if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF) {
        jpegFail(info);
    }
}

// Progressive files with thousands of tiny scans take minutes to decode; real cameras write about ten.
constexpr int maxJpegScans = 1000;

void jpegProgress(j_common_ptr info) {
    auto* decompress = reinterpret_cast<j_decompress_ptr>(info);
    if (info->is_decompressor && decompress->input_scan_number > maxJpegScans) {
        auto* error = reinterpret_cast<JpegError*>(info->err);
        std::snprintf(error->message, sizeof error->message, "too many progressive scans");
        std::longjmp(error->jump, 1);
    }
}

struct JpegDecoder {
    jpeg_decompress_struct info{};
    JpegError error;
    jpeg_progress_mgr progress{};
    bool created = false;

    ~JpegDecoder() {
        if (created) {
            jpeg_destroy_decompress(&info);
        }
    }
};

// Runs the whole libjpeg conversation inside one frame that owns no C++ objects, so that longjmp
// skips no destructor.
bool decodeJpegInto(JpegDecoder& d, std::span<const std::uint8_t> data, Properties* header, Bitmap* out,
                    std::vector<std::uint8_t>* scratch) {
    d.info.err = jpeg_std_error(&d.error.manager);
    d.error.manager.error_exit = jpegFail;
    d.error.manager.emit_message = jpegMessage;
    if (setjmp(d.error.jump)) {
        return false;
    }
    jpeg_create_decompress(&d.info);
    d.created = true;
    d.progress.progress_monitor = jpegProgress;
    d.info.progress = &d.progress;
    // Bounds the coefficient buffers of progressive files.
    d.info.mem->max_memory_to_use = 2048L * 1024 * 1024;
    jpeg_mem_src(&d.info, data.data(), static_cast<unsigned long>(data.size()));
    jpeg_read_header(&d.info, TRUE);
    if (header) {
        header->width = static_cast<int>(d.info.image_width);
        header->height = static_cast<int>(d.info.image_height);
        return true;
    }
    const bool cmyk = d.info.jpeg_color_space == JCS_CMYK || d.info.jpeg_color_space == JCS_YCCK;
    d.info.out_color_space = cmyk ? JCS_CMYK : JCS_RGB;
    jpeg_start_decompress(&d.info);
    *out = Bitmap(static_cast<int>(d.info.output_width), static_cast<int>(d.info.output_height));
    if (cmyk) {
        scratch->resize(static_cast<std::size_t>(d.info.output_width) * 4);
    }
    // Adobe applications store CMYK inverted, and say so with their APP14 marker.
    const bool inverted = d.info.saw_Adobe_marker;
    while (d.info.output_scanline < d.info.output_height) {
        std::uint8_t* row = out->row(static_cast<int>(d.info.output_scanline));
        JSAMPROW target = cmyk ? scratch->data() : row;
        jpeg_read_scanlines(&d.info, &target, 1);
        if (cmyk) {
            for (JDIMENSION x = 0; x < d.info.output_width; ++x) {
                const std::uint8_t* s = scratch->data() + x * 4;
                const unsigned k = inverted ? s[3] : 255u - s[3];
                for (int c = 0; c < 3; ++c) {
                    const unsigned v = inverted ? s[c] : 255u - s[c];
                    row[x * 3 + c] = static_cast<std::uint8_t>((v * k + 127) / 255);
                }
            }
        }
    }
    jpeg_finish_decompress(&d.info);
    return true;
}

Properties jpegHeader(std::span<const std::uint8_t> data) {
    JpegDecoder decoder;
    Properties properties;
    if (!decodeJpegInto(decoder, data, &properties, nullptr, nullptr)) {
        throw CodecError(decoder.error.message);
    }
    return properties;
}

Bitmap decodeJpeg(std::span<const std::uint8_t> data) {
    JpegDecoder decoder;
    Bitmap image;
    std::vector<std::uint8_t> scratch;
    if (!decodeJpegInto(decoder, data, nullptr, &image, &scratch)) {
        throw CodecError(decoder.error.message);
    }
    return image;
}

// ---- HEIF (libheif) ----

std::uint64_t bigEndian(std::span<const std::uint8_t> bytes) {
    std::uint64_t value = 0;
    for (std::uint8_t b : bytes) {
        value = value << 8 | b;
    }
    return value;
}

struct HeifContext {
    heif_context* context = heif_context_alloc();
    heif_image_handle* handle = nullptr;
    heif_image* image = nullptr;

    ~HeifContext() {
        heif_image_release(image);
        heif_image_handle_release(handle);
        heif_context_free(context);
    }
};

void check(const heif_error& error) {
    if (error.code != heif_error_Ok) {
        throw CodecError(error.message ? error.message : "HEIF error");
    }
}

void openPrimary(HeifContext& heif, std::span<const std::uint8_t> data) {
    if (!heif.context) {
        throw CodecError("cannot allocate HEIF context");
    }
    check(heif_context_read_from_memory_without_copy(heif.context, data.data(), data.size(), nullptr));
    check(heif_context_get_primary_image_handle(heif.context, &heif.handle));
}

ExifFacts heifExif(heif_image_handle* handle) {
    heif_item_id id = 0;
    if (heif_image_handle_get_list_of_metadata_block_IDs(handle, "Exif", &id, 1) < 1) {
        return {};
    }
    const std::size_t size = heif_image_handle_get_metadata_size(handle, id);
    if (size <= 4) {
        return {};
    }
    std::vector<std::uint8_t> block(size);
    if (heif_image_handle_get_metadata(handle, id, block.data()).code != heif_error_Ok) {
        return {};
    }
    // The block starts with a 4-byte big-endian offset to the TIFF header.
    const std::uint64_t offset = bigEndian(std::span(block).first(4));
    if (offset > size - 4) {
        return {};
    }
    return readTiffExif(block.data() + 4 + offset, size - 4 - offset);
}

Properties heifProperties(std::span<const std::uint8_t> data) {
    HeifContext heif;
    openPrimary(heif, data);
    Properties properties;
    properties.width = heif_image_handle_get_width(heif.handle);
    properties.height = heif_image_handle_get_height(heif.handle);
    properties.software = heifExif(heif.handle).software;
    return properties;
}

// ---- HEVC parameter sets of a HEIF file ----

// Calls `each(type, body)` for every whole box in `data`, in order; a box that claims more than is
// there ends the walk.
template <class Each> void forEachBox(std::span<const std::uint8_t> data, Each&& each) {
    std::size_t at = 0;
    while (data.size() - at >= 8) {
        std::uint64_t size = bigEndian(data.subspan(at, 4));
        std::size_t header = 8;
        if (size == 1 && data.size() - at >= 16) {
            size = bigEndian(data.subspan(at + 8, 8));
            header = 16;
        } else if (size == 0) {
            size = data.size() - at;
        }
        if (size < header || size > data.size() - at) {
            return;
        }
        each(std::string_view(reinterpret_cast<const char*>(data.data() + at + 4), 4),
             data.subspan(at + header, size - header));
        at += size;
    }
}

// Calls `each(type, body)` for every box within the boxes `path` names, each inside the one before,
// from the file's top level ('meta' is a full box: its version and flags come first).
template <class Each>
void forEachBoxWithin(std::span<const std::uint8_t> data, std::span<const std::string_view> path,
                      Each&& each) {
    if (path.empty()) {
        forEachBox(data, each);
        return;
    }
    forEachBox(data, [&](std::string_view type, std::span<const std::uint8_t> body) {
        const std::size_t skip = type == "meta" ? 4 : 0;
        if (type == path.front() && body.size() >= skip) {
            forEachBoxWithin(body.subspan(skip), path.subspan(1), each);
        }
    });
}

// Reads a NAL unit's payload bit by bit, its emulation prevention bytes (the 3 of 0 0 3) left out.
class BitReader {
public:
    explicit BitReader(std::span<const std::uint8_t> nal) {
        int zeros = 0;
        for (std::uint8_t b : nal) {
            if (zeros >= 2 && b == 3) {
                zeros = 0;
                continue;
            }
            bytes_.push_back(b);
            zeros = b == 0 ? zeros + 1 : 0;
        }
    }
    // Throws std::out_of_range past the end.
    std::uint64_t bits(int count) {
        std::uint64_t value = 0;
        for (int i = 0; i < count; ++i, ++at_) {
            value = value << 1 | ((bytes_.at(at_ / 8) >> (7 - at_ % 8)) & 1);
        }
        return value;
    }
    std::uint64_t unsignedGolomb() {
        int zeros = 0;
        while (bits(1) == 0) {
            if (++zeros > 31) {
                throw std::out_of_range("Exp-Golomb code too long");
            }
        }
        return (std::uint64_t{1} << zeros) - 1 + bits(zeros);
    }

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t at_ = 0;
};

// The picture a sequence parameter set declares: its larger side in luma samples.
std::uint64_t codedSide(std::span<const std::uint8_t> sps) {
    BitReader in(sps);
    in.bits(16); // NAL unit header
    in.bits(4);  // video parameter set id
    const int subLayers = static_cast<int>(in.bits(3));
    in.bits(1);
    in.bits(96); // general profile, tier and level
    std::vector<std::pair<bool, bool>> present(static_cast<std::size_t>(subLayers));
    for (auto& [profile, level] : present) {
        profile = in.bits(1) != 0;
        level = in.bits(1) != 0;
    }
    if (subLayers > 0) {
        in.bits(2 * (8 - subLayers));
    }
    for (const auto& [profile, level] : present) {
        in.bits((profile ? 88 : 0) + (level ? 8 : 0));
    }
    in.unsignedGolomb(); // parameter set id
    if (in.unsignedGolomb() == 3) {
        in.bits(1); // colour planes coded apart
    }
    const std::uint64_t width = in.unsignedGolomb();
    return std::max(width, in.unsignedGolomb());
}

// The larger side of the largest picture any HEVC configuration of the file declares (0 when none
// can be read: libheif then refuses the file itself).
std::uint64_t largestCodedSide(std::span<const std::uint8_t> file) {
    std::uint64_t largest = 0;
    constexpr std::array<std::string_view, 3> properties{"meta", "iprp", "ipco"};
    forEachBoxWithin(file, properties, [&](std::string_view type, std::span<const std::uint8_t> body) {
        if (type != "hvcC" || body.size() < 23) {
            return;
        }
        std::size_t at = 23;
        for (int array = 0; array < body[22] && body.size() - at >= 3; ++array) {
            const int nalType = body[at] & 0x3F;
            const auto units = bigEndian(body.subspan(at + 1, 2));
            at += 3;
            for (std::uint64_t unit = 0; unit < units && body.size() - at >= 2; ++unit) {
                const std::size_t length = bigEndian(body.subspan(at, 2));
                at += 2;
                if (length > body.size() - at) {
                    return;
                }
                if (nalType == 33) { // a sequence parameter set
                    try {
                        largest = std::max(largest, codedSide(body.subspan(at, length)));
                    } catch (const std::out_of_range&) {
                    }
                }
                at += length;
            }
        }
    });
    return largest;
}

// Whether decoding the image `item` of the file comes back to an image it is already decoding, or goes
// deeper than any real image does. Decoding an image decodes the images it is derived from (a grid's
// tiles, an overlay's layers: 'dimg' references from it) and its alpha ('auxl', from the alpha to it).
// libheif 1.15 follows such a loop until threads and memory run out: a 1.4 KB grid made of itself took
// 900 MB before the program failed.
bool derivedFromItself(std::span<const std::uint8_t> file, std::uint64_t item) {
    std::map<std::uint64_t, std::vector<std::uint64_t>> uses;
    constexpr std::array<std::string_view, 1> meta{"meta"};
    forEachBoxWithin(file, meta, [&](std::string_view type, std::span<const std::uint8_t> iref) {
        if (type != "iref" || iref.size() < 4) {
            return;
        }
        const std::size_t id = iref[0] == 0 ? 2 : 4; // an item's number: 16 bits in version 0, else 32
        forEachBox(iref.subspan(4), [&](std::string_view kind, std::span<const std::uint8_t> ref) {
            if ((kind != "dimg" && kind != "auxl") || ref.size() < id + 2) {
                return;
            }
            const std::uint64_t from = bigEndian(ref.first(id));
            const std::uint64_t count = bigEndian(ref.subspan(id, 2));
            for (std::uint64_t i = 0; i < count && ref.size() >= id + 2 + (i + 1) * id; ++i) {
                const std::uint64_t to = bigEndian(ref.subspan(id + 2 + i * id, id));
                if (kind == "dimg") {
                    uses[from].push_back(to);
                } else {
                    uses[to].push_back(from);
                }
            }
        });
    });
    constexpr std::size_t deepest = 8; // an overlay of grids of tiles is three
    std::set<std::uint64_t> path, finished;
    std::function<bool(std::uint64_t)> loops = [&](std::uint64_t at) {
        if (path.contains(at) || path.size() >= deepest) {
            return true;
        }
        if (finished.contains(at)) {
            return false;
        }
        path.insert(at);
        if (const auto found = uses.find(at); found != uses.end()) {
            for (std::uint64_t next : found->second) {
                if (loops(next)) {
                    return true;
                }
            }
        }
        path.erase(at);
        finished.insert(at);
        return false;
    };
    return loops(item);
}

Bitmap decodeHeif(std::span<const std::uint8_t> data) {
    HeifContext heif;
    openPrimary(heif, data);
    // The image's size is stated in its properties, which the loader checks against its limits, but
    // decoding follows the grid of a tiled image and the parameters of each coded picture. A grid or a
    // picture larger than the stated size is refused before its pixels are allocated: a 1.4 KB file
    // asked for 27,000 x 27,000 pixels by its grid, a 15 KB one stating 64 x 64 coded 8,192 x 8,192
    // (430 MB and 2.7 s to decode). Coded pictures are rounded up to whole coding blocks, and the
    // stated size is the coded one before any crop. A file of several images whose main image is not
    // the largest is refused too.
    const int stated = std::max(
        {heif_image_handle_get_width(heif.handle), heif_image_handle_get_height(heif.handle),
         heif_image_handle_get_ispe_width(heif.handle), heif_image_handle_get_ispe_height(heif.handle)});
    heif_context_set_maximum_image_size_limit(heif.context, stated + 1);
    constexpr int largestCodingBlock = 64;
    if (largestCodedSide(data) > static_cast<std::uint64_t>(stated) + largestCodingBlock) {
        throw CodecError("HEIF image codes a picture larger than its stated size");
    }
    heif_item_id primary = 0;
    check(heif_context_get_primary_image_ID(heif.context, &primary));
    if (derivedFromItself(data, primary)) {
        throw CodecError("HEIF image is derived from itself");
    }
    // libheif applies the rotation and mirror boxes while decoding; the EXIF orientation of a HEIF
    // file repeats them for old readers and must not be applied a second time.
    const bool hasAlpha = heif_image_handle_has_alpha_channel(heif.handle);
    check(heif_decode_image(heif.handle, &heif.image, heif_colorspace_RGB,
                            hasAlpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, nullptr));
    int stride = 0;
    const std::uint8_t* plane = heif_image_get_plane_readonly(heif.image, heif_channel_interleaved, &stride);
    const int width = heif_image_get_width(heif.image, heif_channel_interleaved);
    const int height = heif_image_get_height(heif.image, heif_channel_interleaved);
    if (!plane || width < 1 || height < 1) {
        throw CodecError("HEIF image has no pixels");
    }
    Bitmap image(width, height);
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* source = plane + static_cast<std::size_t>(y) * static_cast<std::size_t>(stride);
        std::uint8_t* target = image.row(y);
        if (!hasAlpha) {
            std::memcpy(target, source, image.rowBytes());
            continue;
        }
        for (int x = 0; x < width; ++x) {
            const unsigned a = source[x * 4 + 3];
            for (int c = 0; c < 3; ++c) {
                target[x * 3 + c] =
                    static_cast<std::uint8_t>((source[x * 4 + c] * a + 255 * (255 - a) + 127) / 255);
            }
        }
    }
    return image;
}

bool hasBrand(std::span<const std::uint8_t> data, std::string_view brand, std::size_t boxSize) {
    // Major brand at 8, minor version at 12, compatible brands from 16 to the end of the box.
    if (std::string_view(reinterpret_cast<const char*>(data.data()) + 8, 4) == brand) {
        return true;
    }
    for (std::size_t at = 16; at + 4 <= boxSize; at += 4) {
        if (std::string_view(reinterpret_cast<const char*>(data.data()) + at, 4) == brand) {
            return true;
        }
    }
    return false;
}

} // namespace

Container sniff(std::span<const std::uint8_t> data) noexcept {
    static constexpr std::array<std::uint8_t, 8> pngMagic{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    if (data.size() >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF) {
        return Container::jpeg;
    }
    if (data.size() >= pngMagic.size() && std::equal(pngMagic.begin(), pngMagic.end(), data.begin())) {
        return Container::png;
    }
    if (data.size() >= 16 && std::memcmp(data.data() + 4, "ftyp", 4) == 0) {
        const std::size_t boxSize = std::min<std::uint64_t>(data.size(), bigEndian(data.first(4)));
        for (std::string_view brand : {"heic", "heix", "heim", "heis", "hevc", "hevx"}) {
            if (hasBrand(data, brand, boxSize)) {
                return Container::heic;
            }
        }
        // A plain HEIF image file; AVIF files carry 'mif1' too and are a type of their own.
        if ((hasBrand(data, "mif1", boxSize) || hasBrand(data, "msf1", boxSize)) &&
            !hasBrand(data, "avif", boxSize) && !hasBrand(data, "avis", boxSize)) {
            return Container::heif;
        }
    }
    return Container::other;
}

Properties readProperties(std::span<const std::uint8_t> data, Container container) {
    switch (container) {
    case Container::jpeg: {
        Properties properties = jpegHeader(data);
        properties.software = readExif(data).software;
        return properties;
    }
    case Container::png: {
        const PngCodec::Header header = PngCodec::readHeader(data);
        Properties properties{header.width, header.height, readExif(data).software};
        return properties;
    }
    case Container::heic:
    case Container::heif:
        return heifProperties(data);
    case Container::other:
        break;
    }
    throw CodecError("unsupported container");
}

Bitmap decodeUpright(std::span<const std::uint8_t> data, Container container) {
    switch (container) {
    case Container::jpeg:
        return applyOrientation(decodeJpeg(data), readExif(data).orientation);
    case Container::png:
        return applyOrientation(PngCodec::decode(data), readExif(data).orientation);
    case Container::heic:
    case Container::heif:
        return decodeHeif(data);
    case Container::other:
        break;
    }
    throw CodecError("unsupported container");
}

Bitmap applyOrientation(Bitmap image, int orientation) {
    if (orientation < 2 || orientation > 8) {
        return image;
    }
    const int W = image.width;
    const int H = image.height;
    const bool swaps = orientation >= 5;
    Bitmap out(swaps ? H : W, swaps ? W : H);
    // For each output pixel (x, y), the stored pixel it shows; EXIF 2.3 table of orientations.
    for (int y = 0; y < out.height; ++y) {
        std::uint8_t* target = out.row(y);
        for (int x = 0; x < out.width; ++x) {
            int sx = 0;
            int sy = 0;
            switch (orientation) {
            case 2:
                sx = W - 1 - x;
                sy = y;
                break;
            case 3:
                sx = W - 1 - x;
                sy = H - 1 - y;
                break;
            case 4:
                sx = x;
                sy = H - 1 - y;
                break;
            case 5:
                sx = y;
                sy = x;
                break;
            case 6:
                sx = y;
                sy = H - 1 - x;
                break;
            case 7:
                sx = W - 1 - y;
                sy = H - 1 - x;
                break;
            case 8:
                sx = W - 1 - y;
                sy = x;
                break;
            }
            std::memcpy(target + x * 3, image.at(sx, sy), 3);
        }
    }
    return out;
}

} // namespace platform::ImageDecoder
