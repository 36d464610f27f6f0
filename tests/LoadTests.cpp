#include "DocumentTypes.h"
#include "ImagePipeline.h"
#include "TestImages.h"

#include <gtest/gtest.h>
#include <png.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <system_error>

using namespace testing_support;

namespace {

using Rgb = std::array<int, 3>;

Rgb pixel(const Bitmap& image, int x, int y) {
    const std::uint8_t* p = image.at(x, y);
    return {p[0], p[1], p[2]};
}

// Lossy codecs move colours a little; the quadrant colours below are far apart.
bool near(const Rgb& a, const Rgb& b) {
    for (int i = 0; i < 3; ++i) {
        if (std::abs(a[i] - b[i]) > 40) {
            return false;
        }
    }
    return true;
}

const Rgb red{220, 30, 30}, green{30, 200, 40}, blue{30, 40, 220}, yellow{240, 230, 40};

// Red, green / blue, yellow quadrants: every orientation puts a different colour in each corner.
Bitmap quadrants(int width, int height) {
    Bitmap image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Rgb& c = y < height / 2 ? (x < width / 2 ? red : green) : (x < width / 2 ? blue : yellow);
            std::uint8_t* p = image.row(y) + x * 3;
            p[0] = static_cast<std::uint8_t>(c[0]), p[1] = static_cast<std::uint8_t>(c[1]),
            p[2] = static_cast<std::uint8_t>(c[2]);
        }
    }
    return image;
}

struct Corners {
    Rgb topLeft, topRight, bottomLeft, bottomRight;
};

// What a viewer shows for each EXIF orientation of the quadrant image.
const Corners expectedCorners[9] = {
    {},
    {red, green, blue, yellow}, // 1 as stored
    {green, red, yellow, blue}, // 2 mirrored left to right
    {yellow, blue, green, red}, // 3 turned half round
    {blue, yellow, red, green}, // 4 mirrored top to bottom
    {red, blue, green, yellow}, // 5 transposed
    {blue, red, yellow, green}, // 6 turned a quarter clockwise
    {yellow, green, blue, red}, // 7 transversed
    {green, yellow, red, blue}, // 8 turned a quarter anticlockwise
};

void expectCorners(const Bitmap& image, const Corners& c, const std::string& what) {
    const int r = image.width - 5, b = image.height - 5;
    EXPECT_TRUE(near(pixel(image, 4, 4), c.topLeft)) << what;
    EXPECT_TRUE(near(pixel(image, r, 4), c.topRight)) << what;
    EXPECT_TRUE(near(pixel(image, 4, b), c.bottomLeft)) << what;
    EXPECT_TRUE(near(pixel(image, r, b), c.bottomRight)) << what;
}

DocumentError::Code loadError(const std::filesystem::path& file) {
    try {
        ImagePipeline::load(file);
    } catch (const DocumentError& error) {
        return error.code();
    }
    ADD_FAILURE() << file << " loaded";
    return DocumentError::cancelled;
}

class Load : public ::testing::Test {
protected:
    std::filesystem::path write(const std::string& name, std::span<const std::uint8_t> bytes) {
        writeBytes(dir / name, bytes);
        return dir / name;
    }
    TempDir dir;
};

} // namespace

TEST_F(Load, EveryExifOrientationComesBackUpright) {
    for (int orientation = 1; orientation <= 8; ++orientation) {
        const auto file =
            write("o.jpg", encodeJpeg(quadrants(96, 64), false, exifBlock(orientation, std::nullopt)));
        const LoadedDocument document = ImagePipeline::load(file);
        const bool turned = orientation >= 5;
        EXPECT_EQ(document.image.width, turned ? 64 : 96) << orientation;
        EXPECT_EQ(document.image.height, turned ? 96 : 64) << orientation;
        expectCorners(document.image, expectedCorners[orientation],
                      "JPEG orientation " + std::to_string(orientation));
        EXPECT_FALSE(document.centering.applied);
    }
}

TEST_F(Load, PngOrientationFromItsExifChunk) {
    const Bitmap image = quadrants(40, 20);
    std::vector<std::uint8_t> samples(image.pixels.begin(), image.pixels.end());
    const auto file =
        write("o.png", encodePng(40, 20, PNG_COLOR_TYPE_RGB, 8, samples, exifBlock(6, std::nullopt)));
    const Bitmap loaded = ImagePipeline::load(file).image;
    ASSERT_EQ(loaded.width, 20);
    expectCorners(loaded, expectedCorners[6], "PNG eXIf 6");
}

TEST_F(Load, HeifRotationIsAppliedOnceEvenWhenExifRepeatsIt) {
    // Writers put the turn in the container and repeat it in EXIF for old readers.
    const auto file =
        write("turned.heic", encodeHeic({{quadrants(128, 64), 6}}, 0, exifBlock(6, "Camera 1.0")));
    const LoadedDocument document = ImagePipeline::load(file);
    ASSERT_EQ(document.image.width, 64);
    ASSERT_EQ(document.image.height, 128);
    expectCorners(document.image, expectedCorners[6], "HEIC irot");
    EXPECT_EQ(document.software, "Camera 1.0");

    const auto mirrored = write("mirrored.heic", encodeHeic({{quadrants(128, 64), 2}}));
    expectCorners(ImagePipeline::load(mirrored).image, expectedCorners[2], "HEIC imir");
}

TEST_F(Load, MultiImageHeicGivesThePrimaryImage) {
    const auto file = write("multi.heif", encodeHeic({{quadrants(64, 64), 1}, {quadrants(128, 96), 1}}, 1));
    const Bitmap image = ImagePipeline::load(file).image;
    EXPECT_EQ(image.width, 128);
    EXPECT_EQ(image.height, 96);
}

TEST_F(Load, PngColourTypesAndDepthsDecodeToTheSameColours) {
    // Grey 8-bit.
    EXPECT_EQ(
        pixel(ImagePipeline::load(write("g.png", encodePng(2, 1, PNG_COLOR_TYPE_GRAY, 8, {0, 200}))).image, 1,
              0),
        (Rgb{200, 200, 200}));
    // 16-bit RGB: the high byte decides.
    const std::vector<std::uint8_t> deep{0x12, 0x34, 0xAB, 0xCD, 0xFF, 0xFF};
    EXPECT_EQ(
        pixel(ImagePipeline::load(write("d.png", encodePng(1, 1, PNG_COLOR_TYPE_RGB, 16, deep))).image, 0, 0),
        (Rgb{0x12, 0xAB, 0xFF}));
    // Palette.
    EXPECT_EQ(
        pixel(ImagePipeline::load(write("p.png", encodePng(2, 1, PNG_COLOR_TYPE_PALETTE, 8, {2, 1}))).image,
              0, 0),
        (Rgb{0, 0, 255}));
    // Grey with half alpha over white.
    EXPECT_EQ(
        pixel(ImagePipeline::load(write("ga.png", encodePng(1, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 8, {0, 128})))
                  .image,
              0, 0),
        (Rgb{127, 127, 127}));
}

TEST_F(Load, ProgressiveAndAdobeCmykJpegs) {
    const Bitmap progressive = ImagePipeline::load(write("p.jpg", encodeJpeg(quadrants(64, 64), true))).image;
    expectCorners(progressive, expectedCorners[1], "progressive");
    // Pure cyan ink: no red, full green and blue.
    const Bitmap cmyk = ImagePipeline::load(write("c.jpg", encodeAdobeCmykJpeg(16, 16, 255, 0, 0, 0))).image;
    EXPECT_TRUE(near(pixel(cmyk, 8, 8), Rgb{0, 255, 255})) << pixel(cmyk, 8, 8)[0];
}

TEST_F(Load, TheContentDecidesTheTypeNotTheName) {
    const Bitmap image = quadrants(32, 32);
    std::vector<std::uint8_t> samples(image.pixels.begin(), image.pixels.end());
    EXPECT_EQ(
        ImagePipeline::load(write("photo.jpg", encodePng(32, 32, PNG_COLOR_TYPE_RGB, 8, samples))).image,
        image);
    const std::vector<std::uint8_t> gif{'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0, 0, 0, 0, ';'};
    EXPECT_EQ(loadError(write("photo.png", gif)), DocumentError::invalidImage);
    const std::string text = "hello, this is not a photo";
    EXPECT_EQ(loadError(write("text.jpg", std::vector<std::uint8_t>(text.begin(), text.end()))),
              DocumentError::invalidImage);
    EXPECT_EQ(loadError(write("empty.jpg", std::vector<std::uint8_t>{})), DocumentError::invalidImage);
}

TEST_F(Load, SoftwareComesOnlyFromTheTiffBlockAsText) {
    const auto edited = write(
        "e.jpg", encodeJpeg(quadrants(32, 32), false, exifBlock(1, "Adobe Photoshop 25.0 (Macintosh)")));
    EXPECT_EQ(ImagePipeline::load(edited).software, "Adobe Photoshop 25.0 (Macintosh)");
    EXPECT_EQ(ImagePipeline::load(write("plain.jpg", encodeJpeg(quadrants(32, 32)))).software, std::nullopt);
    EXPECT_EQ(
        ImagePipeline::load(write("short.jpg", encodeJpeg(quadrants(32, 32), false, exifBlock(1, "Gx"))))
            .software,
        "Gx");
}

TEST_F(Load, FileSizeLimitIsEightyMebibytes) {
    // Bytes after IEND are ignored by PNG readers, so padding makes a valid file of any size.
    const Bitmap image = quadrants(8, 8);
    const auto png = encodePng(8, 8, PNG_COLOR_TYPE_RGB, 8,
                               std::vector<std::uint8_t>(image.pixels.begin(), image.pixels.end()));
    const auto file = write("big.png", png);
    ASSERT_EQ(::truncate(file.c_str(), 83886080), 0);
    EXPECT_EQ(ImagePipeline::load(file).image.width, 8);
    ASSERT_EQ(::truncate(file.c_str(), 83886081), 0);
    EXPECT_EQ(loadError(file), DocumentError::tooLarge);
}

TEST_F(Load, PixelLimitsComeFromTheHeaderBeforeAnyDecoding) {
    EXPECT_EQ(loadError(write("a.png", pngHeaderOnly(20001, 10))), DocumentError::tooLarge);
    EXPECT_EQ(loadError(write("b.png", pngHeaderOnly(7072, 7072))), DocumentError::tooLarge);
    EXPECT_EQ(loadError(write("c.png", pngHeaderOnly(10, 20001))), DocumentError::tooLarge);
    // Within the limits, the same token data is simply not an image.
    EXPECT_EQ(loadError(write("d.png", pngHeaderOnly(20000, 2500))), DocumentError::invalidImage);
    EXPECT_EQ(loadError(write("e.png", pngHeaderOnly(0, 10))), DocumentError::invalidImage);
}

TEST_F(Load, ADecompressionBombIsRefusedAtOnceWithLittleMemory) {
    const auto bomb = write("bomb.png", pngHeaderOnly(60000, 60000));
    // A JPEG whose frame header claims 60,000 x 60,000 pixels.
    auto jpeg = encodeJpeg(quadrants(16, 16));
    for (std::size_t i = 2; i + 9 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
            jpeg[i + 5] = 0xEA, jpeg[i + 6] = 0x60, jpeg[i + 7] = 0xEA, jpeg[i + 8] = 0x60;
            break;
        }
    }
    const auto jpegBomb = write("bomb.jpg", jpeg);
    std::ofstream("/proc/self/clear_refs") << "5"; // resets the peak resident size
    EXPECT_EQ(loadError(bomb), DocumentError::tooLarge);
    EXPECT_EQ(loadError(jpegBomb), DocumentError::tooLarge);
    EXPECT_LT(residentKiB("VmHWM:") - residentKiB("VmRSS:"), 32 * 1024);
}

TEST_F(Load, TheLargestAcceptedImageLoads) {
    // 20,000 x 2,500 is exactly 50,000,000 pixels.
    const Bitmap wide(20000, 2500, 200);
    const auto file =
        write("wide.png", encodePng(20000, 2500, PNG_COLOR_TYPE_RGB, 8,
                                    std::vector<std::uint8_t>(wide.pixels.begin(), wide.pixels.end())));
    const LoadedDocument document = ImagePipeline::load(file);
    EXPECT_EQ(document.image.width, 20000);
    EXPECT_EQ(document.image.height, 2500);
}

TEST_F(Load, DamagedFilesAreUnreadableImages) {
    const Bitmap image = quadrants(64, 64);
    const auto jpeg = encodeJpeg(image);
    EXPECT_EQ(loadError(write("cut.jpg", std::span(jpeg).first(jpeg.size() / 2))),
              DocumentError::invalidImage);
    EXPECT_EQ(loadError(write("head.jpg", std::span(jpeg).first(40))), DocumentError::invalidImage);

    auto png = encodePng(64, 64, PNG_COLOR_TYPE_RGB, 8,
                         std::vector<std::uint8_t>(image.pixels.begin(), image.pixels.end()));
    EXPECT_EQ(loadError(write("cut.png", std::span(png).first(png.size() - 30))),
              DocumentError::invalidImage);
    // Flip one byte inside the image data: the chunk's CRC no longer matches.
    for (std::size_t i = 8; i + 8 < png.size(); ++i) {
        if (std::memcmp(png.data() + i, "IDAT", 4) == 0) {
            png[i + 10] ^= 0x55;
            break;
        }
    }
    EXPECT_EQ(loadError(write("crc.png", png)), DocumentError::invalidImage);

    // An ISO media file that says it is HEIC but holds no image.
    const std::vector<std::uint8_t> ftyp{0, 0, 0, 24, 'f', 't', 'y', 'p', 'h', 'e', 'i', 'c',
                                         0, 0, 0, 0,  'm', 'i', 'f', '1', 'h', 'e', 'i', 'c'};
    EXPECT_EQ(loadError(write("empty.heic", ftyp)), DocumentError::invalidImage);
    auto heic = encodeHeic({{image, 1}});
    EXPECT_EQ(loadError(write("cut.heic", std::span(heic).first(heic.size() / 2))),
              DocumentError::invalidImage);
}

TEST_F(Load, FoldersAndFileSystemErrors) {
    std::filesystem::create_directory(dir / "folder.jpg");
    EXPECT_EQ(loadError(dir / "folder.jpg"), DocumentError::invalidImage);
    try {
        ImagePipeline::load(dir / "missing.jpg");
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
        EXPECT_NE(std::string(error.what()).find("missing.jpg"), std::string::npos);
    }
    const auto locked = write("locked.jpg", encodeJpeg(quadrants(16, 16)));
    ::chmod(locked.c_str(), 0000);
    ::chmod(dir.path().c_str(), 0755);
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::seteuid(65534), 0);
    }
    int code = 0;
    try {
        ImagePipeline::load(locked);
    } catch (const std::system_error& error) {
        code = error.code().value();
    }
    if (root) {
        ASSERT_EQ(::seteuid(0), 0);
    }
    EXPECT_EQ(code, EACCES);
}
