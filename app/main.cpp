// quorvel: the desktop application.

#include "AppActions.h"
#include "AppModel.h"
#include "ConsentDialog.h"
#include "MainWindow.h"
#include "QtDialogs.h"
#include "Theme.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QPainter>
#include <QTimer>

#include <cstdio>

namespace {

// Saves the window as it looks once the start file is analysed (or the consent sheet waits), then
// quits: for screenshots and for machines without a screen.
void screenshotWhenSettled(MainWindow& window, AppModel& model, const QString& file) {
    auto* timer = new QTimer(&window);
    timer->setInterval(200);
    QObject::connect(timer, &QTimer::timeout, &window, [&window, &model, file, timer] {
        const bool settled = !model.busy() && (model.original() || model.error() || model.showingConsent());
        if (!settled) {
            return;
        }
        timer->stop();
        QImage shot = window.grab().toImage();
        if (ConsentDialog* sheet = window.consentDialog(); sheet && sheet->isVisible()) {
            QPainter painter(&shot);
            const QImage dialog = sheet->grab().toImage();
            const QRect where((shot.width() - dialog.width()) / 2, 80, dialog.width(), dialog.height());
            painter.fillRect(where.adjusted(-1, -1, 1, 1), QColor(90, 96, 104));
            painter.fillRect(where, sheet->palette().color(QPalette::Window));
            painter.drawImage(where.topLeft(), dialog);
        }
        const bool saved = shot.save(file);
        std::fprintf(stderr, saved ? "quorvel: window saved to %s\n" : "quorvel: cannot write %s\n",
                     file.toLocal8Bit().constData());
        QApplication::exit(saved ? 0 : 1);
    });
    timer->start();
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Quorvel"));
    QApplication::setApplicationName(QStringLiteral("Quorvel"));
    QApplication::setApplicationVersion(QStringLiteral(QUORVEL_VERSION));

    QCommandLineParser options;
    options.setApplicationDescription(
        QStringLiteral("Makes a safe copy of an identity document: finds personal data on a photo or PDF, "
                       "masks it, and saves a clean "
                       "PNG or image-only PDF. Everything happens on this computer."));
    options.addHelpOption();
    options.addVersionOption();
    const QCommandLineOption language(
        QStringLiteral("language"),
        QStringLiteral("Interface language for this session (en, de, nl, fr, es, it, pt, hu, "
                       "pl, lv, et, fi, sv, no, el, ru)."),
        QStringLiteral("code"));
    const QCommandLineOption screenshot(
        QStringLiteral("screenshot"),
        QStringLiteral("Save the window as a PNG once FILE is analysed, then quit."), QStringLiteral("png"));
    options.addOption(language);
    options.addOption(screenshot);
    options.addPositionalArgument(QStringLiteral("FILE"),
                                  QStringLiteral("A JPEG, PNG, HEIC, HEIF or PDF file to open."));
    options.process(app);

    Theme::applyDarkLook(app);
    QtDialogs dialogs;
    AppModel model(dialogs);
    if (options.isSet(language)) {
        if (const auto chosen = AppLanguages::fromRawValue(options.value(language))) {
            model.setLanguage(*chosen);
        }
    }
    AppActions actions(model, &app);
    MainWindow window(model, actions);
    dialogs.setParent(&window);
    QObject::connect(&model, &AppModel::quitRequested, &app, &QApplication::quit, Qt::QueuedConnection);
    window.show();
    // Started from a terminal or a file manager, the window comes to the front.
    window.raise();
    window.activateWindow();

    // The file named at start opens now, or once the terms are accepted.
    const QStringList files = options.positionalArguments();
    if (!files.isEmpty()) {
        const QString file = files.first();
        QTimer::singleShot(0, &window, [&model, file] { model.openAtStart(file); });
    }
    if (options.isSet(screenshot)) {
        screenshotWhenSettled(window, model, options.value(screenshot));
    }
    return app.exec();
}
