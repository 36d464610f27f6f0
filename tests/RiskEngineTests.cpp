#include "RiskEngine.h"

#include <gtest/gtest.h>

namespace {

// The specimen zones published in ICAO 9303 (parts 4, 5 and 6).
const std::string td3First = "P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<";
const std::string td3Second = "L898902C36UTO7408122F1204159ZE184226B<<<<<10";
const std::string td1[] = {"I<UTOD231458907<<<<<<<<<<<<<<<", "7408122F1204159UTO<<<<<<<<<<<6",
                           "ERIKSSON<<ANNA<MARIA<<<<<<<<<<"};
const std::string td2[] = {"I<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<", "D231458907UTO7408122F1204159<<<<<<<6"};

const std::string allMatched3 =
    "MRZ: 3 контрольные цифры совпали. Это не подтверждает подлинность документа.";
const std::string noZone = "MRZ не найдена или не прочитана полностью. Проверка контрольных цифр недоступна.";
const std::string editorFinding = "В метаданных указан графический редактор. Это слабый сигнал: обычная "
                                  "обработка фотографии также оставляет такие записи.";
const std::string lowResolution = "Качество снимка низкое: разрешение меньше 1 Мп. Мелкие защитные элементы "
                                  "и монтаж могут быть неразличимы.";
const std::string proportions =
    "Необычное соотношение сторон снимка. Проверьте, что документ не обрезан или не собран из частей.";
const std::string closing = "Замена портрета, монтаж, защитные элементы и чип этой версией не проверяются. "
                            "Индекс не является вероятностью подделки.";

std::string mismatches(int m, int n) {
    return "MRZ: несовпадений контрольных цифр — " + std::to_string(m) + " из " + std::to_string(n) +
           ". Возможны ошибка OCR, плохое фото или изменение данных.";
}

std::vector<TextRegion> page(std::initializer_list<std::string> texts) {
    std::vector<TextRegion> lines;
    double y = 0.1;
    for (const std::string& text : texts) {
        lines.push_back(TextRegion{text, Rect{0.05, y, 0.9, 0.05}, 0.9f});
        y += 0.1;
    }
    return lines;
}

std::string withDigit(std::string line, std::size_t position, char digit) {
    line.replace(position - 1, 1, 1, digit);
    return line;
}

RiskAssessment assessLines(const std::vector<TextRegion>& lines,
                           std::optional<std::string> software = std::nullopt,
                           std::optional<RiskEngine::PixelSize> image = std::nullopt) {
    return RiskEngine::assess(lines, software, image);
}

} // namespace

TEST(CheckDigit, PublishedValuesAndRefusedCharacters) {
    EXPECT_EQ(RiskEngine::checkDigit("L898902C3"), 6);
    EXPECT_EQ(RiskEngine::checkDigit("D23145890"), 7);
    EXPECT_EQ(RiskEngine::checkDigit("740812"), 2);
    EXPECT_EQ(RiskEngine::checkDigit("120415"), 9);
    EXPECT_EQ(RiskEngine::checkDigit("<<<"), 0);
    EXPECT_EQ(RiskEngine::checkDigit(""), 0);
    EXPECT_EQ(RiskEngine::checkDigit("l898902c3"), std::nullopt);
    EXPECT_EQ(RiskEngine::checkDigit("12 04"), std::nullopt);
    EXPECT_EQ(RiskEngine::checkDigit("12О4"), std::nullopt); // a Cyrillic O
}

TEST(RiskZones, EachPublishedLayoutVerifiesItsThreeFields) {
    for (const auto& lines :
         {page({td3First, td3Second}), page({td1[0], td1[1], td1[2]}), page({td2[0], td2[1]})}) {
        const RiskAssessment risk = assessLines(lines);
        EXPECT_EQ(risk.findings, (std::vector<std::string>{allMatched3, closing})) << lines[0].text;
        EXPECT_EQ(risk.checksPerformed, 3);
        EXPECT_EQ(risk.score, 0);
    }
}

TEST(RiskZones, AReadablePassportWithAGoodImage) {
    // 1,250 x 800 is exactly one megapixel, the smallest size that is not low resolution.
    const RiskAssessment risk =
        assessLines(page({"УТОПИЯ", td3First, td3Second}), std::nullopt, RiskEngine::PixelSize{1250, 800});
    EXPECT_EQ(
        risk.findings,
        (std::vector<std::string>{
            allMatched3, "Качество снимка: разрешение достаточно для базовой оптической проверки (1250×800).",
            closing}));
    EXPECT_EQ(risk.score, 0);
    EXPECT_EQ(risk.checksPerformed, 4);
    EXPECT_EQ(assessLines(page({td3First, td3Second}), std::nullopt, RiskEngine::PixelSize{1200, 800}).score,
              8);
}

TEST(RiskZones, MismatchesScoreTwentyFiveEachUpToSeventy) {
    const RiskAssessment one = assessLines(page({td3First, withDigit(td3Second, 20, '3')}));
    EXPECT_EQ(one.findings.front(), mismatches(1, 3));
    EXPECT_EQ(one.score, 25);
    const std::string allWrong = withDigit(withDigit(withDigit(td3Second, 10, '1'), 20, '3'), 28, '0');
    const RiskAssessment three = assessLines(page({td3First, allWrong}));
    EXPECT_EQ(three.findings.front(), mismatches(3, 3));
    EXPECT_EQ(three.score, 70);
    // A TD1 card with a wrong document-number digit on its first line.
    EXPECT_EQ(assessLines(page({withDigit(td1[0], 15, '1'), td1[1], td1[2]})).findings.front(),
              mismatches(1, 3));
    // Every character of the number counts: a number ending in 7 (weight 1) agrees with its digit only
    // when its last character is read (the specimen's ends in 0, which a field cut short also passes).
    EXPECT_EQ(assessLines(page({"I<UTOD231458974<<<<<<<<<<<<<<<", td1[1], td1[2]})).findings.front(),
              allMatched3);
    EXPECT_EQ(assessLines(page({"I<UTOD231458970<<<<<<<<<<<<<<<", td1[1], td1[2]})).findings.front(),
              mismatches(1, 3));
}

TEST(RiskZones, EverySignAddsUp) {
    const std::string allWrong = withDigit(withDigit(withDigit(td3Second, 10, '1'), 20, '3'), 28, '0');
    const RiskAssessment risk =
        assessLines(page({td3First, allWrong}), "Photoshop", RiskEngine::PixelSize{900, 900});
    EXPECT_EQ(risk.score, 88);
    EXPECT_EQ(risk.findings,
              (std::vector<std::string>{mismatches(3, 3), editorFinding, lowResolution, closing}));
    const RiskAssessment wide =
        assessLines(page({td3First, allWrong}), "Photoshop", RiskEngine::PixelSize{4000, 1000});
    EXPECT_EQ(wide.score, 85);
    EXPECT_EQ(wide.findings[3], proportions);
}

TEST(RiskZones, ZonesAsARecogniserReadsThem) {
    // Spaces inside a line are removed before the length test; lower case is raised.
    EXPECT_EQ(assessLines(page({"P<UTOERIKSSON<<ANNA<MARIA <<<<<<<<<<<<<<<<<<<",
                                "l898902c36uto 7408122F1204159ZE184226B<<<<<10"}))
                  .checksPerformed,
              3);
    // An O read for a zero inside the birth date is a mismatch; the same O on a check digit is skipped.
    EXPECT_EQ(assessLines(page({td3First, withDigit(td3Second, 17, 'O')})).findings.front(),
              mismatches(1, 3));
    EXPECT_EQ(assessLines(page({td3First, withDigit(td3Second, 28, 'O')})).checksPerformed, 2);
    // A line cut short no longer fits any layout.
    EXPECT_EQ(assessLines(page({td3First, td3Second.substr(0, 43)})).findings.front(), noZone);
    // Lines come in any order; their tops decide.
    std::vector<TextRegion> swapped = page({td3Second, td3First});
    std::swap(swapped[0].rect, swapped[1].rect);
    EXPECT_EQ(assessLines(swapped).checksPerformed, 3);
    // A filler where the document-number digit belongs: the other two fields are still verified.
    EXPECT_EQ(assessLines(page({td3First, withDigit(td3Second, 10, '<')})).findings.front(),
              "MRZ: 2 контрольные цифры совпали. Это не подтверждает подлинность документа.");
}

TEST(RiskZones, OtherDocumentTypesAreNotVerified) {
    EXPECT_EQ(assessLines(page({"PD" + td3First.substr(2), td3Second})).findings.front(), noZone);
    EXPECT_EQ(assessLines(page({"V<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", td3Second})).findings.front(),
              noZone);
    // A card zone whose third line is missing.
    EXPECT_EQ(assessLines(page({td1[0], td1[1]})).findings.front(), noZone);
}

TEST(RiskImage, ResolutionAndProportionBoundaries) {
    const auto findings = [](int w, int h) {
        return assessLines({}, std::nullopt, RiskEngine::PixelSize{w, h});
    };
    EXPECT_EQ(findings(1000, 1000).score, 0);
    EXPECT_EQ(findings(999, 1001).score, 8);
    EXPECT_EQ(findings(3000, 1000).score, 0); // exactly 3.0 is not unusual
    EXPECT_EQ(findings(3001, 1000).score, 5);
    EXPECT_EQ(findings(1000, 3001).score, 5);
    EXPECT_EQ(findings(1000, 1000).checksPerformed, 1);
}

TEST(RiskImage, WithoutZoneOrImageThereIsNoScore) {
    const RiskAssessment risk =
        assessLines(page({"SURNAME", "ERIKSSON"}), "Adobe Photoshop 25.0 (Macintosh)");
    EXPECT_EQ(risk.findings, (std::vector<std::string>{noZone, editorFinding, closing}));
    EXPECT_EQ(risk.checksPerformed, 0);
    EXPECT_EQ(risk.score, std::nullopt);
    EXPECT_EQ(assessLines({}).findings, (std::vector<std::string>{noZone, closing}));
}

TEST(RiskImage, EditorNamesAnywhereInTheSoftwareString) {
    const RiskEngine::PixelSize size{2000, 1500};
    EXPECT_EQ(assessLines({}, "GIMP 2.10", size).score, 10);
    EXPECT_EQ(assessLines({}, "Preview", size).score, 0);
    EXPECT_EQ(assessLines({}, "", size).score, 0);
    EXPECT_EQ(assessLines({}, "Lightroom + Snapseed", size).score, 10); // counted once
}
