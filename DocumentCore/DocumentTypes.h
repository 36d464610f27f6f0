#pragma once

// The value records that every stage of the document core and the application pass between them.
// Every rectangle is normalised to its image (fractions 0..1 of width and height), origin top-left,
// y growing downward; only the renderer converts to pixels.

#include "Bitmap.h"

#include <array>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double minX() const noexcept { return x; }
    double minY() const noexcept { return y; }
    double maxX() const noexcept { return x + width; }
    double maxY() const noexcept { return y + height; }

    bool operator==(const Rect&) const = default;
};

// A range of text: location and length in UTF-16 code units.
struct TextRange {
    int location = 0;
    int length = 0;

    int end() const noexcept { return location + length; }
    bool operator==(const TextRange&) const = default;
};

// Random (version 4) identity of a mask.
struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    static Uuid random();
    std::string string() const; // canonical upper-case 8-4-4-4-12 form

    bool operator==(const Uuid&) const = default;
};

enum class FieldKind {
    number,
    address,
    birthDate,
    face,
    issueDate,
    expiryDate,
    machineReadable,
    uncertain,
    manual,
    personName,
    phone,
    email,
};

inline constexpr std::array<FieldKind, 12> allFieldKinds{
    FieldKind::number,    FieldKind::address,    FieldKind::birthDate,       FieldKind::face,
    FieldKind::issueDate, FieldKind::expiryDate, FieldKind::machineReadable, FieldKind::uncertain,
    FieldKind::manual,    FieldKind::personName, FieldKind::phone,           FieldKind::email,
};

std::string_view rawValue(FieldKind kind) noexcept;
std::string_view title(FieldKind kind) noexcept;
// Raw values are case-sensitive; an unknown one gives no kind.
std::optional<FieldKind> fieldKind(std::string_view rawValue) noexcept;

// Why a region was flagged. The raw value is the Russian description itself.
enum class FieldEvidence {
    label,
    nearbyLabel,
    format,
    machineReadable,
    nameCandidate,
    vision,
    manual,
};

std::string_view rawValue(FieldEvidence evidence) noexcept;
std::optional<FieldEvidence> fieldEvidence(std::string_view rawValue) noexcept;

struct TextRegion {
    std::string text;
    Rect rect;
    float confidence = 0;

    bool operator==(const TextRegion&) const = default;
};

struct RedactionRegion {
    FieldKind kind = FieldKind::uncertain;
    Rect rect;
    Uuid id;
    FieldEvidence evidence = FieldEvidence::format;

    bool operator==(const RedactionRegion&) const = default;
};

// The user's switches for the optional fields; every other kind is always painted.
struct RedactionPolicy {
    bool hideFace = false;
    bool hideIssueDate = false;
    bool hideExpiryDate = false;
    bool hidePersonName = false;

    bool hides(FieldKind kind) const noexcept;

    bool operator==(const RedactionPolicy&) const = default;
};

// What a copy says of itself, written across it under the masks: the word for "copy" in the person's
// language, what the copy is for (may be empty) and the date, ISO 8601.
struct CopyMark {
    std::string word;
    std::string purpose;
    std::string date;

    // The three joined with " · ", the purpose left out when empty.
    std::string line() const;
};

struct RiskAssessment {
    std::optional<int> score;
    std::vector<std::string> findings;
    int checksPerformed = 0;

    bool operator==(const RiskAssessment&) const = default;
};

struct CountryProfile {
    std::string code;
    std::string name;
    bool isEU = false;
    std::vector<std::string> aliases;
    std::vector<std::string> languages;

    bool operator==(const CountryProfile&) const = default;
};

struct CountryDetection {
    std::optional<std::string> code;
    std::string name;
    std::string evidence;
    bool hasProfile = false;
    bool conflict = false;

    // Nothing identifies the country.
    static CountryDetection unknown();

    bool operator==(const CountryDetection&) const = default;
};

struct CenteringResult {
    bool applied = false;
    float confidence = 0;

    bool operator==(const CenteringResult&) const = default;
};

// The slant taken out of an upright page photographed askew: the page, `width` x `height` before,
// turned counter-clockwise by `degrees` about its centre onto a canvas grown to hold all of it.
struct Skew {
    double degrees = 0;
    int width = 0;
    int height = 0;

    bool operator==(const Skew&) const = default;
};

struct LoadedDocument {
    Bitmap image;
    std::optional<std::string> software;
    CenteringResult centering;
    // Quarter turns clockwise that brought a page photographed on its side or upside down upright.
    int quarterTurns = 0;
    // Then the slant that brought its lines level (0 degrees: none).
    Skew skew;
};

struct Analysis {
    std::vector<RedactionRegion> regions;
    std::string documentType;
    std::vector<std::string> warnings;
    RiskAssessment risk;
    int recognizedLines = 0;
    CountryDetection country;
    std::vector<std::string> unavailableOCRLanguages;
    // The machine-readable zone as read, corrected by its layout when `zoneValid`; empty without one.
    // Held for the evaluation and never written anywhere.
    std::vector<std::string> zone;
    bool zoneValid = false;

    bool operator==(const Analysis&) const = default;
};

// The core's own failures. Platform errors (file system, recognition) pass through unchanged.
class DocumentError : public std::exception {
public:
    enum Code { invalidImage, tooLarge, exportFailed, cancelled };

    explicit DocumentError(Code code) noexcept : code_(code) {}

    Code code() const noexcept { return code_; }
    std::optional<std::string> errorDescription() const { return std::string(what()); }
    const char* what() const noexcept override;

    bool operator==(const DocumentError& other) const noexcept { return code_ == other.code_; }

private:
    Code code_;
};

struct PDFPageResult {
    int index = 0;
    Bitmap original;
    Bitmap cleaned;
    Analysis analysis;
};

struct ProcessedPDF {
    std::vector<std::uint8_t> data;
    std::vector<Analysis> pages; // one a page, in order
};
