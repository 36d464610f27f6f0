#include "CountryCatalog.h"
#include "OCRLanguages.h"

#include <gtest/gtest.h>

#include <set>

namespace {

struct Line {
    std::string text;
    double centre; // vertical centre, fraction of the image height
};

std::vector<TextRegion> page(std::initializer_list<Line> lines) {
    std::vector<TextRegion> regions;
    for (const Line& line : lines) {
        regions.push_back(TextRegion{line.text, Rect{0.05, line.centre - 0.02, 0.8, 0.04}, 0.9f});
    }
    return regions;
}

CountryDetection detect(std::initializer_list<Line> lines) {
    return CountryCatalog::detect(page(lines));
}

// A zone line padded with fillers to its layout's length.
std::string zone(std::string text, std::size_t length) {
    text.resize(length, '<');
    return text;
}

const std::string germanZone1 = "P<D<<MUSTERMANN<<ERIKA<<<<<<<<<<<<<<<<<<<<<<";
const std::string germanZone2 = "C01X00T478D<<6408125F2702283<<<<<<<<<<<<<<<4";

} // namespace

TEST(Catalogue, ThirtyTwoRowsInTheirFixedOrder) {
    const auto& rows = CountryCatalog::profiles();
    ASSERT_EQ(rows.size(), 32u);
    EXPECT_EQ(rows.front().code, "AUT");
    EXPECT_EQ(rows.back().code, "CAN");
    EXPECT_EQ(std::count_if(rows.begin(), rows.end(), [](const CountryProfile& r) { return r.isEU; }), 27);
    std::set<std::string> codes;
    for (const auto& row : rows) {
        codes.insert(row.code);
    }
    EXPECT_EQ(codes.size(), 32u);
    EXPECT_EQ(CountryCatalog::profile("MLT")->aliases, std::vector<std::string>{"MALTA"});
    EXPECT_EQ(CountryCatalog::profile("GRC")->aliases.size(), 4u);
    EXPECT_EQ(CountryCatalog::profile("USA")->aliases,
              (std::vector<std::string>{"UNITED STATES OF AMERICA", "UNITED STATES", "U.S.A.", "USA"}));
    EXPECT_EQ(CountryCatalog::profile("LUX")->languages, (std::vector<std::string>{"fr", "de", "lb"}));
}

TEST(Catalogue, LookupIsExact) {
    EXPECT_EQ(CountryCatalog::profile(std::nullopt), std::nullopt);
    EXPECT_EQ(CountryCatalog::profile(""), std::nullopt);
    EXPECT_EQ(CountryCatalog::profile("deu"), std::nullopt);
    EXPECT_EQ(CountryCatalog::profile(" DEU"), std::nullopt);
    EXPECT_EQ(CountryCatalog::profile("DE"), std::nullopt);
    EXPECT_EQ(CountryCatalog::profile("DEU")->name, "Германия");
}

TEST(ContainsPhrase, WholeWordsAndLiteralStops) {
    EXPECT_TRUE(CountryCatalog::containsPhrase("RUSSIA, MOSCOW", "Russia"));
    EXPECT_FALSE(CountryCatalog::containsPhrase("RUSSIANS", "RUSSIA"));
    EXPECT_TRUE(CountryCatalog::containsPhrase("ISSUED IN U.S.A.", "U.S.A."));
    EXPECT_FALSE(CountryCatalog::containsPhrase("USXSXA", "U.S.A."));
    EXPECT_TRUE(CountryCatalog::containsPhrase("REPUBLIK OSTERREICH", "REPUBLIK ÖSTERREICH"));
    EXPECT_FALSE(CountryCatalog::containsPhrase("CANADA2", "CANADA"));
}

TEST(DetectZone, TheIssuingStateOfTheZoneDecides) {
    const CountryDetection german =
        detect({{"REISEPASS PASSPORT", 0.1}, {germanZone1, 0.85}, {germanZone2, 0.93}});
    EXPECT_EQ(german, (CountryDetection{"DEU", "Германия", "Код выдающей страны в MRZ", true, false}));
    // A card zone (TD1) and a two-line 36-character zone, as recognised with spaces inside.
    EXPECT_EQ(
        detect({{"I<UTOD231458907<<<<<<<<<<<<<<<", 0.8}, {"7408122F1204159UTO<<<<<<<<<<<6", 0.86}}).code,
        "UTO");
    EXPECT_EQ(detect({{"IDFRA DUPONT " + zone("", 25), 0.85}}).name, "Франция");
    const CountryDetection polish = detect({{"I<POLABA3000006<<<<<<<<<<<<<<<", 0.8}});
    EXPECT_EQ(polish.evidence, "Код выдающей страны в MRZ");
    EXPECT_EQ(polish.name, "Польша");
}

TEST(DetectZone, APrintedStateThatContradictsTheZone) {
    const CountryDetection conflict =
        detect({{"REPUBLIK ÖSTERREICH", 0.1}, {germanZone1, 0.85}, {germanZone2, 0.93}});
    EXPECT_EQ(conflict,
              (CountryDetection{"DEU", "Германия", "MRZ; заголовок противоречит коду страны", true, true}));
    const CountryDetection both = detect({{"BUNDESREPUBLIK DEUTSCHLAND", 0.08},
                                          {"REPUBLIK ÖSTERREICH", 0.15},
                                          {germanZone1, 0.85},
                                          {germanZone2, 0.93}});
    EXPECT_FALSE(both.conflict);
}

TEST(DetectZone, AResidencePermitNamesTheHoldersNationalityWithoutConflict) {
    // A German permit for a Ukrainian citizen: the nationality line sits high on the card.
    const CountryDetection permit = detect({{"AUFENTHALTSTITEL", 0.08},
                                            {"STAATSANGEHÖRIGKEIT / NATIONALITY UKRAINE", 0.3},
                                            {zone("I<D<<Y0123456781", 30), 0.78},
                                            {zone("9001014F3012318UKR", 29) + "0", 0.86},
                                            {zone("SHEVCHENKO<<OKSANA", 30), 0.93}});
    EXPECT_EQ(permit.code, "DEU");
    EXPECT_FALSE(permit.conflict);
}

TEST(DetectZone, UncataloguedAndUnreadableZones) {
    const CountryDetection norway = detect({{"P<NORHANSEN<<OLA<<<<<<<<<<<<<<<<<<<<<<<<<<<<", 0.85}});
    EXPECT_EQ(norway.code, "NOR");
    EXPECT_FALSE(norway.hasProfile);
    EXPECT_EQ(norway.evidence, "Код выдающей страны в MRZ");
    EXPECT_TRUE(norway.name == "Страна MRZ: NOR" || norway.name == "Норвегия") << norway.name;
    // 43 characters, or no filler at all, is no zone.
    EXPECT_EQ(detect({{germanZone1.substr(0, 43), 0.85}}), CountryDetection::unknown());
    EXPECT_EQ(detect({{"PASSPORTUTOPIANREPUBLICOFNOWHEREXYZ", 0.85}}), CountryDetection::unknown());
    // A card's name line that looks like a first line adds a second code.
    const CountryDetection twoCodes =
        detect({{"I<UTOD231458907<<<<<<<<<<<<<<<", 0.8}, {"PETROVA<<ANNA<<<<<<<<<<<<<<<<<", 0.9}});
    EXPECT_EQ(twoCodes, (CountryDetection{std::nullopt, "Страна неоднозначна",
                                          "Несколько противоречащих признаков; общие правила", false, true}));
}

TEST(DetectPrinted, AStateNamedInTheUpperPart) {
    EXPECT_EQ(detect({{"REINO DE ESPAÑA", 0.08}, {"DOCUMENTO NACIONAL DE IDENTIDAD", 0.14}}),
              (CountryDetection{"ESP", "Испания", "Название страны в верхней части документа", true, false}));
    // Printed without accents, in Greek with tonos, in Cyrillic.
    EXPECT_EQ(detect({{"ESPANA", 0.1}}).code, "ESP");
    EXPECT_EQ(detect({{"ΕΛΛΗΝΙΚΉ ΔΗΜΟΚΡΑΤΊΑ", 0.1}, {"ΔΕΛΤΙΟ ΤΑΥΤΟΤΗΤΑΣ", 0.16}}).code, "GRC");
    EXPECT_EQ(detect({{"РОССИЙСКАЯ ФЕДЕРАЦИЯ", 0.05}, {"ПАСПОРТ", 0.12}}).code, "RUS");
    EXPECT_EQ(detect({{"УКРАЇНА / UKRAINE", 0.05}}).code, "UKR");
    // A birth-place line names a country that did not issue the document.
    EXPECT_EQ(detect({{"lugar de nacimiento: ESPAÑA", 0.2}}), CountryDetection::unknown());
    EXPECT_EQ(detect({{"RUSSIANS", 0.1}}), CountryDetection::unknown());
    EXPECT_EQ(detect({{"RUSSIA,", 0.1}}).code, "RUS");
}

TEST(DetectPrinted, TheUpperPartEndsStrictlyAtItsLimit) {
    EXPECT_EQ(detect({{"POLSKA", 0.42}}).code, std::nullopt);
    EXPECT_EQ(detect({{"POLSKA", 0.4199}}).code, "POL");
    const CountryDetection two = detect({{"BELGIQUE", 0.1}, {"FRANCE", 0.2}});
    EXPECT_EQ(two, (CountryDetection{std::nullopt, "Страна неоднозначна",
                                     "Несколько противоречащих признаков; общие правила", false, true}));
}

TEST(DetectLicence, AmericanStatesAndCanadianProvinces) {
    const CountryDetection california = detect(
        {{"CALIFORNIA", 0.06}, {"DRIVER LICENSE", 0.12}, {"DL I1234568", 0.3}, {"EXP 08/31/2026", 0.36}});
    EXPECT_EQ(california,
              (CountryDetection{"USA", "США", "Предположительно: регион выдачи водительского удостоверения",
                                true, false}));
    EXPECT_EQ(detect({{"ONTARIO", 0.06}, {"DRIVER'S LICENCE / PERMIS DE CONDUIRE", 0.12}}).code, "CAN");
    // A title the recogniser lost: the licence's field numbers stand for it.
    EXPECT_EQ(detect({{"MASSACHUSETTS", 0.06}, {"4a ISS. 03/18/2018", 0.25}, {"4d NUMBER", 0.25}}).code,
              "USA");
    // Both, or a state without a licence title, fall through.
    EXPECT_EQ(detect({{"ONTARIO TEXAS", 0.06}, {"DRIVER LICENSE", 0.12}}), CountryDetection::unknown());
    EXPECT_EQ(detect({{"CALIFORNIA", 0.06}, {"IDENTIFICATION CARD", 0.12}}), CountryDetection::unknown());
    // A state below the limit, or on an address line, is no sign.
    EXPECT_EQ(detect({{"DRIVER LICENSE", 0.1}, {"TEXAS", 0.35}}), CountryDetection::unknown());
    EXPECT_EQ(detect({{"DRIVER LICENSE", 0.1}, {"ADDRESS 1 MAIN ST AUSTIN TEXAS", 0.2}}),
              CountryDetection::unknown());
}

TEST(DetectRegionName, ATopLineThatIsExactlyACountry) {
    const CountryDetection georgia = detect({{"GEORGIA", 0.05}, {"DRIVER LICENSE", 0.12}});
    EXPECT_EQ(georgia.code, "GE");
    EXPECT_EQ(georgia.name, "Грузия");
    EXPECT_EQ(georgia.evidence, "Название страны; общие правила полей");
    EXPECT_FALSE(georgia.hasProfile);
    EXPECT_EQ(detect({{"  Norway ", 0.1}}).code, "NO");
    EXPECT_EQ(detect({{"НОРВЕГИЯ", 0.1}}).code, "NO");
    EXPECT_EQ(detect({{"KINGDOM OF NORWAY", 0.1}}), CountryDetection::unknown());
    EXPECT_EQ(detect({{"NORWAY", 0.3}}), CountryDetection::unknown());
    EXPECT_EQ(detect({{"NORWAY", 0.1}, {"ICELAND", 0.2}}), CountryDetection::unknown());
    EXPECT_EQ(CountryCatalog::detect({}), CountryDetection::unknown());
}

TEST(RecognitionLanguages, PreferredFirstNothingAddedOrDropped) {
    EXPECT_EQ(OCRLanguages::prioritized({"fr-FR", "it-IT", "en-US"}),
              (std::vector<std::string>{"en-US", "fr-FR", "it-IT"}));
    EXPECT_TRUE(OCRLanguages::prioritized({}).empty());
    EXPECT_EQ(OCRLanguages::prioritized({"en-US", "pl-PL", "en-US", "pl-PL"}),
              (std::vector<std::string>{"en-US", "pl-PL", "pl-PL"}));
}

TEST(RecognitionLanguages, DocumentLanguagesWithoutRecognition) {
    EXPECT_EQ(OCRLanguages::unavailable("BEL", {"en-US", "fr-FR"}), (std::vector<std::string>{"nl", "de"}));
    EXPECT_EQ(OCRLanguages::unavailable("LUX", {}), (std::vector<std::string>{"fr", "de", "lb"}));
    EXPECT_TRUE(OCRLanguages::unavailable("UKR", {"uk-UA"}).empty());
    EXPECT_TRUE(OCRLanguages::unavailable("NOR", {}).empty());
    EXPECT_TRUE(OCRLanguages::unavailable(std::nullopt, {}).empty());
    EXPECT_EQ(OCRLanguages::displayName("uk"), "украинский");
    EXPECT_EQ(OCRLanguages::displayName("lb"), "люксембургский");
    EXPECT_EQ(OCRLanguages::displayName("qq"), "qq");
}
