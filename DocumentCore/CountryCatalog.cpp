#include "CountryCatalog.h"

#include "FieldDetector.h"
#include "FieldLexicon.h"
#include "UnicodeText.h"

#include <unicode/locid.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <map>
#include <set>

namespace CountryCatalog {
namespace {

struct Row {
    const char* code;
    const char* name;
    bool isEU;
    const char* aliases;
    const char* languages;
};

constexpr Row rows[] = {
    {"AUT", "Австрия", true, "AUSTRIA|ÖSTERREICH|REPUBLIK ÖSTERREICH", "de"},
    {"BEL", "Бельгия", true, "BELGIUM|BELGIQUE|BELGIË|BELGIEN", "nl|fr|de"},
    {"BGR", "Болгария", true, "BULGARIA|БЪЛГАРИЯ|РЕПУБЛИКА БЪЛГАРИЯ", "bg"},
    {"CYP", "Кипр", true, "CYPRUS|ΚΥΠΡΙΑΚΗ ΔΗΜΟΚΡΑΤΙΑ|KIBRIS CUMHURİYETİ", "el|tr"},
    {"CZE", "Чехия", true, "CZECHIA|CZECH REPUBLIC|ČESKÁ REPUBLIKA", "cs"},
    {"DEU", "Германия", true, "GERMANY|DEUTSCHLAND|BUNDESREPUBLIK DEUTSCHLAND", "de"},
    {"DNK", "Дания", true, "DENMARK|DANMARK", "da"},
    {"ESP", "Испания", true, "SPAIN|ESPAÑA|REINO DE ESPAÑA", "es|ca"},
    {"EST", "Эстония", true, "ESTONIA|EESTI|EESTI VABARIIK", "et"},
    {"FIN", "Финляндия", true, "FINLAND|SUOMI", "fi|sv"},
    {"FRA", "Франция", true, "FRANCE|RÉPUBLIQUE FRANÇAISE", "fr"},
    {"GRC", "Греция", true, "GREECE|HELLENIC REPUBLIC|ΕΛΛΗΝΙΚΗ ΔΗΜΟΚΡΑΤΙΑ|ΕΛΛΑΣ", "el"},
    {"HRV", "Хорватия", true, "CROATIA|HRVATSKA|REPUBLIKA HRVATSKA", "hr"},
    {"HUN", "Венгрия", true, "HUNGARY|MAGYARORSZÁG|MAGYAR KÖZTÁRSASÁG", "hu"},
    {"IRL", "Ирландия", true, "IRELAND|ÉIRE", "en|ga"},
    {"ITA", "Италия", true, "ITALY|ITALIA|REPUBBLICA ITALIANA", "it"},
    {"LTU", "Литва", true, "LITHUANIA|LIETUVA|LIETUVOS RESPUBLIKA", "lt"},
    {"LUX", "Люксембург", true, "LUXEMBOURG|LËTZEBUERG|LUXEMBURG", "fr|de|lb"},
    {"LVA", "Латвия", true, "LATVIA|LATVIJA|LATVIJAS REPUBLIKA", "lv"},
    {"MLT", "Мальта", true, "MALTA", "mt|en"},
    {"NLD", "Нидерланды", true, "NETHERLANDS|NEDERLAND|KONINKRIJK DER NEDERLANDEN", "nl"},
    {"POL", "Польша", true, "POLAND|POLSKA|RZECZPOSPOLITA POLSKA", "pl"},
    {"PRT", "Португалия", true, "PORTUGAL|REPÚBLICA PORTUGUESA", "pt"},
    {"ROU", "Румыния", true, "ROMANIA|ROMÂNIA", "ro"},
    {"SVK", "Словакия", true, "SLOVAKIA|SLOVENSKÁ REPUBLIKA|SLOVENSKO", "sk"},
    {"SVN", "Словения", true, "SLOVENIA|REPUBLIKA SLOVENIJA|SLOVENIJA", "sl"},
    {"SWE", "Швеция", true, "SWEDEN|SVERIGE", "sv"},
    {"RUS", "Россия", false, "RUSSIAN FEDERATION|RUSSIA|РОССИЙСКАЯ ФЕДЕРАЦИЯ|РОССИЯ", "ru"},
    {"TUR", "Турция", false, "TURKEY|TÜRKİYE|TÜRKİYE CUMHURİYETİ", "tr"},
    {"UKR", "Украина", false, "UKRAINE|УКРАЇНА", "uk"},
    {"USA", "США", false, "UNITED STATES OF AMERICA|UNITED STATES|U.S.A.|USA", "en|es"},
    {"CAN", "Канада", false, "CANADA", "en|fr"},
};

constexpr const char* canadianProvinces =
    "ALBERTA|BRITISH COLUMBIA|MANITOBA|NEW BRUNSWICK|NEWFOUNDLAND AND LABRADOR|NOVA "
    "SCOTIA|ONTARIO|QUEBEC|QUÉBEC|"
    "PRINCE EDWARD ISLAND|SASKATCHEWAN|NORTHWEST TERRITORIES|NUNAVUT|YUKON";
// Georgia is left out on purpose: the state and the country share the name.
constexpr const char* usStates =
    "ALABAMA|ALASKA|ARIZONA|ARKANSAS|CALIFORNIA|COLORADO|CONNECTICUT|DELAWARE|FLORIDA|HAWAII|IDAHO|ILLINOIS|"
    "INDIANA|IOWA|KANSAS|KENTUCKY|LOUISIANA|MAINE|MARYLAND|MASSACHUSETTS|MICHIGAN|MINNESOTA|MISSISSIPPI|"
    "MISSOURI|"
    "MONTANA|NEBRASKA|NEVADA|NEW HAMPSHIRE|NEW JERSEY|NEW MEXICO|NEW YORK|NORTH CAROLINA|NORTH DAKOTA|OHIO|"
    "OKLAHOMA|OREGON|PENNSYLVANIA|RHODE ISLAND|SOUTH CAROLINA|SOUTH "
    "DAKOTA|TENNESSEE|TEXAS|UTAH|VERMONT|VIRGINIA|"
    "WASHINGTON|WEST VIRGINIA|WISCONSIN|WYOMING|DISTRICT OF COLUMBIA";

// Vertical centres (fractions of the image height from the top) below which a line is "upper".
constexpr double aliasLimit = 0.42;
constexpr double stateLimit = 0.35;
constexpr double regionLimit = 0.3;

constexpr const char* ambiguousName = "Страна неоднозначна";
constexpr const char* ambiguousEvidence = "Несколько противоречащих признаков; общие правила";
constexpr const char* drivingRegionEvidence = "Предположительно: регион выдачи водительского удостоверения";

std::vector<std::string> splitBars(std::string_view text) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t at; (at = text.find('|', start)) != std::string_view::npos; start = at + 1) {
        parts.emplace_back(text.substr(start, at - start));
    }
    parts.emplace_back(text.substr(start));
    return parts;
}

std::vector<icu::UnicodeString> normalizedList(const char* bars) {
    std::vector<icu::UnicodeString> list;
    for (const std::string& item : splitBars(bars)) {
        list.push_back(FieldLexicon::normalizeUnicode(UnicodeText::utf16(item)));
    }
    return list;
}

const icu::RegexPattern& fieldLabelExclusion() {
    static const auto pattern = UnicodeText::compile(
        u"ADDRESS|ADRES|DOMICIL|BIRTH|NATIONALITY|NATIONALITE|NACIMIENTO|РОЖДЕНИЯ|ГРАЖДАНСТВО|НАРОДЖЕННЯ",
        "CountryCatalog");
    return *pattern;
}

const icu::RegexPattern& zoneFirstLine() {
    static const auto pattern = UnicodeText::compile(u"^[PIACV][A-Z<][A-Z<]{3}[A-Z0-9<]+$", "CountryCatalog");
    return *pattern;
}

double centre(const TextRegion& line) {
    return line.rect.y + line.rect.height / 2;
}

std::optional<std::string> regionName(const char* region, const char* language) {
    icu::UnicodeString name;
    icu::Locale("", region).getDisplayCountry(icu::Locale(language), name);
    // ICU answers with the code itself when it knows no name.
    if (name.isEmpty() || name == icu::UnicodeString(region)) {
        return std::nullopt;
    }
    return UnicodeText::utf8(name);
}

struct Region {
    std::string identifier;
    std::string russianName;
    std::vector<icu::UnicodeString> names; // normalised, in the languages en, ru, es, fr, pt
};

const std::vector<Region>& regions() {
    static const std::vector<Region> table = [] {
        std::vector<Region> built;
        for (const char* const* code = uloc_getISOCountries(); *code; ++code) {
            Region region{*code, regionName(*code, "ru_RU").value_or(*code), {}};
            for (const char* language : {"en", "ru", "es", "fr", "pt"}) {
                if (const auto name = regionName(*code, language)) {
                    region.names.push_back(FieldLexicon::normalizeUnicode(UnicodeText::utf16(*name)));
                }
            }
            built.push_back(std::move(region));
        }
        return built;
    }();
    return table;
}

CountryDetection fromRow(const CountryProfile& row, const char* evidence, bool conflict = false) {
    return CountryDetection{row.code, row.name, evidence, true, conflict};
}

bool namesAny(const std::vector<icu::UnicodeString>& texts, const std::vector<icu::UnicodeString>& phrases) {
    for (const icu::UnicodeString& text : texts) {
        for (const icu::UnicodeString& phrase : phrases) {
            if (UnicodeText::containsWord(text, phrase)) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

const std::vector<CountryProfile>& profiles() {
    static const std::vector<CountryProfile> table = [] {
        std::vector<CountryProfile> built;
        for (const Row& row : rows) {
            built.push_back(CountryProfile{row.code, row.name, row.isEU, splitBars(row.aliases),
                                           splitBars(row.languages)});
        }
        return built;
    }();
    return table;
}

const std::vector<std::vector<icu::UnicodeString>>& normalizedAliases() {
    static const std::vector<std::vector<icu::UnicodeString>> table = [] {
        std::vector<std::vector<icu::UnicodeString>> built;
        for (const Row& row : rows) {
            built.push_back(normalizedList(row.aliases));
        }
        return built;
    }();
    return table;
}

std::optional<CountryProfile> profile(const std::optional<std::string>& code) {
    if (!code) {
        return std::nullopt;
    }
    for (const CountryProfile& row : profiles()) {
        if (row.code == *code) {
            return row;
        }
    }
    return std::nullopt;
}

bool containsPhraseUnicode(const icu::UnicodeString& normalizedText, std::string_view phrase) {
    return UnicodeText::containsWord(normalizedText,
                                     FieldLexicon::normalizeUnicode(UnicodeText::utf16(phrase)));
}

bool containsPhrase(std::string_view normalizedText, std::string_view phrase) {
    return containsPhraseUnicode(UnicodeText::utf16(normalizedText), phrase);
}

namespace {

// A page's lines as the country rules see them.
struct Page {
    const std::vector<TextRegion>& lines;
    std::vector<icu::UnicodeString> normalized;
};

// Issuing-state codes of machine-readable zones.
std::set<std::string> zoneCodes(const Page& page) {
    std::set<std::string> codes;
    for (const icu::UnicodeString& text : page.normalized) {
        icu::UnicodeString compact(text);
        compact.findAndReplace(u" ", u"");
        if (!UnicodeText::search(zoneFirstLine(), compact) || compact.indexOf(u'<') < 0) {
            continue;
        }
        // Only ASCII passes the pattern, so code units are characters here.
        const int32_t length = compact.length();
        if (length != 30 && length != 36 && length != 44) {
            continue;
        }
        std::string code = UnicodeText::utf8(icu::UnicodeString(compact, 2, 3));
        if (code == "D<<") {
            code = "DEU"; // Germany writes a one-letter code padded with fillers
        } else if (!std::all_of(code.begin(), code.end(), [](char c) { return c >= 'A' && c <= 'Z'; })) {
            continue;
        }
        codes.insert(code);
    }
    return codes;
}

// Catalogue aliases in the upper part, on lines that are not address, birth or nationality fields.
std::set<std::string> aliasCodes(const Page& page) {
    std::set<std::string> codes;
    const auto& aliases = normalizedAliases();
    for (std::size_t i = 0; i < page.lines.size(); ++i) {
        if (!(centre(page.lines[i]) < aliasLimit) ||
            UnicodeText::search(fieldLabelExclusion(), page.normalized[i])) {
            continue;
        }
        for (std::size_t row = 0; row < aliases.size(); ++row) {
            if (namesAny({page.normalized[i]}, aliases[row])) {
                codes.insert(rows[row].code);
            }
        }
    }
    return codes;
}

// The zone decides when it names one state; else the aliases alone.
std::optional<CountryDetection> fromCodes(const std::set<std::string>& zone,
                                          const std::set<std::string>& alias) {
    if (zone.size() >= 2) {
        return CountryDetection{std::nullopt, ambiguousName, ambiguousEvidence, false, true};
    }
    if (zone.size() == 1) {
        const std::string& code = *zone.begin();
        const bool conflict = !alias.empty() && !alias.contains(code);
        const char* evidence =
            conflict ? "MRZ; заголовок противоречит коду страны" : "Код выдающей страны в MRZ";
        if (const auto row = profile(code)) {
            return fromRow(*row, evidence, conflict);
        }
        const std::string name = regionName(code.c_str(), "ru_RU").value_or("Страна MRZ: " + code);
        return CountryDetection{code, name, evidence, false, conflict};
    }
    if (alias.size() >= 2) {
        return CountryDetection{std::nullopt, ambiguousName, ambiguousEvidence, false, true};
    }
    if (alias.size() == 1) {
        return fromRow(*profile(*alias.begin()), "Название страны в верхней части документа");
    }
    return std::nullopt;
}

// Driving licences name their state or province near the top.
std::optional<CountryDetection> drivingRegion(const Page& page) {
    if (FieldDetector::documentType(page.lines) != FieldDetector::drivingLicenceType) {
        return std::nullopt;
    }
    std::vector<icu::UnicodeString> top;
    for (std::size_t i = 0; i < page.lines.size(); ++i) {
        if (centre(page.lines[i]) < stateLimit &&
            !UnicodeText::search(fieldLabelExclusion(), page.normalized[i])) {
            top.push_back(page.normalized[i]);
        }
    }
    static const std::vector<icu::UnicodeString> provinces = normalizedList(canadianProvinces);
    static const std::vector<icu::UnicodeString> states = normalizedList(usStates);
    const bool canadian = namesAny(top, provinces);
    const bool american = namesAny(top, states);
    if (american == canadian) {
        return std::nullopt;
    }
    const auto row = profile(american ? "USA" : "CAN");
    if (!row) {
        UnicodeText::fatal("CountryCatalog: the catalogue lost its USA or CAN row");
    }
    return fromRow(*row, drivingRegionEvidence);
}

// A top line that is exactly one country's name.
std::optional<CountryDetection> namedRegion(const Page& page) {
    std::vector<icu::UnicodeString> topLines;
    for (std::size_t i = 0; i < page.lines.size(); ++i) {
        if (centre(page.lines[i]) < regionLimit) {
            topLines.push_back(UnicodeText::trimmedWhitespace(page.normalized[i]));
        }
    }
    std::map<std::string, std::string> named;
    if (!topLines.empty()) {
        for (const Region& region : regions()) {
            const bool match =
                std::any_of(topLines.begin(), topLines.end(), [&](const icu::UnicodeString& line) {
                    return std::find(region.names.begin(), region.names.end(), line) != region.names.end();
                });
            if (match) {
                named.emplace(region.identifier, region.russianName);
            }
        }
    }
    if (named.size() != 1) {
        return std::nullopt;
    }
    return CountryDetection{named.begin()->first, named.begin()->second,
                            "Название страны; общие правила полей", false, false};
}

} // namespace

CountryDetection detect(const std::vector<TextRegion>& lines) {
    Page page{lines, {}};
    page.normalized.reserve(lines.size());
    for (const TextRegion& line : lines) {
        page.normalized.push_back(FieldLexicon::normalizeUnicode(UnicodeText::utf16(line.text)));
    }
    if (auto found = fromCodes(zoneCodes(page), aliasCodes(page))) {
        return *found;
    }
    if (auto found = drivingRegion(page)) {
        return *found;
    }
    return namedRegion(page).value_or(CountryDetection::unknown());
}

} // namespace CountryCatalog
