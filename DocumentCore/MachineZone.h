#pragma once

// Machine-readable zones as a recogniser reads them, put right by the zone's own layout: each position
// of a TD1, TD2 or TD3 zone holds a digit, a letter or a filler, and its check digits must agree.

#include "DocumentTypes.h"

#include <optional>
#include <string>
#include <vector>

namespace MachineZone {

// The zone's lines corrected, each as long as its layout prescribes: look-alikes replaced by what
// their position allows (O and 0, I and 1, B and 8, S and 5, Z and 2, G and 6, ...), runs of closing
// fillers brought to length, and among readings of a document number the one its check digit
// confirms. None when the lines are no zone of a known layout, or when no reading makes every check
// digit agree: a zone is never "fixed" into one that only looks valid where it is not.
std::optional<std::vector<std::string>> corrected(const std::vector<std::string>& lines);

// The zone among a page's recognised lines, in reading order: the first run of two or three lines
// that have a zone line's length (give or take a few misread fillers) and only its alphabet once
// blanks are gone, corrected where `corrected` can.
struct Found {
    std::size_t first = 0;          // index of its first line
    std::vector<std::string> lines; // corrected, or as read when no correction holds
    bool valid = false;             // corrected, every check digit agreeing
};
std::optional<Found> find(const std::vector<std::string>& lines);

// What a zone says of its holder, as `corrected` gives it; fillers removed. The visual part of the page
// prints the same values again, often where no caption the detector knows explains them.
struct Holder {
    std::vector<std::string> numbers; // the document number, then optional data (often a personal number)
    std::string birth, expiry;        // YYMMDD
    std::vector<std::string> names;
};
Holder holder(const std::vector<std::string>& zone);

// The kind of the holder's value that a line of the visual part repeats: a number (at most a quarter
// of its characters misread), a birth or expiry date in any usual form, or a line made only of the
// holder's names. None for anything else.
std::optional<FieldKind> repeated(const Holder& holder, std::string_view line);

} // namespace MachineZone
