#include "DrawnDocuments.h"

#include <QFont>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>
#include <QTransform>
#include <ZXing/BitMatrix.h>
#include <ZXing/MultiFormatWriter.h>

#include <cmath>
#include <cstring>
#include <filesystem>

namespace testing_support {
namespace {

constexpr int width = 2000;
constexpr int height = 1300;

QFont sans(int pixels, bool bold = false) {
    QFont font("DejaVu Sans");
    font.setPixelSize(pixels);
    font.setBold(bold);
    return font;
}

Rect normalised(const QRect& r) {
    return Rect{static_cast<double>(r.x()) / width, static_cast<double>(r.y()) / height,
                static_cast<double>(r.width()) / width, static_cast<double>(r.height()) / height};
}

// Draws text with its baseline at (x, y) and returns the box of its ink.
QRect text(QPainter& p, int x, int y, const QString& s) {
    p.drawText(x, y, s);
    const QFontMetrics metrics(p.font());
    const QRect bounds = metrics.tightBoundingRect(s);
    return bounds.translated(x, y);
}

void loadZoneFont() {
    static const bool ocrb =
        QFontDatabase::addApplicationFont("/usr/share/fonts/opentype/ocr-b/OCRB.otf") >= 0;
    (void)ocrb;
}

} // namespace

void barcode(QPainter& p, ZXing::BarcodeFormat format, const std::string& content, const QRect& where) {
    const ZXing::BitMatrix matrix =
        ZXing::MultiFormatWriter(format).setMargin(0).encode(content, where.width(), where.height());
    QImage code(matrix.width(), matrix.height(), QImage::Format_RGB32);
    for (int y = 0; y < matrix.height(); ++y) {
        for (int x = 0; x < matrix.width(); ++x) {
            code.setPixel(x, y, matrix.get(x, y) ? qRgb(24, 24, 28) : qRgb(255, 255, 255));
        }
    }
    p.drawImage(where, code);
}

Bitmap toBitmap(const QImage& image) {
    const QImage rgb = image.convertToFormat(QImage::Format_RGB888);
    Bitmap bitmap(rgb.width(), rgb.height());
    for (int row = 0; row < rgb.height(); ++row) {
        std::memcpy(bitmap.row(row), rgb.constScanLine(row), bitmap.rowBytes());
    }
    return bitmap;
}

DrawnDocument zonePage(const std::vector<std::string>& zone, const ZoneLook& look) {
    loadZoneFont();
    // Drawn at 2000 x 1400 and scaled to the photo's width afterwards.
    const int w = 2000, h = 1400;
    QImage canvas(w, h, QImage::Format_RGB32);
    canvas.fill(look.faint ? QColor(214, 222, 206) : QColor(240, 238, 230));
    QPainter p(&canvas);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    // Guilloche: fine curves across the whole page, the zone included.
    p.setPen(QPen(look.faint ? QColor(170, 190, 160) : QColor(200, 190, 215), 2));
    for (int c = 0; c < 40; ++c) {
        QPainterPath path;
        for (int x = 0; x <= w; x += 8) {
            const double y = 35.0 * c + 60 * std::sin(x / (90.0 + 7 * c) + c);
            x == 0 ? path.moveTo(x, y) : path.lineTo(x, y);
        }
        p.drawPath(path);
    }
    p.setPen(QColor(30, 40, 80));
    p.setFont(sans(56, true));
    p.drawText(620, 120, "PASSPORT / PASSEPORT");
    p.setFont(sans(40));
    p.drawText(620, 260, "Surname / Nom");
    p.drawText(620, 420, "Given names / Prénoms");

    QFont zoneFont("OCR B");
    zoneFont.setPixelSize(zone.size() == 3 ? 56 : 60);
    p.setFont(zoneFont);
    p.setPen(look.faint ? QColor(96, 100, 104) : QColor(12, 12, 16));
    const int step = zone.size() == 3 ? 80 : 90;
    int baseline = h - 60 - step * static_cast<int>(zone.size() - 1);
    std::vector<QRect> boxes;
    for (const std::string& line : zone) {
        boxes.push_back(text(p, 80, baseline, QString::fromStdString(line)));
        baseline += step;
    }
    if (look.glare) {
        // A lamp's reflection: white fading out from the zone's middle.
        QRadialGradient shine(QPointF(w / 2.0, boxes.front().center().y()), 420);
        shine.setColorAt(0, QColor(255, 255, 255, 210));
        shine.setColorAt(1, QColor(255, 255, 255, 0));
        p.fillRect(canvas.rect(), shine);
    }
    p.end();

    // Tilted about the page's centre, on a grey table large enough to show all of it; the fields'
    // boxes go round with it (their bounding boxes).
    QTransform turn;
    turn.translate(w / 2.0, h / 2.0).rotate(-look.tilt).translate(-w / 2.0, -h / 2.0);
    const QRect table = turn.mapRect(QRect(0, 0, w, h)).united(QRect(0, 0, w, h));
    turn *= QTransform::fromTranslate(-table.x(), -table.y());
    QImage shown(table.size(), QImage::Format_RGB32);
    shown.fill(QColor(120, 120, 120));
    QPainter q(&shown);
    q.setRenderHint(QPainter::SmoothPixmapTransform);
    q.setTransform(turn);
    q.drawImage(0, 0, canvas);
    q.end();
    const double scale = static_cast<double>(look.pageWidth) / table.width();
    shown = shown.scaledToWidth(look.pageWidth, Qt::SmoothTransformation);

    DrawnDocument document;
    document.image = toBitmap(shown);
    for (std::size_t i = 0; i < zone.size(); ++i) {
        const QRect r = turn.mapRect(boxes[i]);
        std::vector<std::pair<double, double>> corners;
        for (const QPointF& c : turn.map(QPolygonF(QRectF(boxes[i])))) {
            corners.emplace_back(c.x() * scale / shown.width(), c.y() * scale / shown.height());
        }
        corners.resize(4); // the polygon closes on its first point
        document.fields.push_back(
            DrawnField{FieldKind::machineReadable,
                       Rect{r.x() * scale / shown.width(), r.y() * scale / shown.height(),
                            r.width() * scale / shown.width(), r.height() * scale / shown.height()},
                       zone[i], corners});
    }
    return document;
}

std::optional<std::string> testPortrait() {
#ifdef QUORVEL_TEST_PORTRAIT
    if (std::filesystem::exists(QUORVEL_TEST_PORTRAIT)) {
        return std::string(QUORVEL_TEST_PORTRAIT);
    }
#endif
    return std::nullopt;
}

DrawnDocument bilingualCard(const std::optional<std::string>& portrait, double ghost) {
    loadZoneFont();
    QImage canvas(width, height, QImage::Format_RGB32);
    canvas.fill(QColor(236, 240, 236));
    QPainter p(&canvas);
    p.setRenderHint(QPainter::TextAntialiasing);
    DrawnDocument document;
    auto add = [&](FieldKind kind, const QRect& box, const std::string& value) {
        document.fields.push_back(DrawnField{kind, normalised(box), value});
    };

    p.setPen(QColor(20, 40, 90));
    p.setFont(sans(60, true));
    text(p, 620, 100, "RÉPUBLIQUE FRANÇAISE");
    p.setFont(sans(40));
    text(p, 620, 160, "CARTE NATIONALE D'IDENTITÉ / IDENTITY CARD");

    const QRect portraitBox(60, 220, 460, 600);
    if (portrait) {
        const QImage face = QImage(QString::fromStdString(*portrait)).copy(QRect(120, 10, 250, 325));
        p.drawImage(portraitBox, face);
        add(FieldKind::face, portraitBox, "");
        if (ghost > 0) {
            const QRect ghostBox(1560, 740, static_cast<int>(portraitBox.width() * ghost),
                                 static_cast<int>(portraitBox.height() * ghost));
            p.setOpacity(0.35);
            p.drawImage(ghostBox, face.convertToFormat(QImage::Format_Grayscale8));
            // Printed through the card's security lines, as ghosts are.
            p.setOpacity(1);
            p.setPen(QPen(QColor(160, 178, 168), 1));
            for (int y = ghostBox.top() - 20; y < ghostBox.bottom() + 20; y += 10) {
                QPainterPath wave(QPointF(ghostBox.left() - 20, y));
                for (int x = ghostBox.left() - 20; x < ghostBox.right() + 20; x += 4) {
                    wave.lineTo(x, y + 6 * std::sin(x / 11.0));
                }
                p.drawPath(wave);
            }
            add(FieldKind::face, ghostBox, "");
        }
    }

    struct Entry {
        const char* caption;
        const char* value;
        FieldKind kind;
    };
    const Entry entries[] = {
        {"Nom / Surname", "MARTIN", FieldKind::personName},
        {"Prénoms / Given names", "CLAIRE SOPHIE", FieldKind::personName},
        {"Date de naissance / Date of birth", "14.07.1985", FieldKind::birthDate},
        {"N° du document / Document No.", "X4RTBPFW4", FieldKind::number},
        {"Adresse / Address", "8 RUE DES LILAS 69003 LYON", FieldKind::address},
    };
    int y = 270;
    for (const Entry& e : entries) {
        p.setPen(QColor(80, 80, 90));
        p.setFont(sans(30));
        text(p, 600, y, e.caption);
        p.setPen(QColor(10, 10, 15));
        p.setFont(sans(48, true));
        add(e.kind, text(p, 600, y + 62, e.value), e.value);
        y += 128;
    }

    barcode(p, ZXing::BarcodeFormat::PDF417, "MARTIN CLAIRE 19850714 X4RTBPFW4", QRect(1500, 230, 440, 170));
    add(FieldKind::machineReadable, QRect(1500, 230, 440, 170), "");
    barcode(p, ZXing::BarcodeFormat::QRCode, "X4RTBPFW4", QRect(1640, 470, 240, 240));
    add(FieldKind::machineReadable, QRect(1640, 470, 240, 240), "");

    // A passport-style zone with valid digits: X4RTBPFW4 (6), born 850714 (7), expiring 330101 (8).
    QFont zoneFont("OCR B");
    zoneFont.setPixelSize(60);
    p.setFont(zoneFont);
    p.setPen(QColor(12, 12, 16)); // only masks are pure black
    add(FieldKind::machineReadable, text(p, 60, 1130, "P<FRAMARTIN<<CLAIRE<SOPHIE<<<<<<<<<<<<<<<<<<"), "");
    add(FieldKind::machineReadable, text(p, 60, 1220, "X4RTBPFW46FRA8507147F3301018<<<<<<<<<<<<<<04"), "");
    p.end();

    document.image = toBitmap(canvas);
    return document;
}

} // namespace testing_support
