// Draws identity-document images with exact ground truth, for measuring what the pipeline masks.
// Passport data pages (TD3 zone), ID card fronts and backs (TD1 zone), driving licences with numbered
// captions and a PDF417 code, and residence permits; Latin (several languages with diacritics),
// Cyrillic and Greek, with bilingual captions; then the look of a photograph. Deterministic for a seed.
//
// Usage: quorvel-generate --count N --seed S --out DIR [--portrait FACE.png]
// Each image NNNN.jpg gets NNNN.json: {"fields": [{"kind", "x", "y", "width", "height"}]}, normalised
// to the image as a viewer shows it (EXIF orientation applied), origin top-left. A field of a tilted
// card also has "corners": its four corners [[x, y], ...] in the same units, clockwise from top-left.

#include "ImageDecoder.h"
#include "TestImages.h"

#include <QFont>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QRadialGradient>
#include <QTransform>
#include <ZXing/BitMatrix.h>
#include <ZXing/MultiFormatWriter.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

namespace {

using Random = std::mt19937;

int pick(Random& r, int n) {
    return static_cast<int>(r() % static_cast<unsigned>(n));
}
double uniform(Random& r, double a, double b) {
    return a + (b - a) * (r() % 100000) / 100000.0;
}
template <class T, std::size_t N> const T& pick(Random& r, const T (&items)[N]) {
    return items[pick(r, static_cast<int>(N))];
}

// One language's printed captions and the state that prints them.
struct Language {
    const char* code;
    const char* state;    // printed at the top
    const char* mrzState; // issuing state in the zone
    const char* surname;
    const char* givenNames;
    const char* birthDate;
    const char* number;
    const char* address;
    const char* issueDate;
    const char* expiryDate;
    const char* passport;
    const char* idCard;
    const char* permit;
    int script; // 0 Latin, 1 Cyrillic, 2 Greek
};

const Language languages[] = {
    {"en", "UNITED KINGDOM", "GBR", "Surname", "Given names", "Date of birth", "Document No.", "Address",
     "Date of issue", "Date of expiry", "PASSPORT", "IDENTITY CARD", "RESIDENCE PERMIT", 0},
    {"de", "BUNDESREPUBLIK DEUTSCHLAND", "D<<", "Name", "Vornamen", "Geburtsdatum", "Ausweisnummer",
     "Anschrift", "Ausstellungsdatum", "Gültig bis", "REISEPASS", "PERSONALAUSWEIS", "AUFENTHALTSTITEL", 0},
    {"fr", "RÉPUBLIQUE FRANÇAISE", "FRA", "Nom", "Prénoms", "Date de naissance", "N° du document", "Domicile",
     "Date de délivrance", "Date d'expiration", "PASSEPORT", "CARTE NATIONALE D'IDENTITÉ", "TITRE DE SÉJOUR",
     0},
    {"es", "REINO DE ESPAÑA", "ESP", "Apellidos", "Nombre", "Fecha de nacimiento", "Número de documento",
     "Domicilio", "Fecha de expedición", "Válido hasta", "PASAPORTE", "DOCUMENTO NACIONAL DE IDENTIDAD",
     "PERMISO DE RESIDENCIA", 0},
    {"pl", "RZECZPOSPOLITA POLSKA", "POL", "Nazwisko", "Imiona", "Data urodzenia", "Numer dokumentu", "Adres",
     "Data wydania", "Data ważności", "PASZPORT", "DOWÓD OSOBISTY", "KARTA POBYTU", 0},
    {"cs", "ČESKÁ REPUBLIKA", "CZE", "Příjmení", "Jméno", "Datum narození", "Číslo dokladu", "Trvalý pobyt",
     "Datum vydání", "Platnost do", "CESTOVNÍ PAS", "OBČANSKÝ PRŮKAZ", "POVOLENÍ K POBYTU", 0},
    {"ru", "РОССИЙСКАЯ ФЕДЕРАЦИЯ", "RUS", "Фамилия", "Имя", "Дата рождения", "Номер", "Место жительства",
     "Дата выдачи", "Действителен до", "ПАСПОРТ", "УДОСТОВЕРЕНИЕ ЛИЧНОСТИ", "ВИД НА ЖИТЕЛЬСТВО", 1},
    {"uk", "УКРАЇНА", "UKR", "Прізвище", "Ім'я", "Дата народження", "Номер документа", "Місце проживання",
     "Дата видачі", "Дійсний до", "ПАСПОРТ", "ПОСВІДЧЕННЯ", "ПОСВІДКА НА ПРОЖИВАННЯ", 1},
    {"bg", "РЕПУБЛИКА БЪЛГАРИЯ", "BGR", "Фамилия", "Име", "Дата на раждане", "Номер на документа",
     "Постоянен адрес", "Дата на издаване", "Валиден до", "ПАСПОРТ", "ЛИЧНА КАРТА", "РАЗРЕШЕНИЕ", 1},
    {"el", "ΕΛΛΗΝΙΚΗ ΔΗΜΟΚΡΑΤΙΑ", "GRC", "Επώνυμο", "Όνομα", "Ημερομηνία γέννησης", "Αριθμός δελτίου",
     "Διεύθυνση", "Ημερομηνία έκδοσης", "Ημερομηνία λήξης", "ΔΙΑΒΑΤΗΡΙΟ", "ΔΕΛΤΙΟ ΤΑΥΤΟΤΗΤΑΣ",
     "ΑΔΕΙΑ ΔΙΑΜΟΝΗΣ", 2},
};

struct Person {
    QString surname, given, surnameLatin, givenLatin, address;
};

Person person(Random& r, int script) {
    static const char* latinSurnames[] = {"MÜLLER",    "DUBOIS",  "GARCÍA LÓPEZ", "KOWALSKA",
                                          "DVOŘÁKOVÁ", "O'BRIEN", "NOWAK",        "JOHANSSON",
                                          "MARTIN",    "ŠIMKOVÁ", "SCHRÖDER",     "PÉREZ"};
    static const char* latinGiven[] = {"ANNA MARIA", "JOSÉ",  "ŁUKASZ",   "CHLOÉ", "JIŘÍ", "SØREN",
                                       "ZOFIA",      "LUCÍA", "FRANÇOIS", "MARTA", "JÖRG", "ELENA"};
    static const char* cyrSurnames[] = {"ИВАНОВА",   "ПЕТРЕНКО",  "СМИРНОВ",
                                        "КОВАЛЕНКО", "ГЕОРГИЕВА", "ШЕВЧЕНКО"};
    static const char* cyrLatin[] = {"IVANOVA",   "PETRENKO",  "SMIRNOV",
                                     "KOVALENKO", "GEORGIEVA", "SHEVCHENKO"};
    static const char* cyrGiven[] = {"ОЛЬГА", "ДМИТРИЙ", "ОКСАНА", "ИВАН", "МАРИЯ", "АНДРІЙ"};
    static const char* cyrGivenLatin[] = {"OLGA", "DMITRIY", "OKSANA", "IVAN", "MARIYA", "ANDRII"};
    static const char* grSurnames[] = {"ΠΑΠΑΔΟΠΟΥΛΟΣ", "ΓΕΩΡΓΙΟΥ", "ΝΙΚΟΛΑΙΔΗΣ", "ΚΩΝΣΤΑΝΤΙΝΟΥ"};
    static const char* grLatin[] = {"PAPADOPOULOS", "GEORGIOU", "NIKOLAIDIS", "KONSTANTINOU"};
    static const char* grGiven[] = {"ΕΛΕΝΗ", "ΓΙΩΡΓΟΣ", "ΜΑΡΙΑ", "ΝΙΚΟΣ"};
    static const char* grGivenLatin[] = {"ELENI", "GIORGOS", "MARIA", "NIKOS"};
    static const char* streets[] = {
        "HAUPTSTRASSE 12, 10115 BERLIN",  "12 RUE DES LILAS, 69003 LYON", "CALLE MAYOR 5, 28013 MADRID",
        "UL. MARSZAŁKOWSKA 84, WARSZAWA", "14 HIGH STREET, LONDON",       "УЛ. ЛЕНИНА 5, КВ. 12",
        "ВУЛИЦЯ ШЕВЧЕНКА 21, КИЇВ",       "ΟΔΟΣ ΕΡΜΟΥ 45, ΑΘΗΝΑ",         "VIA ROMA 7, 00184 ROMA"};
    Person p;
    if (script == 1) {
        const int s = pick(r, 6), g = pick(r, 6);
        p = {cyrSurnames[s], cyrGiven[g], cyrLatin[s], cyrGivenLatin[g], QString()};
    } else if (script == 2) {
        const int s = pick(r, 4), g = pick(r, 4);
        p = {grSurnames[s], grGiven[g], grLatin[s], grGivenLatin[g], QString()};
    } else {
        const int s = pick(r, 12), g = pick(r, 12);
        p = {latinSurnames[s], latinGiven[g], latinSurnames[s], latinGiven[g], QString()};
    }
    p.address = QString::fromUtf8(streets[script == 1 ? 5 + pick(r, 2) : script == 2 ? 7 : pick(r, 5)]);
    return p;
}

// ICAO 9303 transliteration of the few letters the Latin names use, and the zone's check digit.
QString zoneName(const QString& name) {
    static const std::pair<const char*, const char*> map[] = {
        {"Ü", "UE"}, {"Ö", "OE"}, {"Ä", "AE"}, {"Ø", "OE"}, {"Ł", "L"}, {"Š", "S"},
        {"Ř", "R"},  {"Í", "I"},  {"Á", "A"},  {"É", "E"},  {"Ó", "O"}, {"Ç", "C"},
        {"Ú", "U"},  {"Ì", "I"},  {" ", "<"},  {"'", ""},   {"-", "<"}};
    QString out = name;
    for (const auto& [from, to] : map) {
        out.replace(QString::fromUtf8(from), QString::fromUtf8(to));
    }
    return out;
}

int checkDigit(const QString& field) {
    static const int weights[] = {7, 3, 1};
    int sum = 0;
    for (int i = 0; i < field.size(); ++i) {
        const QChar c = field[i];
        const int value = c.isDigit()                                        ? c.digitValue()
                          : (c >= QLatin1Char('A') && c <= QLatin1Char('Z')) ? c.unicode() - 'A' + 10
                                                                             : 0;
        sum += value * weights[i % 3];
    }
    return sum % 10;
}

QString padded(QString s, int length) {
    return s.leftJustified(length, QLatin1Char('<'), true);
}

struct Field {
    QString kind;
    QRectF box;          // card pixels, then the bounding box in the photograph
    QPolygonF quad = {}; // the field's four corners in the photograph, once it is tilted
};

class Card {
public:
    Card(int width, int height, Random& random)
        : image(width, height, QImage::Format_RGB32), painter(&image), r(random) {
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setRenderHint(QPainter::TextAntialiasing);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        const QColor tints[] = {QColor(226, 234, 238), QColor(238, 230, 216), QColor(228, 238, 226),
                                QColor(240, 228, 232)};
        const QColor tint = pick(r, tints);
        QLinearGradient background(0, 0, width, height);
        background.setColorAt(0, tint);
        background.setColorAt(1, tint.darker(106));
        painter.fillRect(image.rect(), background);
        painter.setPen(QPen(tint.darker(112), 1));
        for (int y = 0; y < height + width; y += 11) {
            painter.drawLine(0, y, width, y - width / 3);
        }
    }

    QRectF text(double x, double baseline, const QString& s, int pixels, bool bold,
                QColor colour = QColor(24, 26, 32)) {
        QFont font(QStringLiteral("DejaVu Sans"));
        font.setPixelSize(pixels);
        font.setBold(bold);
        painter.setFont(font);
        painter.setPen(colour);
        painter.drawText(QPointF(x, baseline), s);
        return QFontMetricsF(font).tightBoundingRect(s).translated(x, baseline);
    }

    QRectF zoneLine(double x, double baseline, const QString& s, int pixels,
                    QColor ink = QColor(14, 14, 18)) {
        QFont font(QStringLiteral("OCR B"));
        font.setPixelSize(pixels);
        painter.setFont(font);
        painter.setPen(ink);
        painter.drawText(QPointF(x, baseline), s);
        return QFontMetricsF(font).tightBoundingRect(s).translated(x, baseline);
    }

    // A caption in small grey type, its value below in large dark type; the value's box is the field.
    void field(double x, double y, const QString& caption, const QString& value, const char* kind, int size) {
        text(x, y, caption, size * 5 / 10, false, QColor(92, 96, 108));
        fields.push_back({QString::fromLatin1(kind), text(x, y + size * 12 / 10, value, size, true)});
    }

    void portrait(const QRectF& where, const QImage& face, bool ghost) {
        if (!face.isNull()) {
            painter.setOpacity(ghost ? 0.4 : 1.0);
            painter.drawImage(where, ghost ? face.convertToFormat(QImage::Format_Grayscale8) : face);
            painter.setOpacity(1.0);
        } else {
            // A drawn stand-in where no portrait photograph is installed.
            painter.fillRect(where, QColor(200, 190, 180));
            painter.setBrush(QColor(150, 130, 115));
            painter.setPen(Qt::NoPen);
            painter.drawEllipse(QRectF(where.x() + where.width() * 0.25, where.y() + where.height() * 0.15,
                                       where.width() * 0.5, where.height() * 0.45));
            painter.drawEllipse(QRectF(where.x() + where.width() * 0.05, where.y() + where.height() * 0.62,
                                       where.width() * 0.9, where.height() * 0.6));
        }
        // The personal data of a portrait is the head: hair to chin, ear to ear, as it lies in the crop
        // of the astronaut picture; a drawn stand-in has only its oval.
        const QRectF faceBox =
            face.isNull() ? QRectF(where.x() + where.width() * 0.25, where.y() + where.height() * 0.15,
                                   where.width() * 0.5, where.height() * 0.45)
                          : QRectF(where.x() + where.width() * 0.13, where.y() + where.height() * 0.03,
                                   where.width() * 0.6, where.height() * 0.52);
        fields.push_back({QStringLiteral("face"), faceBox});
    }

    void barcode(const QRectF& where, ZXing::BarcodeFormat format, const std::string& content) {
        const auto matrix = ZXing::MultiFormatWriter(format).setMargin(0).encode(
            content, static_cast<int>(where.width()), static_cast<int>(where.height()));
        QImage code(matrix.width(), matrix.height(), QImage::Format_RGB32);
        for (int y = 0; y < matrix.height(); ++y) {
            for (int x = 0; x < matrix.width(); ++x) {
                code.setPixel(x, y, matrix.get(x, y) ? qRgb(22, 22, 26) : qRgb(250, 250, 250));
            }
        }
        painter.drawImage(where, code);
        fields.push_back({QStringLiteral("machineReadable"), where});
    }

    QImage image;
    QPainter painter;
    Random& r;
    std::vector<Field> fields;
};

QString date(Random& r, int from, int to) {
    return QStringLiteral("%1.%2.%3")
        .arg(1 + pick(r, 28), 2, 10, QLatin1Char('0'))
        .arg(1 + pick(r, 12), 2, 10, QLatin1Char('0'))
        .arg(from + pick(r, to - from));
}

QString zoneDate(const QString& dotted) {
    return dotted.mid(8, 2) + dotted.mid(3, 2) + dotted.mid(0, 2);
}

QString documentNumber(Random& r) {
    static const char letters[] = "CFGHJKLMNPRTVWXYZ";
    QString n;
    for (int i = 0; i < 9; ++i) {
        n += (i < 2 || pick(r, 4) == 0) ? QChar(letters[pick(r, 17)]) : QChar('0' + pick(r, 10));
    }
    return n;
}

enum Kind { passport, idFront, idBack, licence, permit };

QImage draw(Kind kind, const Language& language, bool bilingual, Random& r, const QImage& face,
            std::vector<Field>& fields, QStringList& printedZone) {
    const bool page = kind == passport;
    Card card(page ? 1760 : 1600, page ? 1240 : 1010, r);
    const Person p = person(r, language.script);
    const QString birth = date(r, 1950, 2006), issue = date(r, 2016, 2025), expiry = date(r, 2027, 2036);
    const QString number = documentNumber(r);
    auto caption = [&](const char* own, const char* english) {
        return bilingual && std::strcmp(own, english) != 0
                   ? QString::fromUtf8(own) + QStringLiteral(" / ") + QString::fromUtf8(english)
                   : QString::fromUtf8(own);
    };
    const QColor band[] = {QColor(38, 84, 140), QColor(120, 30, 40), QColor(30, 100, 70),
                           QColor(70, 60, 120)};
    card.painter.fillRect(0, 0, card.image.width(), 110, pick(r, band));
    card.text(50, 72, QString::fromUtf8(language.state), 40, true, Qt::white);
    const char* title = kind == passport  ? language.passport
                        : kind == permit  ? language.permit
                        : kind == licence ? ""
                                          : language.idCard;
    if (kind == licence) {
        static const char* licenceTitles[] = {"DRIVING LICENCE",
                                              "FÜHRERSCHEIN",
                                              "PERMIS DE CONDUIRE",
                                              "PRAWO JAZDY",
                                              "ВОДИТЕЛЬСКОЕ УДОСТОВЕРЕНИЕ",
                                              "ΑΔΕΙΑ ΟΔΗΓΗΣΗΣ"};
        title = pick(r, licenceTitles);
    }
    card.text(card.image.width() * 0.5, 72, QString::fromUtf8(title), 30, false, Qt::white);

    const int size = 40 + pick(r, 10);
    if (kind == idBack) {
        card.field(60, 190, caption(language.address, "Address"), p.address, "address", size);
        card.field(60, 330, caption(language.issueDate, "Date of issue"), issue, "issueDate", size);
    } else if (kind == licence) {
        card.portrait(QRectF(50, 150, 360, 470), face, false);
        double y = 190;
        const std::pair<QString, std::pair<QString, const char*>> rows[] = {
            {QStringLiteral("1."), {p.surname, "personName"}},
            {QStringLiteral("2."), {p.given, "personName"}},
            {QStringLiteral("3."), {birth, "birthDate"}},
            {QStringLiteral("4a."), {issue, "issueDate"}},
            {QStringLiteral("4b."), {expiry, "expiryDate"}},
            {QStringLiteral("5."), {number, "number"}},
            {QStringLiteral("8."), {p.address, "address"}}};
        for (const auto& [label, value] : rows) {
            card.text(460, y, label, size, true, QColor(60, 64, 72));
            const double x = 460 + size * (label.size() + 1) * 0.62;
            card.fields.push_back(
                {QString::fromLatin1(value.second), card.text(x, y, value.first, size, true)});
            y += size * 1.85;
        }
        // Below the last row, clear of the address however long it is.
        card.barcode(
            QRectF(1120, y - size * 1.2, 420, 170), ZXing::BarcodeFormat::PDF417,
            (zoneName(p.surnameLatin) + QLatin1Char(' ') + number + QLatin1Char(' ') + zoneDate(birth))
                .toStdString());
    } else {
        const QRectF photo = page ? QRectF(60, 200, 420, 540) : QRectF(50, 150, 380, 490);
        card.portrait(photo, face, false);
        card.portrait(QRectF(card.image.width() - 200, 150, 130, 170), face, true);
        const double x = page ? 540 : 480;
        double y = 180;
        card.field(x, y, caption(language.surname, "Surname"), p.surname, "personName", size);
        card.field(x, y += size * 2.6, caption(language.givenNames, "Given names"), p.given, "personName",
                   size);
        card.field(x, y += size * 2.6, caption(language.birthDate, "Date of birth"), birth, "birthDate",
                   size);
        card.field(x, y += size * 2.6, caption(language.number, "Document No."), number, "number", size);
        if (page) {
            card.field(x, y += size * 2.6, caption(language.issueDate, "Date of issue"), issue, "issueDate",
                       size);
        }
        card.field(x + (page ? 560 : 520), 180 + size * 2.6 * 2,
                   caption(language.expiryDate, "Date of expiry"), expiry, "expiryDate", size);
        if (kind == permit) {
            card.text(x + 520, 180, QStringLiteral("NATIONALITY UKRAINE"), size / 2, false,
                      QColor(92, 96, 108));
        }
    }

    // Machine-readable zones with valid check digits.
    const QString state = QString::fromLatin1(language.mrzState);
    const QString birthZone = zoneDate(birth), expiryZone = zoneDate(expiry);
    QStringList zone;
    if (kind == passport) {
        zone << padded(QStringLiteral("P<") + state + zoneName(p.surnameLatin) + QStringLiteral("<<") +
                           zoneName(p.givenLatin),
                       44);
        QString second = number + QString::number(checkDigit(number)) + state + birthZone +
                         QString::number(checkDigit(birthZone)) + QStringLiteral("F") + expiryZone +
                         QString::number(checkDigit(expiryZone));
        second = padded(second, 42) + QStringLiteral("0");
        second += QString::number(checkDigit(second.mid(0, 10) + second.mid(13, 7) + second.mid(21, 22)));
        zone << second;
    } else if (kind == idBack || kind == permit) {
        zone << padded((kind == permit ? QStringLiteral("IR") : QStringLiteral("ID")) + state + number +
                           QString::number(checkDigit(number)),
                       30);
        zone << padded(birthZone + QString::number(checkDigit(birthZone)) + QStringLiteral("F") + expiryZone +
                           QString::number(checkDigit(expiryZone)) + state,
                       29) +
                    QStringLiteral("4");
        zone << padded(zoneName(p.surnameLatin) + QStringLiteral("<<") + zoneName(p.givenLatin), 30);
    }
    const int zonePixels = page ? 50 : 56;
    double baseline = card.image.height() - 40 - (zone.size() - 1) * zonePixels * 1.25;
    // Zones as real photos show them: one in five printed in faint grey ink, one in five under a lamp's
    // glare. Drawn from a stream of their own, so that every other choice of the set stays as it was.
    Random copy = r;
    Random looks(copy() ^ 0x5EEDu);
    const bool faint = pick(looks, 5) == 0, glare = pick(looks, 5) == 0;
    const int grey = faint ? 90 + pick(looks, 50) : 14;
    const double top = baseline - zonePixels;
    for (const QString& line : zone) {
        card.fields.push_back({QStringLiteral("machineReadable"),
                               card.zoneLine(60, baseline, line, zonePixels, QColor(grey, grey, grey + 4))});
        baseline += zonePixels * 1.25;
    }
    if (glare && !zone.isEmpty()) {
        // One draw a statement, so that every compiler draws the same set.
        const double down = uniform(looks, top, baseline);
        const double across = uniform(looks, 0.3, 0.7) * card.image.width();
        const QPointF centre(across, down);
        QRadialGradient shine(centre, uniform(looks, 250, 500));
        shine.setColorAt(0, QColor(255, 255, 255, 140 + pick(looks, 80)));
        shine.setColorAt(1, QColor(255, 255, 255, 0));
        card.painter.fillRect(card.image.rect(), shine);
    }
    card.painter.end();
    fields = card.fields;
    printedZone = zone;
    return card.image;
}

Bitmap toBitmap(const QImage& image) {
    const QImage rgb = image.convertToFormat(QImage::Format_RGB888);
    Bitmap out(rgb.width(), rgb.height());
    for (int y = 0; y < rgb.height(); ++y) {
        std::memcpy(out.row(y), rgb.constScanLine(y), out.rowBytes());
    }
    return out;
}

// The look of a photograph; returns the image as a viewer shows it, and maps ground truth into it.
QImage photograph(const QImage& card, Random& r, std::vector<Field>& fields, int& orientation, int& quality,
                  QString& look) {
    QImage result = card;
    const int kindOfLook = pick(r, 10);
    quality = 60 + pick(r, 36);
    orientation = 1;
    look = QStringLiteral("flat");
    if (kindOfLook < 4) {
        look = QStringLiteral("table");
        // On a table, tilted, with a margin all round.
        const int W = 3200, H = 2400;
        QImage photo(W, H, QImage::Format_RGB32);
        const QColor tables[] = {QColor(96, 82, 70), QColor(60, 64, 72), QColor(120, 110, 96),
                                 QColor(40, 44, 40)};
        photo.fill(pick(r, tables));
        const double cw = W * uniform(r, 0.62, 0.78), ch = cw * card.height() / card.width();
        const double x0 = (W - cw) / 2 + uniform(r, -120, 120), y0 = (H - ch) / 2 + uniform(r, -100, 100);
        auto jitter = [&] { return uniform(r, -0.035, 0.035) * cw; };
        const QPolygonF to(QVector<QPointF>{{x0 + jitter(), y0 + jitter()},
                                            {x0 + cw + jitter(), y0 + jitter()},
                                            {x0 + cw + jitter(), y0 + ch + jitter()},
                                            {x0 + jitter(), y0 + ch + jitter()}});
        const QPolygonF from(QVector<QPointF>{{0, 0},
                                              {double(card.width()), 0},
                                              {double(card.width()), double(card.height())},
                                              {0, double(card.height())}});
        QTransform tilt;
        QTransform::quadToQuad(from, to, tilt);
        QPainter p(&photo);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        p.setTransform(tilt);
        p.drawImage(0, 0, card);
        p.resetTransform();
        // Light falling unevenly across the desk.
        QLinearGradient light(0, 0, W, H);
        light.setColorAt(0, QColor(255, 255, 255, 40));
        light.setColorAt(1, QColor(0, 0, 0, 70));
        p.fillRect(photo.rect(), light);
        p.end();
        for (Field& f : fields) {
            // A tilted field's bounding box holds table and neighbours too; its corners say exactly where it
            // is.
            f.quad = tilt.map(QPolygonF(f.box));
            f.box = f.quad.boundingRect();
        }
        result = photo;
    } else if (kindOfLook < 6) {
        if (pick(r, 2) == 0) {
            // Turned, with the EXIF orientation tag saying how to show it.
            look = QStringLiteral("turned");
            const int orientations[] = {3, 6, 8};
            orientation = orientations[pick(r, 3)];
        } else {
            // Photographed turned, with no tag: the picture as shown is on its side or upside down.
            look = QStringLiteral("turned, no tag");
            QTransform turn;
            turn.rotate(90.0 * (1 + pick(r, 3)));
            const QTransform onPicture = QImage::trueMatrix(turn, card.width(), card.height());
            result = card.transformed(turn);
            for (Field& f : fields) {
                f.box = onPicture.mapRect(f.box);
            }
        }
    } else if (kindOfLook < 7) {
        // A small, low-resolution picture.
        look = QStringLiteral("small");
        const double scale = uniform(r, 0.42, 0.55);
        result = card.scaled(static_cast<int>(card.width() * scale), static_cast<int>(card.height() * scale),
                             Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        for (Field& f : fields) {
            f.box = QRectF(f.box.topLeft() * scale, f.box.size() * scale);
        }
    }
    // Blur and sensor noise on most pictures.
    if (pick(r, 3) != 0) {
        const double blur = uniform(r, 0.5, 1.6);
        const QSize small(std::max(1, int(result.width() / blur)), std::max(1, int(result.height() / blur)));
        result = result.scaled(small, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                     .scaled(result.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    }
    if (pick(r, 2) == 0) {
        std::normal_distribution<double> noise(0, uniform(r, 2, 7));
        result = result.convertToFormat(QImage::Format_RGB32);
        for (int y = 0; y < result.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(result.scanLine(y));
            for (int x = 0; x < result.width(); ++x) {
                const int n = static_cast<int>(noise(r));
                const QRgb c = line[x];
                line[x] = qRgb(std::clamp(qRed(c) + n, 1, 255), std::clamp(qGreen(c) + n, 1, 255),
                               std::clamp(qBlue(c) + n, 1, 255));
            }
        }
    }
    return result;
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    int count = 10;
    unsigned seed = 1;
    std::filesystem::path out;
    QString portraitPath;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--count") {
            count = std::atoi(argv[i + 1]);
        } else if (option == "--seed") {
            seed = static_cast<unsigned>(std::strtoul(argv[i + 1], nullptr, 10));
        } else if (option == "--out") {
            out = argv[i + 1];
        } else if (option == "--portrait") {
            portraitPath = argv[i + 1];
        }
    }
    if (out.empty() || count < 1) {
        std::fprintf(stderr, "usage: quorvel-generate --count N --seed S --out DIR [--portrait FACE.png]\n");
        return 2;
    }
    if (QFontDatabase::addApplicationFont(QStringLiteral("/usr/share/fonts/opentype/ocr-b/OCRB.otf")) < 0) {
        std::fprintf(stderr, "quorvel-generate: the OCR-B font is missing (Debian package fonts-ocr-b)\n");
        return 1;
    }
    std::filesystem::create_directories(out);
    QImage face;
    if (!portraitPath.isEmpty()) {
        face = QImage(portraitPath)
                   .copy(QRect(120, 10, 250, 325)); // the face of the 512 x 512 astronaut picture
    }
    for (int i = 0; i < count; ++i) {
        Random r(seed * 100003u + static_cast<unsigned>(i));
        const Kind kind = static_cast<Kind>(pick(r, 5));
        const Language& language = languages[pick(r, static_cast<int>(std::size(languages)))];
        const bool bilingual = pick(r, 2) == 0;
        std::vector<Field> fields;
        QStringList zone;
        const QImage card = draw(kind, language, bilingual, r, face, fields, zone);
        int orientation = 1, quality = 90;
        QString look;
        const QImage shown = photograph(card, r, fields, orientation, quality, look);
        // The stored pixels are turned so that a viewer applying the tag shows `shown`.
        static const int inverse[9] = {0, 1, 2, 3, 4, 5, 8, 7, 6};
        const Bitmap stored = platform::ImageDecoder::applyOrientation(toBitmap(shown), inverse[orientation]);
        char name[32];
        std::snprintf(name, sizeof name, "%04d", i);
        testing_support::writeBytes(
            out / (std::string(name) + ".jpg"),
            testing_support::encodeJpeg(stored, false,
                                        orientation == 1
                                            ? std::vector<std::uint8_t>{}
                                            : testing_support::exifBlock(orientation, std::nullopt)));
        QJsonArray truth;
        for (const Field& f : fields) {
            const QRectF b = f.box.intersected(QRectF(0, 0, shown.width(), shown.height()));
            QJsonObject entry{{"kind", f.kind},
                              {"x", b.x() / shown.width()},
                              {"y", b.y() / shown.height()},
                              {"width", b.width() / shown.width()},
                              {"height", b.height() / shown.height()}};
            if (!f.quad.isEmpty()) {
                QJsonArray corners;
                for (const QPointF& c : f.quad.first(4)) {
                    corners.append(QJsonArray{c.x() / shown.width(), c.y() / shown.height()});
                }
                entry.insert("corners", corners);
            }
            truth.append(entry);
        }
        // "about" is for reading the misses; the evaluation needs only "fields".
        static const char* kindNames[] = {"passport", "idFront", "idBack", "licence", "permit"};
        const QJsonObject about{{"document", kindNames[kind]},
                                {"language", language.code},
                                {"bilingual", bilingual},
                                {"look", look}};
        QJsonObject document{{"fields", truth}, {"about", about}};
        // The zone as printed and the state that issued it, for the zone and country figures.
        if (!zone.isEmpty()) {
            document.insert("zone", QJsonArray::fromStringList(zone));
            // Germany's zone code is the single letter D; the country is DEU.
            const QString state = QString::fromLatin1(language.mrzState);
            document.insert("country", state == QStringLiteral("D<<") ? QStringLiteral("DEU") : state);
        }
        std::ofstream(out / (std::string(name) + ".json"))
            << QJsonDocument(document).toJson(QJsonDocument::Indented).toStdString();
    }
    std::fprintf(stderr, "quorvel-generate: %d documents in %s\n", count, out.c_str());
    return 0;
}
