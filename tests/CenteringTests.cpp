#include "ImagePipeline.h"
#include "TestImages.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cstring>
#include <random>

namespace {

constexpr int cardWidth = 856, cardHeight = 540; // ID-1 proportions

// A light card with dark text-like bars, warped onto a darker, slightly noisy table.
Bitmap photographedCard(int width, int height, const std::array<cv::Point2f, 4>& corners, int seed = 1) {
    cv::Mat card(cardHeight, cardWidth, CV_8UC3, cv::Scalar(235, 230, 220));
    for (int i = 0; i < 8; ++i) {
        cv::rectangle(card, {300, 60 + i * 55}, {300 + 200 + (i * 37) % 300, 85 + i * 55},
                      cv::Scalar(40, 40, 60), cv::FILLED);
    }
    cv::rectangle(card, {40, 60}, {250, 330}, cv::Scalar(150, 140, 130), cv::FILLED);
    const std::array<cv::Point2f, 4> source{cv::Point2f(0, 0), cv::Point2f(cardWidth, 0),
                                            cv::Point2f(cardWidth, cardHeight), cv::Point2f(0, cardHeight)};
    cv::Mat table(height, width, CV_8UC3, cv::Scalar(70, 60, 55));
    std::mt19937 noise(static_cast<unsigned>(seed));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            table.at<cv::Vec3b>(y, x)[0] = static_cast<std::uint8_t>(60 + noise() % 20);
        }
    }
    cv::warpPerspective(card, table, cv::getPerspectiveTransform(source.data(), corners.data()), table.size(),
                        cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
    Bitmap image(width, height);
    std::memcpy(image.pixels.data(), table.data, image.pixels.size());
    return image;
}

bool isCardColour(const Bitmap& image, int x, int y) {
    const std::uint8_t* p = image.at(x, y);
    return p[0] > 180 && p[1] > 180 && p[2] > 170;
}

} // namespace

TEST(Centering, ASkewedCardWithAMarginIsStraightenedToItsOwnSize) {
    // About 10% of the frame around the card, corners pulled unevenly as by a tilted camera.
    const std::array<cv::Point2f, 4> corners{cv::Point2f(150, 120), cv::Point2f(1030, 170),
                                             cv::Point2f(1000, 700), cv::Point2f(130, 660)};
    const auto centered = ImagePipeline::centerDocument(photographedCard(1200, 820, corners));
    ASSERT_TRUE(centered.result.applied);
    EXPECT_GE(centered.result.confidence, 0.62f);
    EXPECT_LE(centered.result.confidence, 1.0f);
    const Bitmap& out = centered.image;
    // The longer opposite sides: top 881, bottom 870; left 540, right 531.
    EXPECT_NEAR(out.width, 881, 18);
    EXPECT_NEAR(out.height, 541, 18);
    // Just inside each corner is card, not table.
    for (auto [x, y] : {std::pair{12, 12},
                        {out.width - 13, 12},
                        {12, out.height - 13},
                        {out.width - 13, out.height - 13}}) {
        EXPECT_TRUE(isCardColour(out, x, y)) << x << "," << y;
    }
}

TEST(Centering, ACardThatFillsTheFrameIsLeftAlone) {
    // A flat scan: card edges within a few pixels of the borders.
    const std::array<cv::Point2f, 4> corners{cv::Point2f(3, 3), cv::Point2f(877, 3), cv::Point2f(877, 557),
                                             cv::Point2f(3, 557)};
    const Bitmap scan = photographedCard(880, 560, corners);
    const auto centered = ImagePipeline::centerDocument(scan);
    EXPECT_FALSE(centered.result.applied);
    EXPECT_EQ(centered.image, scan);
}

TEST(Centering, ACornerInsideTheMarginBandIsNotEnough) {
    // One corner 1% from the left border (the band is 1.8%), the rest well inside.
    const std::array<cv::Point2f, 4> corners{cv::Point2f(12, 120), cv::Point2f(1030, 140),
                                             cv::Point2f(1020, 700), cv::Point2f(140, 680)};
    const auto centered = ImagePipeline::centerDocument(photographedCard(1200, 820, corners));
    EXPECT_FALSE(centered.result.applied);
}

TEST(Centering, NoFourCorneredShapeGivesZeroConfidence) {
    Bitmap noise(900, 600);
    std::mt19937 random(3);
    for (auto& byte : noise.pixels) {
        byte = static_cast<std::uint8_t>(random() % 256);
    }
    const auto centered = ImagePipeline::centerDocument(noise);
    EXPECT_EQ(centered.result, (CenteringResult{false, 0}));
    Bitmap plain(900, 600, 128);
    EXPECT_EQ(ImagePipeline::centerDocument(plain).result, (CenteringResult{false, 0}));
}

TEST(Centering, AStripTooNarrowForACardIsIgnored) {
    // Aspect ratio 0.2: below the 0.25 that any document has.
    const std::array<cv::Point2f, 4> corners{cv::Point2f(100, 300), cv::Point2f(1100, 300),
                                             cv::Point2f(1100, 500), cv::Point2f(100, 500)};
    const auto centered = ImagePipeline::centerDocument(photographedCard(1200, 820, corners));
    EXPECT_FALSE(centered.result.applied);
}
