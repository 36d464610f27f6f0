#pragma once

// Runs the whole pipeline on a folder of annotated images and measures what it masks. An annotation
// NAME.json beside NAME.jpg (or .png, .heic, .heif) holds {"fields": [{"kind", "x", "y", "width",
// "height"}]}, normalised to the image as a viewer shows it, origin top-left.

#include "Bitmap.h"
#include "DocumentTypes.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace cli {

struct KindTally {
    int fields = 0;
    int masked = 0; // at least 98% of the field's box painted black
};

struct EvaluationReport {
    int images = 0;
    int failedImages = 0;
    double seconds = 0;
    double paintedOutside = 0; // painted pixels outside every field
    double painted = 0;
    std::map<std::string, KindTally> kinds;
    std::vector<std::string> misses; // "IMAGE: kind (coverage)"
    // Of images whose annotation gives a zone: masked whole, read exactly, every check digit valid.
    int zoneImages = 0, zoneMasked = 0, zoneRead = 0, zoneValid = 0;
    // Of images whose annotation names a country (and of those the catalogue knows): detected right.
    int countryImages = 0, countryRight = 0, knownCountryImages = 0, knownCountryRight = 0;

    double overMasking() const { return painted > 0 ? paintedOutside / painted : 0; }
    // Adds one image: `painted` is the redacted image, `source` the same before masking, `fields` the
    // annotation's list, and `toPainted` carries an annotation point into the painted image's pixels.
    // A field's pixels are those whose centre lies inside its corners (or its box).
    void score(const std::string& name, const nlohmann::json& fields, const Bitmap& painted,
               const Bitmap& source,
               const std::function<std::pair<double, double>(double, double)>& toPainted);
    // Adds one image's zone and country against its annotation ("zone", "country").
    void tallyZoneAndCountry(const nlohmann::json& truth, const Analysis& analysis, bool zoneMaskedWhole);
    nlohmann::json toJson() const;
    std::string toText() const;
};

EvaluationReport evaluate(const std::filesystem::path& folder,
                          const std::function<void(const std::string& name, bool ok)>& progress);

} // namespace cli
