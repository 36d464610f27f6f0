#include "TextDetector.h"

#include "Recognition.h"

#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/dnn.hpp>
#include <opencv2/dnn/all_layers.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>

namespace platform::TextDetector {
namespace {

namespace fs = std::filesystem;

// x * clip(x + 3, 0, 6): hard-swish times six (the models' division by six is folded into what follows),
// the converted models' activation (tools/models/convert_text_detector.py). Exported, it is three
// operations, for which OpenCV makes two maps of their own and three passes; this is one pass in place.
// What OpenCV ran inside the product (the per-channel scaling or the division that follows) runs
// inside this pass the same way: the networks compute what they computed before, bit for bit.
class ScaledHardSwish : public cv::dnn::Layer {
public:
    explicit ScaledHardSwish(const cv::dnn::LayerParams& params) { setParamsFrom(params); }

    static cv::Ptr<cv::dnn::Layer> create(cv::dnn::LayerParams& params) {
        return cv::makePtr<ScaledHardSwish>(params);
    }

    bool getMemoryShapes(const std::vector<cv::dnn::MatShape>& inputs, int,
                         std::vector<cv::dnn::MatShape>& outputs,
                         std::vector<cv::dnn::MatShape>&) const override {
        outputs.assign(1, inputs.at(0));
        return true; // in place
    }

    // OpenCV offers the following layer again each time it sets the network up for a new size.
    bool setActivation(const cv::Ptr<cv::dnn::ActivationLayer>& layer) override {
        following_ = layer;
        return !following_.empty();
    }

    void forward(cv::InputArrayOfArrays in, cv::OutputArrayOfArrays out, cv::OutputArrayOfArrays) override {
        std::vector<cv::Mat> inputs, outputs;
        in.getMatVector(inputs);
        out.getMatVector(outputs);
        const cv::Mat& source = inputs.at(0);
        CV_Assert(source.type() == CV_32F && source.isContinuous() && source.dims == 4);
        const float* from = source.ptr<float>();
        float* to = outputs.at(0).ptr<float>();
        const int channels = source.size[1];
        const std::size_t plane = source.total(2);
        const int batches = source.size[0];
        cv::parallel_for_(cv::Range(0, batches * channels), [&](const cv::Range& range) {
            for (int c = range.start; c < range.end; ++c) {
                activate(from + c * plane, to + c * plane, plane);
                if (following_) {
                    following_->forwardSlice(to + c * plane, to + c * plane, static_cast<int>(plane), plane,
                                             c % channels, c % channels + 1);
                }
            }
        });
    }

private:
    static void activate(const float* from, float* to, std::size_t count) {
        std::size_t i = 0;
#if CV_SIMD
        const cv::v_float32 zero = cv::vx_setzero_f32(), three = cv::vx_setall_f32(3.0f),
                            six = cv::vx_setall_f32(6.0f);
        for (; i + cv::v_float32::nlanes <= count; i += cv::v_float32::nlanes) {
            const cv::v_float32 x = cv::vx_load(from + i);
            cv::v_store(to + i, x * cv::v_min(cv::v_max(x + three, zero), six));
        }
#endif
        for (; i < count; ++i) {
            const float x = from[i];
            to[i] = x * std::min(std::max(x + 3.0f, 0.0f), 6.0f);
        }
    }

    cv::Ptr<cv::dnn::ActivationLayer> following_;
};

// A network is not safe to run from two threads at once, so each thread loads its own, once. One
// loaded network serves inputs of every size: the model conversion folds what OpenCV 4.6 would fold
// again at each new size (tools/models/convert_text_detector.py).
cv::dnn::Net& network(const std::string& name) {
    thread_local std::map<std::string, cv::dnn::Net> loaded;
    cv::dnn::Net& net = loaded[name];
    if (net.empty()) {
        static std::once_flag registered;
        std::call_once(registered, [] {
            cv::dnn::LayerFactory::registerLayer("ScaledHardSwish", ScaledHardSwish::create);
        });
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

// A line of a page as it lies on the page turned a quarter clockwise: the point (x, y) of a page
// `rows` high is (rows - 1 - y, x) there.
cv::RotatedRect turnedClockwise(const cv::RotatedRect& line, int rows) {
    std::vector<cv::Point2f> corners(4);
    line.points(corners.data());
    for (cv::Point2f& p : corners) {
        p = cv::Point2f(static_cast<float>(rows - 1) - p.y, p.x);
    }
    return cv::minAreaRect(corners);
}

// Direction is judged on at most this many of the longest lines; lines shorter than this many line
// heights say little about their direction.
constexpr std::size_t directionLines = 12;
constexpr double directionAspect = 3.0;

// A page is levelled when its lines slant by at least this many degrees, and lines within this many
// degrees of their common slant agree with it.
constexpr double levelFrom = 1.0;
constexpr double slantAgreement = 2.0;

// Whether a page's longest lines across it read upside down, by a clear majority of their votes: an
// upright page must never be turned by a doubt.
bool mostlyUpsideDown(const cv::Mat& page, std::vector<cv::RotatedRect> found) {
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return longSide(a) > longSide(b); });
    found.resize(std::min(found.size(), directionLines));
    std::vector<cv::Mat> levelled;
    double unjudged = 0;
    for (const cv::RotatedRect& l : found) {
        if (across(l)) {
            if (cv::Mat image = level(page, l).image; !image.empty()) {
                unjudged += image.cols;
                levelled.push_back(std::move(image));
            }
        }
    }
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
    return total > 0 && flipped > majority * total;
}

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

namespace {

// The lines long enough to tell which way they read.
std::vector<cv::RotatedRect> telling(std::vector<cv::RotatedRect> found) {
    std::erase_if(found,
                  [](const cv::RotatedRect& l) { return longSide(l) < directionAspect * shortSide(l); });
    return found;
}

} // namespace

int uprightTurns(const cv::Mat& page, int side) {
    if (page.empty()) {
        return 0;
    }
    cv::Mat small = page;
    std::vector<cv::RotatedRect> found = telling(lines(small, side));
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
        // The standing lines, as they lie on the page turned a quarter clockwise, tell which quarter
        // turn stands the page up; it is then searched once more, already that way up, and that
        // search is the one recognition reads (a search is most of a sideways page's time).
        cv::Mat clockwise;
        cv::rotate(page, clockwise, cv::ROTATE_90_CLOCKWISE);
        std::vector<cv::RotatedRect> stood;
        for (const cv::RotatedRect& l : found) {
            if (!across(l)) {
                stood.push_back(turnedClockwise(l, page.rows));
            }
        }
        turns = mostlyUpsideDown(clockwise, std::move(stood)) ? 3 : 1;
        if (turns == 1) {
            small = clockwise;
        } else {
            cv::rotate(page, small, cv::ROTATE_90_COUNTERCLOCKWISE);
        }
        found = telling(lines(small, side));
    }
    if (mostlyUpsideDown(small, std::move(found))) {
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

namespace {

// Marks of a spaced run: glyph-sized pieces of ink, as the page's adaptive threshold parts them.
struct Mark {
    cv::Point2f centre;
    float size = 0; // the longer side of its box
    int label = 0;
};

// Marks are 4 to 40 pixels across and fill a fifth of their box; neighbours in a run lie 0.8 to 3
// sizes apart, differ in size by at most this ratio, and each next mark lies within three fifths of a
// step of where the run's last step points (print on a curled page bends).
constexpr float smallestMark = 4, largestMark = 40;
constexpr float sizeRatio = 1.6f;
constexpr float nearestStep = 0.8f, farthestStep = 3.0f;
constexpr float stepSlack = 0.6f;
// A run is 6 to 16 marks whose steps and sizes stay within a quarter and three tenths of their median,
// with no more other marks near it than it has marks, printed at least this much darker than the
// paper around each mark (a security pattern's pale lines form runs too).
constexpr std::size_t fewestMarks = 6, mostMarks = 16;
constexpr float stepSpread = 0.25f, sizeSpread = 0.3f;
constexpr double inkContrast = 60;

bool similar(float a, float b) {
    return std::max(a, b) <= sizeRatio * std::min(a, b);
}

// How much darker a mark is than the paper around it: the median of a ring three times its box against
// the mean of its own pixels.
double contrast(const cv::Mat& grey, const cv::Mat& labels, const cv::Rect& box, int label) {
    const cv::Rect around = cv::Rect(box.x - box.width, box.y - box.height, 3 * box.width, 3 * box.height) &
                            cv::Rect(0, 0, grey.cols, grey.rows);
    std::vector<std::uint8_t> ground;
    double ink = 0;
    int inked = 0;
    for (int y = around.y; y < around.y + around.height; ++y) {
        for (int x = around.x; x < around.x + around.width; ++x) {
            if (labels.at<int>(y, x) == label) {
                ink += grey.at<std::uint8_t>(y, x);
                ++inked;
            } else {
                ground.push_back(grey.at<std::uint8_t>(y, x));
            }
        }
    }
    return ground.empty() || inked == 0 ? 0 : median(ground) - ink / inked;
}

} // namespace

std::vector<SpacedRun> spacedRuns(const cv::Mat& page, const std::vector<cv::RotatedRect>& lines) {
    cv::Mat grey, ink, labels, stats, centres;
    cv::cvtColor(page, grey, cv::COLOR_RGB2GRAY);
    cv::adaptiveThreshold(grey, ink, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY_INV, 31, 25);
    const int count = cv::connectedComponentsWithStats(ink, labels, stats, centres, 8, CV_32S);
    // Marks inside a detected line are that line's letters; a box about as long as it is high holds
    // one character, which the detector now and then finds of a spaced run.
    cv::Mat read = cv::Mat::zeros(grey.size(), CV_8U);
    for (const cv::RotatedRect& line : lines) {
        if (longSide(line) < 1.5 * shortSide(line)) {
            continue;
        }
        std::array<cv::Point2f, 4> p;
        line.points(p.data());
        const std::vector<cv::Point> corners(p.begin(), p.end());
        cv::fillConvexPoly(read, corners, cv::Scalar(255));
    }
    auto boxOf = [&](int label) {
        return cv::Rect(stats.at<int>(label, cv::CC_STAT_LEFT), stats.at<int>(label, cv::CC_STAT_TOP),
                        stats.at<int>(label, cv::CC_STAT_WIDTH), stats.at<int>(label, cv::CC_STAT_HEIGHT));
    };
    std::vector<Mark> marks;
    std::vector<cv::Point2f> anyInk; // every piece of ink 3 pixels or more across, for crowding
    for (int label = 1; label < count; ++label) {
        const cv::Rect box = boxOf(label);
        const cv::Point2f centre(static_cast<float>(centres.at<double>(label, 0)),
                                 static_cast<float>(centres.at<double>(label, 1)));
        const float size = static_cast<float>(std::max(box.width, box.height));
        if (size >= 3) {
            anyInk.push_back(centre);
        }
        if (size < smallestMark || size > largestMark || std::min(box.width, box.height) < 2 ||
            5 * stats.at<int>(label, cv::CC_STAT_AREA) < box.area() ||
            read.at<std::uint8_t>(cv::Point(centre)) != 0) {
            continue;
        }
        marks.push_back(Mark{centre, size, label});
    }
    // Marks by cells of the largest step, so that each looks only at its neighbours.
    constexpr float cell = largestMark * farthestStep;
    std::map<std::pair<int, int>, std::vector<std::size_t>> cells;
    auto cellOf = [](cv::Point2f p) {
        return std::pair{static_cast<int>(std::floor(p.x / cell)), static_cast<int>(std::floor(p.y / cell))};
    };
    for (std::size_t i = 0; i < marks.size(); ++i) {
        cells[cellOf(marks[i].centre)].push_back(i);
    }
    auto near = [&](cv::Point2f p, const auto& visit) {
        const auto [cx, cy] = cellOf(p);
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                if (auto found = cells.find({cx + dx, cy + dy}); found != cells.end()) {
                    for (std::size_t j : found->second) {
                        visit(j);
                    }
                }
            }
        }
    };
    auto distance = [&](std::size_t i, std::size_t j) { return cv::norm(marks[i].centre - marks[j].centre); };
    // Each run grows from a pair of neighbours, both ways, by the step it has taken last.
    std::set<std::pair<std::size_t, std::size_t>> tried;
    std::vector<std::vector<std::size_t>> runs;
    for (std::size_t a = 0; a < marks.size(); ++a) {
        near(marks[a].centre, [&](std::size_t b) {
            const double d = distance(a, b);
            if (b == a || d < nearestStep * marks[a].size || d > farthestStep * marks[a].size ||
                !similar(marks[a].size, marks[b].size) || tried.contains({a, b})) {
                return;
            }
            std::deque<std::size_t> run{a, b};
            for (const bool forward : {true, false}) {
                while (run.size() <= mostMarks) {
                    const std::size_t last = forward ? run.back() : run.front();
                    const std::size_t before = forward ? run[run.size() - 2] : run[1];
                    const cv::Point2f step = marks[last].centre - marks[before].centre;
                    const cv::Point2f next = marks[last].centre + step;
                    std::optional<std::size_t> best;
                    near(next, [&](std::size_t k) {
                        if (!best ||
                            cv::norm(marks[k].centre - next) < cv::norm(marks[*best].centre - next)) {
                            best = k;
                        }
                    });
                    if (!best || cv::norm(marks[*best].centre - next) > stepSlack * cv::norm(step) ||
                        std::find(run.begin(), run.end(), *best) != run.end() ||
                        !similar(marks[*best].size, marks[last].size)) {
                        break;
                    }
                    forward ? run.push_back(*best) : run.push_front(*best);
                }
            }
            for (std::size_t i = 0; i + 1 < run.size(); ++i) {
                tried.insert({run[i], run[i + 1]});
                tried.insert({run[i + 1], run[i]});
            }
            if (run.size() >= fewestMarks && run.size() <= mostMarks) {
                runs.emplace_back(run.begin(), run.end());
            }
        });
    }
    // Regular runs only: even steps, one size, uncrowded, dark.
    std::erase_if(runs, [&](const std::vector<std::size_t>& run) {
        std::vector<float> steps, sizes;
        for (std::size_t i = 0; i < run.size(); ++i) {
            sizes.push_back(marks[run[i]].size);
            if (i > 0) {
                steps.push_back(static_cast<float>(distance(run[i - 1], run[i])));
            }
        }
        const float step = median(steps), size = median(sizes);
        if (std::any_of(steps.begin(), steps.end(),
                        [&](float s) { return std::abs(s - step) > stepSpread * step; }) ||
            std::any_of(sizes.begin(), sizes.end(),
                        [&](float s) { return std::abs(s - size) > sizeSpread * size; })) {
            return true;
        }
        // Each mark sees itself and its one or two neighbours in the run within a step.
        std::size_t crowd = 0;
        for (std::size_t i : run) {
            crowd += static_cast<std::size_t>(std::count_if(anyInk.begin(), anyInk.end(), [&](cv::Point2f p) {
                return cv::norm(p - marks[i].centre) < step;
            }));
        }
        if (crowd > 3 * run.size() - 2 + run.size()) {
            return true;
        }
        std::vector<double> contrasts;
        for (std::size_t i : run) {
            contrasts.push_back(contrast(grey, labels, boxOf(marks[i].label), marks[i].label));
        }
        return median(contrasts) < inkContrast;
    });
    // The longest of runs sharing most of their marks.
    std::stable_sort(runs.begin(), runs.end(),
                     [](const auto& a, const auto& b) { return a.size() > b.size(); });
    std::vector<SpacedRun> result;
    std::vector<std::set<std::size_t>> kept;
    for (const std::vector<std::size_t>& run : runs) {
        const std::set<std::size_t> members(run.begin(), run.end());
        if (std::any_of(kept.begin(), kept.end(), [&](const std::set<std::size_t>& k) {
                std::size_t shared = 0;
                for (std::size_t m : members) {
                    shared += k.contains(m);
                }
                return 2 * shared > members.size();
            })) {
            continue;
        }
        kept.push_back(members);
        // Each mark turned by the run's direction where it stands and cut square; the squares side by
        // side make a line a reader can read.
        std::vector<cv::Mat> squares;
        cv::Rect box = boxOf(marks[run.front()].label);
        int side = 0;
        for (std::size_t i = 0; i < run.size(); ++i) {
            const Mark& m = marks[run[i]];
            box |= boxOf(m.label);
            const cv::Point2f way =
                marks[run[std::min(i + 1, run.size() - 1)]].centre - marks[run[i == 0 ? 0 : i - 1]].centre;
            const double degrees = std::atan2(way.y, way.x) * 180 / CV_PI;
            const int half = static_cast<int>(m.size) / 2 + 2;
            cv::Mat turn = cv::getRotationMatrix2D(m.centre, degrees, 1.0);
            turn.at<double>(0, 2) += half - m.centre.x;
            turn.at<double>(1, 2) += half - m.centre.y;
            cv::Mat square;
            cv::warpAffine(grey, square, turn, cv::Size(2 * half, 2 * half), cv::INTER_CUBIC,
                           cv::BORDER_CONSTANT, cv::Scalar(255));
            side = std::max(side, 2 * half);
            squares.push_back(std::move(square));
        }
        for (cv::Mat& square : squares) {
            cv::resize(square, square, cv::Size(side, side), 0, 0, cv::INTER_CUBIC);
        }
        SpacedRun found;
        cv::hconcat(squares, found.image);
        found.box = box;
        result.push_back(std::move(found));
    }
    return result;
}

} // namespace platform::TextDetector
