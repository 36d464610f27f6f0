#include "DocumentOutline.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

namespace platform::DocumentOutline {
namespace {

constexpr float minimumConfidence = 0.62f;
constexpr double minimumAspectRatio = 0.25;
constexpr double maximumAspectRatio = 1.0;
constexpr double minimumSize = 0.18;
constexpr double quadratureToleranceDegrees = 25.0;
// Outlines are searched on a reduced copy: a card edge is still several pixels wide at this size and
// the search stays within a few tens of milliseconds on a 12 MP photo.
constexpr int workingSide = 640;

using Quad = std::array<cv::Point2f, 4>; // top-left, top-right, bottom-right, bottom-left (top-left origin)

Quad ordered(const std::vector<cv::Point>& corners) {
    Quad quad;
    std::array<cv::Point2f, 4> p;
    for (int i = 0; i < 4; ++i) {
        p[i] = cv::Point2f(static_cast<float>(corners[i].x), static_cast<float>(corners[i].y));
    }
    auto bySum = [](const cv::Point2f& a, const cv::Point2f& b) { return a.x + a.y < b.x + b.y; };
    auto byDiff = [](const cv::Point2f& a, const cv::Point2f& b) { return a.x - a.y < b.x - b.y; };
    quad[0] = *std::min_element(p.begin(), p.end(), bySum);
    quad[2] = *std::max_element(p.begin(), p.end(), bySum);
    quad[1] = *std::max_element(p.begin(), p.end(), byDiff);
    quad[3] = *std::min_element(p.begin(), p.end(), byDiff);
    return quad;
}

double length(cv::Point2f a, cv::Point2f b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

bool anglesNearRight(const Quad& q) {
    for (int i = 0; i < 4; ++i) {
        const cv::Point2f a = q[(i + 3) % 4] - q[i];
        const cv::Point2f b = q[(i + 1) % 4] - q[i];
        const double cosine = (a.x * b.x + a.y * b.y) / (std::hypot(a.x, a.y) * std::hypot(b.x, b.y) + 1e-9);
        const double degrees = std::acos(std::clamp(cosine, -1.0, 1.0)) * 180.0 / std::numbers::pi;
        if (std::abs(degrees - 90.0) > quadratureToleranceDegrees) {
            return false;
        }
    }
    return true;
}

// How well the four sides follow visible edges: the share of points along them that lie on an edge
// pixel, discounted where the points a few pixels to either side are edges too, as in texture or
// noise, where any line would find edges.
float edgeSupport(const Quad& q, const cv::Mat& edges) {
    constexpr int samplesPerSide = 64;
    constexpr float besideDistance = 6; // pixels of the reduced copy
    auto edgeAt = [&](cv::Point2f p) {
        const int x = static_cast<int>(std::lround(p.x));
        const int y = static_cast<int>(std::lround(p.y));
        return x >= 0 && y >= 0 && x < edges.cols && y < edges.rows && edges.at<std::uint8_t>(y, x) != 0;
    };
    float support = 0;
    for (int side = 0; side < 4; ++side) {
        const cv::Point2f a = q[side];
        const cv::Point2f b = q[(side + 1) % 4];
        const cv::Point2f along = b - a;
        const float length = std::hypot(along.x, along.y);
        if (length <= 0) {
            continue;
        }
        const cv::Point2f normal(-along.y / length * besideDistance, along.x / length * besideDistance);
        for (int s = 0; s < samplesPerSide; ++s) {
            // Skip the corners themselves, where rounded card corners leave the straight outline.
            const float t = (s + 0.5f) / samplesPerSide * 0.9f + 0.05f;
            const cv::Point2f p = a + along * t;
            if (edgeAt(p)) {
                support += 1.0f - 0.5f * (static_cast<float>(edgeAt(p + normal)) +
                                          static_cast<float>(edgeAt(p - normal)));
            }
        }
    }
    return support / (4 * samplesPerSide);
}

cv::Mat wrap(const Bitmap& image) {
    return cv::Mat(image.height, image.width, CV_8UC3, const_cast<std::uint8_t*>(image.pixels.data()),
                   image.rowBytes());
}

} // namespace

std::optional<Observation> detect(const Bitmap& image) {
    if (image.empty()) {
        return std::nullopt;
    }
    const double scale =
        std::min(1.0, static_cast<double>(workingSide) / std::max(image.width, image.height));
    cv::Mat small;
    cv::resize(wrap(image), small, cv::Size(), scale, scale, cv::INTER_AREA);
    // Edges of each colour channel together: a blue band on a brown table has the same brightness
    // and would vanish in grey.
    std::vector<cv::Mat> channels;
    cv::split(small, channels);
    cv::Mat edges;
    for (cv::Mat& channel : channels) {
        cv::GaussianBlur(channel, channel, cv::Size(5, 5), 0);
        // Thresholds follow the picture's own contrast (the usual 0.66/1.33 of the median rule).
        std::vector<std::uint8_t> values(channel.begin<std::uint8_t>(), channel.end<std::uint8_t>());
        std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
        const double median = values[values.size() / 2];
        cv::Mat channelEdges;
        cv::Canny(channel, channelEdges, std::max(10.0, 0.66 * median),
                  std::max(30.0, std::min(255.0, 1.33 * median)));
        edges = edges.empty() ? channelEdges : (edges | channelEdges);
    }
    cv::dilate(edges, edges, cv::Mat(), cv::Point(-1, -1), 1);

    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(edges, contours, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE);

    const double smallerSide = std::min(small.cols, small.rows);
    std::optional<Observation> best;
    double bestArea = 0;
    for (const auto& contour : contours) {
        std::vector<cv::Point> hull;
        cv::convexHull(contour, hull);
        std::vector<cv::Point> corners;
        cv::approxPolyDP(hull, corners, 0.02 * cv::arcLength(hull, true), true);
        if (corners.size() != 4) {
            continue;
        }
        const double area = cv::contourArea(corners);
        const Quad q = ordered(corners);
        const double top = length(q[0], q[1]), bottom = length(q[3], q[2]);
        const double left = length(q[0], q[3]), right = length(q[1], q[2]);
        const double widthSide = (top + bottom) / 2, heightSide = (left + right) / 2;
        const double shorter = std::min(widthSide, heightSide), longer = std::max(widthSide, heightSide);
        if (longer <= 0 || shorter / longer < minimumAspectRatio || shorter / longer > maximumAspectRatio) {
            continue;
        }
        if (std::min({top, bottom, left, right}) < minimumSize * smallerSide || !anglesNearRight(q)) {
            continue;
        }
        // A document photographed with a margin covers a third of the frame or more; a rectangle that
        // covers little of it is more likely a portrait or a code printed on a scanned card, and must
        // not be mistaken for the card's own outline.
        constexpr double documentShare = 0.3;
        const double share = area / (static_cast<double>(small.cols) * small.rows);
        const float confidence =
            edgeSupport(q, edges) * static_cast<float>(std::min(1.0, share / documentShare));
        if (confidence < minimumConfidence || area <= bestArea) {
            continue;
        }
        bestArea = area;
        auto normalised = [&](cv::Point2f p) { return Point{p.x / small.cols, p.y / small.rows}; };
        best =
            Observation{confidence, normalised(q[0]), normalised(q[1]), normalised(q[2]), normalised(q[3])};
    }
    return best;
}

Point Correction::map(double x, double y) const {
    const auto& h = homography;
    const double w = h[6] * x + h[7] * y + h[8];
    return Point{(h[0] * x + h[1] * y + h[2]) / w, (h[3] * x + h[4] * y + h[5]) / w};
}

std::optional<Correction> correction(int imageWidth, int imageHeight, const Observation& outline) {
    const double W = imageWidth;
    const double H = imageHeight;
    auto pixel = [&](Point p) {
        return cv::Point2f(static_cast<float>(p.x * W), static_cast<float>(p.y * H));
    };
    const Quad q{pixel(outline.topLeft), pixel(outline.topRight), pixel(outline.bottomRight),
                 pixel(outline.bottomLeft)};
    const int width = static_cast<int>(std::lround(std::max(length(q[0], q[1]), length(q[3], q[2]))));
    const int height = static_cast<int>(std::lround(std::max(length(q[0], q[3]), length(q[1], q[2]))));
    if (width < 1 || height < 1 || width > 20000 || height > 20000) {
        return std::nullopt;
    }
    const std::array<cv::Point2f, 4> target{
        cv::Point2f(0, 0), cv::Point2f(static_cast<float>(width), 0),
        cv::Point2f(static_cast<float>(width), static_cast<float>(height)),
        cv::Point2f(0, static_cast<float>(height))};
    const cv::Mat transform = cv::getPerspectiveTransform(q.data(), target.data());
    Correction result{width, height, {}};
    for (int i = 0; i < 9; ++i) {
        result.homography[static_cast<std::size_t>(i)] = transform.at<double>(i / 3, i % 3);
    }
    return result;
}

Bitmap correctPerspective(const Bitmap& image, const Observation& outline) {
    const std::optional<Correction> c = correction(image.width, image.height, outline);
    if (!c) {
        return {};
    }
    const cv::Mat transform(3, 3, CV_64F, const_cast<double*>(c->homography.data()));
    Bitmap out(c->width, c->height);
    cv::Mat destination(c->height, c->width, CV_8UC3, out.pixels.data(), out.rowBytes());
    cv::warpPerspective(wrap(image), destination, transform, destination.size(), cv::INTER_LINEAR,
                        cv::BORDER_REPLICATE);
    return out;
}

} // namespace platform::DocumentOutline
