#include "FieldLexicon.h"

#include "UnicodeText.h"

#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

namespace FieldLexicon {
namespace {

// One line per language: code ^ birth ^ issue ^ expiry ^ address ^ number ^ name ^ driving-licence
// titles, alternatives separated by "|".
constexpr std::string_view vocabularyText =
    R"(en^DATE OF BIRTH|BIRTH DATE|DOB|BORN^DATE OF ISSUE|ISSUE DATE|ISSUED|ISS|ISSUING DATE^DATE OF EXPIRY|EXPIRY DATE|EXPIRATION DATE|EXPIRY|EXPIRES|EXP|VALID UNTIL|VALID TO^RESIDENCE ADDRESS|ADDRESS^PASSPORT NUMBER|PASSPORT NO|DOCUMENT NUMBER|DOCUMENT NO|LICENCE NUMBER|LICENSE NUMBER|LICENCE NO|LICENSE NO|ID NUMBER|ID NO|CARD NUMBER|CARD NO|PERSONAL NUMBER|PERSONAL NO|SERIAL NUMBER|SERIAL NO|DLN|DL NO|DL|DD|NO^SURNAME|GIVEN NAMES|GIVEN NAME|FIRST NAME|LAST NAME|FAMILY NAME|NAME^DRIVING LICENCE|DRIVING LICENSE|DRIVER LICENSE|DRIVER LICENCE|DRIVER'S LICENSE
de^GEBURTSDATUM|TAG DER GEBURT|GEBOREN AM^AUSSTELLUNGSDATUM|AUSGESTELLT AM^GÜLTIG BIS|GÜLTIGKEIT|ABLAUFDATUM^ANSCHRIFT|WOHNORT|WOHNANSCHRIFT|ADRESSE^DOKUMENTENNUMMER|AUSWEISNUMMER|PASSNUMMER|FÜHRERSCHEINNUMMER|SERIENNUMMER|NUMMER|ZUGANGSNUMMER^FAMILIENNAME|GEBURTSNAME|VORNAMEN|VORNAME|NAME^FÜHRERSCHEIN
fr^DATE DE NAISSANCE|NÉ LE|NÉE LE|NAISSANCE^DATE DE DÉLIVRANCE|DÉLIVRÉ LE|DELIVRANCE^DATE D'EXPIRATION|DATE D’EXPIRATION|DATE DE FIN DE VALIDITÉ|VALABLE JUSQU'AU|EXPIRE LE^ADRESSE|DOMICILE^NUMÉRO DU DOCUMENT|NUMÉRO DU PASSEPORT|NUMÉRO DE PERMIS|NUMÉRO|N°^NOM DE FAMILLE|NOM|PRÉNOMS|PRÉNOM^PERMIS DE CONDUIRE
es^FECHA DE NACIMIENTO|NACIMIENTO^FECHA DE EXPEDICIÓN|EXPEDICIÓN|FECHA DE EMISIÓN|EMISIÓN^FECHA DE CADUCIDAD|CADUCIDAD|VENCIMIENTO|VÁLIDO HASTA^DOMICILIO|DIRECCIÓN^NÚMERO DE DOCUMENTO|NÚMERO|DOCUMENTO N|DNI|NIE|NIF|RUN|RUT^APELLIDOS|APELLIDO|NOMBRES|NOMBRE^PERMISO DE CONDUCCIÓN|LICENCIA DE CONDUCIR|LICENCIA
it^DATA DI NASCITA|NATO IL|NATA IL^DATA DI RILASCIO|RILASCIATO IL^DATA DI SCADENZA|SCADENZA|VALIDA FINO AL^RESIDENZA|INDIRIZZO^NUMERO DOCUMENTO|NUMERO PATENTE|NUMERO|CODICE FISCALE^COGNOME|NOME^PATENTE DI GUIDA
pt^DATA DE NASCIMENTO|NASCIMENTO^DATA DE EMISSÃO|EMISSÃO^DATA DE VALIDADE|VÁLIDO ATÉ|VALIDADE^MORADA|RESIDÊNCIA|ENDEREÇO^NÚMERO DO DOCUMENTO|NÚMERO|NIF^APELIDO|APELIDOS|NOME^CARTA DE CONDUÇÃO
nl^GEBOORTEDATUM|GEBOREN OP^DATUM VAN AFGIFTE|AFGIFTEDATUM|AFGEGEVEN OP^GELDIG TOT|DATUM EINDE GELDIGHEID^WOONADRES|ADRES|WOONPLAATS^DOCUMENTNUMMER|PERSOONSNUMMER|RIJBEWIJSNUMMER|BURGERSERVICENUMMER|BSN|NUMMER^GESLACHTSNAAM|NAAM|VOORNAMEN|VOORNAAM^RIJBEWIJS
ru^ДАТА РОЖДЕНИЯ|РОДИЛСЯ|РОДИЛАСЬ|РОЖДЕНИЯ^ДАТА ВЫДАЧИ|ВЫДАН^ДЕЙСТВИТЕЛЕН ДО|СРОК ДЕЙСТВИЯ^МЕСТО ЖИТЕЛЬСТВА|МЕСТО РЕГИСТРАЦИИ|ЗАРЕГИСТРИРОВАН|АДРЕС^НОМЕР ПАСПОРТА|НОМЕР|СЕРИЯ|ПАСПОРТ №|УДОСТОВЕРЕНИЕ №|КОД ПОДРАЗДЕЛЕНИЯ|СНИЛС|ИНН^ФАМИЛИЯ|ИМЯ|ОТЧЕСТВО^ВОДИТЕЛЬСКОЕ УДОСТОВЕРЕНИЕ
uk^ДАТА НАРОДЖЕННЯ|НАРОДЖЕННЯ^ДАТА ВИДАЧІ^ДІЙСНИЙ ДО|ТЕРМІН ДІЇ^МІСЦЕ ПРОЖИВАННЯ|МІСЦЕ РЕЄСТРАЦІЇ|АДРЕСА^НОМЕР ДОКУМЕНТА|НОМЕР ЗАПИСУ|НОМЕР|СЕРІЯ|РНОКПП|УНЗР^ПРІЗВИЩЕ|ІМ'Я|ІМ’Я|ПО БАТЬКОВІ^ПОСВІДЧЕННЯ ВОДІЯ
tr^DOĞUM TARİHİ^VERİLİŞ TARİHİ|DÜZENLEME TARİHİ^SON GEÇERLİLİK TARİHİ|GEÇERLİLİK TARİHİ|GEÇERLİLİK^ADRESİ|İKAMETGAH|ADRES^T.C. KİMLİK NO|KİMLİK NO|BELGE NO|SERİ NO|PASAPORT NO|SÜRÜCÜ BELGE NO^SOYADI|ADI|ADLARI^SÜRÜCÜ BELGESİ
bg^ДАТА НА РАЖДАНЕ^ДАТА НА ИЗДАВАНЕ^ВАЛИДЕН ДО|ВАЛИДНО ДО^ПОСТОЯНЕН АДРЕС|АДРЕС^НОМЕР НА ДОКУМЕНТА|НОМЕР|ЕГН|ЛНЧ^ФАМИЛИЯ|ИМЕ|ПРЕЗИМЕ^СВИДЕТЕЛСТВО ЗА УПРАВЛЕНИЕ
el^ΗΜΕΡΟΜΗΝΙΑ ΓΕΝΝΗΣΗΣ|ΗΜ. ΓΕΝΝΗΣΗΣ^ΗΜΕΡΟΜΗΝΙΑ ΕΚΔΟΣΗΣ|ΗΜ. ΕΚΔΟΣΗΣ^ΗΜΕΡΟΜΗΝΙΑ ΛΗΞΗΣ|ΗΜ. ΛΗΞΗΣ^ΔΙΕΥΘΥΝΣΗ|ΚΑΤΟΙΚΙΑ^ΑΡΙΘΜΟΣ ΔΕΛΤΙΟΥ|ΑΡΙΘΜΟΣ ΔΙΑΒΑΤΗΡΙΟΥ|ΑΡΙΘΜΟΣ|ΑΡ. ΔΕΛΤΙΟΥ^ΕΠΩΝΥΜΟ|ΟΝΟΜΑ^ΑΔΕΙΑ ΟΔΗΓΗΣΗΣ
cs^DATUM NAROZENÍ^DATUM VYDÁNÍ^PLATNOST DO^TRVALÝ POBYT|ADRESA^ČÍSLO DOKLADU|RODNÉ ČÍSLO|ČÍSLO^PŘÍJMENÍ|JMÉNO^ŘIDIČSKÝ PRŮKAZ
da^FØDSELSDATO|FØDT^UDSTEDELSESDATO|UDSTEDT^GYLDIG INDTIL|GYLDIG TIL|UDLØBSDATO^ADRESSE|BOPÆL^PERSONNUMMER|PASNUMMER|KORTNUMMER|KØREKORTNUMMER^EFTERNAVN|FORNAVN|NAVN^KØREKORT
sv^FÖDELSEDATUM|FÖDD^UTFÄRDANDEDATUM|UTFÄRDAT^GILTIGT TILL|SISTA GILTIGHETSDAG^ADRESS|BOSTADSADRESS^PERSONNUMMER|PASSNUMMER|KORTNUMMER|KÖRKORTSNUMMER^EFTERNAMN|FÖRNAMN|NAMN^KÖRKORT
fi^SYNTYMÄAIKA^MYÖNTÄMISPÄIVÄ|MYÖNNETTY^VIIMEINEN VOIMASSAOLOPÄIVÄ|VOIMASSA^OSOITE|KOTIPAIKKA^HENKILÖTUNNUS|ASIAKIRJAN NUMERO|PASSIN NUMERO|NUMERO^SUKUNIMI|ETUNIMET|ETUNIMI^AJOKORTTI
et^SÜNNIAEG|SÜNNIKUUPÄEV^VÄLJA ANTUD|VÄLJAANDMISE KUUPÄEV^KEHTIV KUNI^AADRESS|ELUKOHT^ISIKUKOOD|DOKUMENDI NUMBER|DOKUMENDI NR^PEREKONNANIMI|EESNIMI|EESNIMED^JUHILUBA
lv^DZIMŠANAS DATUMS^IZDOŠANAS DATUMS|IZDOTS^DERĪGA LĪDZ|DERĪGS LĪDZ^ADRESE|DZĪVESVIETA^PERSONAS KODS|DOKUMENTA NUMURS|NUMURS^UZVĀRDS|VĀRDS^VADĪTĀJA APLIECĪBA
lt^GIMIMO DATA^IŠDAVIMO DATA^GALIOJA IKI^ADRESAS|GYVENAMOJI VIETA^ASMENS KODAS|DOKUMENTO NUMERIS|NUMERIS^PAVARDĖ|VARDAS^VAIRUOTOJO PAŽYMĖJIMAS
pl^DATA URODZENIA^DATA WYDANIA^DATA WAŻNOŚCI|WAŻNY DO^ADRES ZAMIESZKANIA|ADRES^NUMER DOKUMENTU|NUMER DOWODU|NUMER|PESEL^NAZWISKO|IMIONA|IMIĘ^PRAWO JAZDY
ro^DATA NAȘTERII|DATA NASTERII^DATA EMITERII|ELIBERAT LA^DATA EXPIRĂRII|VALABIL PÂNĂ LA^DOMICILIU|ADRESA^NUMĂRUL DOCUMENTULUI|NUMĂR|SERIA|CNP^NUME|PRENUME^PERMIS DE CONDUCERE
sk^DÁTUM NARODENIA^DÁTUM VYDANIA^PLATNOSŤ DO^TRVALÝ POBYT|ADRESA^ČÍSLO DOKLADU|RODNÉ ČÍSLO|ČÍSLO^PRIEZVISKO|MENO^VODIČSKÝ PREUKAZ
sl^DATUM ROJSTVA^DATUM IZDAJE^VELJA DO^STALNO PREBIVALIŠČE|NASLOV^ŠTEVILKA DOKUMENTA|EMŠO|ŠTEVILKA^PRIIMEK|IME^VOZNIŠKO DOVOLJENJE
hr^DATUM ROĐENJA^DATUM IZDAVANJA^VRIJEDI DO^PREBIVALIŠTE|ADRESA^BROJ ISKAZNICE|BROJ PUTOVNICE|BROJ|OIB^PREZIME|IME^VOZAČKA DOZVOLA
hu^SZÜLETÉSI IDŐ^KIÁLLÍTÁS KELTE^ÉRVÉNYES|ÉRVÉNYESSÉGI IDŐ^LAKCÍM|LAKÓHELY^OKMÁNYAZONOSÍTÓ|OKMÁNY SZÁMA|SZEMÉLYI AZONOSÍTÓ^CSALÁDI NÉV|UTÓNÉV|NÉV^VEZETŐI ENGEDÉLY
ga^DÁTA BREITHE^DÁTA EISIÚNA^DÁTA ÉAGA^SEOLADH^UIMHIR AN PHAS|UIMHIR^SLOINNE|AINM^CEADÚNAS TIOMÁNA
mt^DATA TAT-TWELID^DATA TAL-ĦRUĠ^DATA TA' SKADENZA^INDIRIZZ^NUMRU TAD-DOKUMENT|NUMRU^KUNJOM|ISEM^LIĊENZJA TAS-SEWQAN
lb^GEBUERTSDATUM^AUSSTELLUNGSDATUM^GÜLTIG BIS^ADRESS^NUMMER^NUMM|VIRNUMM^FÜHRERSCHÄIN)";

constexpr FieldKind columnKinds[] = {FieldKind::birthDate, FieldKind::issueDate, FieldKind::expiryDate,
                                     FieldKind::address,   FieldKind::number,    FieldKind::personName};

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = text.find(separator, start);
        parts.emplace_back(
            text.substr(start, at == std::string_view::npos ? std::string_view::npos : at - start));
        if (at == std::string_view::npos) {
            return parts;
        }
        start = at + 1;
    }
}

std::string_view trimmed(std::string_view line) {
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
        line.remove_prefix(1);
    }
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) {
        line.remove_suffix(1);
    }
    return line;
}

// A label alternation for one kind: duplicates removed after normalisation, longest first, so that
// "EXPIRY DATE" wins over "EXPIRY" at the same place.
icu::UnicodeString labelPattern(const std::vector<icu::UnicodeString>& labels) {
    std::set<icu::UnicodeString> unique(labels.begin(), labels.end());
    std::vector<icu::UnicodeString> ordered(unique.begin(), unique.end());
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto& a, const auto& b) { return a.countChar32() > b.countChar32(); });
    icu::UnicodeString pattern(u"(?<![\\p{L}\\d])(?:");
    for (std::size_t i = 0; i < ordered.size(); ++i) {
        if (i > 0) {
            pattern.append(u'|');
        }
        pattern.append(UnicodeText::escaped(ordered[i]));
    }
    pattern.append(u")(?![\\p{L}\\d])");
    return pattern;
}

using Expressions = std::vector<std::pair<FieldKind, std::unique_ptr<icu::RegexPattern>>>;

const Expressions& expressions() {
    static const Expressions table = [] {
        Expressions built;
        for (FieldKind kind : columnKinds) {
            std::vector<icu::UnicodeString> labels;
            for (const Vocabulary& vocabulary : vocabularies()) {
                const auto it = vocabulary.fields.find(kind);
                if (it == vocabulary.fields.end()) {
                    continue;
                }
                for (const std::string& label : it->second) {
                    labels.push_back(normalizeUnicode(UnicodeText::utf16(label)));
                }
            }
            built.emplace_back(kind, UnicodeText::compile(labelPattern(labels), "FieldLexicon"));
        }
        return built;
    }();
    return table;
}

// Every title in one alternation: a search finds a match exactly when some single title would.
const icu::RegexPattern& drivingTitlePattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = [] {
        std::vector<icu::UnicodeString> titles;
        for (const Vocabulary& vocabulary : vocabularies()) {
            for (const std::string& title : vocabulary.drivingTitles) {
                titles.push_back(normalizeUnicode(UnicodeText::utf16(title)));
            }
        }
        return UnicodeText::compile(labelPattern(titles), "FieldLexicon driving-licence titles");
    }();
    return *pattern;
}

} // namespace

std::vector<Vocabulary> parseVocabularies(std::string_view text) {
    std::vector<Vocabulary> parsed;
    for (const std::string& rawLine : split(text, '\n')) {
        const std::string_view line = trimmed(rawLine);
        if (line.empty()) {
            continue;
        }
        const std::vector<std::string> columns = split(line, '^');
        if (columns.size() != 8) {
            UnicodeText::fatal("FieldLexicon: vocabulary line has " + std::to_string(columns.size()) +
                               " columns, 8 expected: " + std::string(line));
        }
        Vocabulary vocabulary;
        vocabulary.language = columns[0];
        for (std::size_t i = 0; i < std::size(columnKinds); ++i) {
            vocabulary.fields.emplace(columnKinds[i], split(columns[i + 1], '|'));
        }
        vocabulary.drivingTitles = split(columns[7], '|');
        parsed.push_back(std::move(vocabulary));
    }
    return parsed;
}

const std::vector<Vocabulary>& vocabularies() {
    static const std::vector<Vocabulary> table = parseVocabularies(vocabularyText);
    return table;
}

icu::UnicodeString normalizeUnicode(const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    static const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    static const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
    icu::UnicodeString folded(text);
    folded.foldCase();
    // Diacritic folding: decompose, drop the combining marks, compose what is left.
    const icu::UnicodeString decomposed = nfd->normalize(folded, status);
    icu::UnicodeString bare;
    for (int32_t i = 0; i < decomposed.length();) {
        const UChar32 c = decomposed.char32At(i);
        if (u_charType(c) != U_NON_SPACING_MARK) {
            bare.append(c);
        }
        i += U16_LENGTH(c);
    }
    icu::UnicodeString result = nfc->normalize(bare, status);
    result.toUpper(icu::Locale::getRoot());
    result.findAndReplace(icu::UnicodeString(u'\u2019'), icu::UnicodeString(u'\''));
    return result;
}

std::string normalize(std::string_view text) {
    return UnicodeText::utf8(normalizeUnicode(UnicodeText::utf16(text)));
}

std::vector<LabelMatch> labelMatchesInNormalized(const icu::UnicodeString& normalized) {
    std::vector<LabelMatch> found;
    for (const auto& [kind, pattern] : expressions()) {
        for (const TextRange& range : UnicodeText::findAll(*pattern, normalized)) {
            found.push_back(LabelMatch{kind, range});
        }
    }
    std::stable_sort(found.begin(), found.end(), [](const LabelMatch& a, const LabelMatch& b) {
        return a.range.length > b.range.length;
    });
    std::vector<LabelMatch> kept;
    for (const LabelMatch& candidate : found) {
        const bool overlaps = std::any_of(kept.begin(), kept.end(), [&](const LabelMatch& k) {
            return candidate.range.location < k.range.end() && k.range.location < candidate.range.end();
        });
        if (!overlaps) {
            kept.push_back(candidate);
        }
    }
    std::stable_sort(kept.begin(), kept.end(), [](const LabelMatch& a, const LabelMatch& b) {
        return a.range.location < b.range.location;
    });
    return kept;
}

std::vector<LabelMatch> labelMatches(std::string_view text) {
    return labelMatchesInNormalized(normalizeUnicode(UnicodeText::utf16(text)));
}

bool isDrivingLicenceNormalized(const icu::UnicodeString& normalizedText) {
    return UnicodeText::search(drivingTitlePattern(), normalizedText);
}

bool isDrivingLicence(std::string_view text) {
    return isDrivingLicenceNormalized(normalizeUnicode(UnicodeText::utf16(text)));
}

} // namespace FieldLexicon
