#include "FieldClassifiers.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

struct Line {
    std::string text;
    double x, y, width, height;
    float confidence = 0.95f;
};

std::vector<TextRegion> page(const std::vector<Line>& lines) {
    std::vector<TextRegion> regions;
    for (const Line& l : lines) {
        regions.push_back(TextRegion{l.text, Rect{l.x, l.y, l.width, l.height}, l.confidence});
    }
    return regions;
}

using Flag = std::tuple<std::string, FieldKind, FieldEvidence>;

// What was flagged, named by the text of the line whose rectangle each region carries.
std::vector<Flag> flags(const std::vector<TextRegion>& lines, const FieldDetector::Detection& detection) {
    std::vector<Flag> out;
    for (const RedactionRegion& region : detection.regions) {
        const auto line = std::find_if(lines.begin(), lines.end(),
                                       [&](const TextRegion& l) { return l.rect == region.rect; });
        out.emplace_back(line == lines.end() ? "?" : line->text, region.kind, region.evidence);
    }
    return out;
}

constexpr auto label = FieldEvidence::label;
constexpr auto nearby = FieldEvidence::nearbyLabel;
constexpr auto format = FieldEvidence::format;
constexpr auto zone = FieldEvidence::machineReadable;
constexpr auto candidate = FieldEvidence::nameCandidate;

const std::string uncertainWarning =
    "Есть даты без понятной подписи: они скрыты. Переключатели дат действуют только на распознанные поля.";
const std::string lowConfidenceWarning =
    "Часть текста распознана неуверенно. Проверьте номера, даты и адрес на увеличенном изображении.";
const std::string unknownTypeWarning = "Неизвестный тип документа. Использованы общие правила.";
const std::string noNumberWarning = "Отдельное поле номера не найдено. Проверьте все номера документа.";
const std::string noBirthWarning = "Дата рождения не определена по подписи. Проверьте, что она закрыта.";
const std::string joinedWarning =
    "Номер и дата объединены в одну строку: строка скрыта целиком. Проверьте маску.";

} // namespace

TEST(DatePattern, FiveShapesWithoutCalendarChecks) {
    for (const char* date :
         {"2021-03-07", "07.03.2021", "7 3 21", "03/07/2021", "07 MAR/MARS 2021", "07 DEC /DÉC 84",
          "10DEC/DEC 16", "MARCH 7, 2021", "31.02.2020", "12 АВГ 1974"}) {
        EXPECT_TRUE(FieldDetector::containsDate(date)) << date;
    }
    for (const char* text : {"123.03.2021", "07.13.20211", "AB1234567", "2021", "13/13/2021",
                             "12TH STREET 1234", "1ST FLOOR 2020"}) {
        EXPECT_FALSE(FieldDetector::containsDate(text)) << text;
    }
}

TEST(LineClassifiers, Names) {
    EXPECT_TRUE(FieldDetector::isLikelyName("Anna-Maria O’Neil"));
    EXPECT_TRUE(FieldDetector::isLikelyName("  ΠΑΠΑΔΟΠΟΥΛΟΣ  "));
    EXPECT_FALSE(FieldDetector::isLikelyName("J. R."));
    EXPECT_FALSE(FieldDetector::isLikelyName("ANNA 2"));
    EXPECT_FALSE(FieldDetector::isLikelyName("MÜLLER, HANS"));
    EXPECT_FALSE(FieldDetector::isLikelyName(std::string(101, 'A')));
    EXPECT_TRUE(FieldDetector::isLikelyName(std::string(100, 'A')));
    // A letter with a combining accent counts once: 100 such letters are 200 code points.
    std::string accented;
    for (int i = 0; i < 100; ++i) {
        accented += "e\u0301";
    }
    EXPECT_TRUE(FieldDetector::isLikelyName(accented));
    EXPECT_TRUE(FieldDetector::labelHasNameValue("SURNAME: SPECIMEN"));
    EXPECT_FALSE(FieldDetector::labelHasNameValue("SURNAME:"));
    EXPECT_TRUE(FieldDetector::labelHasNameValue("DATE OF BIRTH: ANNA"));
    EXPECT_FALSE(FieldDetector::labelHasNameValue("NAME: STRAßER"));
}

TEST(LineClassifiers, NumbersAddressesAndNumberedCaptions) {
    EXPECT_TRUE(FieldDetector::looksLikeLabelledNumber("AB1234567"));
    EXPECT_FALSE(FieldDetector::looksLikeLabelledNumber("12.03.1990"));
    EXPECT_FALSE(FieldDetector::looksLikeLabelledNumber("NUMBER"));
    EXPECT_TRUE(FieldDetector::looksLikeAddress("RUE DE LA PAIX"));
    EXPECT_TRUE(FieldDetector::looksLikeAddress("HAUPTSTRASSE 5"));
    EXPECT_FALSE(FieldDetector::looksLikeAddress("HAUPTSTRASSE"));
    EXPECT_FALSE(FieldDetector::looksLikeAddress("ST.PETERSBURG"));
    EXPECT_TRUE(FieldDetector::looksLikeAddress("12 ST. MARY"));
    // English-speaking addresses: a numbered street with its type unabbreviated or without a dot, and
    // a town line with a state code and postal code; neither without its number.
    for (const char* line : {"1100 NEW BERN AVE", "122 BURNS CRESCENT", "8 456 BLOOMINGTON AVE",
                             "BIGTOWN, MA, 02801", "MINNEAPOLIS, MN 55417-1234"}) {
        EXPECT_TRUE(FieldDetector::looksLikeAddress(line)) << line;
    }
    for (const char* line : {"NEW BERN AVE", "BIGTOWN MA", "NO AB 12345", "CLASS D 12 RESTR NONE"}) {
        EXPECT_FALSE(FieldDetector::looksLikeAddress(line)) << line;
    }
    EXPECT_TRUE(FieldDetector::looksLikeAddress("УЛ. ЛЕНИНА 5"));
    EXPECT_EQ(FieldDetector::numberedKind("4A. 01.02.2020", true), FieldKind::issueDate);
    EXPECT_EQ(FieldDetector::numberedKind("4В 01.02.2030", true), FieldKind::expiryDate); // Cyrillic В
    EXPECT_EQ(FieldDetector::numberedKind("1. SPECIMEN", true), FieldKind::personName);
    EXPECT_EQ(FieldDetector::numberedKind("12 MAIN ST", true), std::nullopt);
    EXPECT_EQ(FieldDetector::numberedKind("8.", true), FieldKind::address);
    EXPECT_EQ(FieldDetector::numberedKind("35", true), std::nullopt);
    EXPECT_EQ(FieldDetector::numberedKind("3A", true), std::nullopt);
    EXPECT_EQ(FieldDetector::numberedKind("4A. 01.02.2020", false), std::nullopt);
    EXPECT_EQ(FieldDetector::labelKind("5. AB123", true), FieldKind::number);
    EXPECT_EQ(FieldDetector::labelKind("5. AB123", false), std::nullopt);
    EXPECT_EQ(FieldDetector::labelKind("4a. 01.02.2020", true), FieldKind::issueDate);
}

TEST(LineClassifiers, DocumentTypesAndHeadings) {
    EXPECT_EQ(FieldDetector::documentType(
                  page({{"REPUBLIK ÖSTERREICH", 0, 0, 1, 0.1}, {"REISEPASS", 0, 0.1, 1, 0.1}})),
              "Паспорт");
    EXPECT_EQ(FieldDetector::documentType(page({{"P<UTOMUSTER<<ERIKA<<<<", 0, 0.8, 1, 0.1}})), "Паспорт");
    EXPECT_EQ(
        FieldDetector::documentType(page({{"FÜHRERSCHEIN", 0, 0, 1, 0.1}, {"PASSPORT", 0, 0.1, 1, 0.1}})),
        "Водительское удостоверение");
    EXPECT_EQ(FieldDetector::documentType(page({{"Personalausweis", 0, 0, 1, 0.1}})), "ID-карта");
    EXPECT_EQ(FieldDetector::documentType({}), "Тип не определён");
    // A licence whose title was lost: two different numbered fields of 4a to 4d name it; one does not,
    // nor does a 4 that belongs to a word or a number.
    EXPECT_EQ(FieldDetector::documentType(
                  page({{"4a ISS. 03/18/2018", 0, 0.2, 0.4, 0.1}, {"4d NUMBER", 0.5, 0.2, 0.4, 0.1}})),
              "Водительское удостоверение");
    EXPECT_EQ(
        FieldDetector::documentType(page({{"4d DL# A123", 0, 0.2, 0.4, 0.1}, {"APT 14B", 0, 0.3, 0.4, 0.1}})),
        "Тип не определён");
    EXPECT_TRUE(FieldDetector::isHeading("PERSONALAUSWEIS", ""));
    EXPECT_TRUE(FieldDetector::isHeading("Republik Österreich", ""));
    EXPECT_FALSE(FieldDetector::isHeading("ERIKA", ""));
}

TEST(IdentifierRanges, DigitsLettersAndDates) {
    EXPECT_EQ(FieldDetector::identifierRanges("NO 1234567 DATE 12.03.1990"),
              (std::vector<TextRange>{{3, 7}}));
    EXPECT_TRUE(FieldDetector::identifierRanges("AB 12 34 5").empty());
    EXPECT_EQ(FieldDetector::identifierRanges("X-123/45"), (std::vector<TextRange>{{0, 8}}));
    EXPECT_EQ(FieldDetector::identifierRanges("12 34 567890"), (std::vector<TextRange>{{0, 12}}));
    EXPECT_EQ(FieldDetector::identifierRanges("AB12C A1234 X 1234 ABC1"),
              (std::vector<TextRange>{{0, 5}, {6, 5}}));
    // Five digits alone are an identifier, four are not; nor are four characters with two digits.
    EXPECT_EQ(FieldDetector::identifierRanges("ZIP 12345"), (std::vector<TextRange>{{4, 5}}));
    EXPECT_TRUE(FieldDetector::identifierRanges("ROOM 1234").empty());
    EXPECT_TRUE(FieldDetector::identifierRanges("AB12").empty());
    EXPECT_TRUE(FieldDetector::identifierRanges("12.03.1990").empty());
    // Cyrillic series and number; ranges count UTF-16 units after a character outside the BMP.
    EXPECT_EQ(FieldDetector::identifierRanges("СЕРИЯ АБ 123456"), (std::vector<TextRange>{{9, 6}}));
    EXPECT_EQ(FieldDetector::identifierRanges("𝔄 AB12345"), (std::vector<TextRange>{{3, 7}}));
}

TEST(FieldSpans, CutAtCaptionsAndAroundIdentifiers) {
    EXPECT_EQ(FieldDetector::fieldSpans("DOCUMENT NO AB123456 SURNAME SMITH", false),
              (std::vector<TextRange>{{0, 12}, {12, 8}, {20, 1}, {21, 13}}));
    EXPECT_EQ(FieldDetector::fieldSpans("4A. 01.02.2020 4B. 01.02.2030", true),
              (std::vector<TextRange>{{0, 15}, {15, 14}}));
    EXPECT_EQ(FieldDetector::fieldSpans("4A. 01.02.2020 4B. 01.02.2030", false),
              (std::vector<TextRange>{{0, 29}}));
    EXPECT_EQ(FieldDetector::fieldSpans("STRAßE 5 AB123456", false), (std::vector<TextRange>{{0, 17}}));
    EXPECT_EQ(FieldDetector::fieldSpans("DATE OF BIRTH 12.03.1990", false),
              (std::vector<TextRange>{{0, 24}}));
    EXPECT_EQ(FieldDetector::fieldSpans("Фамилия / Surname", false),
              (std::vector<TextRange>{{0, 10}, {10, 7}}));
    EXPECT_TRUE(FieldDetector::fieldSpans("", false).empty());
}

TEST(DetectPages, PassportDataPageWithValuesBelowCaptionsAndItsZone) {
    const auto lines = page({
        {"UTOPIA", 0.40, 0.03, 0.20, 0.04},
        {"PASSPORT", 0.40, 0.08, 0.20, 0.035},
        {"Surname", 0.33, 0.17, 0.12, 0.03},
        {"ERIKSSON", 0.33, 0.205, 0.18, 0.04},
        {"Given names", 0.33, 0.27, 0.15, 0.03},
        {"ANNA MARIA", 0.33, 0.305, 0.20, 0.04},
        {"Date of birth", 0.33, 0.37, 0.16, 0.03},
        {"12 AUG 1974", 0.33, 0.405, 0.15, 0.04},
        {"Passport No.", 0.70, 0.17, 0.16, 0.03},
        {"L898902C3", 0.70, 0.205, 0.15, 0.04},
        {"Date of expiry", 0.33, 0.47, 0.17, 0.03},
        {"15 APR 2032", 0.33, 0.505, 0.15, 0.04},
        {"P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", 0.04, 0.84, 0.92, 0.05},
        {"L898902C36UTO7408122F1204159ZE184226B<<<<<10", 0.04, 0.91, 0.92, 0.05},
    });
    const auto detection = FieldDetector::detect(lines);
    EXPECT_EQ(detection.type, "Паспорт");
    EXPECT_EQ(flags(lines, detection),
              (std::vector<Flag>{
                  // A state outside the catalogue is no heading: its name reads like a person's.
                  {"UTOPIA", FieldKind::personName, candidate},
                  {"Surname", FieldKind::personName, label},
                  {"ERIKSSON", FieldKind::personName, nearby},
                  {"Given names", FieldKind::personName, label},
                  {"ANNA MARIA", FieldKind::personName, nearby},
                  {"Date of birth", FieldKind::birthDate, label},
                  {"12 AUG 1974", FieldKind::birthDate, nearby},
                  {"Passport No.", FieldKind::number, label},
                  {"L898902C3", FieldKind::number, nearby},
                  {"Date of expiry", FieldKind::expiryDate, label},
                  {"15 APR 2032", FieldKind::expiryDate, nearby},
                  {"P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", FieldKind::machineReadable, zone},
                  {"L898902C36UTO7408122F1204159ZE184226B<<<<<10", FieldKind::machineReadable, zone},
              }));
    EXPECT_TRUE(detection.warnings.empty());
}

TEST(DetectPages, IdCardFrontWithValuesBesideTheirCaptions) {
    // As the splitter delivers it: caption and value of one row are two neighbouring spans.
    const auto lines = page({
        {"IDENTITY CARD", 0.30, 0.04, 0.40, 0.05},
        {"Surname ", 0.05, 0.20, 0.12, 0.04},
        {"DUPONT", 0.18, 0.20, 0.15, 0.04},
        {"Given name ", 0.05, 0.27, 0.14, 0.04},
        {"JEAN PIERRE", 0.20, 0.27, 0.20, 0.04},
        {"Date of birth ", 0.05, 0.34, 0.17, 0.04},
        {"01.02.1985", 0.23, 0.34, 0.14, 0.04},
        {"Card No ", 0.55, 0.34, 0.10, 0.04},
        {"X4RTBPFW4", 0.66, 0.34, 0.14, 0.04},
        {"Date of issue 03.04.2020", 0.05, 0.41, 0.30, 0.04},
        {"Expiry 03.04.2030", 0.55, 0.41, 0.25, 0.04},
    });
    const auto detection = FieldDetector::detect(lines);
    EXPECT_EQ(detection.type, "ID-карта");
    EXPECT_EQ(flags(lines, detection), (std::vector<Flag>{
                                           {"Surname ", FieldKind::personName, label},
                                           {"DUPONT", FieldKind::personName, nearby},
                                           {"Given name ", FieldKind::personName, label},
                                           {"JEAN PIERRE", FieldKind::personName, nearby},
                                           {"Date of birth ", FieldKind::birthDate, label},
                                           {"01.02.1985", FieldKind::birthDate, nearby},
                                           {"Card No ", FieldKind::number, label},
                                           {"X4RTBPFW4", FieldKind::number, nearby},
                                           {"Date of issue 03.04.2020", FieldKind::issueDate, label},
                                           {"Expiry 03.04.2030", FieldKind::expiryDate, label},
                                       }));
}

TEST(DetectPages, IdCardBackWithAnAddressBlockAndACardZone) {
    const auto lines = page({
        {"Address", 0.05, 0.10, 0.12, 0.035},
        {"12 RUE DE LA PAIX", 0.05, 0.15, 0.35, 0.04},
        {"75002 PARIS", 0.05, 0.20, 0.20, 0.04},
        {"FRANCE", 0.05, 0.25, 0.12, 0.04},
        {"Issued 03.04.2020", 0.05, 0.35, 0.30, 0.04},
        {"I<UTOD231458907<<<<<<<<<<<<<<<", 0.04, 0.70, 0.90, 0.07},
        {"7408122F1204159UTO<<<<<<<<<<<6", 0.04, 0.79, 0.90, 0.07},
        {"ERIKSSON<<ANNA<MARIA<<<<<<<<<<", 0.04, 0.88, 0.90, 0.07},
    });
    const auto detection = FieldDetector::detect(lines);
    EXPECT_EQ(flags(lines, detection),
              (std::vector<Flag>{
                  {"Address", FieldKind::address, label},
                  {"12 RUE DE LA PAIX", FieldKind::address, format},
                  {"75002 PARIS", FieldKind::address, nearby},
                  {"FRANCE", FieldKind::address, nearby},
                  {"Issued 03.04.2020", FieldKind::issueDate, label},
                  {"I<UTOD231458907<<<<<<<<<<<<<<<", FieldKind::machineReadable, zone},
                  {"7408122F1204159UTO<<<<<<<<<<<6", FieldKind::machineReadable, zone},
                  {"ERIKSSON<<ANNA<MARIA<<<<<<<<<<", FieldKind::machineReadable, zone},
              }));
    EXPECT_EQ(detection.warnings,
              (std::vector<std::string>{unknownTypeWarning, noNumberWarning, noBirthWarning}));
}

TEST(DetectPages, DrivingLicenceWithNumberedCaptions) {
    const auto lines = page({
        {"FÜHRERSCHEIN", 0.30, 0.03, 0.40, 0.05},
        {"BUNDESREPUBLIK DEUTSCHLAND", 0.30, 0.09, 0.45, 0.04},
        {"1. MUSTERMANN", 0.35, 0.18, 0.30, 0.045},
        {"2. ERIKA", 0.35, 0.25, 0.20, 0.045},
        {"3. 12.08.1964 BERLIN", 0.35, 0.32, 0.35, 0.045},
        {"4a. 01.02.2020 ", 0.35, 0.39, 0.20, 0.045},
        {"4b. 31.01.2035", 0.56, 0.39, 0.20, 0.045},
        {"4c. LRA MÜNCHEN", 0.35, 0.46, 0.30, 0.045},
        {"5. ", 0.35, 0.53, 0.04, 0.045},
        {"B072RRE2I55", 0.40, 0.53, 0.22, 0.045},
        {"9. AM/B/L", 0.35, 0.60, 0.20, 0.045},
    });
    const auto detection = FieldDetector::detect(lines);
    EXPECT_EQ(detection.type, "Водительское удостоверение");
    EXPECT_EQ(flags(lines, detection),
              (std::vector<Flag>{
                  {"1. MUSTERMANN", FieldKind::personName, label},
                  {"2. ERIKA", FieldKind::personName, label},
                  {"3. 12.08.1964 BERLIN", FieldKind::birthDate, label},
                  {"4a. 01.02.2020 ", FieldKind::issueDate, label},
                  {"4b. 31.01.2035", FieldKind::expiryDate, label},
                  {"5. ", FieldKind::number, label},
                  {"B072RRE2I55", FieldKind::number, nearby},
                  // Field 9 sits right below field 5 and holds a digit: it reads as the number's value.
                  {"9. AM/B/L", FieldKind::number, nearby},
              }));
    EXPECT_TRUE(detection.warnings.empty());
}

TEST(DetectPages, BilingualCaptionsAndNamesBelowThem) {
    const auto lines = page({
        {"РОССИЙСКАЯ ФЕДЕРАЦИЯ", 0.25, 0.03, 0.50, 0.04},
        {"ПАСПОРТ / PASSPORT", 0.30, 0.08, 0.40, 0.04},
        {"Фамилия / ", 0.35, 0.20, 0.10, 0.03},
        {"Surname", 0.45, 0.20, 0.08, 0.03},
        {"ИВАНОВА", 0.35, 0.235, 0.16, 0.035},
        {"IVANOVA", 0.35, 0.275, 0.16, 0.035},
        {"Дата рождения / ", 0.35, 0.32, 0.15, 0.03},
        {"Date of birth", 0.50, 0.32, 0.12, 0.03},
        {"01.01.1990", 0.35, 0.36, 0.14, 0.04},
        {"Место рождения / Place of birth", 0.35, 0.44, 0.30, 0.03},
        {"Г. МОСКВА", 0.35, 0.48, 0.16, 0.04},
    });
    const auto detection = FieldDetector::detect(lines);
    EXPECT_EQ(flags(lines, detection), (std::vector<Flag>{
                                           {"Фамилия / ", FieldKind::personName, label},
                                           {"Surname", FieldKind::personName, label},
                                           {"ИВАНОВА", FieldKind::personName, nearby},
                                           {"IVANOVA", FieldKind::personName, nearby},
                                           {"Дата рождения / ", FieldKind::birthDate, label},
                                           {"Date of birth", FieldKind::birthDate, label},
                                           {"01.01.1990", FieldKind::birthDate, nearby},
                                           {"Место рождения / Place of birth", FieldKind::birthDate, label},
                                           {"Г. МОСКВА", FieldKind::personName, candidate},
                                       }));
}

TEST(DetectPages, PhoneEmailAndUnlabelledValues) {
    const auto lines = page({
        {"Tel. +49 (0)30 1234567", 0.05, 0.10, 0.40, 0.04},
        {"anna.muster@example.org", 0.05, 0.16, 0.40, 0.04},
        {"123456789", 0.05, 0.22, 0.20, 0.04},
        {"24.12.2031", 0.70, 0.60, 0.15, 0.04, 0.6f},
        {"AB1234567", 0.70, 0.30, 0.20, 0.04},
        {"SPECIMEN", 0.05, 0.40, 0.20, 0.04},
        {"UTOPIA", 0.05, 0.50, 0.20, 0.04},
    });
    const auto detection = FieldDetector::detect(lines);
    EXPECT_EQ(flags(lines, detection), (std::vector<Flag>{
                                           {"Tel. +49 (0)30 1234567", FieldKind::phone, format},
                                           {"anna.muster@example.org", FieldKind::email, format},
                                           {"123456789", FieldKind::phone, format},
                                           {"24.12.2031", FieldKind::uncertain, format},
                                           {"AB1234567", FieldKind::number, format},
                                           {"SPECIMEN", FieldKind::personName, candidate},
                                           {"UTOPIA", FieldKind::personName, candidate},
                                       }));
    EXPECT_EQ(detection.warnings, (std::vector<std::string>{uncertainWarning, lowConfidenceWarning,
                                                            unknownTypeWarning, noBirthWarning}));
}

TEST(DetectPages, APhoneNeedsSevenDigits) {
    const auto lines = page({{"+1 234 567", 0.05, 0.10, 0.40, 0.04}, {"+1 234 56", 0.05, 0.30, 0.40, 0.04}});
    const auto result = flags(lines, FieldDetector::detect(lines));
    ASSERT_FALSE(result.empty());
    EXPECT_EQ(result.front(), (Flag{"+1 234 567", FieldKind::phone, format}));
    for (const Flag& flag : result) {
        EXPECT_FALSE(std::get<0>(flag) == "+1 234 56" && std::get<1>(flag) == FieldKind::phone);
    }
}

TEST(DetectPages, NoCaptionsAtAll) {
    const auto lines =
        page({{"MARIA", 0.1, 0.1, 0.2, 0.05}, {"Ÿ", 0.1, 0.2, 0.2, 0.05}, {"", 0.1, 0.3, 0.2, 0.05}});
    const auto detection = FieldDetector::detect(lines);
    EXPECT_EQ(flags(lines, detection), (std::vector<Flag>{{"MARIA", FieldKind::personName, candidate}}));
    const auto empty = FieldDetector::detect({});
    EXPECT_TRUE(empty.regions.empty());
    EXPECT_EQ(empty.type, "Тип не определён");
    EXPECT_EQ(empty.warnings,
              (std::vector<std::string>{unknownTypeWarning, noNumberWarning, noBirthWarning}));
}

TEST(DetectRules, NearerCaptionOnTheRowBeatsTheOneAbove) {
    // Below "Surname" by 0.01 with left edges 0.05 apart scores 0.07; "Given name" on the same row,
    // 0.03 to the left, scores 0.03.
    const auto lines = page({{"Surname", 0.10, 0.10, 0.15, 0.04},
                             {"Date of birth", 0.02, 0.15, 0.11, 0.04},
                             {"ANNA", 0.15, 0.15, 0.10, 0.04},
                             {"Given name", 0.16, 0.30, 0.10, 0.03},
                             {"MAX", 0.16, 0.42, 0.10, 0.03}});
    const auto detection = FieldDetector::detect(lines);
    const auto result = flags(lines, detection);
    EXPECT_EQ(result[2], (Flag{"ANNA", FieldKind::personName, nearby}));
    // 0.09 below a 0.03-high caption is out of reach (limit 0.066): a name candidate instead.
    EXPECT_EQ(result[4], (Flag{"MAX", FieldKind::personName, candidate}));
}

TEST(DetectRules, ZonesAndTheirPieces) {
    const auto lines = page({{"Surname", 0.05, 0.70, 0.15, 0.04},
                             {"P<UTOSPECIMEN<<TEST<<<<<<<<<<<<<<<<<<<<<<<<", 0.05, 0.75, 0.9, 0.05},
                             {"<<<<<<<<", 0.05, 0.85, 0.2, 0.05},
                             {"L898902C36UTO7408122F12041", 0.05, 0.92, 0.6, 0.05},
                             {"<<<<<10", 0.70, 0.92, 0.2, 0.05}});
    const auto result = flags(lines, FieldDetector::detect(lines));
    EXPECT_EQ(result, (std::vector<Flag>{
                          {"Surname", FieldKind::personName, label},
                          {"P<UTOSPECIMEN<<TEST<<<<<<<<<<<<<<<<<<<<<<<<", FieldKind::machineReadable, zone},
                          {"L898902C36UTO7408122F12041", FieldKind::number, format}}));
}

TEST(DetectRules, NumberAndDateOnOneLine) {
    const auto licence =
        page({{"DRIVING LICENCE", 0.3, 0.05, 0.4, 0.05}, {"4A. 01.02.2020 AB123456", 0.3, 0.3, 0.4, 0.05}});
    const auto joined = FieldDetector::detect(licence);
    EXPECT_EQ(flags(licence, joined),
              (std::vector<Flag>{{"4A. 01.02.2020 AB123456", FieldKind::issueDate, label},
                                 {"4A. 01.02.2020 AB123456", FieldKind::number, format}}));
    EXPECT_EQ(std::count(joined.warnings.begin(), joined.warnings.end(), joinedWarning), 1);
    const auto compact = page({{"DATE OF BIRTH 19900312", 0.1, 0.1, 0.4, 0.05}});
    EXPECT_EQ(flags(compact, FieldDetector::detect(compact)),
              (std::vector<Flag>{{"DATE OF BIRTH 19900312", FieldKind::birthDate, label}}));
}

TEST(DetectRules, AddressBlocksStopAtADateOrAGap) {
    const auto lines = page({{"ADDRESS", 0.05, 0.10, 0.15, 0.03},
                             {"FLAT 4", 0.05, 0.15, 0.20, 0.03},
                             {"1 HIGH STREET", 0.06, 0.20, 0.25, 0.03},
                             {"LONDON", 0.05, 0.25, 0.15, 0.03},
                             {"12.01.2020", 0.05, 0.30, 0.15, 0.03},
                             {"FLAT 9", 0.05, 0.35, 0.15, 0.03}});
    const auto result = flags(lines, FieldDetector::detect(lines));
    EXPECT_EQ(result, (std::vector<Flag>{{"ADDRESS", FieldKind::address, label},
                                         {"FLAT 4", FieldKind::address, nearby},
                                         {"1 HIGH STREET", FieldKind::address, format},
                                         {"LONDON", FieldKind::address, nearby},
                                         {"12.01.2020", FieldKind::uncertain, format}}));
}

TEST(DetectRules, AnAddressBlockGrowsFromItsLastLineNotFromItsCaption) {
    // No line after the caption looks like an address, and each is nearer the line above than the
    // gap allows, but the third and fourth are farther from the caption than that.
    const auto lines = page({{"ADDRESS", 0.05, 0.10, 0.15, 0.03},
                             {"FLAT 4", 0.05, 0.15, 0.20, 0.03},
                             {"BLOCK C", 0.05, 0.20, 0.25, 0.03},
                             {"LONDON", 0.05, 0.25, 0.15, 0.03}});
    EXPECT_EQ(flags(lines, FieldDetector::detect(lines)),
              (std::vector<Flag>{{"ADDRESS", FieldKind::address, label},
                                 {"FLAT 4", FieldKind::address, nearby},
                                 {"BLOCK C", FieldKind::address, nearby},
                                 {"LONDON", FieldKind::address, nearby}}));
}

TEST(DetectRules, ACountryNameAloneIsAHeadingNotAName) {
    const auto lines = page({{"ÖSTERREICH", 0.3, 0.05, 0.4, 0.05}, {"ERIKA", 0.3, 0.5, 0.2, 0.05}});
    EXPECT_EQ(flags(lines, FieldDetector::detect(lines)),
              (std::vector<Flag>{{"ERIKA", FieldKind::personName, candidate}}));
}
