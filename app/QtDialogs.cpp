#include "QtDialogs.h"

#include "Theme.h"

#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

std::optional<QString> QtDialogs::chooseOpenFile(const QString& title) {
    const QString file = QFileDialog::getOpenFileName(
        // Format names read the same in every language; the patterns take any letter case (".Jpg").
        parent_, title, QDir::homePath(),
        QStringLiteral(
            "JPEG, PNG, HEIC, PDF (*.[jJ][pP][gG] *.[jJ][pP][eE][gG] *.[pP][nN][gG] *.[hH][eE][iI][cCfF] "
            "*.[pP][dD][fF])"));
    return file.isEmpty() ? std::nullopt : std::optional(file);
}

std::optional<QString> QtDialogs::chooseSaveFile(const QString& title, const QString& proposedName,
                                                 bool pdf) {
    const QString file =
        QFileDialog::getSaveFileName(parent_, title, QDir::home().filePath(proposedName),
                                     pdf ? QStringLiteral("PDF (*.pdf)") : QStringLiteral("PNG (*.png)"),
                                     nullptr, QFileDialog::DontConfirmOverwrite);
    return file.isEmpty() ? std::nullopt : std::optional(file);
}

bool QtDialogs::confirm(const QString& title, const QString& question, const QString& yes,
                        const QString& no) {
    QMessageBox box(QMessageBox::Question, title, question, QMessageBox::NoButton, parent_,
                    Theme::dialogFlags);
    auto* yesButton = box.addButton(yes, QMessageBox::AcceptRole);
    box.setDefaultButton(box.addButton(no, QMessageBox::RejectRole));
    box.exec();
    return box.clickedButton() == yesButton;
}
