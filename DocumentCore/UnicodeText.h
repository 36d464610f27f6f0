#pragma once

// ICU helpers shared by the text namespaces of the core: UTF-8/UTF-16 conversion, literal escaping,
// whole-word search and compiled patterns. Ranges are in UTF-16 code units, as the detectors count them.

#include "DocumentTypes.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace UnicodeText {

icu::UnicodeString utf16(std::string_view utf8);
std::string utf8(const icu::UnicodeString& text);

// Letters of any script and decimal digits: what may not touch a whole word on either side.
bool isWordCharacter(UChar32 c) noexcept;

// Every character taken literally inside a pattern.
icu::UnicodeString escaped(const icu::UnicodeString& literal);

// Whether `phrase` occurs in `text` with no letter or digit directly before or after it: the same
// answer as a search for (?<![\p{L}\d])phrase(?![\p{L}\d]), without compiling a pattern.
bool containsWord(const icu::UnicodeString& text, const icu::UnicodeString& phrase);

// Compiles a pattern of the embedded tables; a pattern that does not compile is a programming error
// and stops the program with a message naming it.
std::unique_ptr<icu::RegexPattern> compile(const icu::UnicodeString& pattern, const char* owner,
                                           uint32_t flags = 0);

// The engine's ordinary non-overlapping scan from the start.
std::vector<TextRange> findAll(const icu::RegexPattern& pattern, const icu::UnicodeString& text);
bool search(const icu::RegexPattern& pattern, const icu::UnicodeString& text);

// Trims spaces and tabs only (not line breaks), or all white space and line breaks.
icu::UnicodeString trimmedHorizontal(const icu::UnicodeString& text);
icu::UnicodeString trimmedWhitespace(const icu::UnicodeString& text);

// Stops the program: broken embedded data is a programming error, never a user's.
[[noreturn]] void fatal(const std::string& message);

} // namespace UnicodeText
