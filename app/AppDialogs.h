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
    // The panel does not ask before replacing: the model refuses the opened file first and then asks.
    virtual std::optional<QString> chooseSaveFile(const QString& title, const QString& proposedName,
                                                  bool pdf) = 0;
    // True when the user picks `yes`.
    virtual bool confirm(const QString& title, const QString& question, const QString& yes,
                         const QString& no) = 0;
};
