#include "Lettering.h"

#include "PlatformError.h"

#include <opencv2/freetype.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace platform::Lettering {
namespace {

// Debian's DejaVu Sans covers Latin, Greek, Cyrillic, Hebrew and Arabic; other scripts draw as boxes.
constexpr const char* fontFile = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf";
constexpr double angle = 30;     // degrees, rising left to right
constexpr double opacity = 0.38; // the page stays readable beneath
constexpr double colour[3] = {185, 25, 35};

} // namespace

void repeatAcross(Bitmap& page, const std::string& line) {
    if (page.empty() || line.empty()) {
        return;
    }
    if (!std::filesystem::exists(fontFile)) {
        throw CodecError(std::string("the font for the copy mark is missing: ") + fontFile);
    }
    cv::Ptr<cv::freetype::FreeType2> font = cv::freetype::createFreeType2();
    font->loadFontData(fontFile, 0);
    const int shorter = std::min(page.width, page.height);
    const int pageHeight = std::max(10, shorter / 18);
    const int pageGap = std::max(pageHeight * 2, shorter / 4);
    const std::string unit = line + "     ";

    // Rows drawn level on a square that covers the page at any turn, then turned onto it; drawn at most
    // `drawingSide` pixels across and enlarged with the turn, so that a large photo costs no more.
    constexpr double drawingSide = 2400;
    const double full = std::ceil(std::hypot(page.width, page.height)) + 2.0 * pageHeight;
    const double scale = std::min(1.0, drawingSide / full);
    const int side = static_cast<int>(std::ceil(full * scale));
    cv::Mat ink(side, side, CV_8UC3, cv::Scalar::all(0));
    const int height = std::max(6, static_cast<int>(std::lround(pageHeight * scale)));
    const int rowGap = std::max(1, static_cast<int>(std::lround(pageGap * scale)));
    int baseline = 0;
    const int unitWidth = std::max(1, font->getTextSize(unit, height, -1, &baseline).width);
    int row = 0;
    for (int y = height; y < side + height; y += rowGap, ++row) {
        // Alternate rows start half a unit in, so that the gaps between repeats do not line up.
        for (int x = -(row % 2) * unitWidth / 2; x < side; x += unitWidth) {
            font->putText(ink, unit, cv::Point(x, y), height, cv::Scalar::all(255), -1, cv::LINE_AA, true);
        }
    }
    cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(side / 2.0f, side / 2.0f), angle, 1.0 / scale);
    turn.at<double>(0, 2) += page.width / 2.0 - side / 2.0;
    turn.at<double>(1, 2) += page.height / 2.0 - side / 2.0;
    cv::Mat placed;
    cv::warpAffine(ink, placed, turn, cv::Size(page.width, page.height), cv::INTER_LINEAR,
                   cv::BORDER_CONSTANT);
    for (int y = 0; y < page.height; ++y) {
        const std::uint8_t* coverage = placed.ptr<std::uint8_t>(y);
        std::uint8_t* pixel = page.row(y);
        for (int x = 0; x < page.width; ++x) {
            const double a = opacity * coverage[x * 3] / 255.0;
            for (int c = 0; c < 3; ++c) {
                pixel[x * 3 + c] =
                    static_cast<std::uint8_t>(std::lround(pixel[x * 3 + c] * (1 - a) + colour[c] * a));
            }
        }
    }
}

} // namespace platform::Lettering
