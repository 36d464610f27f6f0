#pragma once

// The printed captions that announce a personal field on identity documents in 28 languages, and the
// titles that name a driving licence. Every comparison works on normalised text.

#include "DocumentTypes.h"

#include <unicode/unistr.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace FieldLexicon {

struct Vocabulary {
    std::string language;
    std::map<FieldKind, std::vector<std::string>>
        fields; // birthDate .. personName, alternatives in text order
    std::vector<std::string> drivingTitles;

    bool operator==(const Vocabulary&) const = default;
};

// The embedded vocabulary, one entry per language, built once on first use.
const std::vector<Vocabulary>& vocabularies();

struct LabelMatch {
    FieldKind kind;
    TextRange range; // in the normalised text

    bool operator==(const LabelMatch&) const = default;
};

// Captions in a line: non-overlapping (the longest wins, then the earlier kind), sorted by position.
std::vector<LabelMatch> labelMatches(std::string_view text);
std::vector<LabelMatch> labelMatchesInNormalized(const icu::UnicodeString& normalizedText);

// Whether a driving-licence title stands in the text as whole words.
bool isDrivingLicence(std::string_view text);
bool isDrivingLicenceNormalized(const icu::UnicodeString& normalizedText);

// Case and diacritic folding, full upper-casing, and the typographic apostrophe made plain.
std::string normalize(std::string_view text);
icu::UnicodeString normalizeUnicode(const icu::UnicodeString& text);

// Parses vocabulary text of the embedded format; a line without exactly 8 columns stops the program.
// Exposed so that the format's checks can be exercised on text other than the embedded one.
std::vector<Vocabulary> parseVocabularies(std::string_view text);

} // namespace FieldLexicon
