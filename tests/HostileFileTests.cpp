// Files made to hurt a reader: every one ends in the specified error or a clean result, quickly, with
// bounded memory, and without writing anything.

#include "ImagePipeline.h"
#include "PDFPipeline.h"
#include "TestImages.h"

#include <gtest/gtest.h>
#include <png.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <random>

using namespace testing_support;

namespace {

struct Outcome {
    std::optional<DocumentError::Code> error;
    bool otherError = false;
    double seconds = 0;
    long peakMiB = 0;
};

// Runs `work`, noting how it ended, how long it took and how much memory it took at its peak.
Outcome survive(const std::function<void()>& work) {
    std::ofstream("/proc/self/clear_refs") << "5";
    const long before = testing_support::residentKiB("VmRSS:");
    const auto start = std::chrono::steady_clock::now();
    Outcome outcome;
    try {
        work();
    } catch (const DocumentError& error) {
        outcome.error = error.code();
    } catch (const std::exception&) {
        outcome.otherError = true;
    }
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    outcome.peakMiB = (testing_support::residentKiB("VmHWM:") - before) / 1024;
    return outcome;
}

// A PDF written by hand, with the cross-reference table computed from the objects given.
std::vector<std::uint8_t> rawPdf(const std::vector<std::string>& objects,
                                 const std::string& trailerExtra = "") {
    std::string pdf = "%PDF-1.4\n";
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        offsets.push_back(pdf.size());
        pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::size_t xref = pdf.size();
    pdf += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (std::size_t offset : offsets) {
        char line[21];
        std::snprintf(line, sizeof line, "%010zu 00000 n \n", offset);
        pdf += line;
    }
    pdf += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R " + trailerExtra +
           ">>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    return std::vector<std::uint8_t>(pdf.begin(), pdf.end());
}

const std::string catalog = "<< /Type /Catalog /Pages 2 0 R >>";

class Hostile : public ::testing::Test {
protected:
    Outcome pdf(const std::vector<std::uint8_t>& bytes) {
        writeBytes(dir / "hostile.pdf", bytes);
        return survive(
            [&] { PDFPipeline::process(PDFPipeline::load(dir / "hostile.pdf"), PDFPipeline::pdfPolicy()); });
    }
    Outcome photo(const std::vector<std::uint8_t>& bytes, const std::string& name = "hostile.jpg") {
        writeBytes(dir / name, bytes);
        return survive([&] { ImagePipeline::load(dir / name); });
    }
    void expectBounded(const Outcome& outcome, const char* what) {
        EXPECT_LT(outcome.seconds, 20) << what;
        EXPECT_LT(outcome.peakMiB, 1024) << what;
        EXPECT_FALSE(outcome.otherError) << what << ": only the document errors may come out";
    }

    TempDir dir;
};

} // namespace

TEST_F(Hostile, PdfObjectsThatReferThemselvesOrNestDeeply) {
    // A page tree whose only kid is the tree itself.
    const Outcome loop = pdf(rawPdf({catalog, "<< /Type /Pages /Kids [2 0 R] /Count 1 >>"}));
    EXPECT_EQ(loop.error, DocumentError::invalidImage);
    expectBounded(loop, "page tree loop");
    // A page whose parent is itself and whose contents refer to themselves.
    const Outcome selfPage =
        pdf(rawPdf({catalog, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                    "<< /Type /Page /Parent 3 0 R /MediaBox [0 0 200 200] /Contents 3 0 R >>"}));
    expectBounded(selfPage, "self-parented page");
    // Arrays nested 100,000 deep in a page's resources.
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    const Outcome nested = pdf(
        rawPdf({catalog, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Resources << /X " + deep + " >> >>"}));
    expectBounded(nested, "deep nesting");
    EXPECT_TRUE(dir.entries() == std::vector<std::string>{"hostile.pdf"});
}

TEST_F(Hostile, PdfsThatClaimTooMuch) {
    // A page count of a billion over a single page.
    const Outcome count = pdf(rawPdf({catalog, "<< /Type /Pages /Kids [3 0 R] /Count 1000000000 >>",
                                      "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] >>"}));
    expectBounded(count, "huge page count");
    // A media box of a billion points a side, and a negative one.
    const Outcome huge =
        pdf(rawPdf({catalog, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                    "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 1000000000 1000000000] >>"}));
    EXPECT_EQ(huge.error, DocumentError::invalidImage);
    expectBounded(huge, "enormous media box");
    const Outcome negative = pdf(rawPdf({catalog, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                                         "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 -500 -500] >>"}));
    expectBounded(negative, "negative media box");
    // A stream whose declared length runs past the end of the file.
    const Outcome stream =
        pdf(rawPdf({catalog, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                    "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] /Contents 4 0 R >>",
                    "<< /Length 99999999 >>\nstream\nBT ET\nendstream"}));
    expectBounded(stream, "overlong stream");
}

TEST_F(Hostile, MalformedExifIsIgnoredNotFatal) {
    const Bitmap image = patterned(64, 48);
    // IFD entries whose offsets and counts point far outside the block.
    std::vector<std::uint8_t> exif{'I', 'I', 42, 0, 8, 0, 0, 0, 3, 0};
    const std::uint8_t entries[] = {
        0x12, 0x01, 3, 0, 0xFF, 0xFF, 0xFF, 0x7F, 0xF0, 0xFF, 0xFF, 0x7F, // orientation
        0x31, 0x01, 2, 0, 0xFF, 0xFF, 0xFF, 0x0F, 0x00, 0x00, 0x00, 0x70, // software
        0x69, 0x87, 4, 0, 1,    0,    0,    0,    8,    0,    0,    0};   // loop to IFD0
    exif.insert(exif.end(), std::begin(entries), std::end(entries));
    exif.insert(exif.end(), {8, 0, 0, 0}); // next IFD: itself
    const Outcome bad = photo(encodeJpeg(image, false, exif));
    EXPECT_FALSE(bad.error);
    expectBounded(bad, "malformed EXIF");
    std::mt19937 random(5);
    std::vector<std::uint8_t> noise(4000);
    for (auto& byte : noise) {
        byte = static_cast<std::uint8_t>(random());
    }
    noise[0] = 'I', noise[1] = 'I', noise[2] = 42, noise[3] = 0;
    const Outcome random_ = photo(encodeJpeg(image, false, noise));
    expectBounded(random_, "random EXIF");
}

TEST_F(Hostile, MalformedHeifBoxes) {
    auto box = [](const char* type, std::vector<std::uint8_t> body, std::uint32_t declared = 0) {
        const std::uint32_t size = declared ? declared : static_cast<std::uint32_t>(body.size() + 8);
        std::vector<std::uint8_t> out{static_cast<std::uint8_t>(size >> 24),
                                      static_cast<std::uint8_t>(size >> 16),
                                      static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size)};
        out.insert(out.end(), type, type + 4);
        out.insert(out.end(), body.begin(), body.end());
        return out;
    };
    auto file = box("ftyp", {'h', 'e', 'i', 'c', 0, 0, 0, 0, 'm', 'i', 'f', '1', 'h', 'e', 'i', 'c'});
    const auto meta = box("meta", {0, 0, 0, 0, 'x', 'x', 'x'}, 0x7FFFFFF0); // claims 2 GB
    file.insert(file.end(), meta.begin(), meta.end());
    const Outcome huge = photo(file, "huge.heic");
    EXPECT_EQ(huge.error, DocumentError::invalidImage);
    expectBounded(huge, "HEIF box claiming 2 GB");
    // A real HEIC with its item data cut and its boxes scrambled after the header.
    auto heic = encodeHeic({{patterned(64, 64), 1}});
    std::mt19937 random(9);
    for (std::size_t i = 40; i < heic.size(); i += 7) {
        heic[i] = static_cast<std::uint8_t>(random());
    }
    const Outcome scrambled = photo(heic, "scrambled.heic");
    expectBounded(scrambled, "scrambled HEIF");
    // Found by fuzzing: a 32 x 32 image whose grid asks for 26,995 x 26,725 pixels (4 GB before it
    // was refused).
    const Outcome grid = photo(
        readBytes(std::filesystem::path(QUORVEL_TEST_DATA) / "grid-larger-than-declared.heic"), "grid.heic");
    EXPECT_EQ(grid.error, DocumentError::invalidImage);
    expectBounded(grid, "HEIF grid larger than its stated size");
    // A 15 KB image stating 64 x 64 pixels whose coded picture is 8,192 x 8,192 (430 MB to decode).
    const Outcome coded =
        photo(readBytes(std::filesystem::path(QUORVEL_TEST_DATA) / "picture-larger-than-declared.heic"),
              "coded.heic");
    EXPECT_EQ(coded.error, DocumentError::invalidImage);
    EXPECT_LT(coded.peakMiB, 100) << "the coded picture was decoded before it was refused";
    expectBounded(coded, "HEIF picture larger than its stated size");
    // Found by fuzzing: a grid whose one tile is the grid itself (900 MB and the threads run out).
    const Outcome loop =
        photo(readBytes(std::filesystem::path(QUORVEL_TEST_DATA) / "grid-made-of-itself.heic"), "loop.heic");
    EXPECT_EQ(loop.error, DocumentError::invalidImage);
    expectBounded(loop, "HEIF grid made of itself");
}

TEST_F(Hostile, AJpegOfMoreScansThanCamerasWriteIsRefused) {
    const Bitmap image = patterned(64, 48);
    // 1 + 189 x 6 = 1,135 scans: past the limit; 1 + 189 x 5 = 946 scans: a valid file, decoded.
    const Outcome many = photo(encodeManyScanJpeg(image, 5));
    EXPECT_EQ(many.error, DocumentError::invalidImage);
    expectBounded(many, "many scans");
    EXPECT_FALSE(photo(encodeManyScanJpeg(image, 4)).error);
}

TEST_F(Hostile, EveryDamagedByteOfAPhotoEndsCleanly) {
    // A small JPEG and PNG with one stretch of bytes overwritten at every place in turn.
    const Bitmap image = patterned(40, 30);
    const std::vector<std::vector<std::uint8_t>> files{
        encodeJpeg(image, true),
        encodePng(image.width, image.height, PNG_COLOR_TYPE_RGB, 8,
                  std::vector<std::uint8_t>(image.pixels.begin(), image.pixels.end()))};
    for (const auto& original : files) {
        for (std::size_t at = 0; at < original.size(); at += std::max<std::size_t>(1, original.size() / 60)) {
            auto damaged = original;
            for (std::size_t i = at; i < std::min(at + 4, damaged.size()); ++i) {
                damaged[i] ^= 0xA5;
            }
            const Outcome outcome = photo(damaged);
            expectBounded(outcome, "damaged photo");
        }
    }
}
