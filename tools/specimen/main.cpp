// Draws the bundled specimen identity card: invented data, DejaVu Sans for the printed fields, OCR-B
// for the machine-readable zone, and a public-domain portrait when one is given.
// Usage: quorvel-specimen [--portrait FACE.png] [--photo] -o OUT.jpg
// --photo: the card as a phone photographs it, tilted on a table in a 4000 x 3000 frame.

#include <QFont>
#include <QFontDatabase>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QString>
#include <QTransform>

#include <cstdio>
#include <cstring>

namespace {

constexpr int cardWidth = 1600;
constexpr int cardHeight = 1010; // ID-1 proportions, about 475 dpi

QFont sans(int pixels, bool bold = false) {
    QFont font("DejaVu Sans");
    font.setPixelSize(pixels);
    font.setBold(bold);
    return font;
}

void field(QPainter& p, int x, int y, const QString& caption, const QString& value) {
    p.setPen(QColor(90, 96, 110));
    p.setFont(sans(24));
    p.drawText(x, y, caption);
    p.setPen(QColor(25, 28, 35));
    p.setFont(sans(44, true));
    p.drawText(x, y + 52, value);
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QString portraitPath, output;
    bool photo = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--photo") == 0) {
            photo = true;
        } else if (std::strcmp(argv[i], "--portrait") == 0 && i + 1 < argc) {
            portraitPath = argv[++i];
        } else if (std::strcmp(argv[i], "-o") == 0 && i + 1 < argc) {
            output = argv[++i];
        }
    }
    if (output.isEmpty()) {
        std::fprintf(stderr, "usage: quorvel-specimen [--portrait FACE.png] -o OUT.jpg\n");
        return 2;
    }
    if (QFontDatabase::addApplicationFont("/usr/share/fonts/opentype/ocr-b/OCRB.otf") < 0) {
        std::fprintf(stderr, "quorvel-specimen: the OCR-B font is missing (Debian package fonts-ocr-b)\n");
        return 1;
    }

    QImage card(cardWidth, cardHeight, QImage::Format_RGB32);
    QPainter p(&card);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    QLinearGradient background(0, 0, cardWidth, cardHeight);
    background.setColorAt(0, QColor(222, 232, 236));
    background.setColorAt(1, QColor(236, 228, 214));
    p.fillRect(card.rect(), background);
    p.setPen(QPen(QColor(205, 215, 220), 1));
    for (int y = 130; y < cardHeight; y += 9) {
        p.drawLine(0, y, cardWidth, y + 30);
    }
    p.fillRect(0, 0, cardWidth, 118, QColor(38, 84, 140));
    p.setPen(Qt::white);
    p.setFont(sans(56, true));
    p.drawText(60, 82, "UTOPIA");
    p.setFont(sans(34));
    p.drawText(500, 76, "IDENTITY CARD / CARTE D'IDENTITÉ");

    const QRect portraitBox(60, 160, 400, 520);
    QImage portrait(portraitPath);
    if (!portrait.isNull()) {
        // The face of the 512 x 512 astronaut picture, cropped to passport proportions.
        const QImage face = portrait.copy(QRect(120, 10, 250, 325));
        p.drawImage(portraitBox, face);
        p.setOpacity(0.35);
        p.drawImage(QRect(1400, 150, 130, 169), face.convertToFormat(QImage::Format_Grayscale8));
        p.setOpacity(1.0);
    } else {
        p.fillRect(portraitBox, QColor(180, 170, 160));
    }

    field(p, 520, 195, "Surname / Nom", "ERIKSSON");
    field(p, 520, 305, "Given names / Prénoms", "ANNA MARIA");
    field(p, 520, 415, "Date of birth / Date de naissance", "12.08.1974");
    field(p, 1080, 415, "Date of expiry", "15.04.2032");
    field(p, 520, 525, "Document No. / N° du document", "L898902C3");
    field(p, 520, 635, "Address / Adresse", "12 HARBOUR STREET, PORTVILLE");

    // A TD1 zone with valid check digits, in OCR-B across the width of the card.
    const char* zone[] = {"I<UTOL898902C36<<<<<<<<<<<<<<<", "7408122F3204153UTO<<<<<<<<<<<4",
                          "ERIKSSON<<ANNA<MARIA<<<<<<<<<<"};
    QFont ocrb("OCR B");
    ocrb.setPixelSize(64);
    p.setFont(ocrb);
    p.setPen(QColor(15, 15, 20));
    for (int i = 0; i < 3; ++i) {
        p.drawText(70, 820 + i * 72, zone[i]);
    }
    p.end();
    QImage result = card;
    if (photo) {
        result = QImage(4000, 3000, QImage::Format_RGB32);
        result.fill(QColor(96, 82, 70));
        QPainter table(&result);
        table.setRenderHint(QPainter::SmoothPixmapTransform);
        QTransform tilt;
        const QPolygonF from(
            QVector<QPointF>{{0, 0}, {cardWidth, 0}, {cardWidth, cardHeight}, {0, cardHeight}});
        const QPolygonF to(QVector<QPointF>{{520, 460}, {3520, 560}, {3440, 2540}, {430, 2380}});
        QTransform::quadToQuad(from, to, tilt);
        table.setTransform(tilt);
        table.drawImage(0, 0, card);
    }
    if (!result.save(output, nullptr, 90)) {
        std::fprintf(stderr, "quorvel-specimen: cannot write %s\n", output.toLocal8Bit().constData());
        return 1;
    }
    return 0;
}
