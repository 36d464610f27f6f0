// Makes the zone reader's glyph samples (zone-glyphs.bin): lines of the zone's alphabet rendered in
// OCR-B (Debian's fonts-ocr-b) the way photos and scans show them — light and dark paper, guilloche
// curves behind the print, neighbouring lines above and below, tilt, blur, sensor noise, JPEG, and
// sizes from 9 to 40 pixels a capital — cut into cells by the reader's own code, each cell kept with
// the character that was printed there. Its random numbers come from a fixed seed: the same font
// gives the same file.
//
//     quorvel-zone-glyphs OUT.bin [FONT.otf]

#include "ZoneReader.h"

#include <opencv2/freetype.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

namespace zr = platform::ZoneReader;

// Samples kept of each character: enough variety for the nearest neighbours, few enough to compare
// a cell with all of them quickly.
constexpr int perClass = 240;

std::string randomLine(cv::RNG& rng, int length) {
    std::string text;
    while (static_cast<int>(text.size()) < length) {
        if (rng.uniform(0.0, 1.0) < 0.25) {
            text.append(static_cast<std::size_t>(rng.uniform(1, 6)), '<');
        } else {
            text += zr::alphabet[static_cast<std::size_t>(
                rng.uniform(0, static_cast<int>(zr::alphabet.size()) - 1))];
        }
    }
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// Rows [top, bottom) and columns [left, right) of the ink of a rendering.
cv::Rect inkBox(const cv::Mat& ink) {
    std::vector<cv::Point> points;
    cv::findNonZero(ink > 64, points);
    return points.empty() ? cv::Rect() : cv::boundingRect(points);
}

struct Rendered {
    cv::Mat grey;           // the level line as the reader gets it
    std::string text;       // the middle line's characters
    std::vector<double> at; // each character's centre, in the level line's columns
};

Rendered render(cv::Ptr<cv::freetype::FreeType2>& font, cv::RNG& rng) {
    static const std::array<int, 3> lengths{30, 36, 44};
    const int length = lengths[static_cast<std::size_t>(rng.uniform(0, 3))];
    const int size = 48; // drawn large, then reduced to the size wanted
    int baseline = 0;
    // The font's advance: the growth of a run's width by each character (a run's width leaves out its
    // last character's right side bearing).
    const double advance = (font->getTextSize(std::string(40, '<'), size, -1, &baseline).width -
                            font->getTextSize(std::string(20, '<'), size, -1, &baseline).width) /
                           20.0;
    cv::Mat reference = cv::Mat::zeros(size * 2, size * 2, CV_8UC3), referenceGrey;
    font->putText(reference, "H0", cv::Point(size / 2, size + size / 2), size, cv::Scalar::all(255), -1,
                  cv::LINE_AA, true);
    cv::cvtColor(reference, referenceGrey, cv::COLOR_BGR2GRAY);
    const cv::Rect cap = inkBox(referenceGrey);
    const int capTop = cap.y - (size + size / 2), capHeight = cap.height; // relative to the baseline

    const double spacing = rng.uniform(1.6, 2.0) * capHeight;
    const int margin = static_cast<int>(3 * advance);
    const int cols = static_cast<int>(2 * margin + length * advance);
    const int rows = static_cast<int>(4 * spacing + capHeight);
    const double paper = rng.uniform(150.0, 250.0);
    cv::Mat page(rows, cols, CV_8UC3, cv::Scalar::all(paper));
    // A gradient and guilloche curves, lighter or darker than the paper, some tinted.
    const double slope = rng.uniform(-25.0, 25.0);
    cv::Mat shade(rows, cols, CV_8UC3, cv::Scalar::all(0));
    for (int x = 0; x < cols; ++x) {
        shade.col(x).setTo(cv::Scalar::all(std::abs(slope) * x / cols));
    }
    if (slope > 0) {
        page += shade;
    } else {
        page -= shade;
    }
    const int curves = rng.uniform(0, 9);
    for (int c = 0; c < curves; ++c) {
        const double amplitude = rng.uniform(0.2, 1.5) * capHeight, period = rng.uniform(0.5, 4.0) * advance;
        const double phase = rng.uniform(0.0, 6.3), y0 = rng.uniform(0.0, static_cast<double>(rows));
        // One draw a statement: the order in which a call's arguments are evaluated is the compiler's.
        const double red = paper + rng.uniform(-70.0, 30.0);
        const double green = paper + rng.uniform(-70.0, 30.0);
        const double blue = paper + rng.uniform(-70.0, 30.0);
        const cv::Scalar colour(blue, green, red);
        std::vector<cv::Point> curve;
        for (int x = 0; x < cols; x += 2) {
            curve.emplace_back(x, static_cast<int>(y0 + amplitude * std::sin(phase + x / period)));
        }
        cv::polylines(page, curve, false, colour, 1, cv::LINE_AA);
    }
    // The zone line in the middle, zone lines above and below it.
    const int inkLevel = rng.uniform(0, 100);
    const int inkRed = inkLevel + rng.uniform(0, 30);
    const int inkGreen = inkLevel + rng.uniform(0, 30);
    const int inkBlue = inkLevel + rng.uniform(0, 30);
    const cv::Scalar ink(inkBlue, inkGreen, inkRed);
    Rendered out;
    out.text = randomLine(rng, length);
    const int middle = static_cast<int>(2 * spacing + capHeight) - capTop - capHeight;
    for (int line = -1; line <= 1; ++line) {
        const std::string text = line == 0 ? out.text : randomLine(rng, length);
        font->putText(page, text, cv::Point(margin, middle + static_cast<int>(line * spacing)), size, ink, -1,
                      cv::LINE_AA, true);
    }
    // Heavier or lighter strokes.
    const int weight = rng.uniform(-1, 2);
    if (weight != 0) {
        const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_ELLIPSE, {3, 3});
        weight > 0 ? cv::erode(page, page, kernel) : cv::dilate(page, page, kernel);
    }
    // Tilt left after levelling, about the middle line.
    const double tilt = rng.uniform(-1.2, 1.2);
    const cv::Point2f pivot(cols / 2.0f, static_cast<float>(middle));
    cv::warpAffine(page, page, cv::getRotationMatrix2D(pivot, tilt, 1.0), page.size(), cv::INTER_LINEAR,
                   cv::BORDER_REPLICATE);
    // The size of a capital in the photo, then blur, noise and compression at that size.
    const double scale = rng.uniform(9.0, 40.0) / capHeight;
    cv::resize(page, page, cv::Size(), scale, scale, cv::INTER_AREA);
    const double blur = rng.uniform(0.0, 1.3);
    if (blur > 0.3) {
        cv::GaussianBlur(page, page, cv::Size(), blur);
    }
    cv::Mat noise(page.size(), CV_16SC3);
    cv::randn(noise, 0, rng.uniform(0.0, 12.0));
    cv::Mat noisy;
    page.convertTo(noisy, CV_16SC3);
    noisy += noise;
    noisy.convertTo(page, CV_8UC3);
    if (rng.uniform(0, 2) == 1) {
        std::vector<std::uint8_t> jpeg;
        cv::imencode(".jpg", page, jpeg, {cv::IMWRITE_JPEG_QUALITY, rng.uniform(40, 95)});
        page = cv::imdecode(jpeg, cv::IMREAD_COLOR);
    }
    // The level line as the detector and its margins give it: about the capital's height and a half
    // again above and below, ragged.
    const double capPixels = capHeight * scale, top = (middle + capTop) * scale;
    const int from = std::max(0, static_cast<int>(top - rng.uniform(0.35, 0.8) * capPixels));
    const int to =
        std::min(page.rows, static_cast<int>(top + capPixels + rng.uniform(0.35, 0.8) * capPixels));
    const int left = std::max(0, static_cast<int>((margin - rng.uniform(0.2, 1.8) * advance) * scale));
    const int right =
        std::min(page.cols, static_cast<int>((margin + (length + rng.uniform(0.2, 1.8)) * advance) * scale));
    cv::cvtColor(page(cv::Range(from, to), cv::Range(left, right)), out.grey, cv::COLOR_BGR2GRAY);
    for (int i = 0; i < length; ++i) {
        out.at.push_back((margin + (i + 0.5) * advance) * scale - left);
    }
    return out;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: quorvel-zone-glyphs OUT.bin [FONT.otf]\n");
        return 2;
    }
    const std::string fontFile = argc > 2 ? argv[2] : "/usr/share/fonts/opentype/ocr-b/OCRB.otf";
    if (!std::filesystem::is_regular_file(fontFile)) {
        std::fprintf(stderr, "quorvel-zone-glyphs: %s is missing (Debian package fonts-ocr-b)\n",
                     fontFile.c_str());
        return 1;
    }
    cv::Ptr<cv::freetype::FreeType2> font = cv::freetype::createFreeType2();
    font->loadFontData(fontFile, 0);
    cv::RNG rng(20261123);
    std::map<char, std::vector<std::vector<std::uint8_t>>> kept;
    int lines = 0, refused = 0;
    auto full = [&] {
        for (const char c : zr::alphabet) {
            if (kept[c].size() < perClass) {
                return false;
            }
        }
        return true;
    };
    while (!full() && lines < 20000) {
        const Rendered r = render(font, rng);
        ++lines;
        const auto cells = zr::cut(r.grey, static_cast<int>(r.text.size()));
        bool placed = cells.has_value();
        for (std::size_t i = 0; placed && i < r.text.size(); ++i) {
            const cv::Rect& b = cells->box[i];
            placed = std::abs(b.x + b.width / 2.0 - r.at[i]) < 0.35 * b.width;
        }
        if (!placed) {
            ++refused; // the reader would misplace this line; its cells teach nothing
            continue;
        }
        for (std::size_t i = 0; i < r.text.size(); ++i) {
            auto& samples = kept[r.text[i]];
            if (samples.size() < perClass) {
                samples.push_back(zr::features(*cells, i));
            }
        }
    }
    const std::filesystem::path out = argv[1], partial = out.string() + ".part";
    std::ofstream file(partial, std::ios::binary | std::ios::trunc);
    std::uint32_t count = 0;
    for (const auto& [c, samples] : kept) {
        count += static_cast<std::uint32_t>(samples.size());
    }
    const std::uint32_t length = zr::cellWidth * zr::cellHeight;
    file.write("QZG1", 4);
    file.write(reinterpret_cast<const char*>(&count), sizeof count);
    file.write(reinterpret_cast<const char*>(&length), sizeof length);
    for (const auto& [c, samples] : kept) {
        const auto label = static_cast<char>(zr::alphabet.find(c));
        for (std::size_t i = 0; i < samples.size(); ++i) {
            file.write(&label, 1);
        }
    }
    for (const auto& [c, samples] : kept) {
        for (const auto& s : samples) {
            file.write(reinterpret_cast<const char*>(s.data()), static_cast<std::streamsize>(s.size()));
        }
    }
    file.close();
    if (!file) {
        std::fprintf(stderr, "quorvel-zone-glyphs: could not write %s\n", partial.c_str());
        return 1;
    }
    std::filesystem::rename(partial, out);
    std::printf("zone glyphs: %u samples from %d lines (%d lines the reader would misplace)\n", count, lines,
                refused);
    return 0;
}
