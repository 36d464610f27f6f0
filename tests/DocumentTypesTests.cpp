#include "DocumentTypes.h"
#include "ImagePipeline.h"

#include <gtest/gtest.h>

#include <set>

TEST(FieldKind, RawValuesRoundTripInDeclarationOrderAndAreCaseSensitive) {
    const char* expected[] = {"number",    "address",    "birthDate",       "face",
                              "issueDate", "expiryDate", "machineReadable", "uncertain",
                              "manual",    "personName", "phone",           "email"};
    ASSERT_EQ(allFieldKinds.size(), std::size(expected));
    for (std::size_t i = 0; i < allFieldKinds.size(); ++i) {
        EXPECT_EQ(rawValue(allFieldKinds[i]), expected[i]);
        EXPECT_EQ(fieldKind(expected[i]), allFieldKinds[i]);
    }
    EXPECT_EQ(fieldKind("Number"), std::nullopt);
    EXPECT_EQ(fieldKind("BIRTHDATE"), std::nullopt);
    EXPECT_EQ(fieldKind(""), std::nullopt);
}

TEST(FieldKind, TitlesAreTheRussianTexts) {
    EXPECT_EQ(title(FieldKind::number), "Номера документа");
    EXPECT_EQ(title(FieldKind::machineReadable), "MRZ и штрихкоды");
    EXPECT_EQ(title(FieldKind::uncertain), "Неопределённое поле");
    EXPECT_EQ(title(FieldKind::personName), "Имя / фамилия (сохранено)");
    EXPECT_EQ(title(FieldKind::email), "Email");
}

TEST(FieldEvidence, RawValuesAreTheDescriptions) {
    EXPECT_EQ(fieldEvidence("Ручная маска"), FieldEvidence::manual);
    EXPECT_EQ(fieldEvidence("Обнаружено на изображении"), FieldEvidence::vision);
    EXPECT_EQ(rawValue(FieldEvidence::nearbyLabel), "Рядом с подписью");
    EXPECT_EQ(fieldEvidence("manual"), std::nullopt);
}

TEST(RedactionPolicy, OnlyTheFourOptionalKindsFollowTheirSwitches) {
    const RedactionPolicy defaults;
    const RedactionPolicy pdf{false, false, false, true};
    std::set<FieldKind> shownByDefault, shownInPdf;
    for (FieldKind kind : allFieldKinds) {
        if (!defaults.hides(kind)) {
            shownByDefault.insert(kind);
        }
        if (!pdf.hides(kind)) {
            shownInPdf.insert(kind);
        }
    }
    EXPECT_EQ(shownByDefault, (std::set{FieldKind::face, FieldKind::issueDate, FieldKind::expiryDate,
                                        FieldKind::personName}));
    EXPECT_EQ(shownInPdf, (std::set{FieldKind::face, FieldKind::issueDate, FieldKind::expiryDate}));
    const RedactionPolicy all{true, true, true, true};
    for (FieldKind kind : allFieldKinds) {
        EXPECT_TRUE(all.hides(kind));
    }
}

TEST(DocumentError, DescriptionsAreTheRussianTexts) {
    EXPECT_EQ(DocumentError(DocumentError::invalidImage).errorDescription(),
              "Не удалось прочитать изображение. Выберите JPEG, PNG или HEIC.");
    EXPECT_EQ(DocumentError(DocumentError::tooLarge).errorDescription(),
              "Изображение слишком большое. Максимум: 80 МБ и 50 мегапикселей.");
    EXPECT_EQ(DocumentError(DocumentError::exportFailed).errorDescription(),
              "Не удалось сохранить файл. Проверьте свободное место и доступ к папке.");
    EXPECT_EQ(DocumentError(DocumentError::cancelled).errorDescription(), "Обработка отменена.");
    EXPECT_EQ(DocumentError(DocumentError::tooLarge), DocumentError(DocumentError::tooLarge));
    EXPECT_FALSE(DocumentError(DocumentError::tooLarge) == DocumentError(DocumentError::invalidImage));
}

TEST(RedactionRegion, EqualContentWithFreshIdsIsTwoMasks) {
    const Rect rect{0.1, 0.2, 0.3, 0.4};
    const RedactionRegion a{FieldKind::number, rect, Uuid::random(), FieldEvidence::label};
    const RedactionRegion b{FieldKind::number, rect, Uuid::random(), FieldEvidence::label};
    EXPECT_NE(a, b);
    EXPECT_EQ(a, a);
    const std::string text = a.id.string();
    EXPECT_EQ(text.size(), 36u);
    EXPECT_EQ(text[14], '4'); // version 4
}
