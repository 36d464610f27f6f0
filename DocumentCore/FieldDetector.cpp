#include "FieldClassifiers.h"

#include "CountryCatalog.h"
#include "FieldLexicon.h"
#include "UnicodeText.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace FieldDetector {

const char16_t* const datePattern = u"(?<!\\d)(?:\\d{4}[./-](?:0?[1-9]|1[0-2])[./"
                                    u"-](?:0?[1-9]|[12]\\d|3[01])|(?:0?[1-9]|[12]\\d|3[01])(?:[./-]|\\s+)"
                                    u"(?:0?[1-9]|1[0-2])(?:[./-]|\\s+)\\d{2,4}|(?:0?[1-9]|1[0-2])(?:[./"
                                    u"-]|\\s+)(?:0?[1-9]|[12]\\d|3[01])(?:[./-]|\\s+)"
                                    u"\\d{2,4}|(?:0?[1-9]|[12]\\d|3[01])\\s*\\p{L}{3,12}(?:\\s*/"
                                    u"\\s*\\p{L}{3,12})?\\s+\\d{2,4}|\\p{L}{3,12}\\s+(?:0?[1-9]|[12]"
                                    u"\\d|3[01])[, ]+\\d{4})(?!\\d)";

namespace {

using icu::UnicodeString;
using UnicodeText::utf16;

// ---- Patterns, compiled once ----

struct Patterns {
    std::unique_ptr<icu::RegexPattern> date, street, compoundStreet, digit, compactDate, trailingCompactDate,
        passport, identity, digitGroup, token, licenceCaption, licenceFields, email, phone, numberedStreet,
        postalTown;
    std::vector<std::pair<std::unique_ptr<icu::RegexPattern>, FieldKind>> numbered;
};

const Patterns& patterns() {
    static const Patterns p = [] {
        auto compile = [](const UnicodeString& pattern) {
            return UnicodeText::compile(pattern, "FieldDetector");
        };
        Patterns built;
        built.date = compile(datePattern);
        built.street = compile(u"(?<!\\p{L})(?:STREET|ST\\.|ROAD|RD\\.|AVENUE|AVE\\.|BOULEVARD|BLVD\\.|DRIVE|"
                               u"LANE|CALLE|AVENIDA|RUE|STRASSE|"
                               u"STRAẞE|STRAAT|VIA|УЛИЦА|УЛ\\.|ВУЛИЦЯ|ВУЛ\\.|ПРОСПЕКТ|ПР-Т|ПЕРЕУЛОК|SOKAK|"
                               u"SOK\\.|CADDE|CAD\\.|MAHALLESI|"
                               u"MAH\\.)(?!\\p{L})");
        built.compoundStreet = compile(u"\\p{L}+(?:STRASSE|STRAAT)\\b");
        // English-speaking addresses: a house number, a name and the street's type, often abbreviated
        // without a dot ("1100 NEW BERN AVE", "122 BURNS CRESCENT"); and the town line of a state or
        // province code and a postal code ("BIGTOWN, MA, 02801", "MINNEAPOLIS, MN 55417-1234").
        built.numberedStreet = compile(u"(?<![\\p{L}\\d])\\d{1,6}[A-Z]?\\s+(?:\\p{L}+\\s+){1,4}(?:AVE|AVENUE|"
                                       u"ST|STREET|RD|ROAD|DR|DRIVE|BLVD|LN|LANE|CT|"
                                       u"COURT|PL|PLACE|WAY|HWY|CRESCENT|TERRACE|CLOSE|GARDENS|SQUARE|"
                                       u"PARKWAY|PKWY|CIR|CIRCLE)\\.?(?![\\p{L}\\d])");
        built.postalTown = compile(u"\\p{L}{3,}\\s*,?\\s+[A-Z]{2}\\s*,?\\s+\\d{5}(?:-\\d{4})?(?!\\d)");
        built.digit = compile(u"\\d");
        built.compactDate = compile(u"^\\d{8}$");
        built.trailingCompactDate = compile(u"(?:^|\\s)\\d{8}\\s*$");
        built.passport =
            compile(u"PASSPORT|PASAPORT|PASSEPORT|REISEPASS|ПАСПОРТ|PASAS|CESTOVNI PAS|CESTOVNY PAS|"
                    u"POTNI LIST|PUTOVNICA|UTLEVEL|ΔΙΑΒΑΤΗΡΙΟ|P<[A-Z<]{3}");
        built.identity =
            compile(u"IDENTITY|IDENTIDAD|IDENTITE|PERSONALAUSWEIS|ID CARD|IDENTIFICACAO|IDENTITA|"
                    u"DOWOD OSOBISTY|OBCANSKY PRUKAZ|OBCIANSKY PREUKAZ|KIMLIK KARTI|ЛИЧНА КАРТА|"
                    u"УДОСТОВЕРЕНИЕ ЛИЧНОСТИ|ΔΕΛΤΙΟ ΤΑΥΤΟΤΗΤΑΣ");
        built.digitGroup = compile(u"(?<!\\p{N})\\p{N}{2,4}(?:[ .-]\\p{N}{2,6}){1,3}(?!\\p{N})");
        built.token = compile(u"[\\p{L}\\p{N}]+(?:[-/][\\p{L}\\p{N}]+)*");
        built.licenceCaption = compile(u"(?<![\\p{L}\\d])4\\s*[AАBВ][.) :]?\\s*");
        built.licenceFields = compile(u"(?<![\\p{L}\\d])4\\s?([ABCDАВС])(?![\\p{L}\\d])");
        built.email = compile(u"(?i)(?<![\\w.+-])[A-Z0-9._%+-]+@[A-Z0-9.-]+\\.[A-Z]{2,}(?![\\w.-])");
        built.phone = compile(u"(?<!\\d)(?:\\+?\\d[\\d ()./-]{6,}\\d)(?!\\d)");
        // The numbered captions of the harmonised licence, in the order they are tried.
        built.numbered.emplace_back(compile(u"^\\s*4\\s*[AА][.) :]*(?:\\s|\\d|$)"), FieldKind::issueDate);
        built.numbered.emplace_back(compile(u"^\\s*4\\s*[BВ][.) :]*(?:\\s|\\d|$)"), FieldKind::expiryDate);
        built.numbered.emplace_back(compile(u"^\\s*3(?:[.)]\\s+|\\s+|[.)]?$)"), FieldKind::birthDate);
        built.numbered.emplace_back(compile(u"^\\s*5(?:[.)]\\s+|\\s+|[.)]?$)"), FieldKind::number);
        built.numbered.emplace_back(compile(u"^\\s*8(?:[.)]\\s+|\\s+|[.)]?$)"), FieldKind::address);
        built.numbered.emplace_back(compile(u"^\\s*[12](?:[.)]\\s+|\\s+|[.)]?$)"), FieldKind::personName);
        return built;
    }();
    return p;
}

// ---- Characters, classified per grapheme by its first scalar ----

bool isNumeric(UChar32 c) {
    const int8_t type = u_charType(c);
    return type == U_DECIMAL_DIGIT_NUMBER || type == U_LETTER_NUMBER || type == U_OTHER_NUMBER;
}

// Calls `visit` with the first code point of each user-perceived character: a base and the marks
// and joiners that extend it count once.
template <class Visit> void forEachGrapheme(const UnicodeString& text, Visit visit) {
    for (int32_t i = 0; i < text.length();) {
        const UChar32 first = text.char32At(i);
        i += U16_LENGTH(first);
        while (i < text.length()) {
            const UChar32 next = text.char32At(i);
            if (!u_hasBinaryProperty(next, UCHAR_GRAPHEME_EXTEND) && next != 0x200D) {
                break;
            }
            i += U16_LENGTH(next);
        }
        visit(first);
    }
}

struct Counts {
    int letters = 0;
    int digits = 0;
    int characters = 0;
};

Counts counts(const UnicodeString& text) {
    Counts c;
    forEachGrapheme(text, [&](UChar32 first) {
        ++c.characters;
        c.letters += u_isalpha(first) ? 1 : 0;
        c.digits += isNumeric(first) ? 1 : 0;
    });
    return c;
}

bool hasNumeric(const UnicodeString& text) {
    return counts(text).digits > 0;
}

bool containsDate16(const UnicodeString& text) {
    return UnicodeText::search(*patterns().date, text);
}

bool isLikelyName16(const UnicodeString& raw) {
    constexpr int minLetters = 3;
    constexpr int maxCharacters = 100;
    const UnicodeString text = UnicodeText::trimmedWhitespace(raw);
    bool allowed = true;
    const Counts c = counts(text);
    forEachGrapheme(text, [&](UChar32 first) {
        if (!u_isalpha(first) && !u_isUWhiteSpace(first) && first != '-' && first != '\'' &&
            first != 0x2019 && first != '.') {
            allowed = false;
        }
    });
    return c.letters >= minLetters && c.characters <= maxCharacters && c.digits == 0 && allowed;
}

std::vector<TextRange> identifierRanges16(const UnicodeString& text) {
    const Patterns& p = patterns();
    const std::vector<TextRange> dates = UnicodeText::findAll(*p.date, text);
    auto overlaps = [](const TextRange& a, const TextRange& b) {
        return a.location < b.end() && b.location < a.end();
    };
    std::vector<TextRange> candidates;
    for (const icu::RegexPattern* pattern : {p.digitGroup.get(), p.token.get()}) {
        for (const TextRange& range : UnicodeText::findAll(*pattern, text)) {
            if (std::any_of(dates.begin(), dates.end(),
                            [&](const TextRange& d) { return overlaps(range, d); })) {
                continue;
            }
            const Counts c = counts(UnicodeString(text, range.location, range.length));
            // Five digits alone, or at least two digits and a letter making five together.
            if (c.digits >= 5 || (c.digits >= 2 && c.letters >= 1 && c.digits + c.letters >= 5)) {
                candidates.push_back(range);
            }
        }
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const TextRange& a, const TextRange& b) { return a.length > b.length; });
    std::vector<TextRange> kept;
    for (const TextRange& candidate : candidates) {
        if (std::none_of(kept.begin(), kept.end(),
                         [&](const TextRange& k) { return overlaps(candidate, k); })) {
            kept.push_back(candidate);
        }
    }
    std::stable_sort(kept.begin(), kept.end(),
                     [](const TextRange& a, const TextRange& b) { return a.location < b.location; });
    return kept;
}

bool looksLikeAddress16(const UnicodeString& normalized) {
    const Patterns& p = patterns();
    if (UnicodeText::search(*p.street, normalized) || UnicodeText::search(*p.numberedStreet, normalized) ||
        UnicodeText::search(*p.postalTown, normalized)) {
        return true;
    }
    return UnicodeText::search(*p.digit, normalized) && UnicodeText::search(*p.compoundStreet, normalized);
}

std::optional<FieldKind> numberedKind16(const UnicodeString& normalized, bool driving) {
    if (!driving) {
        return std::nullopt;
    }
    for (const auto& [pattern, kind] : patterns().numbered) {
        if (UnicodeText::search(*pattern, normalized)) {
            return kind;
        }
    }
    return std::nullopt;
}

std::optional<FieldKind> labelKind16(const UnicodeString& normalized, bool driving) {
    if (const auto numbered = numberedKind16(normalized, driving)) {
        return numbered;
    }
    const auto matches = FieldLexicon::labelMatchesInNormalized(normalized);
    return matches.empty() ? std::nullopt : std::optional(matches.front().kind);
}

std::string documentType16(const UnicodeString& normalizedJoined) {
    if (FieldLexicon::isDrivingLicenceNormalized(normalizedJoined)) {
        return drivingLicenceType;
    }
    if (UnicodeText::search(*patterns().passport, normalizedJoined)) {
        return passportType;
    }
    if (UnicodeText::search(*patterns().identity, normalizedJoined)) {
        return idCardType;
    }
    // A title the recogniser lost or split over two rows: the harmonised licence's field numbers 4a to
    // 4d, two different ones, name the document as well.
    std::set<char16_t> fields;
    for (const TextRange& field : UnicodeText::findAll(*patterns().licenceFields, normalizedJoined)) {
        const char16_t letter = normalizedJoined.charAt(field.end() - 1);
        fields.insert(letter == u'А' ? u'A' : letter == u'В' ? u'B' : letter == u'С' ? u'C' : letter);
    }
    return fields.size() >= 2 ? drivingLicenceType : unknownType;
}

bool labelHasNameValue16(const UnicodeString& line) {
    const UnicodeString normalized = FieldLexicon::normalizeUnicode(line);
    const auto matches = FieldLexicon::labelMatchesInNormalized(normalized);
    if (matches.empty() || normalized.length() != line.length()) {
        return false;
    }
    const TextRange first = matches.front().range;
    if (first.end() > line.length()) {
        return false;
    }
    UnicodeString rest(line, first.end());
    int32_t start = 0;
    int32_t end = rest.length();
    auto strip = [](char16_t c) { return c == u':' || c == u' ' || c == u'.'; };
    while (start < end && strip(rest.charAt(start))) {
        ++start;
    }
    while (end > start && strip(rest.charAt(end - 1))) {
        --end;
    }
    return isLikelyName16(UnicodeString(rest, start, end - start));
}

bool isHeading16(const UnicodeString& line) {
    const UnicodeString normalized = FieldLexicon::normalizeUnicode(line);
    if (documentType16(normalized) != unknownType) {
        return true;
    }
    for (const auto& aliases : CountryCatalog::normalizedAliases()) {
        for (const UnicodeString& alias : aliases) {
            if (UnicodeText::containsWord(normalized, alias)) {
                return true;
            }
        }
    }
    return false;
}

bool isDateKind(FieldKind kind) {
    return kind == FieldKind::birthDate || kind == FieldKind::issueDate || kind == FieldKind::expiryDate;
}

double midY(const Rect& r) {
    return r.y + r.height / 2;
}

// How well a caption fits a value: smaller is nearer; none when out of reach.
std::optional<double> pairingScore(const Rect& value, const Rect& caption) {
    constexpr double rowTolerance = 0.65;    // share of the taller line
    constexpr double leftOverlap = 0.01;     // allowed left of the caption's right edge
    constexpr double rowGap = 0.25;          // largest horizontal gap on a row
    constexpr double topOverlap = 0.004;     // allowed above the caption's bottom
    constexpr double belowHeights = 2.2;     // largest gap below, in caption heights ...
    constexpr double belowMinimum = 0.06;    // ... but at least this
    constexpr double leftMisalignment = 0.1; // left edges below a caption
    const bool sameRow =
        std::abs(midY(value) - midY(caption)) < rowTolerance * std::max(value.height, caption.height) &&
        value.minX() >= caption.maxX() - leftOverlap && value.minX() - caption.maxX() < rowGap;
    if (sameRow) {
        return std::abs(value.minX() - caption.maxX());
    }
    const bool below = value.minY() >= caption.maxY() - topOverlap &&
                       value.minY() - caption.maxY() < std::max(belowHeights * caption.height, belowMinimum);
    if (below && std::abs(value.minX() - caption.minX()) < leftMisalignment) {
        // Vertical distance counts double against horizontal offset.
        return 2 * (value.minY() - caption.maxY()) + std::abs(value.minX() - caption.minX());
    }
    return std::nullopt;
}

struct Assignment {
    FieldKind kind;
    FieldEvidence evidence;
};

// What one call asks of a line, worked out once: phase 2 asks it of every caption for every value.
class LineFacts {
public:
    LineFacts(const UnicodeString& raw, const UnicodeString& norm) : raw_(raw), norm_(norm) {}

    const UnicodeString& raw() const { return raw_; }
    const UnicodeString& norm() const { return norm_; }
    bool hasDate() {
        return cached(hasDate_, [&] { return containsDate16(norm_); });
    }
    bool hasIdentifierAsRead() {
        return cached(identifierAsRead_, [&] { return !identifierRanges16(raw_).empty(); });
    }
    bool hasIdentifier() {
        return cached(identifier_, [&] { return !identifierRanges16(norm_).empty(); });
    }
    bool nameAsNormalised() {
        return cached(nameNormalised_, [&] { return isLikelyName16(norm_); });
    }
    bool captionHasName() {
        return cached(captionHasName_, [&] { return labelHasNameValue16(raw_); });
    }
    bool address() {
        return cached(address_, [&] { return looksLikeAddress16(norm_); });
    }
    bool compactDate() {
        return cached(compactDate_, [&] {
            return UnicodeText::search(*patterns().compactDate, UnicodeText::trimmedHorizontal(norm_));
        });
    }
    bool numeric() {
        return cached(numeric_, [&] { return hasNumeric(norm_); });
    }

private:
    template <class Compute> static bool cached(std::optional<bool>& slot, Compute compute) {
        if (!slot) {
            slot = compute();
        }
        return *slot;
    }

    UnicodeString raw_, norm_;
    std::optional<bool> hasDate_, identifierAsRead_, identifier_, nameNormalised_, captionHasName_, address_,
        compactDate_, numeric_;
};

} // namespace

bool containsDate(std::string_view text) {
    return containsDate16(utf16(text));
}
bool isLikelyName(std::string_view text) {
    return isLikelyName16(utf16(text));
}
bool labelHasNameValue(std::string_view line) {
    return labelHasNameValue16(utf16(line));
}

bool looksLikeLabelledNumber(std::string_view text) {
    const UnicodeString value = utf16(text);
    return hasNumeric(value) && !containsDate16(value);
}

bool looksLikeAddress(std::string_view normalizedText) {
    return looksLikeAddress16(utf16(normalizedText));
}

std::optional<FieldKind> numberedKind(std::string_view normalizedText, bool driving) {
    return numberedKind16(utf16(normalizedText), driving);
}

std::optional<FieldKind> labelKind(std::string_view line, bool drivingLicence) {
    return labelKind16(FieldLexicon::normalizeUnicode(utf16(line)), drivingLicence);
}

std::string documentType(const std::vector<TextRegion>& lines) {
    std::string joined;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        joined += (i ? " " : "") + lines[i].text;
    }
    return documentType16(FieldLexicon::normalizeUnicode(utf16(joined)));
}

bool isHeading(std::string_view line, std::string_view) {
    return isHeading16(utf16(line));
}

std::vector<TextRange> identifierRanges(std::string_view text) {
    return identifierRanges16(utf16(text));
}

std::vector<TextRange> fieldSpans(std::string_view text, bool drivingLicence) {
    const UnicodeString line = utf16(text);
    const int32_t length = line.length();
    const UnicodeString normalized = FieldLexicon::normalizeUnicode(line);
    if (normalized.length() != length) {
        return {TextRange{0, length}};
    }
    std::set<int32_t> cuts{0, length};
    for (const auto& match : FieldLexicon::labelMatchesInNormalized(normalized)) {
        cuts.insert(match.range.location);
    }
    if (drivingLicence) {
        for (const TextRange& caption : UnicodeText::findAll(*patterns().licenceCaption, normalized)) {
            cuts.insert(caption.location);
        }
    }
    for (const TextRange& identifier : identifierRanges16(line)) {
        cuts.insert(identifier.location);
        cuts.insert(identifier.end());
    }
    std::vector<TextRange> spans;
    for (auto it = cuts.begin(); std::next(it) != cuts.end(); ++it) {
        spans.push_back(TextRange{*it, *std::next(it) - *it});
    }
    return spans;
}

namespace {

// One page as the rules see it: its lines, the facts of each line, the captions found and the kind
// each line has been given so far. The phases below fill it in order.
struct Page {
    const std::vector<TextRegion>& lines;
    std::vector<LineFacts> facts;
    bool driving = false;
    std::vector<std::optional<FieldKind>> labels;
    std::map<std::size_t, Assignment> assigned;

    std::size_t size() const { return lines.size(); }
};

// The caption of every line.
void findCaptions(Page& page) {
    page.labels.resize(page.size());
    for (std::size_t i = 0; i < page.size(); ++i) {
        page.labels[i] = labelKind16(page.facts[i].norm(), page.driving);
        if (page.labels[i]) {
            page.assigned[i] = Assignment{*page.labels[i], FieldEvidence::label};
        }
    }
}

// Values beside or below captions: each uncaptioned line takes the nearest caption that accepts it.
void pairValues(Page& page) {
    for (std::size_t i = 0; i < page.size(); ++i) {
        if (page.labels[i]) {
            continue;
        }
        LineFacts& value = page.facts[i];
        std::optional<std::pair<double, std::size_t>> best;
        for (std::size_t j = 0; j < page.size(); ++j) {
            if (!page.labels[j]) {
                continue;
            }
            const FieldKind kind = *page.labels[j];
            LineFacts& caption = page.facts[j];
            if (isDateKind(kind)) {
                if (caption.hasDate()) {
                    continue; // the caption carries its own value
                }
                if (!value.hasDate() && !value.compactDate()) {
                    continue;
                }
            } else if (kind == FieldKind::number) {
                if (caption.hasIdentifierAsRead() || !(value.numeric() && !value.hasDate())) {
                    continue;
                }
            } else if (kind == FieldKind::personName) {
                if (caption.captionHasName() || !value.nameAsNormalised()) {
                    continue;
                }
            }
            // An address caption refuses a value that is itself a date caption; a value candidate has
            // no caption of any kind (no numbered one, no vocabulary label), so every value passes.
            const std::optional<double> score = pairingScore(page.lines[i].rect, page.lines[j].rect);
            if (score && (!best || *score < best->first)) {
                best = std::pair{*score, j};
            }
        }
        if (best) {
            page.assigned[i] = Assignment{*page.labels[best->second], FieldEvidence::nearbyLabel};
        }
    }
}

// Address blocks grow downwards from an address caption or an address-like line.
void growAddresses(Page& page) {
    const auto& lines = page.lines;
    std::vector<std::size_t> byTop(page.size());
    for (std::size_t i = 0; i < page.size(); ++i) {
        byTop[i] = i;
    }
    std::stable_sort(byTop.begin(), byTop.end(), [&](std::size_t a, std::size_t b) {
        return lines[a].rect.minY() < lines[b].rect.minY();
    });
    for (std::size_t i = 0; i < page.size(); ++i) {
        const bool caption = page.labels[i] == FieldKind::address;
        if (!caption && (page.labels[i] || !page.facts[i].address())) {
            continue;
        }
        page.assigned[i] =
            Assignment{FieldKind::address, caption ? FieldEvidence::label : FieldEvidence::format};
        const Rect& start = lines[i].rect;
        double bottom = start.maxY();
        for (std::size_t k : byTop) {
            const Rect& r = lines[k].rect;
            // The zone below the address line: 0.003 overlap, 0.16 deep, left edges within 0.12.
            if (k == i || !(r.minY() >= start.maxY() - 0.003 && r.minY() - start.maxY() < 0.16 &&
                            std::abs(r.minX() - start.minX()) < 0.12)) {
                continue;
            }
            if (page.labels[k] || page.facts[k].hasDate() ||
                r.minY() - bottom > std::max(1.6 * start.height, 0.045)) {
                break;
            }
            const auto existing = page.assigned.find(k);
            if (existing != page.assigned.end() &&
                (isDateKind(existing->second.kind) || existing->second.kind == FieldKind::personName)) {
                break;
            }
            page.assigned[k] = Assignment{FieldKind::address, FieldEvidence::nearbyLabel};
            bottom = r.maxY();
        }
    }
}

// One decision per line: its assignment, else its own form.
void decideLines(Page& page, Detection& result) {
    const Patterns& p = patterns();
    auto emit = [&](std::size_t i, FieldKind kind, FieldEvidence evidence) {
        result.regions.push_back(RedactionRegion{kind, page.lines[i].rect, Uuid::random(), evidence});
    };
    for (std::size_t i = 0; i < page.size(); ++i) {
        LineFacts& line = page.facts[i];
        UnicodeString compact(line.norm());
        compact.findAndReplace(u" ", u"");
        const auto entry = page.assigned.find(i);
        const Assignment* assignment = entry == page.assigned.end() ? nullptr : &entry->second;
        const FieldEvidence evidence = assignment ? assignment->evidence : FieldEvidence::format;

        // A zone line: two fillers and 15 characters.
        int fillers = 0;
        for (int32_t c = 0; c < compact.length(); ++c) {
            fillers += compact.charAt(c) == u'<';
        }
        if (fillers >= 2 && compact.countChar32() >= 15) {
            emit(i, FieldKind::machineReadable, FieldEvidence::machineReadable);
            continue;
        }
        if (assignment && assignment->kind != FieldKind::personName) {
            emit(i, assignment->kind, evidence);
            if (isDateKind(assignment->kind) && line.hasIdentifier() &&
                (line.hasDate() || !UnicodeText::search(*p.trailingCompactDate, line.norm()))) {
                emit(i, FieldKind::number, FieldEvidence::format);
                result.warnings.push_back(
                    "Номер и дата объединены в одну строку: строка скрыта целиком. Проверьте маску.");
            }
            continue;
        }
        if (!assignment) {
            if (line.address()) {
                emit(i, FieldKind::address, FieldEvidence::format);
                continue;
            }
            if (line.hasDate()) {
                emit(i, FieldKind::uncertain, FieldEvidence::format);
                continue;
            }
        }
        if (UnicodeText::search(*p.email, line.raw())) {
            emit(i, FieldKind::email, FieldEvidence::format);
            continue;
        }
        constexpr int phoneDigits = 7;
        if (!line.hasDate() && counts(line.norm()).digits >= phoneDigits &&
            UnicodeText::search(*p.phone, line.raw())) {
            emit(i, FieldKind::phone, FieldEvidence::format);
            continue;
        }
        if (line.hasIdentifier()) {
            emit(i, FieldKind::number, FieldEvidence::format);
            continue;
        }
        if (assignment) { // only a name is left assigned here
            emit(i, FieldKind::personName, evidence);
            continue;
        }
        if (isLikelyName16(line.raw()) && !isHeading16(line.raw())) {
            emit(i, FieldKind::personName, FieldEvidence::nameCandidate);
        }
    }
}

// What the person should check on this page.
void pageWarnings(const Page& page, Detection& result) {
    auto emitted = [&](FieldKind kind) {
        return std::any_of(result.regions.begin(), result.regions.end(),
                           [&](const RedactionRegion& r) { return r.kind == kind; });
    };
    constexpr float lowConfidence = 0.65f;
    if (emitted(FieldKind::uncertain)) {
        result.warnings.push_back("Есть даты без понятной подписи: они скрыты. Переключатели дат действуют "
                                  "только на распознанные поля.");
    }
    if (std::any_of(page.lines.begin(), page.lines.end(),
                    [&](const TextRegion& l) { return l.confidence < lowConfidence; })) {
        result.warnings.push_back(
            "Часть текста распознана неуверенно. Проверьте номера, даты и адрес на увеличенном изображении.");
    }
    if (result.type == unknownType) {
        result.warnings.push_back("Неизвестный тип документа. Использованы общие правила.");
    }
    if (!emitted(FieldKind::number)) {
        result.warnings.push_back("Отдельное поле номера не найдено. Проверьте все номера документа.");
    }
    if (!emitted(FieldKind::birthDate)) {
        result.warnings.push_back("Дата рождения не определена по подписи. Проверьте, что она закрыта.");
    }
}

} // namespace

Detection detect(const std::vector<TextRegion>& lines) {
    Page page{lines, {}, false, {}, {}};
    page.facts.reserve(lines.size());
    for (const TextRegion& line : lines) {
        const UnicodeString raw = utf16(line.text);
        page.facts.emplace_back(raw, FieldLexicon::normalizeUnicode(raw));
    }
    Detection result;
    result.type = documentType(lines);
    page.driving = result.type == drivingLicenceType;
    findCaptions(page);
    pairValues(page);
    growAddresses(page);
    decideLines(page, result);
    pageWarnings(page, result);
    return result;
}

} // namespace FieldDetector
