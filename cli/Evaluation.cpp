#include "Evaluation.h"

#include "CliSupport.h"
#include "CountryCatalog.h"
#include "DocumentOutline.h"
#include "FileSystem.h"
#include "ImageDecoder.h"
#include "ImagePipeline.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <tuple>

namespace cli {
namespace {

namespace fs = std::filesystem;

// A field counts as masked when this share of its box is painted black.
constexpr double fullyMasked = 0.98;
const RedactionPolicy everything{true, true, true, true};

// A field's four corners, clockwise.
using Quad = std::array<std::pair<double, double>, 4>;

// The annotated field: its corners when given (a tilted card), else the corners of its box.
Quad corners(const nlohmann::json& field) {
    const nlohmann::json given = field.value("corners", nlohmann::json::array());
    auto point = [](const nlohmann::json& c) {
        return c.is_array() && c.size() == 2 && c[0].is_number() && c[1].is_number();
    };
    if (given.is_array() && given.size() == 4 && std::all_of(given.begin(), given.end(), point)) {
        Quad quad;
        for (std::size_t i = 0; i < 4; ++i) {
            quad[i] = {given[i][0].get<double>(), given[i][1].get<double>()};
        }
        return quad;
    }
    const double x = field.value("x", 0.0), y = field.value("y", 0.0);
    const double w = field.value("width", 0.0), h = field.value("height", 0.0);
    return {std::pair{x, y}, {x + w, y}, {x + w, y + h}, {x, y + h}};
}

// Whether the pixel's centre lies inside the convex quad (either winding).
bool inside(const Quad& quad, int px, int py) {
    const double x = px + 0.5, y = py + 0.5;
    int positive = 0, negative = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        const auto [ax, ay] = quad[i];
        const auto [bx, by] = quad[(i + 1) % 4];
        const double cross = (bx - ax) * (y - ay) - (by - ay) * (x - ax);
        positive += cross > 0;
        negative += cross < 0;
    }
    return positive == 0 || negative == 0;
}

bool black(const Bitmap& image, int x, int y) {
    const std::uint8_t* p = image.at(x, y);
    return p[0] == 0 && p[1] == 0 && p[2] == 0;
}

const char* imageExtensions[] = {".jpg", ".jpeg", ".png", ".heic", ".heif",
                                 ".JPG", ".JPEG", ".PNG", ".HEIC", ".HEIF"};

} // namespace

EvaluationReport evaluate(const fs::path& folder,
                          const std::function<void(const std::string&, bool)>& progress) {
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
        const std::string annotation = fs::path(file).replace_extension(".json").string();
        if (!truth.contains("fields") || !truth["fields"].is_array()) {
            throw UsageError(annotation + ": expected {\"fields\": [...]}");
        }
        // Kinds are checked as `mask` checks them: an unknown one is a mistake in the annotation.
        for (std::size_t i = 0; i < truth["fields"].size(); ++i) {
            const nlohmann::json& field = truth["fields"][i];
            const bool named = field.is_object() && field.contains("kind") && field["kind"].is_string();
            const std::string kind = named ? field["kind"].get<std::string>() : "";
            if (!fieldKind(kind)) {
                throw UsageError(annotation + ": field " + std::to_string(i + 1) + ": unknown kind \"" +
                                 kind + "\"");
            }
        }
        Bitmap painted, source;
        bool straightened = false;
        int turns = 0;
        Skew skew;
        Analysis analysis;
        try {
            const auto start = std::chrono::steady_clock::now();
            const LoadedDocument document = ImagePipeline::load(file);
            analysis = ImagePipeline::analyze(document);
            painted = ImagePipeline::render(document.image, analysis.regions, everything);
            report.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            source = document.image;
            straightened = document.centering.applied;
            turns = document.quarterTurns;
            skew = document.skew;
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
                straightening =
                    platform::DocumentOutline::correction(upright.width, upright.height, *outline);
            }
        }
        // The annotation is of the photo as shown; when the document was straightened, the outline found
        // in that photo again (the search is deterministic) carries it into the painted image.
        // ... and the quarter turns that made it upright carry it on.
        // ... and so does the turn that brought its lines level.
        const std::optional<platform::Recognition::Levelling> levelling =
            skew.degrees != 0
                ? std::optional(platform::Recognition::levelling(skew.width, skew.height, skew.degrees))
                : std::nullopt;
        const bool sideways = turns % 2 == 1;
        const double turnedWidth = levelling ? skew.width : painted.width;
        const double turnedHeight = levelling ? skew.height : painted.height;
        const double unturnedWidth = sideways ? turnedHeight : turnedWidth;
        const double unturnedHeight = sideways ? turnedWidth : turnedHeight;
        const int zoneMissesBefore =
            report.kinds["machineReadable"].fields - report.kinds["machineReadable"].masked;
        report.score(name, truth["fields"], painted, source, [&](double x, double y) {
            std::pair<double, double> p{x * unturnedWidth, y * unturnedHeight};
            if (straightening) {
                const auto q = straightening->map(x * upright.width, y * upright.height);
                p = {q.x, q.y};
            }
            switch (turns) {
            case 1:
                p = {unturnedHeight - p.second, p.first};
                break;
            case 2:
                p = {unturnedWidth - p.first, unturnedHeight - p.second};
                break;
            case 3:
                p = {p.second, unturnedWidth - p.first};
                break;
            default:
                break;
            }
            return levelling ? levelling->map(p.first, p.second) : p;
        });
        report.tallyZoneAndCountry(truth, analysis,
                                   report.kinds["machineReadable"].fields -
                                           report.kinds["machineReadable"].masked ==
                                       zoneMissesBefore);
        progress(name, true);
    }
    return report;
}

void EvaluationReport::score(const std::string& name, const nlohmann::json& fields, const Bitmap& painted,
                             const Bitmap& source,
                             const std::function<std::pair<double, double>(double, double)>& toPainted) {
    std::vector<bool> inField(static_cast<std::size_t>(painted.width) * painted.height, false);
    for (const nlohmann::json& field : fields) {
        if (!field.is_object()) {
            continue;
        }
        const std::string kind = field.value("kind", "");
        Quad quad = corners(field);
        double x0 = painted.width, y0 = painted.height, x1 = 0, y1 = 0;
        for (auto& [x, y] : quad) {
            std::tie(x, y) = toPainted(x, y);
            x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x), y1 = std::max(y1, y);
        }
        const int left = std::max(0, static_cast<int>(std::floor(x0))),
                  top = std::max(0, static_cast<int>(std::floor(y0)));
        const int right = std::min(painted.width, static_cast<int>(std::ceil(x1)));
        const int bottom = std::min(painted.height, static_cast<int>(std::ceil(y1)));
        std::size_t covered = 0, all = 0;
        for (int y = top; y < bottom; ++y) {
            for (int x = left; x < right; ++x) {
                if (inside(quad, x, y)) {
                    covered += black(painted, x, y);
                    ++all;
                    inField[static_cast<std::size_t>(y) * painted.width + x] = true;
                }
            }
        }
        const double share = all ? static_cast<double>(covered) / all : 0;
        KindTally& tally = kinds[kind];
        ++tally.fields;
        if (share >= fullyMasked) {
            ++tally.masked;
        } else {
            char line[160];
            std::snprintf(line, sizeof line, "%s: %s (%.0f%%)", name.c_str(), kind.c_str(), share * 100);
            misses.emplace_back(line);
        }
    }
    for (int y = 0; y < painted.height; ++y) {
        for (int x = 0; x < painted.width; ++x) {
            if (black(painted, x, y) && !black(source, x, y)) {
                this->painted += 1;
                paintedOutside += !inField[static_cast<std::size_t>(y) * painted.width + x];
            }
        }
    }
}

void EvaluationReport::tallyZoneAndCountry(const nlohmann::json& truth, const Analysis& analysis,
                                           bool zoneMaskedWhole) {
    const nlohmann::json zone = truth.value("zone", nlohmann::json::array());
    if (zone.is_array() && !zone.empty()) {
        std::vector<std::string> printed;
        for (const auto& line : zone) {
            printed.push_back(line.is_string() ? line.get<std::string>() : "");
        }
        ++zoneImages;
        zoneMasked += zoneMaskedWhole;
        // A page with two zones (two cards) is read right when either is.
        const bool read =
            !analysis.zone.empty() && std::search(printed.begin(), printed.end(), analysis.zone.begin(),
                                                  analysis.zone.end()) != printed.end();
        zoneRead += read;
        zoneValid += analysis.zoneValid;
    }
    const std::string country = truth.value("country", "");
    if (!country.empty()) {
        const bool right = analysis.country.code == country;
        ++countryImages;
        countryRight += right;
        if (CountryCatalog::profile(country)) {
            ++knownCountryImages;
            knownCountryRight += right;
        }
    }
}

nlohmann::json EvaluationReport::toJson() const {
    nlohmann::json perKind = nlohmann::json::object();
    for (const auto& [kind, tally] : kinds) {
        perKind[kind] = {
            {"fields", tally.fields}, {"masked", tally.masked}, {"missed", tally.fields - tally.masked}};
    }
    return {{"images", images},
            {"failedImages", failedImages},
            {"secondsPerImage", images ? seconds / images : 0.0},
            {"overMasking", overMasking()},
            {"kinds", perKind},
            {"zones",
             {{"images", zoneImages},
              {"maskedWhole", zoneMasked},
              {"readExactly", zoneRead},
              {"checkDigitsValid", zoneValid}}},
            {"country",
             {{"images", countryImages},
              {"right", countryRight},
              {"knownImages", knownCountryImages},
              {"knownRight", knownCountryRight}}},
            {"misses", misses}};
}

std::string EvaluationReport::toText() const {
    std::string out;
    char line[200];
    std::snprintf(line, sizeof line, "%-16s %7s %7s %7s %8s\n", "kind", "fields", "masked", "missed",
                  "masked%");
    out += line;
    for (const auto& [kind, tally] : kinds) {
        std::snprintf(line, sizeof line, "%-16s %7d %7d %7d %7.1f%%\n", kind.c_str(), tally.fields,
                      tally.masked, tally.fields - tally.masked,
                      tally.fields ? 100.0 * tally.masked / tally.fields : 0.0);
        out += line;
    }
    std::snprintf(line, sizeof line,
                  "\nImages: %d (%d could not be processed); %.2f s per image; over-masking %.1f%%\n", images,
                  failedImages, images ? seconds / images : 0.0, overMasking() * 100);
    out += line;
    if (zoneImages) {
        std::snprintf(line, sizeof line,
                      "Zones: %d images; masked whole %d, read exactly %d, check digits valid %d\n",
                      zoneImages, zoneMasked, zoneRead, zoneValid);
        out += line;
    }
    if (countryImages) {
        std::snprintf(line, sizeof line, "Country right: %d of %d (%d of %d the catalogue knows)\n",
                      countryRight, countryImages, knownCountryRight, knownCountryImages);
        out += line;
    }
    return out;
}

} // namespace cli
