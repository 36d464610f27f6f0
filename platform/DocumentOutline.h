#pragma once

#include "Bitmap.h"

#include <array>
#include <optional>

namespace platform::DocumentOutline {

// Normalised to the image, origin top-left.
struct Point {
    double x = 0;
    double y = 0;
};

struct Observation {
    float confidence = 0; // 0..1: how much of the outline is backed by a visible edge, less for small shapes
    Point topLeft, topRight, bottomRight, bottomLeft;
};

// The one best four-cornered outline of at least 0.62 confidence, with its shorter side 0.25 to 1.0
// times its longer side, its sides at least 0.18 of the image's smaller dimension and its corners
// within 25 degrees of a right angle; none when there is no such shape.
std::optional<Observation> detect(const Bitmap& image);

// The straightening of an outline in an image of a given size: the size of the corrected bitmap and
// where a pixel of the image (top-left origin) lands in it.
struct Correction {
    int width = 0;
    int height = 0;
    std::array<double, 9> homography{}; // row-major 3 x 3

    Point map(double x, double y) const;
};

// None when the corners do not give a usable rectangle.
std::optional<Correction> correction(int imageWidth, int imageHeight, const Observation& outline);

// Maps the quadrilateral onto an upright rectangle whose sides are its longer opposite sides.
// An empty bitmap when the corners do not give a usable rectangle.
Bitmap correctPerspective(const Bitmap& image, const Observation& outline);

} // namespace platform::DocumentOutline
