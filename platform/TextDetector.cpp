#include "TextDetector.h"

#include "Recognition.h"

#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>

namespace platform::TextDetector {
namespace {

namespace fs = std::filesystem;

// A network is not safe to run from two threads at once, so each thread loads its own, once. One
// loaded network serves inputs of every size: the model conversion folds what OpenCV 4.6 would fold
// again at each new size (tools/models/convert_text_detector.py).
cv::dnn::Net& network(const std::string& name) {
    thread_local std::map<std::string, cv::dnn::Net> loaded;
    cv::dnn::Net& net = loaded[name];
    if (net.empty()) {
        net = cv::dnn::readNetFromONNX(modelFile(name).string());
        net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    }
    return net;
}

// The detector's normalisation, as it was trained (ImageNet statistics on 0..1 values, BGR order).
cv::Mat normalisedBlob(const cv::Mat& rgb, cv::Size size, std::array<double, 3> mean,
                       std::array<double, 3> deviation) {
    cv::Mat sized, bgr, values;
    cv::resize(rgb, sized, size, 0, 0, size.area() < rgb.size().area() ? cv::INTER_AREA : cv::INTER_LINEAR);
    cv::cvtColor(sized, bgr, cv::COLOR_RGB2BGR);
    bgr.convertTo(values, CV_32FC3, 1.0 / 255);
    values -= cv::Scalar(mean[0], mean[1], mean[2]);
    cv::divide(values, cv::Scalar(deviation[0], deviation[1], deviation[2]), values);
    return cv::dnn::blobFromImage(values);
}

// DB post-processing as its authors publish it: pixels over 0.3 are text, a region whose mean
// probability is under 0.6 is noise, and each region is grown by area * 1.5 / perimeter, since the
// network is trained to find a shrunk core of each line.
constexpr float textProbability = 0.3f;
constexpr float regionScore = 0.6f;
constexpr float unclipRatio = 1.5f;
// Lines thinner than this many pixels of the network's input are specks or rules.
constexpr float thinnest = 3.0f;

std::vector<cv::RotatedRect> regions(const cv::Mat& probability, double sx, double sy) {
    cv::Mat text = probability > textProbability;
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(text, contours, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE);
    std::vector<cv::RotatedRect> found;
    for (const auto& contour : contours) {
        if (contour.size() < 3) {
            continue;
        }
        cv::RotatedRect box = cv::minAreaRect(contour);
        if (std::min(box.size.width, box.size.height) < thinnest) {
            continue;
        }
        const cv::Rect bounds =
            cv::boundingRect(contour) & cv::Rect(0, 0, probability.cols, probability.rows);
        cv::Mat mask = cv::Mat::zeros(bounds.size(), CV_8U);
        cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{contour}, cv::Scalar(255), cv::LINE_8, 0,
                     -bounds.tl());
        if (cv::mean(probability(bounds), mask)[0] < regionScore) {
            continue;
        }
        const float grow = box.size.area() * unclipRatio / (2 * (box.size.width + box.size.height));
        box.size.width += 2 * grow;
        box.size.height += 2 * grow;
        std::array<cv::Point2f, 4> corners;
        box.points(corners.data());
        for (cv::Point2f& p : corners) {
            p.x = static_cast<float>(p.x / sx);
            p.y = static_cast<float>(p.y / sy);
        }
        found.push_back(cv::minAreaRect(std::vector<cv::Point2f>(corners.begin(), corners.end())));
    }
    return found;
}

// The long side of a line, as a vector from one of its ends, and whether it runs across the page
// rather than up it.
cv::Point2f along(const cv::RotatedRect& line) {
    std::array<cv::Point2f, 4> p;
    line.points(p.data());
    const cv::Point2f a = p[1] - p[0], b = p[2] - p[1];
    return cv::norm(a) >= cv::norm(b) ? a : b;
}

bool across(const cv::RotatedRect& line) {
    const cv::Point2f side = along(line);
    return std::abs(side.x) >= std::abs(side.y);
}

double longSide(const cv::RotatedRect& line) {
    return std::max(line.size.width, line.size.height);
}

// Top to bottom; lines whose middles lie within half a line height of each other form a row, read
// left to right. Within a row, pieces closer than `joinGap` line heights are one line: the detector
// parts a zone line at its runs of fillers and a date at its wide blanks, and a line read whole reads
// better. Text far apart stays apart (recognition parts columns again by their gaps).
constexpr double joinGap = 1.6;

bool sameLine(const cv::RotatedRect& a, const cv::RotatedRect& b) {
    const double ha = shortSide(a), hb = shortSide(b);
    // A single character's box is square, and either way up.
    auto standing = [](const cv::RotatedRect& l) { return !across(l) && longSide(l) > 1.5 * shortSide(l); };
    if (standing(a) || standing(b) || std::max(ha, hb) > 2.5 * std::min(ha, hb)) {
        return false;
    }
    const cv::Rect2f ra = a.boundingRect2f(), rb = b.boundingRect2f();
    const double gap = std::max(ra.x, rb.x) - std::min(ra.x + ra.width, rb.x + rb.width);
    return gap < joinGap * std::max(ha, hb) && std::abs(a.center.y - b.center.y) < 0.5 * std::max(ha, hb);
}

cv::RotatedRect joined(const cv::RotatedRect& a, const cv::RotatedRect& b) {
    std::vector<cv::Point2f> corners(8);
    a.points(corners.data());
    b.points(corners.data() + 4);
    return cv::minAreaRect(corners);
}

void readingOrder(std::vector<cv::RotatedRect>& lines) {
    std::stable_sort(lines.begin(), lines.end(),
                     [](const auto& a, const auto& b) { return a.center.y < b.center.y; });
    std::vector<cv::RotatedRect> ordered;
    std::size_t start = 0;
    while (start < lines.size()) {
        std::size_t end = start + 1;
        while (end < lines.size() && lines[end].center.y - lines[start].center.y <
                                         0.5 * std::max(shortSide(lines[start]), shortSide(lines[end]))) {
            ++end;
        }
        std::vector<cv::RotatedRect> row(lines.begin() + static_cast<long>(start),
                                         lines.begin() + static_cast<long>(end));
        std::stable_sort(row.begin(), row.end(),
                         [](const auto& a, const auto& b) { return a.center.x < b.center.x; });
        for (const cv::RotatedRect& piece : row) {
            if (&piece != &row.front() && sameLine(ordered.back(), piece)) {
                ordered.back() = joined(ordered.back(), piece);
            } else {
                ordered.push_back(piece);
            }
        }
        start = end;
    }
    lines = std::move(ordered);
}

// The direction classifier's input: 48 x 192 pixels, the line scaled to 48 high and padded on the right.
constexpr int directionHeight = 48;
constexpr int directionWidth = 192;

// The probability that a piece of a level line is upside down.
float classified(const cv::Mat& line) {
    const double scale = static_cast<double>(directionHeight) / line.rows;
    const int width = std::clamp(static_cast<int>(line.cols * scale), 1, directionWidth);
    cv::Mat sized, canvas(directionHeight, directionWidth, CV_32FC3, cv::Scalar(0, 0, 0));
    cv::resize(line, sized, cv::Size(width, directionHeight));
    cv::Mat bgr;
    cv::cvtColor(sized, bgr, cv::COLOR_RGB2BGR);
    // This classifier takes values in -1..1.
    bgr.convertTo(canvas(cv::Rect(0, 0, width, directionHeight)), CV_32FC3, 2.0 / 255, -1.0);
    cv::dnn::Net& net = network("text-direction.onnx");
    net.setInput(cv::dnn::blobFromImage(canvas));
    const cv::Mat out = net.forward();
    return out.ptr<float>()[1];
}

// How surely a level line is upside down: the weights of the votes for and of all votes. The
// classifier squeezes a longer line into its input, and a zone line squeezed tenfold came out at
// chance (0.05 and 0.27 on a page whose ten other lines all said 1.0, which turned it the wrong way);
// a long line is judged in pieces of the classifier's own proportions, spread along it. Each piece
// votes with its length and its certainty: a run of fillers says nothing of its direction.
struct Vote {
    double flipped = 0, total = 0;
};

Vote upsideDown(const cv::Mat& line) {
    constexpr int mostPieces = 6;
    const int piece = line.rows * directionWidth / directionHeight;
    const int pieces = 2 * line.cols <= 3 * piece ? 1 : std::min(mostPieces, (line.cols + piece - 1) / piece);
    const double length = static_cast<double>(line.cols) / pieces;
    Vote vote;
    for (int i = 0; i < pieces; ++i) {
        const int x = pieces == 1 ? 0 : (line.cols - piece) * i / (pieces - 1);
        const float p = classified(pieces == 1 ? line : line(cv::Rect(x, 0, piece, line.rows)));
        const double weight = length * std::abs(2 * p - 1);
        vote.flipped += weight * p;
        vote.total += weight;
    }
    return vote;
}

// Direction is judged on at most this many of the longest lines; lines shorter than this many line
// heights say little about their direction.
constexpr std::size_t directionLines = 12;
constexpr double directionAspect = 3.0;

// A page is levelled when its lines slant by at least this many degrees, and lines within this many
// degrees of their common slant agree with it.
constexpr double levelFrom = 1.0;
constexpr double slantAgreement = 2.0;

// The lines of the last few pages searched. Turning a page upright searches the very page that
// recognition reads next, so the network runs once for both.
class Remembered {
public:
    static std::size_t key(const cv::Mat& rgb, int side) {
        std::size_t hash = std::hash<int>()(side) ^ (static_cast<std::size_t>(rgb.cols) << 20) ^
                           static_cast<std::size_t>(rgb.rows);
        for (int y = 0; y < rgb.rows; ++y) {
            const std::string_view row(reinterpret_cast<const char*>(rgb.ptr(y)), rgb.cols * rgb.elemSize());
            hash = hash * 1099511628211ULL ^ std::hash<std::string_view>()(row);
        }
        return hash;
    }
    std::optional<std::vector<cv::RotatedRect>> find(std::size_t key) {
        const std::lock_guard lock(mutex_);
        for (const auto& [k, found] : pages_) {
            if (k == key) {
                return found;
            }
        }
        return std::nullopt;
    }
    void keep(std::size_t key, const std::vector<cv::RotatedRect>& found) {
        const std::lock_guard lock(mutex_);
        pages_.emplace_back(key, found);
        if (pages_.size() > 4) { // two documents at a time, each with its upright and turned page
            pages_.pop_front();
        }
    }

private:
    std::mutex mutex_;
    std::deque<std::pair<std::size_t, std::vector<cv::RotatedRect>>> pages_;
};

Remembered& remembered() {
    static Remembered instance;
    return instance;
}

} // namespace

std::vector<cv::RotatedRect> lines(const cv::Mat& rgb, int side) {
    const std::size_t key = Remembered::key(rgb, side);
    if (auto found = remembered().find(key)) {
        return std::move(*found);
    }
    // Small photos are enlarged, up to twice, so that their print reaches the detector's scale.
    const double scale = std::min(2.0, static_cast<double>(side) / std::max(rgb.cols, rgb.rows));
    const int width = std::max(32, static_cast<int>(std::lround(rgb.cols * scale / 32)) * 32);
    const int height = std::max(32, static_cast<int>(std::lround(rgb.rows * scale / 32)) * 32);
    cv::dnn::Net& net = network("text-lines.onnx");
    net.setInput(normalisedBlob(rgb, cv::Size(width, height), {0.485, 0.456, 0.406}, {0.229, 0.224, 0.225}));
    const cv::Mat out = net.forward();
    const cv::Mat probability(out.size[2], out.size[3], CV_32F, const_cast<float*>(out.ptr<float>()));
    std::vector<cv::RotatedRect> found =
        regions(probability, static_cast<double>(width) / rgb.cols, static_cast<double>(height) / rgb.rows);
    readingOrder(found);
    remembered().keep(key, found);
    return found;
}

int uprightTurns(const cv::Mat& page, int side) {
    if (page.empty()) {
        return 0;
    }
    cv::Mat small = page;
    std::vector<cv::RotatedRect> found = lines(small, side);
    std::erase_if(found,
                  [](const cv::RotatedRect& l) { return longSide(l) < directionAspect * shortSide(l); });
    if (found.empty()) {
        return 0;
    }
    // Lines standing on end, weighted by length: the page lies on its side. Only when nearly all of
    // its text stands: an open passport prints its observations page across the data page's lines
    // (10,400 pixels of standing lines against 4,000 lying on one specimen), while pages photographed
    // on their side in the real set had no lying line at all.
    double standing = 0, lying = 0;
    for (const cv::RotatedRect& l : found) {
        (across(l) ? lying : standing) += longSide(l);
    }
    int turns = 0;
    if (standing > 4 * lying) {
        cv::Mat standing;
        cv::rotate(page, standing, cv::ROTATE_90_CLOCKWISE);
        small = standing;
        found = lines(small, side);
        std::erase_if(found,
                      [](const cv::RotatedRect& l) { return longSide(l) < directionAspect * shortSide(l); });
        turns = 1;
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return longSide(a) > longSide(b); });
    found.resize(std::min(found.size(), directionLines));
    std::vector<cv::Mat> levelled;
    double unjudged = 0;
    for (const cv::RotatedRect& l : found) {
        if (across(l)) {
            if (cv::Mat image = level(small, l).image; !image.empty()) {
                unjudged += image.cols;
                levelled.push_back(std::move(image));
            }
        }
    }
    // Upside down only on a clear majority: an upright page must never be turned by a doubt.
    constexpr double majority = 0.6;
    double flipped = 0, total = 0;
    for (const cv::Mat& image : levelled) {
        // A line adds at most its length to the votes for and to all votes; once the lines not yet
        // judged could not change the outcome either way, they are not judged.
        const double lead = flipped - majority * total;
        if (lead + (1 - majority) * unjudged <= 0 || lead - majority * unjudged > 0) {
            break;
        }
        const Vote vote = upsideDown(image);
        flipped += vote.flipped;
        total += vote.total;
        unjudged -= image.cols;
    }
    if (total > 0 && flipped > majority * total) {
        turns += 2;
    }
    return turns % 4;
}

double skewDegrees(const cv::Mat& page, int side) {
    if (page.empty()) {
        return 0;
    }
    // Each line across the page long enough to tell its slant votes with its length: the angle of its
    // long side, taken left to right, in degrees (positive: falling to the right).
    std::vector<std::pair<double, double>> votes;
    double all = 0;
    for (const cv::RotatedRect& l : lines(page, side)) {
        if (!across(l) || longSide(l) < directionAspect * shortSide(l)) {
            continue;
        }
        cv::Point2f side = along(l);
        if (side.x < 0) {
            side = -side;
        }
        votes.emplace_back(std::atan2(side.y, side.x) * 180 / CV_PI, longSide(l));
        all += longSide(l);
    }
    if (votes.empty()) {
        return 0;
    }
    std::sort(votes.begin(), votes.end());
    double median = votes.back().first, below = 0;
    for (const auto& [angle, weight] : votes) {
        below += weight;
        if (2 * below >= all) {
            median = angle;
            break;
        }
    }
    // The slant counts only where most of the print shares it: a photo's perspective fans its lines
    // out a little, a page of mixed print (a stamp, a signature) does not agree at all.
    double agreeing = 0;
    for (const auto& [angle, weight] : votes) {
        agreeing += std::abs(angle - median) <= slantAgreement ? weight : 0;
    }
    return std::abs(median) >= levelFrom && 2 * agreeing > all ? median : 0;
}

Bitmap turned(const Bitmap& image, int quarterTurns) {
    quarterTurns = ((quarterTurns % 4) + 4) % 4;
    if (quarterTurns == 0 || image.empty()) {
        return image;
    }
    const cv::Mat source(image.height, image.width, CV_8UC3, const_cast<std::uint8_t*>(image.pixels.data()),
                         image.rowBytes());
    const bool sideways = quarterTurns % 2 == 1;
    Bitmap result(sideways ? image.height : image.width, sideways ? image.width : image.height);
    cv::Mat target(result.height, result.width, CV_8UC3, result.pixels.data(), result.rowBytes());
    const int code = quarterTurns == 1   ? cv::ROTATE_90_CLOCKWISE
                     : quarterTurns == 2 ? cv::ROTATE_180
                                         : cv::ROTATE_90_COUNTERCLOCKWISE;
    cv::rotate(source, target, code);
    return result;
}

Recognition::Levelling levelling(int width, int height, double degrees) {
    // OpenCV turns counter-clockwise for positive angles; a page falling to the right by `degrees`
    // comes level turned that way by as much.
    cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(width / 2.0f, height / 2.0f), degrees, 1.0);
    const double c = std::abs(turn.at<double>(0, 0)), s = std::abs(turn.at<double>(0, 1));
    Recognition::Levelling result;
    result.width = static_cast<int>(std::ceil(width * c + height * s));
    result.height = static_cast<int>(std::ceil(width * s + height * c));
    turn.at<double>(0, 2) += (result.width - width) / 2.0;
    turn.at<double>(1, 2) += (result.height - height) / 2.0;
    std::copy(turn.begin<double>(), turn.end<double>(), result.affine.begin());
    return result;
}

Bitmap levelled(const Bitmap& image, double degrees) {
    if (degrees == 0 || image.empty()) {
        return image;
    }
    const Recognition::Levelling level = levelling(image.width, image.height, degrees);
    const cv::Mat source(image.height, image.width, CV_8UC3, const_cast<std::uint8_t*>(image.pixels.data()),
                         image.rowBytes());
    Bitmap result(level.width, level.height);
    cv::Mat target(result.height, result.width, CV_8UC3, result.pixels.data(), result.rowBytes());
    const cv::Mat turn(2, 3, CV_64F, const_cast<double*>(level.affine.data()));
    // Corners the turn uncovers are white, as paper or a scanner's lid; black would pass for masks.
    cv::warpAffine(source, target, turn, target.size(), cv::INTER_CUBIC, cv::BORDER_CONSTANT,
                   cv::Scalar(255, 255, 255));
    return result;
}

double shortSide(const cv::RotatedRect& line) {
    return std::min(line.size.width, line.size.height);
}

std::filesystem::path modelFile(const std::string& name) {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    std::vector<std::filesystem::path> folders;
    if (!error) {
        folders.push_back(program.parent_path() / "../share/quorvel/models");
        folders.push_back(program.parent_path() / "../models");
    }
    folders.push_back(QUORVEL_MODEL_DIR);
    folders.push_back(QUORVEL_INSTALLED_MODEL_DIR);
    for (const std::filesystem::path& folder : folders) {
        if (std::filesystem::is_regular_file(folder / name, error)) {
            return folder / name;
        }
    }
    throw Recognition::RecognitionError("text line model " + name +
                                        " is not installed (looked beside the program and in " +
                                        std::string(QUORVEL_INSTALLED_MODEL_DIR) + ")");
}

LevelLine level(const cv::Mat& page, const cv::RotatedRect& box) {
    // The detector's box hugs the line; capitals and accents can touch its edge, and a reader cut off
    // at the top of a T reads an I. A margin of a fifth of the line's height on every side.
    cv::RotatedRect line = box;
    const float margin = 0.2f * static_cast<float>(shortSide(box));
    line.size.width += 2 * margin;
    line.size.height += 2 * margin;
    // Width along the line, height across it; OpenCV's angle convention varies, the corners do not.
    std::array<cv::Point2f, 4> p;
    line.points(p.data());
    // Corners run around the rectangle; start from the one whose next edge is the line's long side.
    std::size_t first = cv::norm(p[1] - p[0]) >= cv::norm(p[2] - p[1]) ? 0 : 1;
    cv::Point2f a = p[first], b = p[(first + 1) % 4], c = p[(first + 2) % 4];
    // Text runs left to right: the long side's start is its leftmost end.
    if (b.x < a.x) {
        a = p[(first + 2) % 4];
        b = p[(first + 3) % 4];
        c = p[first];
    }
    const float width = static_cast<float>(cv::norm(b - a)), height = static_cast<float>(cv::norm(c - b));
    if (width < 2 || height < 2) {
        return {};
    }
    // a is the top-left or bottom-left corner depending on the winding; the side of c decides.
    const cv::Point2f along = (b - a) / width;
    cv::Point2f down = (c - b) / height;
    if (along.x * down.y - along.y * down.x < 0) { // c lies above the line: start from the other long side
        const cv::Point2f shift = c - b;
        a += shift;
        b += shift;
        down = -down;
    }
    const std::array<cv::Point2f, 3> from{a, b, a + down * height};
    const std::array<cv::Point2f, 3> to{cv::Point2f(0, 0), cv::Point2f(width, 0), cv::Point2f(0, height)};
    LevelLine result;
    const cv::Mat toLine = cv::getAffineTransform(from.data(), to.data());
    cv::warpAffine(page, result.image, toLine,
                   cv::Size(static_cast<int>(std::ceil(width)), static_cast<int>(std::ceil(height))),
                   cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    cv::invertAffineTransform(toLine, result.toPage);
    return result;
}

std::vector<std::pair<int, int>> inkRuns(const cv::Mat& grey) {
    cv::Mat ink, counts;
    cv::threshold(grey, ink, 0, 1, cv::THRESH_BINARY_INV | cv::THRESH_OTSU);
    cv::reduce(ink, counts, 1, cv::REDUCE_SUM, CV_32S);
    const int least = std::max(2, grey.cols / 200);
    std::vector<std::pair<int, int>> runs;
    for (int y = 0; y < counts.rows;) {
        if (counts.at<int>(y) < least) {
            ++y;
            continue;
        }
        const int top = y;
        while (y < counts.rows && counts.at<int>(y) >= least) {
            ++y;
        }
        runs.emplace_back(top, y);
    }
    return runs;
}

std::vector<cv::RotatedRect> printedLines(const cv::Mat& page, const cv::RotatedRect& line) {
    const LevelLine cut = level(page, line);
    if (cut.image.empty()) {
        return {line};
    }
    cv::Mat grey;
    cv::cvtColor(cut.image, grey, cv::COLOR_RGB2GRAY);
    // A run touching the crop's edge is a neighbour's print reaching in.
    std::vector<std::pair<int, int>> runs = inkRuns(grey);
    std::erase_if(runs, [&](const auto& run) { return run.first == 0 || run.second == grey.rows; });
    // Lines of print are runs at least two fifths as tall as the tallest; smaller runs (accents, a
    // rule, specks) go with the line they lie beside.
    int tallest = 0;
    for (const auto& [top, bottom] : runs) {
        tallest = std::max(tallest, bottom - top);
    }
    std::vector<std::pair<int, int>> printed;
    for (const auto& run : runs) {
        if (5 * (run.second - run.first) >= 2 * tallest) {
            printed.push_back(run);
        }
    }
    if (printed.size() < 2) {
        return {line};
    }
    std::vector<cv::RotatedRect> result;
    for (std::size_t i = 0; i < printed.size(); ++i) {
        const int top = i == 0 ? printed[i].first : (printed[i - 1].second + printed[i].first) / 2;
        const int bottom =
            i + 1 == printed.size() ? printed[i].second : (printed[i].second + printed[i + 1].first) / 2;
        std::vector<cv::Point2f> corners{{0.0f, static_cast<float>(top)},
                                         {static_cast<float>(grey.cols), static_cast<float>(top)},
                                         {static_cast<float>(grey.cols), static_cast<float>(bottom)},
                                         {0.0f, static_cast<float>(bottom)}};
        cv::transform(corners, corners, cut.toPage);
        result.push_back(cv::minAreaRect(corners));
    }
    return result;
}

bool levelsUpsideDown(const cv::Mat& page, const cv::RotatedRect& line) {
    if (across(line) || longSide(line) < directionAspect * shortSide(line)) {
        return false;
    }
    const LevelLine levelled = level(page, line);
    // Whole, as it was measured: judged in pieces, paragraph blocks of an observations page printed
    // upside down above a data page (detected as one region standing on end) read as values.
    return !levelled.image.empty() && classified(levelled.image) > 0.5f;
}

LevelLine turnedOver(const LevelLine& line) {
    LevelLine result;
    cv::rotate(line.image, result.image, cv::ROTATE_180);
    // A point (x, y) of the turned crop is (width - x, height - y) of the crop before.
    const cv::Mat half = (cv::Mat_<double>(3, 3) << -1, 0, line.image.cols, 0, -1, line.image.rows, 0, 0, 1);
    result.toPage = line.toPage * half;
    return result;
}

} // namespace platform::TextDetector
