#pragma once

// A reader made for the lines of a machine-readable zone: their font (OCR-B) is monospaced and their
// lengths are fixed, so a line is cut into as many cells as it has characters, and each cell is told
// by its nearest neighbours among glyphs rendered from the font with noise, blur, tilt and background
// patterns (tools/models/zone_glyphs.cpp makes them at build time). Internal to the platform layer.

#include <opencv2/core.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::ZoneReader {

// The zone's alphabet; a glyph's class is its position here.
inline constexpr std::string_view alphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ<";
// A cell as the classifier sees it, in pixels.
constexpr int cellWidth = 12;
constexpr int cellHeight = 16;

// A zone line cut into cells: where its characters stand in the level line's pixels.
struct Cells {
    cv::Mat ink;               // the line's ink, bright on black, background patterns removed
    std::vector<cv::Rect> box; // one per character, left to right
};

// Ink of a level grey line: dark strokes thinner than the line's height, bright on black, whatever
// the paper's shade or pattern behind them.
cv::Mat inkOf(const cv::Mat& grey);

// The `length` cells of a level grey line of a zone, from the pitch of its characters; none when the
// line holds too few glyphs to find it.
std::optional<Cells> cut(const cv::Mat& grey, int length);

// What the classifier compares: the cell's ink scaled to cellWidth x cellHeight, centred on its
// strokes, as bytes (0 none, 255 full ink).
std::vector<std::uint8_t> features(const Cells& cells, std::size_t index);

// A line as read: its characters, each with its cell in the level line's pixels and how sure the
// classifier is (0..1, the share of neighbours that agree).
struct Reading {
    std::string text;
    std::vector<cv::Rect> cells;
    std::vector<float> confidence;
};

// Reads a level grey line of `length` characters. Throws RecognitionError when the glyph model is
// missing.
std::optional<Reading> read(const cv::Mat& grey, int length);

} // namespace platform::ZoneReader
