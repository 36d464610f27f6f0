#pragma once

// Finds the lines of a page that carry personal data: captions and the values beside or below them,
// address blocks, machine-readable zones, e-mail addresses, phone numbers, identifiers, dates and
// names, each with the reason it was flagged.

#include "DocumentTypes.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace FieldDetector {

// The one date pattern of the core: year first; day, month, year; month, day, year; day, month word
// (or two languages' words, "07 DEC /DÉC 84"; the blank after the day is often lost in reading,
// "10DEC/DEC 16"), year; month word, day, year. Not preceded or followed by a digit; no calendar check.
extern const char16_t* const datePattern;

inline constexpr const char* drivingLicenceType = "Водительское удостоверение";
inline constexpr const char* passportType = "Паспорт";
inline constexpr const char* idCardType = "ID-карта";
inline constexpr const char* unknownType = "Тип не определён";

// The document type a page's lines name (one of the types above).
std::string documentType(const std::vector<TextRegion>& lines);

// Cuts a line into spans at each caption, each 4a/4b caption of a driving licence, and around each
// identifier; the spans tile the line. A line whose normalisation changes its length stays whole.
std::vector<TextRange> fieldSpans(std::string_view text, bool drivingLicence);

struct Detection {
    std::vector<RedactionRegion> regions;
    std::vector<std::string> warnings;
    std::string type;
};

Detection detect(const std::vector<TextRegion>& lines);

} // namespace FieldDetector
