#include "FieldLexicon.h"
#include "UnicodeText.h"

#include <gtest/gtest.h>

#include <numeric>

using FieldLexicon::LabelMatch;

namespace {

std::vector<LabelMatch> matches(std::string_view text) {
    return FieldLexicon::labelMatches(text);
}

} // namespace

TEST(Vocabulary, TwentyEightLanguagesWithTheirCountsOfLabels) {
    const auto& vocabularies = FieldLexicon::vocabularies();
    std::string order;
    for (const auto& v : vocabularies) {
        order += v.language + " ";
    }
    EXPECT_EQ(order, "en de fr es it pt nl ru uk tr bg el cs da sv fi et lv lt pl ro sk sl hr hu ga mt lb ");
    std::map<FieldKind, std::size_t> perKind;
    std::size_t titles = 0;
    for (const auto& v : vocabularies) {
        for (const auto& [kind, labels] : v.fields) {
            perKind[kind] += labels.size();
        }
        titles += v.drivingTitles.size();
        EXPECT_EQ(v.drivingTitles.size(), v.language == "en"   ? 5u
                                          : v.language == "es" ? 3u
                                                               : 1u)
            << v.language;
    }
    EXPECT_EQ(titles, 34u);
    EXPECT_EQ(perKind[FieldKind::birthDate], 50u);
    EXPECT_EQ(perKind[FieldKind::issueDate], 51u);
    EXPECT_EQ(perKind[FieldKind::expiryDate], 63u);
    EXPECT_EQ(perKind[FieldKind::address], 61u);
    EXPECT_EQ(perKind[FieldKind::number], 132u);
    EXPECT_EQ(perKind[FieldKind::personName], 82u);
    // Alternatives keep their inner spaces, apostrophes and signs.
    const auto& fr = vocabularies[2].fields.at(FieldKind::expiryDate);
    EXPECT_NE(std::find(fr.begin(), fr.end(), "DATE D’EXPIRATION"), fr.end());
    EXPECT_EQ(vocabularies[2].fields.at(FieldKind::number).back(), "N°");
}

TEST(Vocabulary, ABrokenLineStopsTheProgramNamingIt) {
    EXPECT_DEATH(FieldLexicon::parseVocabularies("en^A^B^C^D^E^F^G\nxx^ONLY^THREE"),
                 "3 columns, 8 expected: xx\\^ONLY");
    EXPECT_DEATH(UnicodeText::compile(u"(?<![\\p{L}\\d])(?:DATE", "FieldLexicon"),
                 "FieldLexicon: pattern does not compile");
    // Blank lines and surrounding blanks are allowed.
    EXPECT_EQ(
        FieldLexicon::parseVocabularies("\n  en^A^B^C^D^E^F|G^H\t\n").at(0).fields.at(FieldKind::personName),
        (std::vector<std::string>{"F", "G"}));
}

TEST(Normalize, FoldsCaseAndDiacriticsAndUpperCases) {
    EXPECT_EQ(FieldLexicon::normalize("Date de délivrance"), "DATE DE DELIVRANCE");
    EXPECT_EQ(FieldLexicon::normalize("Straße"), "STRASSE");
    EXPECT_EQ(FieldLexicon::normalize("DATE D’EXPIRATION"), "DATE D'EXPIRATION");
    EXPECT_EQ(FieldLexicon::normalize("TÜRKİYE CUMHURİYETİ"), "TURKIYE CUMHURIYETI");
    EXPECT_EQ(FieldLexicon::normalize("Ημερομηνία γέννησης"), "ΗΜΕΡΟΜΗΝΙΑ ΓΕΝΝΗΣΗΣ");
    EXPECT_EQ(FieldLexicon::normalize("Україна"), "УКРАІНА");
    EXPECT_EQ(FieldLexicon::normalize(""), "");
}

TEST(LabelMatches, CaptionsAndNotTheValuesBesideThem) {
    EXPECT_EQ(matches("DATE OF BIRTH 01.02.1990"),
              (std::vector<LabelMatch>{{FieldKind::birthDate, {0, 13}}}));
    EXPECT_EQ(matches("date de naissance"), (std::vector<LabelMatch>{{FieldKind::birthDate, {0, 17}}}));
    EXPECT_EQ(matches("Date de délivrance 12/03/2019"),
              (std::vector<LabelMatch>{{FieldKind::issueDate, {0, 18}}}));
    EXPECT_EQ(matches("EXPIRY DATE 2030"), (std::vector<LabelMatch>{{FieldKind::expiryDate, {0, 11}}}));
    EXPECT_EQ(matches("NUMÉRO DU DOCUMENT X4RTBPFW4"),
              (std::vector<LabelMatch>{{FieldKind::number, {0, 18}}}));
    EXPECT_EQ(matches("VALID UNTIL"), (std::vector<LabelMatch>{{FieldKind::expiryDate, {0, 11}}}));
    EXPECT_EQ(matches("ADRESSE"), (std::vector<LabelMatch>{{FieldKind::address, {0, 7}}}));
    EXPECT_EQ(matches("DATE D’EXPIRATION"), matches("DATE D'EXPIRATION"));
    EXPECT_TRUE(matches("").empty());
}

TEST(LabelMatches, OnlyWholeWords) {
    EXPECT_TRUE(matches("NOTE").empty());
    EXPECT_TRUE(matches("DL123").empty());
    EXPECT_EQ(matches("DL 123"), (std::vector<LabelMatch>{{FieldKind::number, {0, 2}}}));
    EXPECT_TRUE(matches("NOMBRES1").empty());
    EXPECT_TRUE(matches("ΟΝΟΜΑΤΑ").empty()); // Greek letters follow the caption
}

TEST(LabelMatches, BilingualCaptionsAndNumberedLicenceFields) {
    EXPECT_EQ(matches("Фамилия / Surname"),
              (std::vector<LabelMatch>{{FieldKind::personName, {0, 7}}, {FieldKind::personName, {10, 7}}}));
    EXPECT_EQ(matches("Nom / Surname / Apellidos"),
              (std::vector<LabelMatch>{{FieldKind::personName, {0, 3}},
                                       {FieldKind::personName, {6, 7}},
                                       {FieldKind::personName, {16, 9}}}));
    EXPECT_EQ(matches("ДАТА РОЖДЕНИЯ / DATE OF BIRTH"),
              (std::vector<LabelMatch>{{FieldKind::birthDate, {0, 13}}, {FieldKind::birthDate, {16, 13}}}));
}

TEST(LabelMatches, OverlapsGoToTheLongestThenTheEarlierKind) {
    // "RESIDENCE ADDRESS" beats the shorter "ADDRESS" inside it.
    EXPECT_EQ(matches("RESIDENCE ADDRESS"), (std::vector<LabelMatch>{{FieldKind::address, {0, 17}}}));
    // "ADRESA" is an address (cs, sk, ro, hr) and nothing else; "NUMMER" a number.
    EXPECT_EQ(matches("ADRESA NUMMER"),
              (std::vector<LabelMatch>{{FieldKind::address, {0, 6}}, {FieldKind::number, {7, 6}}}));
    // "PASSPORT NO" (number) is longer than any overlapping label and wins; results come by position.
    EXPECT_EQ(matches("SURNAME PASSPORT NO"),
              (std::vector<LabelMatch>{{FieldKind::personName, {0, 7}}, {FieldKind::number, {8, 11}}}));
}

TEST(LabelMatches, RangesCountUtf16UnitsOfTheNormalisedText) {
    // The emoji takes two code units; the label starts after it and a space.
    EXPECT_EQ(matches("😀 DATE OF BIRTH"), (std::vector<LabelMatch>{{FieldKind::birthDate, {3, 13}}}));
    EXPECT_EQ(matches("𝔄 ADDRESS"), (std::vector<LabelMatch>{{FieldKind::address, {3, 7}}}));
    // Folding lengthens "ß" to "SS": the range is in the normalised text, one unit further on.
    EXPECT_EQ(matches("STRAßE ADDRESS"), (std::vector<LabelMatch>{{FieldKind::address, {8, 7}}}));
}

TEST(DrivingLicence, TitlesAsWholeWordsInAnyScript) {
    EXPECT_TRUE(FieldLexicon::isDrivingLicence("RZECZPOSPOLITA POLSKA  PRAWO JAZDY"));
    EXPECT_TRUE(FieldLexicon::isDrivingLicence("Führerschein / Permis de conduire"));
    EXPECT_TRUE(FieldLexicon::isDrivingLicence("ΑΔΕΙΑ ΟΔΗΓΗΣΗΣ"));
    EXPECT_TRUE(FieldLexicon::isDrivingLicence("ВОДИТЕЛЬСКОЕ УДОСТОВЕРЕНИЕ"));
    EXPECT_TRUE(FieldLexicon::isDrivingLicence("LICENCIA 5"));
    EXPECT_TRUE(FieldLexicon::isDrivingLicence("CALIFORNIA DRIVER LICENSE"));
    EXPECT_FALSE(FieldLexicon::isDrivingLicence("LICENCIADO EN DERECHO"));
    EXPECT_FALSE(FieldLexicon::isDrivingLicence("PASSPORT"));
    EXPECT_FALSE(FieldLexicon::isDrivingLicence(""));
}
