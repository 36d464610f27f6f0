#include "QtDialogs.h"

#include <QDir>
#include <QFileDialog>

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
                                     pdf ? QStringLiteral("PDF (*.pdf)") : QStringLiteral("PNG (*.png)"));
    return file.isEmpty() ? std::nullopt : std::optional(file);
}
