#include "Evaluation.h"

#include "CliSupport.h"
#include "DocumentOutline.h"
#include "FileSystem.h"
#include "ImageDecoder.h"
#include "ImagePipeline.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>

namespace cli {
namespace {

namespace fs = std::filesystem;

// A field counts as masked when this share of its box is painted black.
constexpr double fullyMasked = 0.98;
const RedactionPolicy everything{true, true, true, true};

struct PixelBox {
    int x0, y0, x1, y1;
};

// The annotated box in the pixels of the image the masks were painted on: the same as the upright
// photo unless the document was straightened, in which case the outline found in the upright photo
// (found again; the search is deterministic) carries the box's corners across.
PixelBox carried(const Rect& box, const Bitmap& upright, const std::optional<platform::DocumentOutline::Correction>& straightening,
                 const Bitmap& painted) {
    double x0, y0, x1, y1;
    if (straightening) {
        x0 = y0 = 1e18;
        x1 = y1 = -1e18;
        for (auto [fx, fy] : {std::pair{box.minX(), box.minY()}, {box.maxX(), box.minY()}, {box.maxX(), box.maxY()},
                              {box.minX(), box.maxY()}}) {
            const auto p = straightening->map(fx * upright.width, fy * upright.height);
            x0 = std::min(x0, p.x), y0 = std::min(y0, p.y), x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
        }
    } else {
        x0 = box.minX() * painted.width, x1 = box.maxX() * painted.width;
        y0 = box.minY() * painted.height, y1 = box.maxY() * painted.height;
    }
    auto clampX = [&](double v) { return std::clamp(static_cast<int>(std::lround(v)), 0, painted.width); };
    auto clampY = [&](double v) { return std::clamp(static_cast<int>(std::lround(v)), 0, painted.height); };
    return PixelBox{clampX(x0), clampY(y0), clampX(x1), clampY(y1)};
}

bool black(const Bitmap& image, int x, int y) {
    const std::uint8_t* p = image.at(x, y);
    return p[0] == 0 && p[1] == 0 && p[2] == 0;
}

const char* imageExtensions[] = {".jpg", ".jpeg", ".png", ".heic", ".heif", ".JPG", ".JPEG", ".PNG", ".HEIC", ".HEIF"};

} // namespace

EvaluationReport evaluate(const fs::path& folder, const std::function<void(const std::string&, bool)>& progress) {
    std::vector<fs::path> images;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const fs::path& path = entry.path();
        const bool image = std::any_of(std::begin(imageExtensions), std::end(imageExtensions),
                                       [&](const char* e) { return path.extension() == e; });
        if (image && fs::exists(fs::path(path).replace_extension(".json"))) {
            images.push_back(path);
        }
    }
    std::sort(images.begin(), images.end());
    EvaluationReport report;
    for (const fs::path& file : images) {
        const std::string name = file.filename().string();
        const nlohmann::json truth = readJson(fs::path(file).replace_extension(".json"));
        if (!truth.contains("fields") || !truth["fields"].is_array()) {
            throw UsageError(fs::path(file).replace_extension(".json").string() + ": expected {\"fields\": [...]}");
        }
        Bitmap painted, source;
        bool straightened = false;
        try {
            const auto start = std::chrono::steady_clock::now();
            const LoadedDocument document = ImagePipeline::load(file);
            const Analysis analysis = ImagePipeline::analyze(document);
            painted = ImagePipeline::render(document.image, analysis.regions, everything);
            report.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            source = document.image;
            straightened = document.centering.applied;
        } catch (const std::exception&) {
            ++report.failedImages;
            progress(name, false);
            continue;
        }
        ++report.images;
        std::optional<platform::DocumentOutline::Correction> straightening;
        Bitmap upright;
        if (straightened) {
            const auto bytes = platform::FileSystem::readFile(file);
            upright = platform::ImageDecoder::decodeUpright(bytes, platform::ImageDecoder::sniff(bytes));
            if (const auto outline = platform::DocumentOutline::detect(upright)) {
                straightening = platform::DocumentOutline::correction(upright.width, upright.height, *outline);
            }
        }
        std::vector<bool> inField(static_cast<std::size_t>(painted.width) * painted.height, false);
        for (const nlohmann::json& field : truth["fields"]) {
            const std::string kind = field.value("kind", "");
            const Rect box{field.value("x", 0.0), field.value("y", 0.0), field.value("width", 0.0), field.value("height", 0.0)};
            const PixelBox b = carried(box, upright, straightening, painted);
            std::size_t covered = 0, all = 0;
            for (int y = b.y0; y < b.y1; ++y) {
                for (int x = b.x0; x < b.x1; ++x) {
                    covered += black(painted, x, y);
                    ++all;
                    inField[static_cast<std::size_t>(y) * painted.width + x] = true;
                }
            }
            const double share = all ? static_cast<double>(covered) / all : 0;
            KindTally& tally = report.kinds[kind];
            ++tally.fields;
            if (share >= fullyMasked) {
                ++tally.masked;
            } else {
                char line[160];
                std::snprintf(line, sizeof line, "%s: %s (%.0f%%)", name.c_str(), kind.c_str(), share * 100);
                report.misses.emplace_back(line);
            }
        }
        for (int y = 0; y < painted.height; ++y) {
            for (int x = 0; x < painted.width; ++x) {
                if (black(painted, x, y) && !black(source, x, y)) {
                    report.painted += 1;
                    report.paintedOutside += !inField[static_cast<std::size_t>(y) * painted.width + x];
                }
            }
        }
        progress(name, true);
    }
    return report;
}

nlohmann::json EvaluationReport::toJson() const {
    nlohmann::json perKind = nlohmann::json::object();
    for (const auto& [kind, tally] : kinds) {
        perKind[kind] = {{"fields", tally.fields}, {"masked", tally.masked}, {"missed", tally.fields - tally.masked}};
    }
    return {{"images", images},
            {"failedImages", failedImages},
            {"secondsPerImage", images ? seconds / images : 0.0},
            {"overMasking", overMasking()},
            {"kinds", perKind},
            {"misses", misses}};
}

std::string EvaluationReport::toText() const {
    std::string out;
    char line[200];
    std::snprintf(line, sizeof line, "%-16s %7s %7s %7s %8s\n", "kind", "fields", "masked", "missed", "masked%");
    out += line;
    for (const auto& [kind, tally] : kinds) {
        std::snprintf(line, sizeof line, "%-16s %7d %7d %7d %7.1f%%\n", kind.c_str(), tally.fields, tally.masked,
                      tally.fields - tally.masked, tally.fields ? 100.0 * tally.masked / tally.fields : 0.0);
        out += line;
    }
    std::snprintf(line, sizeof line, "\nImages: %d (%d could not be processed); %.2f s per image; over-masking %.1f%%\n",
                  images, failedImages, images ? seconds / images : 0.0, overMasking() * 100);
    out += line;
    return out;
}

} // namespace cli
