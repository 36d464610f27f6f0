#pragma once

#include "DocumentTypes.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace RiskEngine {

// Of an image only its pixel size is inspected.
struct PixelSize {
    int width = 0;
    int height = 0;
};

// ICAO 9303 check digit (weights 7, 3, 1) of one machine-readable-zone field; none when the field holds
// anything but "0"-"9", "A"-"Z" and "<".
std::optional<int> checkDigit(std::string_view field) noexcept;

// The suspicion index: zone check digits, pixel size and proportions, and photo editors named in the
// metadata. The score is absent when no check could be made.
RiskAssessment assess(const std::vector<TextRegion>& lines, const std::optional<std::string>& software,
                      std::optional<PixelSize> image);

} // namespace RiskEngine
