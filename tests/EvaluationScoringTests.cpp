#include "Evaluation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

// A 200 × 200 white image with a black diamond (a square turned 45°) centred at (100, 100).
Bitmap diamond() {
    Bitmap image(200, 200);
    for (int y = 0; y < 200; ++y) {
        for (int x = 0; x < 200; ++x) {
            if (std::abs(x + 0.5 - 100) + std::abs(y + 0.5 - 100) <= 52) {
                std::memset(image.row(y) + static_cast<std::size_t>(x) * 3, 0, 3);
            }
        }
    }
    return image;
}

const auto identity = [](double x, double y) { return std::pair{x * 200, y * 200}; };

} // namespace

TEST(EvaluationScoring, ATiltedFieldIsMeasuredWithinItsCornersNotItsBoundingBox) {
    const Bitmap painted = diamond(), source(200, 200);
    const nlohmann::json tilted =
        nlohmann::json::parse(R"([{"kind": "number", "x": 0.25, "y": 0.25, "width": 0.5,
        "height": 0.5, "corners": [[0.5, 0.25], [0.75, 0.5], [0.5, 0.75], [0.25, 0.5]]}])");
    cli::EvaluationReport withCorners;
    withCorners.score("a", tilted, painted, source, identity);
    EXPECT_EQ(withCorners.kinds["number"].masked, 1);
    EXPECT_LT(withCorners.overMasking(), 0.1); // the paint reaches 2 px past the field on every side

    // The same field given by its box alone is only half black, and the corners of the box are not
    // painted, so nothing counts as over-masking.
    nlohmann::json boxOnly = tilted;
    boxOnly[0].erase("corners");
    cli::EvaluationReport withBox;
    withBox.score("a", boxOnly, painted, source, identity);
    EXPECT_EQ(withBox.kinds["number"].masked, 0);
    ASSERT_EQ(withBox.misses.size(), 1u);
    EXPECT_EQ(withBox.misses[0].rfind("a: number (", 0), 0u);
}

TEST(EvaluationScoring, PaintOutsideEveryFieldIsOverMaskingAndBlackInTheSourceIsNot) {
    const Bitmap painted = diamond();
    const nlohmann::json none = nlohmann::json::array();
    cli::EvaluationReport report;
    report.score("a", none, painted, Bitmap(200, 200), identity);
    EXPECT_DOUBLE_EQ(report.overMasking(), 1.0);

    // Black that was already in the photo is not paint.
    cli::EvaluationReport unchanged;
    unchanged.score("a", none, painted, painted, identity);
    EXPECT_EQ(unchanged.painted, 0);
}

TEST(EvaluationScoring, MalformedCornersFallBackToTheBoxAndStrayEntriesAreIgnored) {
    const Bitmap painted = diamond(), source(200, 200);
    const nlohmann::json fields = nlohmann::json::parse(R"([
        {"kind": "face", "x": 0.45, "y": 0.45, "width": 0.1, "height": 0.1, "corners": [[0, 0], "x", [1], 3]},
        "not a field", 7,
        {"kind": "face", "x": 0.0, "y": 0.0, "width": 0.1, "height": 0.1, "corners": [[0, 0], [0.1, 0]]}])");
    cli::EvaluationReport report;
    report.score("a", fields, painted, source, identity);
    EXPECT_EQ(report.kinds["face"].fields, 2);
    EXPECT_EQ(report.kinds["face"].masked, 1);
}
