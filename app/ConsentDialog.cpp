#include "ConsentDialog.h"

#include "AppModel.h"
#include "Theme.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

ConsentDialog::ConsentDialog(AppModel& model, QWidget* parent) : QDialog(parent), model_(model) {
    const bool russian = model.language() == AppLanguage::ru;
    setWindowTitle(QStringLiteral("Quorvel"));
    // Not modal: a modal sheet blocks the window's close button and its Quit; the window disables its
    // content while the sheet is up instead, and raises the sheet whenever it is activated.
    setWindowFlags(Theme::dialogFlags);
    auto* layout = new QVBoxLayout(this);
    // The sheet is as tall as its wrapped text, no taller: a height worked out for a narrower width
    // left a wide gap under the title.
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->setContentsMargins(28, 28, 28, 28);
    layout->setSpacing(18);

    auto* title =
        new QLabel(russian ? QStringLiteral("Перед началом работы") : QStringLiteral("Before you start"));
    title->setFont(Theme::sized(20, QFont::DemiBold));
    layout->addWidget(title);
    auto* body = new QLabel(
        russian ? QStringLiteral(
                      "Выбранные изображения и PDF обрабатываются только на этом компьютере. Содержимое "
                      "документов никуда не отправляется и не сохраняется: программа записывает только "
                      "очищенную копию, которую вы сохраните сами.")
                : QStringLiteral(
                      "The images and PDFs you choose are processed on this computer only. Document "
                      "contents are never uploaded and never stored: the program writes nothing but the "
                      "cleaned copy you save yourself."));
    body->setWordWrap(true);
    body->setFixedWidth(484); // 540 wide with the margins
    layout->addWidget(body);

    auto* links = new QHBoxLayout;
    auto link = [&](const QString& label, const QString& file) {
        auto* button = new QPushButton(label);
        button->setFlat(true);
        button->setCursor(Qt::PointingHandCursor);
        button->setStyleSheet(
            QStringLiteral("QPushButton { color: %1; text-decoration: underline; border: none; }")
                .arg(Theme::accent.name()));
        connect(button, &QPushButton::clicked, this, [file] {
            const QString path = resourcePath(file);
            if (!path.isEmpty()) {
                QDesktopServices::openUrl(QUrl::fromLocalFile(path));
            }
        });
        links->addWidget(button);
    };
    link(russian ? QStringLiteral("Условия использования") : QStringLiteral("Terms of use"),
         QStringLiteral("TERMS_OF_USE.txt"));
    // The English label is kept in Russian too.
    link(QStringLiteral("Privacy policy"), QStringLiteral("PRIVACY_POLICY.txt"));
    links->addStretch();
    layout->addLayout(links);

    accept_ = new QCheckBox(russian ? QStringLiteral("Я принимаю условия и privacy policy")
                                    : QStringLiteral("I accept the terms and privacy policy"));
    layout->addWidget(accept_);
    auto* row = new QHBoxLayout;
    row->addStretch();
    continue_ = new QPushButton(russian ? QStringLiteral("Продолжить") : QStringLiteral("Continue"));
    continue_->setDefault(true);
    continue_->setEnabled(false);
    row->addWidget(continue_);
    layout->addLayout(row);

    connect(accept_, &QCheckBox::toggled, continue_, &QPushButton::setEnabled);
    connect(continue_, &QPushButton::clicked, this, [this] {
        model_.acceptConsent();
        accept();
    });
}

void ConsentDialog::reject() {
    model_.declineConsent();
    QDialog::reject();
}

QString ConsentDialog::resourcePath(const QString& name) {
    const QString app = QCoreApplication::applicationDirPath();
    // Installed beside the program's share folder, or in the build tree.
    for (const QString& folder :
         {app + QStringLiteral("/../share/quorvel"), app + QStringLiteral("/resources"),
          QStringLiteral(QUORVEL_SOURCE_DIR "/app/resources")}) {
        const QFileInfo file(QDir(folder).filePath(name));
        if (file.isFile()) {
            return file.canonicalFilePath();
        }
    }
    return {};
}
