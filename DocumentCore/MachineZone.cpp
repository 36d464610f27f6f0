#include "MachineZone.h"

#include "FieldLexicon.h"
#include "RiskEngine.h"
#include "UnicodeText.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace MachineZone {
namespace {

// What a position of a zone line may hold.
enum class Slot : char {
    letter = 'a',        // a letter or a filler (codes, names)
    digit = '9',         // a digit (dates, check digits)
    any = 'x',           // a letter, a digit or a filler (numbers, optional data)
    checkOrFiller = 'c', // a check digit, or a filler where the optional data is empty
};

// The layouts, one character a position (ICAO 9303 part 4 to 6): codes and names are letters, dates
// and check digits digits, document numbers and optional data anything.
struct Layout {
    std::size_t length;
    std::vector<std::string_view> lines;
};

const std::array<Layout, 3>& layouts() {
    static const std::array<Layout, 3> table{{
        {30,
         {"aaaaaxxxxxxxxx9xxxxxxxxxxxxxxx", //
          "9999999a9999999aaaxxxxxxxxxxx9", //
          "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"}},
        {36,
         {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", //
          "xxxxxxxxx9aaa9999999a9999999xxxxxxx9"}},
        {44,
         {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", //
          "xxxxxxxxx9aaa9999999a9999999xxxxxxxxxxxxxxc9"}},
    }};
    return table;
}

// Check digits as positions counted from 0: the field [first, last] and where its digit stands.
struct Check {
    std::size_t line, first, last, digit;
};

std::vector<Check> checks(std::size_t length) {
    switch (length) {
    case 30:
        return {{0, 5, 13, 14}, {1, 0, 5, 6}, {1, 8, 13, 14}};
    case 36:
        return {{1, 0, 8, 9}, {1, 13, 18, 19}, {1, 21, 26, 27}};
    default:
        return {{1, 0, 8, 9}, {1, 13, 18, 19}, {1, 21, 26, 27}};
    }
}

char asDigit(char c) {
    switch (c) {
    case 'O':
    case 'D':
    case 'Q':
    case 'U':
        return '0';
    case 'I':
    case 'L':
    case 'J':
        return '1';
    case 'Z':
        return '2';
    case 'A':
        return '4';
    case 'S':
        return '5';
    case 'G':
    case 'b':
        return '6';
    case 'T':
        return '7';
    case 'B':
        return '8';
    default:
        return c;
    }
}

char asLetter(char c) {
    switch (c) {
    case '0':
        return 'O';
    case '1':
        return 'I';
    case '2':
        return 'Z';
    case '4':
        return 'A';
    case '5':
        return 'S';
    case '6':
        return 'G';
    case '8':
        return 'B';
    default:
        return c;
    }
}

bool inAlphabet(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '<';
}

// A line read a few fillers short or long: the run of fillers at its end (or before its closing
// digits, on the second line of a TD3 or TD2 zone) takes up the difference.
std::optional<std::string> toLength(const std::string& read, std::size_t length, std::string_view slots) {
    if (read.size() == length) {
        return read;
    }
    const std::size_t tail = slots.back() == '9' ? (slots[slots.size() - 2] == 'c' ? 2 : 1) : 0;
    if (read.size() < tail + 1) {
        return std::nullopt;
    }
    std::string head = read.substr(0, read.size() - tail);
    const std::string end = read.substr(read.size() - tail);
    const std::size_t fillers = head.size() - (head.find_last_not_of('<') + 1);
    const std::size_t wanted = length - tail;
    // A line of names and codes has no check digit that a shifted position would upset: its closing
    // run of fillers, however misread in length, is simply the rest of the line.
    const bool checked = slots.find('9') != std::string_view::npos;
    const std::size_t slack = checked ? 3 : length;
    if (head.size() > wanted) {
        if (head.size() - wanted > fillers || head.size() - wanted > slack) {
            return std::nullopt;
        }
        head.resize(wanted);
    } else {
        if (fillers == 0 || wanted - head.size() > slack) {
            return std::nullopt;
        }
        head.append(wanted - head.size(), '<');
    }
    return head + end;
}

bool agrees(const std::vector<std::string>& zone, const Check& c) {
    const std::string& line = zone[c.line];
    const std::optional<int> digit =
        RiskEngine::checkDigit(std::string_view(line).substr(c.first, c.last - c.first + 1));
    return digit && line[c.digit] == '0' + *digit;
}

// A document number's look-alike letters and digits swapped, at most this many at once: the check
// digit confirms the reading with the fewest swaps, and only when no other reading with as few swaps
// passes too (any reading passes by chance one time in ten).
constexpr int maxSwaps = 2;

bool settleNumber(std::vector<std::string>& zone, const Check& c) {
    if (agrees(zone, c)) {
        return true;
    }
    std::string& line = zone[c.line];
    // A number printed mostly in digits has its stray letters misread, and the other way round: only
    // the minority is swapped, which keeps chance passes rare.
    int digits = 0, letters = 0;
    for (std::size_t p = c.first; p <= c.last; ++p) {
        digits += std::isdigit(static_cast<unsigned char>(line[p])) != 0;
        letters += std::isupper(static_cast<unsigned char>(line[p])) != 0;
    }
    std::vector<std::size_t> ambiguous;
    for (std::size_t p = c.first; p <= c.last; ++p) {
        const bool digit = std::isdigit(static_cast<unsigned char>(line[p])) != 0;
        const bool minority = digits > letters ? !digit : letters > digits ? digit : true;
        if (minority && (asDigit(line[p]) != line[p] || asLetter(line[p]) != line[p])) {
            ambiguous.push_back(p);
        }
    }
    const std::string original = line;
    auto swapped = [&](char ch) { return asDigit(ch) != ch ? asDigit(ch) : asLetter(ch); };
    for (int swaps = 1; swaps <= maxSwaps; ++swaps) {
        std::vector<std::string> passing;
        // Every choice of `swaps` ambiguous positions.
        std::vector<bool> chosen(ambiguous.size(), false);
        std::fill(chosen.end() - std::min<long>(swaps, static_cast<long>(chosen.size())), chosen.end(), true);
        if (static_cast<std::size_t>(swaps) > ambiguous.size()) {
            break;
        }
        do {
            std::string trial = original;
            for (std::size_t i = 0; i < ambiguous.size(); ++i) {
                if (chosen[i]) {
                    trial[ambiguous[i]] = swapped(original[ambiguous[i]]);
                }
            }
            line = trial;
            if (agrees(zone, c)) {
                passing.push_back(trial);
            }
        } while (std::next_permutation(chosen.begin(), chosen.end()));
        if (!passing.empty()) {
            line = passing.size() == 1 ? passing.front() : original;
            return passing.size() == 1;
        }
    }
    line = original;
    return false;
}

} // namespace

std::optional<std::vector<std::string>> corrected(const std::vector<std::string>& lines) {
    for (const Layout& layout : layouts()) {
        if (lines.size() != layout.lines.size()) {
            continue;
        }
        // The second line of TD2 and TD3 tells them apart; a reading may be a few characters off.
        const std::size_t measured = lines.size() == 3 ? 30 : lines.back().size();
        const std::size_t nearest = lines.size() == 3 ? 30 : (measured > 40 ? 44 : 36);
        if (layout.length != nearest) {
            continue;
        }
        std::vector<std::string> zone;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            std::string read;
            for (char c : lines[i]) {
                if (c != ' ') {
                    read += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
                }
            }
            if (!std::all_of(read.begin(), read.end(), inAlphabet)) {
                return std::nullopt;
            }
            std::optional<std::string> sized = toLength(read, layout.length, layout.lines[i]);
            if (!sized) {
                return std::nullopt;
            }
            for (std::size_t p = 0; p < sized->size(); ++p) {
                char& c = (*sized)[p];
                switch (static_cast<Slot>(layout.lines[i][p])) {
                case Slot::letter:
                    c = asLetter(c);
                    break;
                case Slot::digit:
                    c = asDigit(c);
                    break;
                case Slot::checkOrFiller:
                    c = c == '<' ? c : asDigit(c);
                    break;
                case Slot::any:
                    break;
                }
            }
            zone.push_back(std::move(*sized));
        }
        for (const Check& c : checks(layout.length)) {
            // Dates and their digits are digits already; numbers may still need their look-alikes settled.
            if (!settleNumber(zone, c)) {
                return std::nullopt;
            }
        }
        return zone;
    }
    return std::nullopt;
}

namespace {

bool zoneShaped(const std::string& text) {
    std::size_t length = 0;
    for (char c : text) {
        if (c == ' ') {
            continue;
        }
        if (!inAlphabet(c)) {
            return false;
        }
        ++length;
    }
    return length >= 27 && length <= 47 && text.find('<') != std::string::npos;
}

} // namespace

std::optional<Found> find(const std::vector<std::string>& lines) {
    std::optional<Found> firstRun;
    std::size_t start = 0;
    while (start < lines.size()) {
        std::size_t end = start;
        while (end < lines.size() && zoneShaped(lines[end])) {
            ++end;
        }
        if (end - start == 2 || end - start == 3) {
            const std::vector<std::string> read(lines.begin() + static_cast<long>(start),
                                                lines.begin() + static_cast<long>(end));
            if (auto zone = corrected(read)) {
                return Found{start, std::move(*zone), true};
            }
            if (!firstRun) {
                firstRun = Found{start, read, false};
            }
        }
        start = std::max(end, start + 1);
    }
    return firstRun;
}

namespace {

std::string withoutFillers(std::string_view field) {
    std::string out;
    for (char c : field) {
        if (c != '<') {
            out += c;
        }
    }
    return out;
}

// The line in the zone's alphabet: upper case, accents gone, Cyrillic and Greek capitals that look
// like Latin ones read as those (recognisers with several scripts loaded mix them inside one word),
// every other character a blank.
std::string folded(std::string_view line) {
    static const std::u16string_view cyrillic = u"АВЕКМНОРСТХУІЈЅ", latinOfCyrillic = u"ABEKMHOPCTXYIJS";
    static const std::u16string_view greek = u"ΑΒΕΖΗΙΚΜΝΟΡΤΥΧ", latinOfGreek = u"ABEZHIKMNOPTYX";
    const icu::UnicodeString text = FieldLexicon::normalizeUnicode(UnicodeText::utf16(line));
    std::string out;
    for (int32_t i = 0; i < text.length(); ++i) {
        const char16_t c = text.charAt(i);
        char latin = ' ';
        if ((c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9')) {
            latin = static_cast<char>(c);
        } else if (const auto at = cyrillic.find(c); at != std::u16string_view::npos) {
            latin = static_cast<char>(latinOfCyrillic[at]);
        } else if (const auto at = greek.find(c); at != std::u16string_view::npos) {
            latin = static_cast<char>(latinOfGreek[at]);
        }
        out += latin;
    }
    return out;
}

// Letters and digits that recognisers confuse count as one.
bool alike(char a, char b) {
    return a == b || asDigit(a) == asDigit(b);
}

// The fewest edits that make `needle` out of some stretch of `text`.
std::size_t distanceWithin(std::string_view needle, std::string_view text) {
    std::vector<std::size_t> row(text.size() + 1, 0), next(text.size() + 1);
    for (std::size_t i = 1; i <= needle.size(); ++i) {
        next[0] = i;
        for (std::size_t j = 1; j <= text.size(); ++j) {
            next[j] = std::min(
                {row[j] + 1, next[j - 1] + 1, row[j - 1] + (alike(needle[i - 1], text[j - 1]) ? 0 : 1)});
        }
        std::swap(row, next);
    }
    return *std::min_element(row.begin(), row.end());
}

bool repeatsNumber(std::string_view number, std::string_view compact) {
    constexpr std::size_t shortest = 6; // shorter values turn up by chance
    return number.size() >= shortest && distanceWithin(number, compact) <= number.size() / 4;
}

std::vector<std::string> runs(const std::string& text, bool digits) {
    std::vector<std::string> out;
    std::string run;
    for (char c : text + ' ') {
        if (c != ' ' && (std::isdigit(static_cast<unsigned char>(c)) != 0) == digits) {
            run += c;
        } else if (!run.empty()) {
            out.push_back(std::move(run));
            run.clear();
        }
    }
    return out;
}

// A date as YYMMDD printed as day, month (a number or a word) and year (two digits or four), in any
// order, or run together as DDMMYYYY, YYYYMMDD, DDMMYY or YYMMDD.
bool repeatsDate(std::string_view date, const std::string& text) {
    if (date.size() != 6 || !std::all_of(date.begin(), date.end(), [](char c) {
            return std::isdigit(static_cast<unsigned char>(c));
        })) {
        return false;
    }
    const std::string yy(date.substr(0, 2)), mm(date.substr(2, 2)), dd(date.substr(4, 2));
    const std::vector<std::string> groups = runs(text, true);
    for (const std::string& g : groups) {
        if (g == dd + mm + yy || g == yy + mm + dd ||
            (g.size() == 8 && (g.substr(0, 4) == dd + mm && g.substr(6) == yy)) ||
            (g.size() == 8 && g.substr(2) == yy + mm + dd)) {
            return true;
        }
    }
    auto number = [](const std::string& g) { return g.size() <= 2 ? std::stoi(g) : -1; };
    const std::vector<std::string> words = runs(text, false);
    const bool month =
        std::any_of(groups.begin(), groups.end(),
                    [&](const std::string& g) { return number(g) == std::stoi(mm); }) ||
        std::any_of(words.begin(), words.end(), [](const std::string& w) { return w.size() >= 3; });
    // Day and year in groups of their own: one "07" is not both.
    for (std::size_t d = 0; d < groups.size(); ++d) {
        for (std::size_t y = 0; y < groups.size(); ++y) {
            const std::string& g = groups[y];
            if (d != y && number(groups[d]) == std::stoi(dd) && (g.size() == 2 || g.size() == 4) &&
                g.substr(g.size() - 2) == yy && month) {
                return true;
            }
        }
    }
    return false;
}

bool onlyNames(const std::vector<std::string>& names, const std::string& text) {
    const std::vector<std::string> words = runs(text, false);
    if (words.empty() || !runs(text, true).empty()) {
        return false;
    }
    return std::all_of(words.begin(), words.end(), [&](const std::string& word) {
        // A long name may have one letter misread; a short one must be exact.
        const std::size_t allowed = word.size() >= 5 ? 1 : 0;
        return word.size() >= 2 && std::any_of(names.begin(), names.end(), [&](const std::string& name) {
                   return name.size() >= word.size() - allowed && name.size() <= word.size() + allowed &&
                          distanceWithin(word, name) <= allowed;
               });
    });
}

} // namespace

Holder holder(const std::vector<std::string>& zone) {
    Holder h;
    std::string names;
    if (zone.size() == 3 && zone[0].size() == 30) {
        h.numbers = {withoutFillers(zone[0].substr(5, 9)), withoutFillers(zone[0].substr(15)),
                     withoutFillers(zone[1].substr(18, 11))};
        h.birth = zone[1].substr(0, 6);
        h.expiry = zone[1].substr(8, 6);
        names = zone[2];
    } else if (zone.size() == 2 && (zone[1].size() == 36 || zone[1].size() == 44)) {
        h.numbers = {withoutFillers(zone[1].substr(0, 9)),
                     withoutFillers(zone[1].substr(28, zone[1].size() == 44 ? 14 : 7))};
        h.birth = zone[1].substr(13, 6);
        h.expiry = zone[1].substr(21, 6);
        names = zone[0].substr(5);
    }
    std::string name;
    for (char c : names + '<') {
        if (c != '<') {
            name += c;
        } else if (!name.empty()) {
            h.names.push_back(std::move(name));
            name.clear();
        }
    }
    return h;
}

std::optional<FieldKind> repeated(const Holder& holder, std::string_view line) {
    const std::string text = folded(line);
    std::string compact;
    std::copy_if(text.begin(), text.end(), std::back_inserter(compact), [](char c) { return c != ' '; });
    if (std::any_of(holder.numbers.begin(), holder.numbers.end(),
                    [&](const std::string& number) { return repeatsNumber(number, compact); })) {
        return FieldKind::number;
    }
    if (repeatsDate(holder.birth, text)) {
        return FieldKind::birthDate;
    }
    if (repeatsDate(holder.expiry, text)) {
        return FieldKind::expiryDate;
    }
    if (onlyNames(holder.names, text)) {
        return FieldKind::personName;
    }
    return std::nullopt;
}

} // namespace MachineZone
