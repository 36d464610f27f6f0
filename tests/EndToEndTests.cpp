// The whole pipeline on documents drawn in the test: load, recognise, detect, render.

#include "DrawnDocuments.h"
#include "ImageDecoder.h"
#include "ImagePipeline.h"
#include "TestImages.h"

#include <QGuiApplication>
#include <gtest/gtest.h>

using namespace testing_support;

namespace {

const RedactionPolicy hideEverything{true, true, true, true};

// Share of the field's pixels that are pure black after masking: of its ink for printed text (the
// blanks between masked words carry nothing), of its whole box for pictures and codes.
double coverage(const Bitmap& original, const Bitmap& image, const DrawnField& field) {
    const Rect& box = field.box;
    const bool text = !field.text.empty();
    const int x0 = static_cast<int>(box.x * image.width), x1 = static_cast<int>((box.x + box.width) * image.width);
    const int y0 = static_cast<int>(box.y * image.height), y1 = static_cast<int>((box.y + box.height) * image.height);
    std::size_t black = 0, all = 0;
    for (int y = std::max(y0, 0); y < std::min(y1, image.height); ++y) {
        for (int x = std::max(x0, 0); x < std::min(x1, image.width); ++x) {
            const std::uint8_t* ink = original.at(x, y);
            if (text && ink[0] + ink[1] + ink[2] > 3 * 128) {
                continue;
            }
            const std::uint8_t* p = image.at(x, y);
            black += p[0] == 0 && p[1] == 0 && p[2] == 0;
            ++all;
        }
    }
    return all ? static_cast<double>(black) / all : 0;
}

// The stored pixels that a viewer turns into `upright` under each EXIF orientation.
const int inverseOrientation[9] = {0, 1, 2, 3, 4, 5, 8, 7, 6};

class EndToEnd : public ::testing::Test {
protected:
    Bitmap redact(const Bitmap& upright, int orientation, Analysis* analysis = nullptr) {
        const Bitmap stored = platform::ImageDecoder::applyOrientation(upright, inverseOrientation[orientation]);
        writeBytes(dir / "card.jpg", encodeJpeg(stored, false, exifBlock(orientation, std::nullopt)));
        const LoadedDocument document = ImagePipeline::load(dir / "card.jpg");
        EXPECT_EQ(document.image.width, upright.width) << orientation;
        const Analysis result = ImagePipeline::analyze(document);
        if (analysis) {
            *analysis = result;
        }
        return ImagePipeline::render(document.image, result.regions, hideEverything);
    }

    TempDir dir;
};

} // namespace

TEST_F(EndToEnd, EveryPersonalFieldOfABilingualCardIsMasked) {
    const DrawnDocument card = bilingualCard();
    Analysis analysis;
    const Bitmap cleaned = redact(card.image, 1, &analysis);
    for (const DrawnField& field : card.fields) {
        EXPECT_GE(coverage(card.image, cleaned, field), 0.98) << rawValue(field.kind) << " " << field.text;
    }
    EXPECT_EQ(analysis.country.code, "FRA");
    // "IDENTITY CARD" is printed; a zone read well enough to show "P<" would make it a passport.
    EXPECT_TRUE(analysis.documentType == "ID-карта" || analysis.documentType == "Паспорт") << analysis.documentType;
}

TEST_F(EndToEnd, EveryExifOrientationGivesTheSameMasks) {
    const DrawnDocument card = bilingualCard();
    for (int orientation = 2; orientation <= 8; ++orientation) {
        const Bitmap cleaned = redact(card.image, orientation);
        for (const DrawnField& field : card.fields) {
            if (field.kind != FieldKind::personName) {
                EXPECT_GE(coverage(card.image, cleaned, field), 0.98)
                    << "orientation " << orientation << ": " << rawValue(field.kind) << " " << field.text;
            }
        }
    }
}

TEST_F(EndToEnd, ThePortraitIsFoundAndMasked) {
    const auto portrait = testPortrait();
    if (!portrait) {
        GTEST_SKIP() << "no freely licensed test portrait installed (tools/bootstrap.sh extracts it from Debian's "
                        "python3-skimage package into build-data/)";
    }
    const DrawnDocument card = bilingualCard(portrait);
    Analysis analysis;
    const Bitmap cleaned = redact(card.image, 1, &analysis);
    const auto face = std::find_if(card.fields.begin(), card.fields.end(),
                                   [](const DrawnField& f) { return f.kind == FieldKind::face; });
    ASSERT_NE(face, card.fields.end());
    // The mask covers the face, not the whole photo: at least a fifth of the portrait's box.
    EXPECT_GE(coverage(card.image, cleaned, *face), 0.2);
    const auto faces = std::count_if(analysis.regions.begin(), analysis.regions.end(),
                                     [](const RedactionRegion& r) { return r.kind == FieldKind::face; });
    EXPECT_EQ(faces, 1);
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
