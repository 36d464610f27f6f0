#include "QtDialogs.h"

#include <QDir>
#include <QFileDialog>

std::optional<QString> QtDialogs::chooseOpenFile(const QString& title) {
    const QString file = QFileDialog::getOpenFileName(
        parent_, title, QDir::homePath(), QStringLiteral("Images and PDF (*.jpg *.jpeg *.png *.heic *.heif *.pdf *.JPG *.JPEG *.PNG *.HEIC *.HEIF *.PDF)"));
    return file.isEmpty() ? std::nullopt : std::optional(file);
}

std::optional<QString> QtDialogs::chooseSaveFile(const QString& title, const QString& proposedName, bool pdf) {
    const QString file = QFileDialog::getSaveFileName(parent_, title, QDir::home().filePath(proposedName),
                                                      pdf ? QStringLiteral("PDF (*.pdf)") : QStringLiteral("PNG (*.png)"));
    return file.isEmpty() ? std::nullopt : std::optional(file);
}
