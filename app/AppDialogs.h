#pragma once

#include <QString>

#include <optional>

// The file panels the model asks the user through; the window supplies the desktop's own, tests
// supply answers.
class AppDialogs {
public:
    virtual ~AppDialogs() = default;
    // A JPEG, PNG, HEIC, HEIF or PDF file; none when the user cancels.
    virtual std::optional<QString> chooseOpenFile(const QString& title) = 0;
    // A destination for the cleaned copy, starting from `proposedName`; none when the user cancels.
    virtual std::optional<QString> chooseSaveFile(const QString& title, const QString& proposedName,
                                                  bool pdf) = 0;
};
