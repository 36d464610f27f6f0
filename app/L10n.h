#pragma once

// Every text of the user interface, per language. Texts made by the document core (warnings,
// findings, country names, errors) are Russian and are not part of this table.

#include <QString>
#include <QStringList>

#include <array>
#include <optional>
#include <vector>

enum class AppLanguage { en, de, nl, fr, es, it, pt, hu, pl, lv, et, fi, sv, no, el, ru };

namespace AppLanguages {

// Every language in the order the picker lists them.
const std::array<AppLanguage, 16>& allCases();
QString rawValue(AppLanguage language);
QString displayName(AppLanguage language);
std::optional<AppLanguage> fromRawValue(const QString& code);

// The start-up language: the first two letters of the first preferred language, English when they
// name none of the sixteen.
AppLanguage detected(const QStringList& preferredLanguages);
AppLanguage detected();

} // namespace AppLanguages

struct L10n {
    AppLanguage language = AppLanguage::en;
    QString localOnly;
    QString open;
    QString choosePhoto;
    QString title;
    QString subtitle;
    QString alwaysHide;
    QString numbers;
    QString address;
    QString birthDate;
    QString machineReadable;
    QString machineReadableHint;
    QString additional;
    QString face;
    QString issueDate;
    QString expiryDate;
    QString additionalHint;
    QString riskCheck;
    QString riskNotEnough;
    QString riskIndex;
    QString riskDisclaimer;
    QString riskResults;
    QString riskWaiting;
    QString reviewWarnings;
    QString offlineTitle;
    QString offlineBody;
    QString prepare;
    QString supportedDocuments;
    QString localProcessing;
    QString processing;
    QString processingBody;
    QString emptyBody;
    QString fileTypes;
    QString privacyBody;
    QString result;
    QString original;
    QString originalBadge;
    QString resultBadge;
    QString addMask;
    QString undoMask;
    QString manualHint;
    QString reviewHint;
    QString reviewCheckbox;
    QString savePNG;
    QString saved;
    QString ready;
    QString appVersion;
    QString closeHelp;
    QString actionError;
    QString understood;
    QString countryProfile;
    QString genericRecognition;
    QString heuristicZones;

    static constexpr int fieldCount = 52;

    explicit L10n(AppLanguage language);

    // Builds a table from values in field order; missing values are empty, extra ones ignored. What
    // every table is built with; open for the tests of the rule itself.
    static L10n fromValues(AppLanguage language, const std::vector<QString>& values);

    // The field at a position 0..51, in table order.
    const QString& field(int position) const;
    static const char* fieldName(int position);

    QString cannotReplaceOriginal() const;
    // The save command's words: savePNG for a photo, this for a PDF.
    QString saveLabel(bool pdf) const;
    // The question before an existing file is replaced, with `name` filled in, and its two answers.
    QString replaceQuestion(const QString& name) const;
    QString replaceAnswer() const;
    QString cancelAnswer() const;
    // The copy mark's section: its title, the switch, the purpose field's placeholder and the hint.
    QString markTitle() const;
    QString markSwitch() const;
    QString purposePlaceholder() const;
    QString markHint() const;
    QString languageLabel() const;
    QString viewLabel() const;
    QString pdfPages(int count) const;
    QString zonesReview(int count) const;

    // "%d" of heuristicZones filled in.
    QString heuristicZonesText(int count) const;

private:
    L10n(AppLanguage language, int) : language(language) {}
};
