// The interface texts and the application model, under a headless event loop.

#include "AppModel.h"
#include "L10n.h"
#include "TestImages.h"
#include "TestPdfs.h"

#include <QCoreApplication>
#include <QSettings>
#include <QTest>
#include <gtest/gtest.h>

#include <deque>
#include <set>

using namespace testing_support;

namespace {

const std::set<int> translatedPositions{0,  1,  2,  5,  6,  7,  8,  9,  11, 12, 13, 14,
                                        16, 18, 23, 25, 26, 33, 34, 37, 38, 42, 47, 48};

} // namespace

TEST(Texts, CompleteTablesHaveEveryField) {
    for (AppLanguage language : {AppLanguage::en, AppLanguage::de, AppLanguage::nl, AppLanguage::ru}) {
        const L10n t(language);
        for (int i = 0; i < L10n::fieldCount; ++i) {
            EXPECT_FALSE(t.field(i).isEmpty()) << L10n::fieldName(i);
        }
        EXPECT_EQ(t.localOnly, t.localProcessing);
        EXPECT_EQ(t.title, t.subtitle);
        EXPECT_EQ(t.appVersion, QStringLiteral("Linux · 0.3"));
        EXPECT_TRUE(t.processingBody.startsWith(QStringLiteral("Quorvel ")))
            << t.processingBody.toStdString();
    }
    EXPECT_EQ(L10n(AppLanguage::ru).reviewCheckbox,
              QStringLiteral("Я проверил(а) результат и закрыл(а) пропущенные данные"));
    EXPECT_EQ(L10n(AppLanguage::de).heuristicZonesText(3),
              QStringLiteral("Heuristische Bereiche: 3. Bitte besonders prüfen."));
    EXPECT_EQ(L10n(AppLanguage::en).emptyBody,
              QStringLiteral("Open a photo, check the masks\nand save the cleaned copy."));
}

TEST(Texts, PartialLanguagesTranslateTheirTwentyFourLabelsOnly) {
    const L10n english(AppLanguage::en);
    for (AppLanguage language : AppLanguages::allCases()) {
        if (language == AppLanguage::en || language == AppLanguage::de || language == AppLanguage::nl ||
            language == AppLanguage::ru) {
            continue;
        }
        const L10n t(language);
        for (int i = 0; i < L10n::fieldCount; ++i) {
            if (!translatedPositions.contains(i)) {
                EXPECT_EQ(t.field(i), english.field(i))
                    << AppLanguages::rawValue(language).toStdString() << " " << L10n::fieldName(i);
            }
        }
        EXPECT_NE(t.localOnly, english.localOnly);
        EXPECT_EQ(t.localProcessing, english.localProcessing);
    }
    const L10n french(AppLanguage::fr);
    EXPECT_EQ(french.riskIndex, QStringLiteral("Indice de suspicion"));
    EXPECT_EQ(french.riskDisclaimer, english.riskDisclaimer);
    EXPECT_EQ(L10n(AppLanguage::el).understood, QStringLiteral("Κατανοητό"));
}

TEST(Texts, FileTypesNamePdfEverywhereSupportedDocumentsOnlyInRussian) {
    for (AppLanguage language : AppLanguages::allCases()) {
        const L10n t(language);
        EXPECT_TRUE(t.fileTypes.contains(QStringLiteral("PDF")))
            << AppLanguages::rawValue(language).toStdString();
        EXPECT_EQ(t.supportedDocuments.contains(QStringLiteral("PDF")), language == AppLanguage::ru);
    }
    EXPECT_EQ(L10n(AppLanguage::en).fileTypes, QStringLiteral("JPEG, PNG, HEIC, PDF · up to 80 MB / 50 MP"));
    for (AppLanguage language : AppLanguages::allCases()) {
        EXPECT_EQ(L10n(language).fileTypes.count(QStringLiteral("PDF")), 1)
            << AppLanguages::rawValue(language).toStdString();
    }
}

TEST(Texts, ComputedTexts) {
    EXPECT_EQ(L10n(AppLanguage::en).zonesReview(0), QStringLiteral("0 zones · review before saving"));
    EXPECT_EQ(L10n(AppLanguage::en).zonesReview(1), QStringLiteral("1 zones · review before saving"));
    EXPECT_EQ(L10n(AppLanguage::ru).zonesReview(0), QStringLiteral("Зон: 0 · проверьте перед сохранением"));
    EXPECT_EQ(L10n(AppLanguage::hu).zonesReview(4), QStringLiteral("4 zóna · mentés előtt ellenőrizze"));
    EXPECT_EQ(L10n(AppLanguage::ru).pdfPages(3), QStringLiteral("Страниц PDF: 3"));
    EXPECT_EQ(L10n(AppLanguage::sv).pdfPages(3), QStringLiteral("PDF pages: 3"));
    EXPECT_EQ(L10n(AppLanguage::no).viewLabel(), QStringLiteral("Visning"));
    EXPECT_EQ(L10n(AppLanguage::pl).languageLabel(), QStringLiteral("Język"));
    for (AppLanguage language : AppLanguages::allCases()) {
        const L10n t(language);
        EXPECT_FALSE(t.cannotReplaceOriginal().isEmpty());
        EXPECT_TRUE(t.replaceQuestion(QStringLiteral("x.png")).contains(QStringLiteral("x.png")));
        EXPECT_FALSE(t.replaceAnswer().isEmpty() || t.cancelAnswer().isEmpty());
        EXPECT_TRUE(t.saveLabel(true).contains(QStringLiteral("PDF")));
        EXPECT_FALSE(t.markTitle().isEmpty() || t.markSwitch().isEmpty() ||
                     t.purposePlaceholder().isEmpty() || t.markHint().isEmpty());
    }
}

TEST(Texts, ShortValueListsArePaddedWithEmptyFields) {
    std::vector<QString> ten(10, QStringLiteral("x"));
    const L10n t = L10n::fromValues(AppLanguage::en, ten);
    int empty = 0;
    for (int i = 0; i < L10n::fieldCount; ++i) {
        empty += t.field(i).isEmpty();
    }
    EXPECT_EQ(empty, 42);
}

TEST(Texts, StartUpLanguageFromThePreferredList) {
    EXPECT_EQ(AppLanguages::detected({QStringLiteral("pt-BR"), QStringLiteral("en-US")}), AppLanguage::pt);
    EXPECT_EQ(AppLanguages::detected({QStringLiteral("de-AT")}), AppLanguage::de);
    EXPECT_EQ(AppLanguages::detected({QStringLiteral("zh-Hans")}), AppLanguage::en);
    EXPECT_EQ(AppLanguages::detected({QStringLiteral("nb-NO")}), AppLanguage::en);
    EXPECT_EQ(AppLanguages::detected({QStringLiteral("no-NO")}), AppLanguage::no);
    EXPECT_EQ(AppLanguages::detected({QStringLiteral("uk-UA")}), AppLanguage::en);
    EXPECT_EQ(AppLanguages::detected(QStringList{}), AppLanguage::en);
    EXPECT_EQ(AppLanguages::displayName(AppLanguage::el), QStringLiteral("Ελληνικά"));
}

namespace {

// File panels that answer from a script.
class ScriptedDialogs : public AppDialogs {
public:
    std::deque<std::optional<QString>> openAnswers, saveAnswers;
    QString lastSaveTitle, lastProposedName;
    std::vector<QString> questions;
    bool replaceAnswer = true;

    std::optional<QString> chooseOpenFile(const QString&) override { return pop(openAnswers); }
    std::optional<QString> chooseSaveFile(const QString& title, const QString& proposed, bool) override {
        lastSaveTitle = title;
        lastProposedName = proposed;
        return pop(saveAnswers);
    }
    bool confirm(const QString&, const QString& question, const QString&, const QString&) override {
        questions.push_back(question);
        return replaceAnswer;
    }

private:
    static std::optional<QString> pop(std::deque<std::optional<QString>>& answers) {
        if (answers.empty()) {
            return std::nullopt;
        }
        auto answer = answers.front();
        answers.pop_front();
        return answer;
    }
};

class Model : public ::testing::Test {
protected:
    void SetUp() override {
        QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"))
            .setValue(QStringLiteral("consent.version"), QStringLiteral("2026-09-18"));
        model = std::make_unique<AppModel>(dialogs);
        model->setLanguage(AppLanguage::en);
    }

    QString file(const std::string& name, const Bitmap& image) {
        writeBytes(dir / name, encodeJpeg(image));
        return QString::fromStdString((dir / name).string());
    }

    bool settle(int timeoutMs = 60000) {
        return QTest::qWaitFor([&] { return !model->busy(); }, timeoutMs);
    }
    // Until every job has ended, superseded ones included: no result can arrive after this.
    bool drain(AppModel& which, int timeoutMs = 60000) {
        return QTest::qWaitFor([&] { return which.runningJobs() == 0; }, timeoutMs);
    }

    TempDir dir;
    ScriptedDialogs dialogs;
    std::unique_ptr<AppModel> model;
};

} // namespace

TEST_F(Model, ASupersededLoadShowsOnlyTheSecondDocument) {
    const QString first = file("first.jpg", patterned(640, 400));
    const QString second = file("second.jpg", patterned(300, 500));
    model->load(first);
    EXPECT_TRUE(model->busy());
    model->clear();
    model->load(second);
    ASSERT_TRUE(drain(*model)); // the first result, arriving late, must change nothing
    ASSERT_TRUE(model->original());
    EXPECT_EQ(model->original()->width, 300);
    EXPECT_EQ(model->status(), L10n(AppLanguage::en).ready);
    EXPECT_FALSE(model->error());
}

TEST_F(Model, AClearedLoadLeavesTheModelEmptyWithoutError) {
    model->load(file("a.jpg", patterned(640, 400)));
    model->clear();
    EXPECT_EQ(model->runningJobs(), 1);
    ASSERT_TRUE(drain(*model));
    EXPECT_FALSE(model->original());
    EXPECT_FALSE(model->busy());
    EXPECT_FALSE(model->error());
}

TEST_F(Model, SwitchesReRenderWithoutRecognisingAgainAndClearTheReview) {
    model->load(file("a.jpg", patterned(640, 400)));
    ASSERT_TRUE(settle());
    model->addMask(Rect{0.1, 0.1, 0.3, 0.3});
    ASSERT_TRUE(settle());
    model->setReviewed(true);
    EXPECT_TRUE(model->canExport());
    const Analysis before = *model->analysis();
    const auto shown = model->output();
    model->setPolicy(RedactionPolicy{true, false, false, false});
    EXPECT_FALSE(model->reviewed());
    EXPECT_FALSE(model->canExport());
    ASSERT_TRUE(settle());
    EXPECT_EQ(*model->analysis(), before); // same regions, same ids: no new recognition
    EXPECT_NE(model->output(), shown);
}

TEST_F(Model, ManualMasksAreClippedSmallOnesIgnoredAndUndone) {
    model->load(file("a.jpg", patterned(1000, 1000)));
    ASSERT_TRUE(settle());
    model->addMask(Rect{0.8, 0.5, 0.5, 0.2});
    ASSERT_TRUE(settle());
    ASSERT_EQ(model->manualRegions().size(), 1u);
    const RedactionRegion& mask = model->manualRegions()[0];
    EXPECT_DOUBLE_EQ(mask.rect.maxX(), 1.0);
    EXPECT_EQ(mask.kind, FieldKind::manual);
    EXPECT_EQ(mask.evidence, FieldEvidence::vision);
    model->addMask(Rect{0.1, 0.1, 0.3, 0.001}); // a sliver one pixel high
    model->addMask(Rect{0.1, 0.1, 0.002, 0.3});
    EXPECT_EQ(model->manualRegions().size(), 1u);
    model->undoLastMask();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(model->manualRegions().empty());
}

TEST_F(Model, ExportNeedsTheReviewAndNeverReplacesTheOpenedFile) {
    const QString source = file("a.jpg", patterned(640, 400));
    model->load(source);
    ASSERT_TRUE(settle());
    dialogs.saveAnswers = {QString::fromStdString((dir / "out.png").string())};
    model->exportCopy(); // not reviewed yet
    EXPECT_EQ(dialogs.saveAnswers.size(), 1u);
    model->setReviewed(true);
    // The opened file itself, through a path with "." segments.
    dialogs.saveAnswers = {QString::fromStdString((dir / "." / "a.jpg").string())};
    const auto before = readBytes(dir / "a.jpg");
    model->exportCopy();
    EXPECT_EQ(model->error(), L10n(AppLanguage::en).cannotReplaceOriginal());
    EXPECT_EQ(readBytes(dir / "a.jpg"), before);
    EXPECT_FALSE(model->busy());
    EXPECT_TRUE(dialogs.questions.empty()) << "asked to replace the file it then refuses";
    EXPECT_TRUE(dialogs.lastProposedName.contains(
        QRegularExpression(QStringLiteral("^document-redacted-[0-9A-F]{8}\\.png$"))))
        << dialogs.lastProposedName.toStdString();
    EXPECT_EQ(dialogs.lastSaveTitle, QStringLiteral("Save PNG"));
    model->clearError();
    dialogs.saveAnswers = {QString::fromStdString((dir / "out.png").string())};
    model->exportCopy();
    ASSERT_TRUE(settle());
    EXPECT_EQ(model->status(), L10n(AppLanguage::en).saved);
    EXPECT_EQ(pngChunks(readBytes(dir / "out.png")), (std::vector<std::string>{"IHDR", "IDAT", "IEND"}));

    // Another existing file is replaced only when the user says so.
    const auto saved = readBytes(dir / "out.png");
    writeBytes(dir / "out.png", before);
    dialogs.replaceAnswer = false;
    dialogs.saveAnswers = {QString::fromStdString((dir / "out.png").string())};
    model->exportCopy();
    ASSERT_TRUE(settle());
    EXPECT_EQ(dialogs.questions,
              std::vector<QString>{QStringLiteral("“out.png” already exists. Replace it?")});
    EXPECT_EQ(readBytes(dir / "out.png"), before);
    dialogs.replaceAnswer = true;
    dialogs.saveAnswers = {QString::fromStdString((dir / "out.png").string())};
    model->exportCopy();
    ASSERT_TRUE(settle());
    EXPECT_EQ(readBytes(dir / "out.png"), saved);
}

TEST_F(Model, TheCopyMarkShowsAtOnceAndOnlyTheSwitchIsRemembered) {
    QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"))
        .remove(QString::fromUtf8(AppModel::markCopyKey));
    model->load(file("a.jpg", patterned(640, 400)));
    ASSERT_TRUE(settle());
    const auto plain = model->output();
    model->setMarkCopy(true);
    ASSERT_TRUE(settle());
    const auto marked = model->output();
    ASSERT_TRUE(plain && marked);
    EXPECT_NE(plain->pixels, marked->pixels);
    model->setPurpose(QStringLiteral("for the landlord\nFlat 3"));
    ASSERT_TRUE(settle());
    EXPECT_EQ(model->purpose(), QStringLiteral("for the landlord Flat 3")); // one line
    EXPECT_NE(model->output()->pixels, marked->pixels);
    model->setLanguage(AppLanguage::de); // the mark now says KOPIE
    ASSERT_TRUE(settle());
    EXPECT_NE(model->output()->pixels, marked->pixels);

    QSettings settings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"));
    EXPECT_TRUE(settings.value(QString::fromUtf8(AppModel::markCopyKey)).toBool());
    for (const QString& key : settings.allKeys()) {
        EXPECT_FALSE(settings.value(key).toString().contains(QStringLiteral("landlord")))
            << key.toStdString();
    }
    AppModel next(dialogs);
    EXPECT_TRUE(next.markCopy());
    EXPECT_TRUE(next.purpose().isEmpty());
    model->setMarkCopy(false);
    ASSERT_TRUE(settle());
    EXPECT_EQ(model->output()->pixels, plain->pixels);
    settings.remove(QString::fromUtf8(AppModel::markCopyKey));
}

TEST_F(Model, ErrorsReachTheAlertWithTheirOwnText) {
    const std::string text = "not a photo";
    writeBytes(dir / "bad.jpg", std::vector<std::uint8_t>(text.begin(), text.end()));
    model->setLanguage(AppLanguage::de);
    model->load(QString::fromStdString((dir / "bad.jpg").string()));
    ASSERT_TRUE(settle());
    EXPECT_EQ(model->error(),
              QStringLiteral("Не удалось прочитать изображение. Выберите JPEG, PNG или HEIC."));
    EXPECT_EQ(model->status(), L10n(AppLanguage::de).actionError);
    EXPECT_FALSE(model->original());
    model->load(QString::fromStdString((dir / "missing.jpg").string()));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(model->error()->contains(QStringLiteral("No such file or directory")))
        << model->error()->toStdString();
}

TEST_F(Model, APdfIsMaskedAgainFromItsAnalysesOnEverySwitch) {
    QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"))
        .remove(QString::fromUtf8(AppModel::markCopyKey));
    writeBytes(dir / "scan.PDF", makePdf({TestPage{0, 0, 595, 842, {"SURNAME MARTIN"}}, TestPage{}}));
    model->load(QString::fromStdString((dir / "scan.PDF").string()));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(model->isPDF());
    EXPECT_EQ(model->pdfPageCount(), 2);
    ASSERT_TRUE(model->pdfOutput());
    const auto ids = model->analysis()->regions;
    const auto before = *model->pdfOutput();
    model->setPolicy(RedactionPolicy{true, false, false, false});
    ASSERT_TRUE(settle());
    EXPECT_EQ(model->analysis()->regions, ids); // not analysed again: the same regions
    model->setMarkCopy(true);
    ASSERT_TRUE(settle());
    ASSERT_TRUE(model->pdfOutput());
    EXPECT_NE(*model->pdfOutput(), before); // every page drawn again, with the mark
    EXPECT_EQ(model->pdfPageCount(), 2);
    EXPECT_FALSE(model->allPagesSeen());
    model->setMarkCopy(false);
    ASSERT_TRUE(settle());
    EXPECT_EQ(*model->pdfOutput(), before);
}

TEST_F(Model, APdfIsSavedOnlyOnceEveryPageHasBeenShown) {
    writeBytes(dir / "three.pdf", makePdf({TestPage{0, 0, 595, 842, {"SURNAME MARTIN"}},
                                           TestPage{0, 0, 300, 200, {}}, TestPage{0, 0, 400, 400, {}}}));
    model->load(QString::fromStdString((dir / "three.pdf").string()));
    ASSERT_TRUE(settle());
    ASSERT_EQ(model->pdfPageCount(), 3);
    EXPECT_EQ(model->currentPage(), 0);
    model->setReviewed(true);
    EXPECT_FALSE(model->reviewed()); // pages 2 and 3 not seen yet
    model->showPage(1);
    EXPECT_EQ(model->original()->width, 600); // the second page's own picture, at 2 pixels a point
    model->showPage(3);                       // no such page
    EXPECT_EQ(model->currentPage(), 1);
    model->showPage(2);
    model->setReviewed(true);
    EXPECT_TRUE(model->canExport());
    // New masks on every page: each is to be seen again; the page shown stays shown.
    model->setPolicy(RedactionPolicy{true, false, false, false});
    ASSERT_TRUE(settle());
    EXPECT_EQ(model->currentPage(), 2);
    EXPECT_FALSE(model->allPagesSeen());
    model->setReviewed(true);
    EXPECT_FALSE(model->canExport());
    for (int page = 0; page < 3; ++page) {
        model->showPage(page);
    }
    model->setReviewed(true);
    dialogs.saveAnswers = {QString::fromStdString((dir / "clean.pdf").string())};
    model->exportCopy();
    ASSERT_TRUE(settle());
    EXPECT_EQ(dialogs.lastSaveTitle, QStringLiteral("Save PDF")); // a PDF is saved as one, in its own words
    EXPECT_TRUE(dialogs.lastProposedName.endsWith(QStringLiteral(".pdf")));
    EXPECT_TRUE(std::filesystem::exists(dir / "clean.pdf"));
}

TEST_F(Model, ConsentIsAskedUntilTheCurrentVersionIsAccepted) {
    QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"))
        .setValue(QStringLiteral("consent.version"), QStringLiteral("2025-01-01"));
    AppModel fresh(dialogs);
    EXPECT_TRUE(fresh.showingConsent());
    fresh.acceptConsent();
    EXPECT_FALSE(fresh.showingConsent());
    dialogs.openAnswers = {std::nullopt};
    QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel")).remove(QStringLiteral("consent.version"));
    fresh.chooseFile();
    EXPECT_TRUE(fresh.showingConsent());
    EXPECT_EQ(dialogs.openAnswers.size(), 1u); // no panel was shown
}

TEST_F(Model, AFileGivenAtFirstStartIsAnalysedOnceTheTermsAreAccepted) {
    QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel")).remove(QStringLiteral("consent.version"));
    AppModel fresh(dialogs);
    int finished = 0;
    QObject::connect(&fresh, &AppModel::idle, [&] { ++finished; });
    const QString start = file("start.jpg", patterned(500, 320));
    // A listener that opens the file whenever nothing is open and nothing runs must see the load
    // already running when it first hears of it, or loads nest until the stack is gone.
    QObject::connect(&fresh, &AppModel::changed, [&] {
        if (!fresh.showingConsent() && !fresh.busy() && !fresh.original()) {
            fresh.openAtStart(start);
        }
    });
    fresh.openAtStart(start);
    EXPECT_FALSE(fresh.busy());
    EXPECT_EQ(fresh.runningJobs(), 0);
    fresh.acceptConsent();
    EXPECT_TRUE(fresh.busy());
    ASSERT_TRUE(drain(fresh));
    EXPECT_EQ(finished, 1);
    ASSERT_TRUE(fresh.original());
    EXPECT_EQ(fresh.original()->width, 500);
    EXPECT_FALSE(fresh.error());
}

TEST_F(Model, DecliningTheTermsAsksToQuitAndStoresNothing) {
    QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel")).remove(QStringLiteral("consent.version"));
    AppModel fresh(dialogs);
    bool quit = false;
    QObject::connect(&fresh, &AppModel::quitRequested, [&] { quit = true; });
    fresh.openAtStart(file("start.jpg", patterned(500, 320)));
    fresh.declineConsent();
    EXPECT_TRUE(quit);
    EXPECT_EQ(fresh.runningJobs(), 0);
    EXPECT_FALSE(QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"))
                     .contains(QStringLiteral("consent.version")));
}

TEST_F(Model, TheStatusFollowsTheLanguageBeforeAnyLoad) {
    model->setLanguage(AppLanguage::de);
    EXPECT_EQ(model->status(), L10n(AppLanguage::de).localOnly);
    model->setLanguage(AppLanguage::en);
    EXPECT_EQ(model->status(), L10n(AppLanguage::en).localOnly);
}

TEST_F(Model, ZoomStepsBetweenOneAndFour) {
    for (int i = 0; i < 8; ++i) {
        model->zoomIn();
    }
    EXPECT_DOUBLE_EQ(model->zoom(), 4.0);
    model->zoomOut();
    EXPECT_DOUBLE_EQ(model->zoom(), 3.5);
    for (int i = 0; i < 8; ++i) {
        model->zoomOut();
    }
    EXPECT_DOUBLE_EQ(model->zoom(), 1.0);
}

int main(int argc, char** argv) {
    // Settings of the tests go to a folder of their own, never to the user's.
    const TempDir config;
    qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(config.path().string()));
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
