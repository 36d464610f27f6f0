#include "DocumentTypes.h"
#include "ImagePipeline.h"
#include "TestImages.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace testing_support;

namespace {

const RedactionPolicy defaults;

CopyMark mark(std::string purpose = "for the rental contract, Flat 3") {
    return CopyMark{"COPY", std::move(purpose), "2026-11-23"};
}

// Pixels of `marked` that differ from `plain` in each cell of a grid of cells × cells.
std::vector<int> changedPerCell(const Bitmap& plain, const Bitmap& marked, int cells) {
    std::vector<int> changed(static_cast<std::size_t>(cells * cells), 0);
    for (int y = 0; y < plain.height; ++y) {
        for (int x = 0; x < plain.width; ++x) {
            if (std::memcmp(plain.at(x, y), marked.at(x, y), 3) != 0) {
                ++changed[static_cast<std::size_t>(y * cells / plain.height * cells +
                                                   x * cells / plain.width)];
            }
        }
    }
    return changed;
}

} // namespace

TEST(CopyMark, TheLineSaysWhatTheCopyIsAndNothingElse) {
    EXPECT_EQ(mark().line(), "COPY · for the rental contract, Flat 3 · 2026-11-23");
    EXPECT_EQ(mark("").line(), "COPY · 2026-11-23");
    EXPECT_EQ(ImagePipeline::copyWord("de"), "KOPIE");
    EXPECT_EQ(ImagePipeline::copyWord("ru"), "КОПИЯ");
    EXPECT_EQ(ImagePipeline::copyWord("el"), "ΑΝΤΙΓΡΑΦΟ");
    EXPECT_EQ(ImagePipeline::copyWord("zh"), "COPY");
}

TEST(CopyMark, EverySixteenthOfTheCopyCarriesPartOfTheMark) {
    // Landscape card, portrait page and a small photo: no crop keeps a clean area of any size.
    for (const auto& [width, height] :
         std::vector<std::pair<int, int>>{{1000, 630}, {600, 850}, {320, 200}}) {
        const Bitmap plain(width, height, 255);
        const Bitmap marked = ImagePipeline::render(plain, {}, defaults, mark());
        for (int changed : changedPerCell(plain, marked, 4)) {
            EXPECT_GT(changed, 0) << width << "x" << height;
        }
        // Semi-transparent: nothing is painted solid, so the document stays readable beneath.
        const Bitmap black(width, height, 0);
        const Bitmap darkMarked = ImagePipeline::render(black, {}, defaults, mark());
        int brightest = 0;
        for (std::uint8_t value : darkMarked.pixels) {
            brightest = std::max(brightest, static_cast<int>(value));
        }
        EXPECT_GT(brightest, 0);
        EXPECT_LT(brightest, 128);
    }
}

TEST(CopyMark, MasksStayPureBlackOnTop) {
    const Bitmap plain(800, 500, 255);
    const RedactionRegion region{FieldKind::number, Rect{0.1, 0.1, 0.8, 0.8}, Uuid::random(),
                                 FieldEvidence::format};
    const Bitmap out = ImagePipeline::render(plain, {region}, defaults, mark());
    for (int y = 60; y < 440; ++y) {
        for (int x = 90; x < 710; ++x) {
            const std::uint8_t* p = out.at(x, y);
            ASSERT_TRUE(p[0] == 0 && p[1] == 0 && p[2] == 0) << x << "," << y;
        }
    }
    // Outside the mask the mark is there.
    EXPECT_GT(changedPerCell(plain, out, 1)[0], 800 * 500 - 620 * 380);
}

TEST(CopyMark, AnyPurposeIsWrittenWithoutHarm) {
    const Bitmap plain(640, 400, 255);
    for (const std::string& purpose :
         {std::string(200, 'W'), std::string("לחוזה השכירות"), std::string("لعقد الإيجار"),
          std::string("租赁合同用"), std::string("賃貸契約のため"), std::string()}) {
        const Bitmap out = ImagePipeline::render(plain, {}, defaults, mark(purpose));
        EXPECT_EQ(out.width, 640);
        for (int changed : changedPerCell(plain, out, 2)) {
            EXPECT_GT(changed, 0) << purpose;
        }
    }
}

TEST(CopyMark, TheMarkIsTheSameWhateverTheDocumentShows) {
    // Drawn from the mark alone: a page with a printed block gets, around the block, exactly the
    // pixels a blank page gets.
    const Bitmap blank(500, 320, 255);
    Bitmap printed = blank;
    for (int y = 100; y < 200; ++y) {
        std::memset(printed.row(y) + 150 * 3, 40, 200 * 3);
    }
    const Bitmap a = ImagePipeline::render(blank, {}, defaults, mark());
    const Bitmap b = ImagePipeline::render(printed, {}, defaults, mark());
    for (int y = 0; y < 320; ++y) {
        for (int x = 0; x < 500; ++x) {
            if (x >= 150 && x < 350 && y >= 100 && y < 200) {
                continue;
            }
            ASSERT_EQ(std::memcmp(a.at(x, y), b.at(x, y), 3), 0) << x << "," << y;
        }
    }
}
