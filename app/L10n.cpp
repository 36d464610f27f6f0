#include "L10n.h"

#include <QLocale>

#include <cstring>

#include "L10nTables.inc"

namespace {

using Member = QString L10n::*;
constexpr Member members[L10n::fieldCount] = {&L10n::localOnly,
                                              &L10n::open,
                                              &L10n::choosePhoto,
                                              &L10n::title,
                                              &L10n::subtitle,
                                              &L10n::alwaysHide,
                                              &L10n::numbers,
                                              &L10n::address,
                                              &L10n::birthDate,
                                              &L10n::machineReadable,
                                              &L10n::machineReadableHint,
                                              &L10n::additional,
                                              &L10n::face,
                                              &L10n::issueDate,
                                              &L10n::expiryDate,
                                              &L10n::additionalHint,
                                              &L10n::riskCheck,
                                              &L10n::riskNotEnough,
                                              &L10n::riskIndex,
                                              &L10n::riskDisclaimer,
                                              &L10n::riskResults,
                                              &L10n::riskWaiting,
                                              &L10n::reviewWarnings,
                                              &L10n::offlineTitle,
                                              &L10n::offlineBody,
                                              &L10n::prepare,
                                              &L10n::supportedDocuments,
                                              &L10n::localProcessing,
                                              &L10n::processing,
                                              &L10n::processingBody,
                                              &L10n::emptyBody,
                                              &L10n::fileTypes,
                                              &L10n::privacyBody,
                                              &L10n::result,
                                              &L10n::original,
                                              &L10n::originalBadge,
                                              &L10n::resultBadge,
                                              &L10n::addMask,
                                              &L10n::undoMask,
                                              &L10n::manualHint,
                                              &L10n::reviewHint,
                                              &L10n::reviewCheckbox,
                                              &L10n::savePNG,
                                              &L10n::saved,
                                              &L10n::ready,
                                              &L10n::appVersion,
                                              &L10n::closeHelp,
                                              &L10n::actionError,
                                              &L10n::understood,
                                              &L10n::countryProfile,
                                              &L10n::genericRecognition,
                                              &L10n::heuristicZones};

struct LanguageRow {
    AppLanguage language;
    const char* code;
    const char* name;
};

constexpr LanguageRow languageRows[16] = {
    {AppLanguage::en, "en", "English"},    {AppLanguage::de, "de", "Deutsch"},
    {AppLanguage::nl, "nl", "Nederlands"}, {AppLanguage::fr, "fr", "Français"},
    {AppLanguage::es, "es", "Español"},    {AppLanguage::it, "it", "Italiano"},
    {AppLanguage::pt, "pt", "Português"},  {AppLanguage::hu, "hu", "Magyar"},
    {AppLanguage::pl, "pl", "Polski"},     {AppLanguage::lv, "lv", "Latviešu"},
    {AppLanguage::et, "et", "Eesti"},      {AppLanguage::fi, "fi", "Suomi"},
    {AppLanguage::sv, "sv", "Svenska"},    {AppLanguage::no, "no", "Norsk"},
    {AppLanguage::el, "el", "Ελληνικά"},   {AppLanguage::ru, "ru", "Русский"},
};

const char* code(AppLanguage language) {
    return languageRows[static_cast<int>(language)].code;
}

template <std::size_t N> QString lookup(const char* const (&table)[N][2], AppLanguage language) {
    for (const auto& row : table) {
        if (std::strcmp(row[0], code(language)) == 0) {
            return QString::fromUtf8(row[1]);
        }
    }
    return {};
}

const Override* overridesOf(AppLanguage language) {
    switch (language) {
    case AppLanguage::fr:
        return frOverrides;
    case AppLanguage::es:
        return esOverrides;
    case AppLanguage::it:
        return itOverrides;
    case AppLanguage::pt:
        return ptOverrides;
    case AppLanguage::pl:
        return plOverrides;
    case AppLanguage::hu:
        return huOverrides;
    case AppLanguage::lv:
        return lvOverrides;
    case AppLanguage::et:
        return etOverrides;
    case AppLanguage::fi:
        return fiOverrides;
    case AppLanguage::sv:
        return svOverrides;
    case AppLanguage::no:
        return noOverrides;
    case AppLanguage::el:
        return elOverrides;
    default:
        return nullptr;
    }
}

std::vector<QString> strings(const char* const (&values)[L10n::fieldCount]) {
    std::vector<QString> out;
    for (const char* value : values) {
        out.push_back(QString::fromUtf8(value));
    }
    return out;
}

// Every table but the Russian one: the language's own full table (English, German, Dutch) or English,
// with the language's translated labels written over it.
L10n english(AppLanguage language) {
    std::vector<QString> values = strings(language == AppLanguage::de   ? germanValues
                                          : language == AppLanguage::nl ? dutchValues
                                                                        : englishValues);
    if (const Override* overrides = overridesOf(language)) {
        for (int i = 0; i < 24; ++i) {
            if (overrides[i].position < static_cast<int>(values.size())) {
                values[static_cast<std::size_t>(overrides[i].position)] =
                    QString::fromUtf8(overrides[i].text);
            }
        }
    }
    return L10n::fromValues(language, values);
}

} // namespace

namespace AppLanguages {

const std::array<AppLanguage, 16>& allCases() {
    static const std::array<AppLanguage, 16> cases = [] {
        std::array<AppLanguage, 16> built{};
        for (int i = 0; i < 16; ++i) {
            built[static_cast<std::size_t>(i)] = languageRows[i].language;
        }
        return built;
    }();
    return cases;
}

QString rawValue(AppLanguage language) {
    return QString::fromLatin1(code(language));
}

QString displayName(AppLanguage language) {
    return QString::fromUtf8(languageRows[static_cast<int>(language)].name);
}

std::optional<AppLanguage> fromRawValue(const QString& value) {
    for (const LanguageRow& row : languageRows) {
        if (value == QLatin1String(row.code)) {
            return row.language;
        }
    }
    return std::nullopt;
}

AppLanguage detected(const QStringList& preferredLanguages) {
    const QString first = preferredLanguages.isEmpty() ? QStringLiteral("en") : preferredLanguages.first();
    return fromRawValue(first.left(2)).value_or(AppLanguage::en);
}

AppLanguage detected() {
    return detected(QLocale::system().uiLanguages());
}

} // namespace AppLanguages

L10n::L10n(AppLanguage requested) {
    *this = requested == AppLanguage::ru ? fromValues(AppLanguage::ru, strings(russianValues))
                                         : english(requested);
}

L10n L10n::fromValues(AppLanguage language, const std::vector<QString>& given) {
    constexpr std::size_t padded = 56;
    std::vector<QString> values = given;
    if (values.size() < padded) {
        values.resize(padded);
    }
    L10n table(language, 0);
    table.language = language;
    for (int i = 0; i < fieldCount; ++i) {
        table.*members[i] = values[static_cast<std::size_t>(i)];
    }
    // The stored lists of file types predate PDF support; PDF is added to them here.
    if (!table.fileTypes.contains(QStringLiteral("PDF"))) {
        table.fileTypes.replace(QStringLiteral("JPEG, PNG, HEIC"), QStringLiteral("JPEG, PNG, HEIC, PDF"));
    }
    return table;
}

const QString& L10n::field(int position) const {
    return this->*members[position];
}

const char* L10n::fieldName(int position) {
    return fieldNames[position];
}

QString L10n::cannotReplaceOriginal() const {
    return lookup(cannotReplaceTexts, language);
}

QString L10n::saveLabel(bool pdf) const {
    return pdf ? lookup(savePDFTexts, language) : savePNG;
}

QString L10n::replaceQuestion(const QString& name) const {
    return lookup(replaceQuestionTexts, language).arg(name);
}

QString L10n::replaceAnswer() const {
    return lookup(replaceTexts, language);
}

QString L10n::cancelAnswer() const {
    return lookup(cancelTexts, language);
}

QString L10n::markTitle() const {
    return lookup(markTitleTexts, language);
}

QString L10n::markSwitch() const {
    return lookup(markSwitchTexts, language);
}

QString L10n::purposePlaceholder() const {
    return lookup(purposeTexts, language);
}

QString L10n::markHint() const {
    return lookup(markHintTexts, language);
}

QString L10n::languageLabel() const {
    return lookup(languageLabels, language);
}

QString L10n::viewLabel() const {
    return lookup(viewLabels, language);
}

QString L10n::pdfPages(int count) const {
    return (language == AppLanguage::ru ? QStringLiteral("Страниц PDF: ") : QStringLiteral("PDF pages: ")) +
           QString::number(count);
}

QString L10n::zonesReview(int count) const {
    if (language == AppLanguage::ru) {
        return QStringLiteral("Зон: ") + QString::number(count) +
               QStringLiteral(" · проверьте перед сохранением");
    }
    return QString::number(count) + lookup(zoneSuffixes, language);
}

QString L10n::heuristicZonesText(int count) const {
    return QString(heuristicZones).replace(QStringLiteral("%d"), QString::number(count));
}
