#pragma once

// The 32 issuing states the system knows, and the detection of the issuing state from recognised text.

#include "DocumentTypes.h"

#include <unicode/unistr.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CountryCatalog {

// The catalogue in its fixed order: EU members by code, then Russia, Turkey, Ukraine, USA, Canada.
const std::vector<CountryProfile>& profiles();

// The row whose code equals `code` exactly (case-sensitive); none for an absent code.
std::optional<CountryProfile> profile(const std::optional<std::string>& code);

// The issuing state from the whole lines of one image, and what the verdict rests on.
CountryDetection detect(const std::vector<TextRegion>& lines);

// Whether `phrase` (raw; it is normalised here) stands in the already normalised text as whole words.
bool containsPhrase(std::string_view normalizedText, std::string_view phrase);
bool containsPhraseUnicode(const icu::UnicodeString& normalizedText, std::string_view phrase);

// The catalogue's aliases, normalised, row by row: what the heading test of a line looks for.
const std::vector<std::vector<icu::UnicodeString>>& normalizedAliases();

} // namespace CountryCatalog
