#pragma once

// Where the text lines of a page are, and which way up the page is, from two small neural networks
// run through OpenCV: PaddleOCR's PP-OCRv4 text detector (a DB network) and its text-direction
// classifier, converted by tools/models/ and installed with the program. Internal to the platform
// layer: recognition reads each line found here on its own.

#include "Bitmap.h"
#include "Recognition.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace platform::TextDetector {

// The text lines of an RGB page as rotated rectangles in its pixels, in reading order (top to bottom,
// then left to right). `side` is the size the page's longer side is brought to for the network.
// The last few pages' lines are remembered (by their pixels), so that a page searched again costs
// nothing. Throws RecognitionError when the model is missing.
std::vector<cv::RotatedRect> lines(const cv::Mat& rgb, int side);

// Quarter turns clockwise that bring the page upright (0 to 3), its lines searched at `side`: lines
// standing on end tell a page turned by 90 degrees, the direction classifier read on the longest lines
// tells upside down.
int uprightTurns(const cv::Mat& page, int side);

// The slant of an upright page's lines, searched at `side`: degrees by which they fall to the right
// (rise, when negative), as most of its print agrees; 0 under a degree or without agreement.
double skewDegrees(const cv::Mat& page, int side);

// The image turned by quarter turns clockwise.
Bitmap turned(const Bitmap& image, int quarterTurns);

// The turn that levels a page of the given size whose lines fall by `degrees`, and the page so turned.
Recognition::Levelling levelling(int width, int height, double degrees);
Bitmap levelled(const Bitmap& image, double degrees);

// The middle value of a non-empty list (the upper of the two middle ones).
template <typename T> T median(std::vector<T> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

// A detected line's height: the shorter side of its rectangle.
double shortSide(const cv::RotatedRect& line);

// A model file installed beside the program (share/quorvel/models) or in the build tree. Throws
// RecognitionError when it is in neither.
std::filesystem::path modelFile(const std::string& name);

// A line cut out of the page and laid level: the crop and where its pixels came from.
struct LevelLine {
    cv::Mat image;
    cv::Mat toPage; // 2 x 3 affine map from the crop's pixels into the page's
};
LevelLine level(const cv::Mat& page, const cv::RotatedRect& line);

// Whether level() lays a line standing on end (print running up or down an upright page, as a
// number printed beside a portrait) upside down: which end it starts from is a matter of the
// rectangle's corners, and the direction classifier tells. Lines across the page are never judged
// here: the page as a whole was turned upright.
bool levelsUpsideDown(const cv::Mat& page, const cv::RotatedRect& line);

// A level line turned half round, its map into the page kept true.
LevelLine turnedOver(const LevelLine& line);

// The runs of rows of a grey line image that hold print, top to bottom, each as [first, end): rows
// where at least a two-hundredth of the width (2 pixels at least) is darker than Otsu's threshold, so
// that a few descenders or accents count and a margin of faint ground does not.
std::vector<std::pair<int, int>> inkRuns(const cv::Mat& grey);

// The printed lines inside a detected one: large type set tight can reach the detector as one region
// of several lines, which a line reader cannot read. Such a region is cut between its lines of ink;
// any other comes back as it is.
std::vector<cv::RotatedRect> printedLines(const cv::Mat& page, const cv::RotatedRect& line);

// A run of evenly spaced marks of one size, in dark ink, standing apart from every line the detector
// found: a number printed character by character with wide gaps (up a passport page beside its
// portrait, say), which the detector, trained on words, does not see at all.
struct SpacedRun {
    cv::Rect box;  // around its marks, in the page's pixels
    cv::Mat image; // its marks turned level and set side by side, grey, in order along the run
};
std::vector<SpacedRun> spacedRuns(const cv::Mat& page, const std::vector<cv::RotatedRect>& lines);

} // namespace platform::TextDetector
