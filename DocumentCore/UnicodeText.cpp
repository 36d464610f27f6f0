#include "UnicodeText.h"

#include <unicode/uchar.h>

#include <cstdio>
#include <cstdlib>

namespace UnicodeText {

icu::UnicodeString utf16(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::string utf8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

bool isWordCharacter(UChar32 c) noexcept {
    return u_isalpha(c) || u_charType(c) == U_DECIMAL_DIGIT_NUMBER;
}

icu::UnicodeString escaped(const icu::UnicodeString& literal) {
    icu::UnicodeString out;
    for (int32_t i = 0; i < literal.length();) {
        const UChar32 c = literal.char32At(i);
        // A backslash before any ASCII character other than a letter or digit makes it literal.
        if (c < 0x80 && !u_isalnum(c) && c != ' ') {
            out.append(u'\\');
        }
        out.append(c);
        i += U16_LENGTH(c);
    }
    return out;
}

bool containsWord(const icu::UnicodeString& text, const icu::UnicodeString& phrase) {
    if (phrase.isEmpty()) {
        return false;
    }
    for (int32_t at = text.indexOf(phrase); at >= 0; at = text.indexOf(phrase, at + 1)) {
        const int32_t end = at + phrase.length();
        const bool freeBefore = at == 0 || !isWordCharacter(text.char32At(text.moveIndex32(at, -1)));
        const bool freeAfter = end >= text.length() || !isWordCharacter(text.char32At(end));
        if (freeBefore && freeAfter) {
            return true;
        }
    }
    return false;
}

std::unique_ptr<icu::RegexPattern> compile(const icu::UnicodeString& pattern, const char* owner,
                                           uint32_t flags) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError where{};
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(pattern, flags, where, status));
    if (U_FAILURE(status) || !compiled) {
        fatal(std::string(owner) + ": pattern does not compile (" + u_errorName(status) + " at offset " +
              std::to_string(where.offset) + "): " + utf8(pattern));
    }
    return compiled;
}

std::vector<TextRange> findAll(const icu::RegexPattern& pattern, const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern.matcher(text, status));
    std::vector<TextRange> ranges;
    if (U_FAILURE(status)) {
        return ranges;
    }
    while (matcher->find(status) && U_SUCCESS(status)) {
        const int32_t start = matcher->start(status);
        const int32_t end = matcher->end(status);
        ranges.push_back(TextRange{start, end - start});
    }
    return ranges;
}

bool search(const icu::RegexPattern& pattern, const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern.matcher(text, status));
    return U_SUCCESS(status) && matcher->find(status) && U_SUCCESS(status);
}

namespace {

template <class Predicate> icu::UnicodeString trimmed(const icu::UnicodeString& text, Predicate strip) {
    int32_t start = 0;
    int32_t end = text.length();
    while (start < end && strip(text.char32At(start))) {
        start = text.moveIndex32(start, 1);
    }
    while (end > start) {
        const int32_t previous = text.moveIndex32(end, -1);
        if (!strip(text.char32At(previous))) {
            break;
        }
        end = previous;
    }
    return icu::UnicodeString(text, start, end - start);
}

} // namespace

icu::UnicodeString trimmedHorizontal(const icu::UnicodeString& text) {
    return trimmed(text, [](UChar32 c) { return u_isblank(c) != 0; });
}

icu::UnicodeString trimmedWhitespace(const icu::UnicodeString& text) {
    return trimmed(text, [](UChar32 c) { return u_isUWhiteSpace(c) != 0; });
}

void fatal(const std::string& message) {
    std::fprintf(stderr, "quorvel: %s\n", message.c_str());
    std::abort();
}

} // namespace UnicodeText
