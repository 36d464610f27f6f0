#pragma once

// The single-line classifiers the field detector is built from, open for their own tests and fuzzers.
// Not part of the core's interface: the pipeline calls FieldDetector::detect.

#include "FieldDetector.h"

namespace FieldDetector {

bool isLikelyName(std::string_view text);
bool labelHasNameValue(std::string_view line);
bool looksLikeLabelledNumber(std::string_view text);
bool looksLikeAddress(std::string_view normalizedText);
std::optional<FieldKind> numberedKind(std::string_view normalizedText, bool driving);
std::optional<FieldKind> labelKind(std::string_view line, bool drivingLicence);
bool isHeading(std::string_view line, std::string_view type);
bool containsDate(std::string_view text);

// Identifier-like runs in a line (UTF-16 ranges), dates excluded, longest first on overlap.
std::vector<TextRange> identifierRanges(std::string_view text);

} // namespace FieldDetector
