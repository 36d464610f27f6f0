// The window driven as a person would, offscreen: drags, ticks, shortcuts.

#include "AppActions.h"
#include "AppModel.h"
#include "ConsentDialog.h"
#include "ImageCanvas.h"
#include "MainWindow.h"
#include "PngCodec.h"
#include "TestImages.h"
#include "TestPdfs.h"
#include "Workspace.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QPushButton>
#include <QSettings>
#include <QTest>
#include <QToolButton>
#include <QWheelEvent>
#include <gtest/gtest.h>

using namespace testing_support;

namespace {

class CountingDialogs : public AppDialogs {
public:
    int opened = 0;
    std::optional<QString> answer;
    std::optional<QString> chooseOpenFile(const QString&) override {
        ++opened;
        return answer;
    }
    std::optional<QString> saveAnswer;
    std::optional<QString> chooseSaveFile(const QString&, const QString&, bool) override {
        return saveAnswer;
    }
    bool confirm(const QString&, const QString&, const QString&, const QString&) override { return true; }
};

void setConsent(bool given) {
    QSettings settings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"));
    if (given) {
        settings.setValue(QStringLiteral("consent.version"), QStringLiteral("2026-09-18"));
    } else {
        settings.remove(QStringLiteral("consent.version"));
    }
}

class Window : public ::testing::Test {
protected:
    void open(bool consent = true) {
        setConsent(consent);
        model = std::make_unique<AppModel>(dialogs);
        actions = std::make_unique<AppActions>(*model, nullptr);
        window = std::make_unique<MainWindow>(*model, *actions);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }

    void loadPicture(int width, int height) {
        writeBytes(dir / "card.jpg", encodeJpeg(patterned(width, height)));
        model->load(QString::fromStdString((dir / "card.jpg").string()));
        ASSERT_TRUE(QTest::qWaitFor([&] { return !model->busy() && model->original(); }, 60000));
    }

    // Drags on the picture between two points given as fractions of the displayed picture.
    void drag(QPointF from, QPointF to) {
        ImageCanvas* canvas = window->workspace()->canvas();
        const QSizeF size = canvas->displayedSize();
        const QPointF origin = canvas->pictureOrigin();
        auto at = [&](QPointF f) {
            return (origin + QPointF(f.x() * size.width(), f.y() * size.height())).toPoint();
        };
        QWidget* picture = canvas->pictureWidget();
        QTest::mousePress(picture, Qt::LeftButton, {}, at(from));
        QTest::mouseMove(picture, (at(from) + at(to)) / 2);
        QTest::mouseMove(picture, at(to));
        QTest::mouseRelease(picture, Qt::LeftButton, {}, at(to));
        ASSERT_TRUE(QTest::qWaitFor([&] { return !model->busy(); }, 10000));
    }

    TempDir dir;
    CountingDialogs dialogs;
    std::unique_ptr<AppModel> model;
    std::unique_ptr<AppActions> actions;
    std::unique_ptr<MainWindow> window;
};

} // namespace

TEST_F(Window, ADragBecomesAMaskInNormalisedCoordinatesAtAnyZoomAndSize) {
    open();
    loadPicture(800, 500);
    model->setManualMode(true);
    for (QSize size : {QSize(1220, 820), QSize(1600, 1000)}) {
        window->resize(size);
        for (int zoomSteps : {0, 2}) { // zoom 1.0 and 2.0
            while (model->zoom() > 1.0) {
                model->zoomOut();
            }
            for (int i = 0; i < zoomSteps; ++i) {
                model->zoomIn();
            }
            QApplication::processEvents();
            // Drawn from bottom-right to top-left: the same rectangle.
            drag({0.75, 0.6}, {0.25, 0.2});
            ASSERT_FALSE(model->manualRegions().empty());
            const Rect r = model->manualRegions().back().rect;
            const double tolerance = 2.0 / window->workspace()->canvas()->displayedSize().width();
            EXPECT_NEAR(r.x, 0.25, tolerance) << size.width() << " zoom " << model->zoom();
            EXPECT_NEAR(r.y, 0.2, tolerance);
            EXPECT_NEAR(r.width, 0.5, tolerance);
            EXPECT_NEAR(r.height, 0.4, tolerance);
        }
    }
    // A drag past the right edge stops at it.
    drag({0.5, 0.5}, {1.6, 0.7});
    EXPECT_DOUBLE_EQ(model->manualRegions().back().rect.maxX(), 1.0);
    // With the original shown, drags add nothing.
    const auto count = model->manualRegions().size();
    model->setShowOriginal(true);
    model->setManualMode(true);
    drag({0.1, 0.1}, {0.3, 0.3});
    EXPECT_EQ(model->manualRegions().size(), count);
}

TEST_F(Window, SavingWaitsForTheReviewTickAgainAfterEveryMaskChange) {
    open();
    loadPicture(640, 400);
    EXPECT_FALSE(actions->save()->isEnabled());
    EXPECT_FALSE(window->workspace()->saveButton()->isEnabled());
    QTest::mouseClick(window->workspace()->reviewBox(), Qt::LeftButton, {},
                      QPoint(8, window->workspace()->reviewBox()->height() / 2));
    EXPECT_TRUE(model->reviewed());
    EXPECT_TRUE(actions->save()->isEnabled());
    EXPECT_TRUE(window->workspace()->saveButton()->isEnabled());
    model->setManualMode(true);
    drag({0.1, 0.1}, {0.4, 0.3});
    EXPECT_FALSE(model->reviewed());
    EXPECT_FALSE(actions->save()->isEnabled());
    EXPECT_FALSE(window->workspace()->saveButton()->isEnabled());
    EXPECT_FALSE(window->workspace()->reviewBox()->isChecked());
}

TEST_F(Window, CtrlZTakesBackTheLastManualMask) {
    open();
    loadPicture(640, 400);
    model->setManualMode(true);
    drag({0.1, 0.1}, {0.3, 0.3});
    drag({0.5, 0.5}, {0.8, 0.8});
    ASSERT_EQ(model->manualRegions().size(), 2u);
    const Rect first = model->manualRegions()[0].rect;
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model->busy(); }, 10000));
    ASSERT_EQ(model->manualRegions().size(), 1u);
    EXPECT_EQ(model->manualRegions()[0].rect, first);
    EXPECT_TRUE(window->workspace()->undoButton()->isEnabled());
}

TEST_F(Window, TheConsentSheetBlocksOpeningUntilAccepted) {
    open(false);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return window->consentDialog() && window->consentDialog()->isVisible(); }, 5000));
    actions->open()->trigger();
    EXPECT_EQ(dialogs.opened, 0);
    ConsentDialog* sheet = window->consentDialog();
    EXPECT_FALSE(sheet->continueButton()->isEnabled());
    sheet->acceptBox()->setChecked(true);
    QTest::mouseClick(sheet->continueButton(), Qt::LeftButton);
    EXPECT_FALSE(model->showingConsent());
    EXPECT_EQ(QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"))
                  .value(QStringLiteral("consent.version"))
                  .toString(),
              QStringLiteral("2026-09-18"));
    actions->open()->trigger();
    EXPECT_EQ(dialogs.opened, 1);
}

TEST_F(Window, FirstStartWithAFileWalksFromTheTermsToTheSavedCopy) {
    writeBytes(dir / "card.jpg", encodeJpeg(patterned(640, 400)));
    open(false);
    int finished = 0;
    QObject::connect(model.get(), &AppModel::idle, [&] { ++finished; });
    model->openAtStart(QString::fromStdString((dir / "card.jpg").string()));
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return window->consentDialog() && window->consentDialog()->isVisible(); }, 5000));
    EXPECT_FALSE(window->centralWidget()->isEnabled());
    ConsentDialog* sheet = window->consentDialog();
    QTest::mouseClick(sheet->acceptBox(), Qt::LeftButton, {}, QPoint(8, sheet->acceptBox()->height() / 2));
    QTest::mouseClick(sheet->continueButton(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model->runningJobs() == 0 && model->original(); }, 60000));
    EXPECT_EQ(finished, 1);
    EXPECT_TRUE(window->centralWidget()->isEnabled());

    model->setManualMode(true);
    drag({0.1, 0.1}, {0.4, 0.5});
    ASSERT_EQ(model->manualRegions().size(), 1u);
    QTest::mouseClick(window->workspace()->reviewBox(), Qt::LeftButton, {},
                      QPoint(8, window->workspace()->reviewBox()->height() / 2));
    dialogs.saveAnswer = QString::fromStdString((dir / "clean.png").string());
    actions->save()->trigger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model->runningJobs() == 0; }, 30000));
    EXPECT_FALSE(model->error());
    const Bitmap saved = platform::PngCodec::decode(readBytes(dir / "clean.png"));
    EXPECT_EQ(saved.width, 640);
    const std::uint8_t* masked = saved.at(160, 120);
    EXPECT_EQ(masked[0] + masked[1] + masked[2], 0);
}

TEST_F(Window, EveryPdfPageIsShownBeforeTheReviewCanBeTicked) {
    open();
    writeBytes(dir / "two.pdf", makePdf({TestPage{0, 0, 300, 200, {}}, TestPage{0, 0, 200, 300, {}}}));
    model->load(QString::fromStdString((dir / "two.pdf").string()));
    ASSERT_TRUE(QTest::qWaitFor([&] { return model->runningJobs() == 0 && model->original(); }, 60000));
    EXPECT_TRUE(window->nextPageButton()->isVisible());
    EXPECT_FALSE(window->workspace()->reviewBox()->isEnabled());
    QTest::mouseClick(window->nextPageButton(), Qt::LeftButton);
    EXPECT_EQ(model->currentPage(), 1);
    EXPECT_FALSE(window->nextPageButton()->isEnabled());
    EXPECT_TRUE(window->workspace()->reviewBox()->isEnabled());
}

TEST_F(Window, ZoomFollowsTheKeysAndCtrlWheelAsInImageViewers) {
    open();
    loadPicture(640, 400);
    QTest::keyClick(window.get(), Qt::Key_Plus, Qt::ControlModifier);
    EXPECT_DOUBLE_EQ(model->zoom(), 1.5);
    QTest::keyClick(window.get(), Qt::Key_0, Qt::ControlModifier);
    EXPECT_DOUBLE_EQ(model->zoom(), 1.0);
    QWidget* picture = window->workspace()->canvas()->pictureWidget();
    const QPointF at(picture->width() / 2.0, picture->height() / 2.0);
    QWheelEvent up(at, picture->mapToGlobal(at), {}, QPoint(0, 120), Qt::NoButton, Qt::ControlModifier,
                   Qt::NoScrollPhase, false);
    QApplication::sendEvent(picture, &up);
    EXPECT_DOUBLE_EQ(model->zoom(), 1.5);
    QWheelEvent plain(at, picture->mapToGlobal(at), {}, QPoint(0, 120), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(picture, &plain);
    EXPECT_DOUBLE_EQ(model->zoom(), 1.5); // the plain wheel scrolls
}

TEST_F(Window, TheTermsSheetCanBeLeftWithEscapeOrQuit) {
    for (bool escape : {true, false}) {
        open(false);
        bool quit = false;
        QObject::connect(model.get(), &AppModel::quitRequested, [&] { quit = true; });
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return window->consentDialog() && window->consentDialog()->isVisible(); }, 5000));
        if (escape) {
            QTest::keyClick(window->consentDialog(), Qt::Key_Escape);
        } else {
            QTest::keyClick(window->consentDialog(), Qt::Key_Q, Qt::ControlModifier);
        }
        EXPECT_TRUE(quit) << (escape ? "Escape" : "Ctrl+Q");
        EXPECT_TRUE(model->showingConsent());
        window.reset();
    }
}

int main(int argc, char** argv) {
    const TempDir config;
    qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(config.path().string()));
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
