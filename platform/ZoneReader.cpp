#include "ZoneReader.h"

#include "Recognition.h"
#include "TextDetector.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <mutex>

namespace platform::ZoneReader {
namespace {

// The model file: "QZG1", the sample count and the features' length as 32-bit little-endian
// integers, then each sample's class (one byte) and its features.
constexpr std::array<char, 4> magic{'Q', 'Z', 'G', '1'};
// Neighbours that vote on a cell.
constexpr int neighbours = 5;

struct Model {
    cv::Mat samples; // one row of features per sample, as floats
    cv::Mat squares; // each sample's squared length
    std::vector<std::uint8_t> classes;
};

const Model& model() {
    static Model loaded;
    static std::once_flag once;
    std::call_once(once, [] {
        const auto file = TextDetector::modelFile("zone-glyphs.bin");
        std::ifstream in(file, std::ios::binary);
        std::array<char, 4> head{};
        std::uint32_t count = 0, length = 0;
        in.read(head.data(), head.size());
        in.read(reinterpret_cast<char*>(&count), sizeof count);
        in.read(reinterpret_cast<char*>(&length), sizeof length);
        if (!in || head != magic || length != cellWidth * cellHeight || count == 0 || count > 1'000'000) {
            throw Recognition::RecognitionError("zone glyph model " + file.string() + " is not readable");
        }
        loaded.classes.resize(count);
        cv::Mat bytes(static_cast<int>(count), static_cast<int>(length), CV_8U);
        in.read(reinterpret_cast<char*>(loaded.classes.data()), count);
        in.read(reinterpret_cast<char*>(bytes.data), static_cast<std::streamsize>(bytes.total()));
        if (!in) {
            throw Recognition::RecognitionError("zone glyph model " + file.string() + " is truncated");
        }
        bytes.convertTo(loaded.samples, CV_32F);
        cv::reduce(loaded.samples.mul(loaded.samples), loaded.squares, 1, cv::REDUCE_SUM);
    });
    return loaded;
}

// Rows of the line's ink: the run around the row with most ink, where rows hold at least a quarter of
// that; neighbouring lines caught in the margins fall outside it.
std::pair<int, int> inkRows(const cv::Mat& binary) {
    cv::Mat counts;
    cv::reduce(binary, counts, 1, cv::REDUCE_SUM, CV_32S);
    cv::Point peak;
    double most = 0;
    cv::minMaxLoc(counts, nullptr, &most, nullptr, &peak);
    const double floor = 0.25 * most;
    int top = peak.y, bottom = peak.y;
    while (top > 0 && counts.at<int>(top - 1) >= floor) {
        --top;
    }
    while (bottom + 1 < counts.rows && counts.at<int>(bottom + 1) >= floor) {
        ++bottom;
    }
    return {top, bottom + 1};
}

// A glyph on the line: the horizontal extent of one or more strokes.
struct Glyph {
    int left;
    int right;
    double centre() const { return (left + right) / 2.0; }
};

std::vector<Glyph> glyphs(const cv::Mat& binary, int top, int bottom) {
    const int height = bottom - top;
    cv::Mat labels, stats, centroids;
    const int count = cv::connectedComponentsWithStats(binary, labels, stats, centroids, 8, CV_32S);
    std::vector<Glyph> found;
    for (int i = 1; i < count; ++i) {
        const int x = stats.at<int>(i, cv::CC_STAT_LEFT), y = stats.at<int>(i, cv::CC_STAT_TOP);
        const int w = stats.at<int>(i, cv::CC_STAT_WIDTH), h = stats.at<int>(i, cv::CC_STAT_HEIGHT);
        // Strokes of the line's characters: within its rows, a filler's height at least, no wider
        // than a character; specks and rules of the background are not.
        const int overlap = std::min(y + h, bottom) - std::max(y, top);
        if (overlap < 0.3 * height || h < 0.3 * height || w > 1.3 * height) {
            continue;
        }
        found.push_back(Glyph{x, x + w});
    }
    std::sort(found.begin(), found.end(), [](const Glyph& a, const Glyph& b) { return a.left < b.left; });
    // Pieces of one broken glyph overlap along the line.
    std::vector<Glyph> merged;
    for (const Glyph& g : found) {
        if (!merged.empty()) {
            Glyph& last = merged.back();
            const int overlap = std::min(last.right, g.right) - std::max(last.left, g.left);
            if (overlap > 0.5 * std::min(last.right - last.left, g.right - g.left)) {
                last.left = std::min(last.left, g.left);
                last.right = std::max(last.right, g.right);
                continue;
            }
        }
        merged.push_back(g);
    }
    return merged;
}

} // namespace

cv::Mat inkOf(const cv::Mat& grey) {
    // Closing wipes out dark strokes thinner than its kernel and keeps the paper; what closing adds
    // back is the ink (the black-hat transform).
    const int side = std::max(3, grey.rows / 3) | 1;
    cv::Mat ink;
    cv::morphologyEx(grey, ink, cv::MORPH_BLACKHAT, cv::getStructuringElement(cv::MORPH_RECT, {side, side}));
    return ink;
}

std::optional<Cells> cut(const cv::Mat& grey, int length) {
    if (grey.empty() || length < 2 || grey.rows < 8) {
        return std::nullopt;
    }
    Cells cells;
    cells.ink = inkOf(grey);
    cv::Mat binary;
    const double level = cv::threshold(cells.ink, binary, 0, 1, cv::THRESH_BINARY | cv::THRESH_OTSU);
    if (level < 8) {
        return std::nullopt; // no contrast: nothing printed here
    }
    const auto [top, bottom] = inkRows(binary);
    const int height = bottom - top;
    if (height < 5) {
        return std::nullopt;
    }
    const std::vector<Glyph> found = glyphs(binary, top, bottom);
    if (found.size() < static_cast<std::size_t>(std::max(6, length / 3))) {
        return std::nullopt;
    }
    // The pitch: the median step between neighbours, then a straight line through every glyph's
    // centre against its place on the line.
    std::vector<double> steps;
    for (std::size_t i = 1; i < found.size(); ++i) {
        steps.push_back(found[i].centre() - found[i - 1].centre());
    }
    std::nth_element(steps.begin(), steps.begin() + steps.size() / 2, steps.end());
    double pitch = steps[steps.size() / 2], start = found.front().centre();
    if (pitch < 2) {
        return std::nullopt;
    }
    std::vector<int> place(found.size());
    for (int round = 0; round < 3; ++round) {
        double sk = 0, sc = 0, skk = 0, skc = 0;
        for (std::size_t i = 0; i < found.size(); ++i) {
            // Each glyph a whole number of places after the one before it, never the same place: a
            // pitch a little off then cannot pile two neighbours onto one place far along the line.
            place[i] = i == 0 ? 0
                              : place[i - 1] +
                                    std::max(1, static_cast<int>(std::lround(
                                                    (found[i].centre() - found[i - 1].centre()) / pitch)));
            sk += place[i];
            sc += found[i].centre();
            skk += static_cast<double>(place[i]) * place[i];
            skc += place[i] * found[i].centre();
        }
        const double n = static_cast<double>(found.size()), spread = n * skk - sk * sk;
        if (spread <= 0) {
            return std::nullopt;
        }
        pitch = (n * skc - sk * sc) / spread;
        start = (sc - pitch * sk) / n;
        if (pitch < 2) {
            return std::nullopt;
        }
    }
    // The line's first character: of the windows of `length` places that hold most glyphs, the one
    // that starts nearest the first glyph (a faint closing filler missed leaves a window free to
    // start a place early).
    int first = place.front();
    std::size_t most = 0;
    for (int s = place.front() - length + 1; s <= place.back(); ++s) {
        const auto held = static_cast<std::size_t>(
            std::count_if(place.begin(), place.end(), [&](int p) { return p >= s && p < s + length; }));
        if (held > most || (held == most && std::abs(s - place.front()) < std::abs(first - place.front()))) {
            most = held;
            first = s;
        }
    }
    const int margin = std::max(1, height / 5);
    for (int k = 0; k < length; ++k) {
        const double centre = start + (first + k) * pitch;
        cells.box.emplace_back(static_cast<int>(std::lround(centre - pitch / 2)), top - margin,
                               std::max(1, static_cast<int>(std::lround(pitch))), height + 2 * margin);
    }
    return cells;
}

std::vector<std::uint8_t> features(const Cells& cells, std::size_t index) {
    const cv::Rect bounds(0, 0, cells.ink.cols, cells.ink.rows);
    cv::Rect cell = cells.box[index];
    // Centred on its strokes: the fitted pitch drifts by a pixel or two along a photographed line.
    const cv::Rect inside = cell & bounds;
    if (!inside.empty()) {
        const cv::Moments m = cv::moments(cells.ink(inside));
        if (m.m00 > 0) {
            const double shift = inside.x + m.m10 / m.m00 - (cell.x + cell.width / 2.0);
            cell.x += static_cast<int>(std::lround(std::clamp(shift, -0.25 * cell.width, 0.25 * cell.width)));
        }
    }
    cv::Mat window = cv::Mat::zeros(cell.size(), CV_8U);
    const cv::Rect shown = cell & bounds;
    if (!shown.empty()) {
        cells.ink(shown).copyTo(window(shown - cell.tl()));
    }
    cv::Mat sized;
    cv::resize(window, sized, cv::Size(cellWidth, cellHeight), 0, 0, cv::INTER_AREA);
    // The strongest ink of the cell is full ink: faint print reads like dark print.
    double strongest = 0;
    cv::minMaxLoc(sized, nullptr, &strongest);
    if (strongest > 0) {
        sized.convertTo(sized, CV_8U, 255.0 / strongest);
    }
    return std::vector<std::uint8_t>(sized.begin<std::uint8_t>(), sized.end<std::uint8_t>());
}

std::optional<Reading> read(const cv::Mat& grey, int length) {
    const std::optional<Cells> cells = cut(grey, length);
    if (!cells) {
        return std::nullopt;
    }
    const Model& known = model();
    cv::Mat queries(length, cellWidth * cellHeight, CV_32F);
    for (int k = 0; k < length; ++k) {
        const std::vector<std::uint8_t> f = features(*cells, static_cast<std::size_t>(k));
        cv::Mat(1, static_cast<int>(f.size()), CV_8U, const_cast<std::uint8_t*>(f.data()))
            .convertTo(queries.row(k), CV_32F);
    }
    // Squared distances to every sample, |q|^2 + |s|^2 - 2 q.s, in one product.
    cv::Mat products;
    cv::gemm(queries, known.samples, -2.0, cv::noArray(), 0, products, cv::GEMM_2_T);
    Reading reading;
    for (int k = 0; k < length; ++k) {
        cv::Mat distances = products.row(k) + known.squares.t();
        std::vector<std::pair<float, std::uint8_t>> nearest;
        for (int s = 0; s < distances.cols; ++s) {
            const float d = distances.at<float>(s);
            if (nearest.size() < neighbours || d < nearest.back().first) {
                if (nearest.size() == neighbours) {
                    nearest.pop_back();
                }
                nearest.insert(
                    std::upper_bound(nearest.begin(), nearest.end(), std::pair{d, std::uint8_t{0}},
                                     [](const auto& a, const auto& b) { return a.first < b.first; }),
                    {d, known.classes[static_cast<std::size_t>(s)]});
            }
        }
        std::array<int, alphabet.size()> votes{};
        for (const auto& n : nearest) {
            votes[n.second] += 1;
        }
        // Ties go to the nearest sample's class.
        std::size_t best = nearest.front().second;
        for (std::size_t c = 0; c < votes.size(); ++c) {
            if (votes[c] > votes[best]) {
                best = c;
            }
        }
        reading.text += alphabet[best];
        reading.cells.push_back(cells->box[static_cast<std::size_t>(k)]);
        reading.confidence.push_back(static_cast<float>(votes[best]) / neighbours);
    }
    return reading;
}

} // namespace platform::ZoneReader
