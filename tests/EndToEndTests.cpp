// The whole pipeline on documents drawn in the test: load, recognise, detect, render.

#include "DrawnDocuments.h"
#include "ImageDecoder.h"
#include "ImagePipeline.h"
#include "Recognition.h"
#include "TestImages.h"
#include "TextDetector.h"
#include "ZoneReader.h"

#include <opencv2/imgproc.hpp>

#include <QFontDatabase>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QPainter>
#include <gtest/gtest.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>

#include <cstring>
#include <filesystem>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <tuple>

#include <dlfcn.h>

using namespace testing_support;

namespace {

const RedactionPolicy hideEverything{true, true, true, true};

QFont sans(int pixels) {
    QFont font("DejaVu Sans");
    font.setPixelSize(pixels);
    return font;
}

// Text printed on a plain ground: each piece from its baseline's start, at its size in pixels.
struct Print {
    int x, y, pixels;
    QString text;
};
Bitmap printed(int width, int height, const std::vector<Print>& pieces, QColor ground = Qt::white,
               QColor ink = Qt::black) {
    QImage canvas(width, height, QImage::Format_RGB32);
    canvas.fill(ground);
    QPainter p(&canvas);
    p.setPen(ink);
    for (const Print& piece : pieces) {
        p.setFont(sans(piece.pixels));
        p.drawText(piece.x, piece.y, piece.text);
    }
    p.end();
    return toBitmap(canvas);
}

// A photo out of focus: a Gaussian blur of `sigma` pixels.
void blur(Bitmap& image, double sigma) {
    cv::Mat pixels(image.height, image.width, CV_8UC3, image.pixels.data(), image.rowBytes());
    cv::GaussianBlur(pixels, pixels, cv::Size(), sigma);
}

// Lines of text one under another, each `step` pixels below the one before.
std::vector<Print> stacked(const std::vector<std::string>& lines, int x, int top, int step, int pixels) {
    std::vector<Print> pieces;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        pieces.push_back({x, static_cast<int>(top + step * i), pixels, QString::fromStdString(lines[i])});
    }
    return pieces;
}

// What recognition reads on a page, a line of text each.
std::string recognisedText(const Bitmap& page, const std::vector<std::string>& languages) {
    std::string text;
    for (const auto& line : platform::Recognition::recognize(page, languages).lines) {
        text += line.text + "\n";
    }
    return text;
}

// Share of the field's pixels that are pure black after masking: of its ink for printed text (the
// blanks between masked words carry nothing), of its whole box for pictures and codes.
double coverage(const Bitmap& original, const Bitmap& image, const DrawnField& field) {
    const Rect& box = field.box;
    const bool text = !field.text.empty();
    const int x0 = static_cast<int>(box.x * image.width),
              x1 = static_cast<int>((box.x + box.width) * image.width);
    const int y0 = static_cast<int>(box.y * image.height),
              y1 = static_cast<int>((box.y + box.height) * image.height);
    std::size_t black = 0, all = 0;
    for (int y = std::max(y0, 0); y < std::min(y1, image.height); ++y) {
        for (int x = std::max(x0, 0); x < std::min(x1, image.width); ++x) {
            const std::uint8_t* ink = original.at(x, y);
            if (text && ink[0] + ink[1] + ink[2] > 3 * 128) {
                continue;
            }
            const std::uint8_t* p = image.at(x, y);
            black += p[0] == 0 && p[1] == 0 && p[2] == 0;
            ++all;
        }
    }
    return all ? static_cast<double>(black) / all : 0;
}

// The stored pixels that a viewer turns into `upright` under each EXIF orientation.
const int inverseOrientation[9] = {0, 1, 2, 3, 4, 5, 8, 7, 6};

class EndToEnd : public ::testing::Test {
protected:
    Bitmap redact(const Bitmap& upright, int orientation, Analysis* analysis = nullptr) {
        const Bitmap stored =
            platform::ImageDecoder::applyOrientation(upright, inverseOrientation[orientation]);
        writeBytes(dir / "card.jpg", encodeJpeg(stored, false, exifBlock(orientation, std::nullopt)));
        const LoadedDocument document = ImagePipeline::load(dir / "card.jpg");
        EXPECT_EQ(document.image.width, upright.width) << orientation;
        const Analysis result = ImagePipeline::analyze(document);
        if (analysis) {
            *analysis = result;
        }
        return ImagePipeline::render(document.image, result.regions, hideEverything);
    }

    TempDir dir;
};

} // namespace

TEST_F(EndToEnd, EveryPersonalFieldOfABilingualCardIsMasked) {
    const DrawnDocument card = bilingualCard();
    Analysis analysis;
    const Bitmap cleaned = redact(card.image, 1, &analysis);
    for (const DrawnField& field : card.fields) {
        EXPECT_GE(coverage(card.image, cleaned, field), 0.98) << rawValue(field.kind) << " " << field.text;
    }
    EXPECT_EQ(analysis.country.code, "FRA");
    // "IDENTITY CARD" is printed; a zone read well enough to show "P<" would make it a passport.
    EXPECT_TRUE(analysis.documentType == "ID-карта" || analysis.documentType == "Паспорт")
        << analysis.documentType;
}

TEST_F(EndToEnd, EveryExifOrientationGivesTheSameMasks) {
    const DrawnDocument card = bilingualCard();
    for (int orientation = 2; orientation <= 8; ++orientation) {
        const Bitmap cleaned = redact(card.image, orientation);
        for (const DrawnField& field : card.fields) {
            if (field.kind != FieldKind::personName) {
                EXPECT_GE(coverage(card.image, cleaned, field), 0.98)
                    << "orientation " << orientation << ": " << rawValue(field.kind) << " " << field.text;
            }
        }
    }
}

TEST_F(EndToEnd, ThePortraitIsFoundAndMasked) {
    const auto portrait = testPortrait();
    if (!portrait) {
        GTEST_SKIP()
            << "no freely licensed test portrait installed (tools/bootstrap.sh extracts it from Debian's "
               "python3-skimage package into build-data/)";
    }
    const DrawnDocument card = bilingualCard(portrait);
    Analysis analysis;
    const Bitmap cleaned = redact(card.image, 1, &analysis);
    const auto face = std::find_if(card.fields.begin(), card.fields.end(),
                                   [](const DrawnField& f) { return f.kind == FieldKind::face; });
    ASSERT_NE(face, card.fields.end());
    // The mask covers the face, not the whole photo: at least a fifth of the portrait's box.
    EXPECT_GE(coverage(card.image, cleaned, *face), 0.2);
    const auto faces = std::count_if(analysis.regions.begin(), analysis.regions.end(),
                                     [](const RedactionRegion& r) { return r.kind == FieldKind::face; });
    EXPECT_EQ(faces, 1);
}

TEST_F(EndToEnd, APaleGhostCopyOfThePortraitIsMaskedToo) {
    const auto portrait = testPortrait();
    if (!portrait) {
        GTEST_SKIP() << "no freely licensed test portrait installed";
    }
    for (double ghost : {0.3, 0.4, 0.5}) {
        const DrawnDocument card = bilingualCard(portrait, ghost);
        Analysis analysis;
        const Bitmap cleaned = redact(card.image, 1, &analysis);
        for (const DrawnField& field : card.fields) {
            if (field.kind == FieldKind::face) {
                EXPECT_GE(coverage(card.image, cleaned, field), 0.2) << ghost;
            }
        }
        const auto faces = std::count_if(analysis.regions.begin(), analysis.regions.end(),
                                         [](const RedactionRegion& r) { return r.kind == FieldKind::face; });
        EXPECT_EQ(faces, 2) << ghost;
    }
}

// Share of a field's whole box painted pure black, blanks included.
double boxCoverage(const Bitmap& image, const DrawnField& field) {
    DrawnField picture = field;
    picture.text.clear();
    return coverage(image, image, picture);
}

TEST_F(EndToEnd, APhotoTurnedWithoutATagComesBackUprightWithItsZoneMaskedWholeAndRead) {
    const DrawnDocument card = bilingualCard();
    for (int turns : {0, 1, 2, 3}) {
        // Stored turned the other way, with no orientation tag.
        writeBytes(dir / "turned.jpg",
                   encodeJpeg(platform::Recognition::turned(card.image, (4 - turns) % 4)));
        const LoadedDocument document = ImagePipeline::load(dir / "turned.jpg");
        EXPECT_EQ(document.quarterTurns, turns);
        ASSERT_EQ(document.image.width, card.image.width) << turns;
        const Analysis analysis = ImagePipeline::analyze(document);
        const Bitmap cleaned = ImagePipeline::render(document.image, analysis.regions, hideEverything);
        for (const DrawnField& field : card.fields) {
            if (field.kind == FieldKind::machineReadable) {
                EXPECT_GE(boxCoverage(cleaned, field), 0.98) << turns << " turns: " << field.text;
            }
        }
        EXPECT_TRUE(analysis.zoneValid) << turns;
        EXPECT_EQ(analysis.zone, (std::vector<std::string>{"P<FRAMARTIN<<CLAIRE<SOPHIE<<<<<<<<<<<<<<<<<<",
                                                           "X4RTBPFW46FRA8507147F3301018<<<<<<<<<<<<<<04"}))
            << turns;
        EXPECT_EQ(analysis.country.code, "FRA") << turns;
        // Asked not to turn (masks given for the picture as stored), the picture stays as stored.
        const LoadedDocument asStored = ImagePipeline::load(dir / "turned.jpg", false);
        EXPECT_EQ(asStored.quarterTurns, 0);
        EXPECT_EQ(asStored.image.width, turns % 2 ? card.image.height : card.image.width) << turns;
    }
}

// Share of a field drawn askew painted pure black on the page as loaded: its corners carried over by
// the turn that levelled the page, when it was levelled.
double levelledCoverage(const Bitmap& image, const DrawnField& field, const Skew& skew) {
    const std::optional<platform::Recognition::Levelling> levelling =
        skew.degrees != 0
            ? std::optional(platform::Recognition::levelling(skew.width, skew.height, skew.degrees))
            : std::nullopt;
    std::vector<cv::Point2f> quad;
    for (auto [x, y] : field.corners) {
        x *= levelling ? skew.width : image.width;
        y *= levelling ? skew.height : image.height;
        if (levelling) {
            std::tie(x, y) = levelling->map(x, y);
        }
        quad.emplace_back(static_cast<float>(x), static_cast<float>(y));
    }
    std::size_t black = 0, all = 0;
    const cv::Rect bounds = cv::boundingRect(quad) & cv::Rect(0, 0, image.width, image.height);
    for (int y = bounds.y; y < bounds.y + bounds.height; ++y) {
        for (int x = bounds.x; x < bounds.x + bounds.width; ++x) {
            if (cv::pointPolygonTest(quad, cv::Point2f(x + 0.5f, y + 0.5f), false) >= 0) {
                const std::uint8_t* p = image.at(x, y);
                black += p[0] == 0 && p[1] == 0 && p[2] == 0;
                ++all;
            }
        }
    }
    return all ? static_cast<double>(black) / all : 0;
}

// Zones as photos show them: each is read exactly, character for character, and masked whole.
TEST_F(EndToEnd, ZonesUnderGlareFaintInkAndTiltAreReadExactlyAndMaskedWhole) {
    const std::vector<std::vector<std::string>> zones{
        {"P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", "L898902C36UTO7408122F1204159ZE184226B<<<<<10"},
        {"I<UTOD231458907<<<<<<<<<<<<<<<", "7408122F1204159UTO<<<<<<<<<<<6",
         "ERIKSSON<<ANNA<MARIA<<<<<<<<<<"}};
    const std::vector<std::pair<std::string, ZoneLook>> looks{
        {"plain", {}},
        {"glare", {0, true}},
        {"faint", {0, false, true}},
        {"tilted", {2.5}},
        {"tilted back", {-2}},
        {"small", {0, false, false, 900}},
        {"askew", {8}},
        {"askew back", {-6, false, false, 1200}},
    };
    for (const auto& zone : zones) {
        for (const auto& [name, look] : looks) {
            const DrawnDocument page = zonePage(zone, look);
            writeBytes(dir / "zone.jpg", encodeJpeg(page.image));
            const LoadedDocument document = ImagePipeline::load(dir / "zone.jpg");
            const Analysis analysis = ImagePipeline::analyze(document);
            const std::string what = name + ", " + std::to_string(zone.size()) + " lines";
            // Brought level first: the zone's cells are cut along level rows.
            EXPECT_NEAR(document.skew.degrees, -look.tilt, 0.5) << what;
            EXPECT_EQ(analysis.zone, zone) << what;
            EXPECT_TRUE(analysis.zoneValid) << what;
            const Bitmap cleaned = ImagePipeline::render(document.image, analysis.regions, hideEverything);
            for (const DrawnField& field : page.fields) {
                EXPECT_GE(levelledCoverage(cleaned, field, document.skew), 0.98)
                    << what << ": " << field.text;
            }
        }
    }
}

// A zone photographed out of focus: its rows are steepened before the zone's reader cuts them (without,
// the smaller page gives no zone at all and the larger one misreads).
TEST_F(EndToEnd, AZoneOutOfFocusIsReadExactly) {
    const std::vector<std::string> zone{"P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<",
                                        "L898902C36UTO7408122F1204159ZE184226B<<<<<10"};
    for (const auto& [width, sigma] : {std::pair{900, 3.0}, std::pair{1200, 4.0}}) {
        DrawnDocument page = zonePage(zone, {0, false, false, width});
        blur(page.image, sigma);
        writeBytes(dir / "zone.jpg", encodeJpeg(page.image));
        const Analysis analysis = ImagePipeline::analyze(ImagePipeline::load(dir / "zone.jpg"));
        EXPECT_EQ(analysis.zone, zone) << width;
        EXPECT_TRUE(analysis.zoneValid) << width;
    }
}

// A passport page whose zone is most of its print: the zone's long lines, squeezed whole into the
// direction classifier, say little of which way is up, and must not outvote the captions.
TEST(Recognition, APageOfLittleButItsZoneIsTurnedUprightFromEverySide) {
    const std::vector<std::vector<std::string>> zones{
        {"P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", "L898902C36UTO7408122F1204159ZE184226B<<<<<10"},
        {"P<RUSGEORGIEVA<<DMITRIY<<<<<<<<<<<<<<<<<<<<<", "TC53906TL2RUS7205206F3211142<<<<<<<<<<<<<<06"},
        {"I<UTOD231458907<<<<<<<<<<<<<<<", "7408122F1204159UTO<<<<<<<<<<<6",
         "ERIKSSON<<ANNA<MARIA<<<<<<<<<<"}};
    for (const auto& zone : zones) {
        for (const ZoneLook& look : {ZoneLook{}, ZoneLook{0, true}, ZoneLook{0, false, true}}) {
            const Bitmap page = zonePage(zone, look).image;
            for (int turns : {1, 2, 3}) {
                EXPECT_EQ(platform::Recognition::uprightTurns(platform::Recognition::turned(page, 4 - turns)),
                          turns)
                    << zone.front()
                    << (look.glare   ? " under glare"
                        : look.faint ? " faint"
                                     : "");
            }
        }
    }
}

// A licence's PDF417 code on a card printed with fine diagonal lines, as a licence photo comes: the
// threshold taken from each pixel's neighbourhood lost it on such cards once softly focused.
TEST(Recognition, APdf417CodeOnALinedCardIsFound) {
    for (const QColor& tint : {QColor(240, 228, 232), QColor(226, 234, 238)}) {
        QImage canvas(1600, 1010, QImage::Format_RGB32);
        canvas.fill(tint);
        QPainter p(&canvas);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(tint.darker(112), 1));
        for (int y = 0; y < canvas.height() + canvas.width(); y += 11) {
            p.drawLine(0, y, canvas.width(), y - canvas.width() / 3);
        }
        p.setPen(QColor(24, 26, 32));
        p.setFont(sans(40));
        p.drawText(80, 120, "DRIVING LICENCE");
        p.drawText(520, 300, "1. MARTIN");
        p.drawText(520, 380, "2. CLAIRE SOPHIE");
        p.drawText(520, 460, "3. 14.07.1985 LYON");
        const QRect where(1120, 680, 420, 170);
        barcode(p, ZXing::BarcodeFormat::PDF417, "ANSI 636000090002DL00410278ZV03190008DLDAQT64235789",
                where);
        p.end();
        // Soft focus and sensor noise.
        canvas = canvas.scaled(1000, 631, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                     .scaled(canvas.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                     .convertToFormat(QImage::Format_RGB32);
        std::mt19937 random(7);
        std::normal_distribution<double> noise(0, 5);
        for (int y = 0; y < canvas.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(canvas.scanLine(y));
            for (int x = 0; x < canvas.width(); ++x) {
                const int n = static_cast<int>(noise(random));
                line[x] = qRgb(std::clamp(qRed(line[x]) + n, 0, 255), std::clamp(qGreen(line[x]) + n, 0, 255),
                               std::clamp(qBlue(line[x]) + n, 0, 255));
            }
        }
        const auto found = platform::Recognition::detectBarcodes(toBitmap(canvas));
        ASSERT_EQ(found.size(), 1u) << tint.name().toStdString();
        EXPECT_NEAR(found[0].x * canvas.width(), where.x(), 4);
        EXPECT_NEAR(found[0].y * canvas.height(), where.y(), 4);
    }
}

// A zone line drawn level in OCR-B at `pixels`, its last `faint` characters in ink barely darker
// than the paper, cut out with half a line of paper above and below: a line as the reader gets it.
cv::Mat zoneLine(const std::string& text, int pixels, int faint) {
    QFontDatabase::addApplicationFont("/usr/share/fonts/opentype/ocr-b/OCRB.otf");
    QFont font("OCR B");
    font.setPixelSize(pixels);
    const int advance = QFontMetrics(font).horizontalAdvance(QString(10, 'M')) / 10;
    QImage canvas(advance * static_cast<int>(text.size() + 2), pixels * 2, QImage::Format_Grayscale8);
    canvas.fill(235);
    QPainter p(&canvas);
    p.setFont(font);
    const std::size_t dark = text.size() - static_cast<std::size_t>(faint);
    p.setPen(QColor(20, 20, 20));
    p.drawText(advance, pixels * 3 / 2, QString::fromStdString(text.substr(0, dark)));
    p.setPen(QColor(226, 226, 226));
    p.drawText(advance * (1 + static_cast<int>(dark)), pixels * 3 / 2,
               QString::fromStdString(text.substr(dark)));
    p.end();
    cv::Mat grey(canvas.height(), canvas.width(), CV_8U);
    for (int y = 0; y < canvas.height(); ++y) {
        std::memcpy(grey.ptr(y), canvas.constScanLine(y), static_cast<std::size_t>(canvas.width()));
    }
    return grey;
}

TEST(ZoneReader, ALineIsCutIntoItsCharactersFromTheFirstWhateverItsEnd) {
    const std::string line = "I<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<";
    // Read whole, at a print size and at the size of a small photo.
    for (int pixels : {48, 24}) {
        const auto reading = platform::ZoneReader::read(zoneLine(line, pixels, 0), 36);
        ASSERT_TRUE(reading) << pixels;
        EXPECT_EQ(reading->text, line) << pixels;
    }
    // Closing fillers too faint to find leave the line shorter than its length: it still starts at its
    // first character, and the characters that show are read.
    const auto reading = platform::ZoneReader::read(zoneLine(line, 48, 9), 36);
    ASSERT_TRUE(reading);
    EXPECT_EQ(reading->text.substr(0, 27), line.substr(0, 27));
    // Too few characters to find a pitch: no reading rather than a guess.
    EXPECT_FALSE(platform::ZoneReader::read(zoneLine("P<", 48, 0), 36));
}

TEST(Recognition, TesseractCallsTheProgramsStandInForItsAmbiguityTable) {
    // A link that stopped exporting the stand-in would bring the table back, silently, at a tenth of
    // every page's time.
    void* found = dlsym(RTLD_DEFAULT, "_ZN9tesseract13UnicharAmbigs13LoadUniversalERKNS_10UNICHARSETEPS1_");
    ASSERT_NE(found, nullptr);
    Dl_info owner{};
    ASSERT_NE(dladdr(found, &owner), 0);
    EXPECT_EQ(std::string(owner.dli_fname).find("libtesseract"), std::string::npos) << owner.dli_fname;
}

TEST(Recognition, LeavesNoOpenMPThreadsBehind) {
    // Tesseract's OpenMP threads spin while they wait, and each thread that reads starts with the
    // runtime's own limits: a reader on a new thread must meet every loop alone.
    const DrawnDocument card = bilingualCard();
    platform::Recognition::recognize(card.image, {"en-US"}, 2); // the networks' own pools start here
    auto threads = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                             std::filesystem::directory_iterator());
    };
    std::thread reader([&] {
        const auto before = threads();
        platform::Recognition::recognize(card.image, {"en-US"}, 1);
        EXPECT_EQ(threads(), before);
    });
    reader.join();
}

TEST(Recognition, OneReaderOrOneCoreReadsExactlyWhatTwoRead) {
    // With a portrait and its ghost, when the test portrait is installed, so that faces come in twos.
    const DrawnDocument card = bilingualCard(testPortrait(), 0.4);
    const auto one = platform::Recognition::recognize(card.image, {"en-US", "ru-RU"}, 1);
    const auto two = platform::Recognition::recognize(card.image, {"en-US", "ru-RU"}, 2);
    // A batch gives each document one core: the networks' loops, the readers and the face search
    // then all run on the calling thread.
    platform::Recognition::setCoresPerDocument(1);
    const auto oneCore = platform::Recognition::recognize(card.image, {"en-US", "ru-RU"}, 2);
    platform::Recognition::setCoresPerDocument(2);
    for (const auto* other : {&one, &oneCore}) {
        ASSERT_EQ(other->lines.size(), two.lines.size());
        for (std::size_t i = 0; i < two.lines.size(); ++i) {
            EXPECT_EQ(other->lines[i].text, two.lines[i].text);
            EXPECT_EQ(other->lines[i].box.x, two.lines[i].box.x);
            EXPECT_EQ(other->lines[i].box.y, two.lines[i].box.y);
            EXPECT_EQ(other->lines[i].symbols.size(), two.lines[i].symbols.size());
        }
        EXPECT_EQ(other->zones.size(), two.zones.size());
        ASSERT_EQ(other->faces.size(), two.faces.size());
        for (std::size_t i = 0; i < two.faces.size(); ++i) {
            EXPECT_EQ(other->faces[i].x, two.faces[i].x);
            EXPECT_EQ(other->faces[i].y, two.faces[i].y);
        }
    }
}

TEST(Recognition, ZoneLinesComeBackInTheZoneAlphabetWithTheirCodes) {
    const DrawnDocument card = bilingualCard();
    const auto result = platform::Recognition::recognize(card.image, {"en-US", "ru-RU"}, 1);
    std::vector<std::string> zone;
    for (const auto& line : result.lines) {
        if (std::count(line.text.begin(), line.text.end(), '<') >= 2) {
            zone.push_back(line.text);
        }
    }
    ASSERT_EQ(zone.size(), 2u);
    for (const std::string& line : zone) {
        // Latin capitals, digits and fillers only: no Cyrillic look-alike slipped in.
        EXPECT_EQ(line.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789<"), std::string::npos) << line;
    }
    EXPECT_EQ(zone[0], "P<FRAMARTIN<<CLAIRE<SOPHIE<<<<<<<<<<<<<<<<<<");
    EXPECT_EQ(zone[1], "X4RTBPFW46FRA8507147F3301018<<<<<<<<<<<<<<04");
    // The zone is read by the page's own Latin engine, held to the zone's alphabet for that reading
    // only: the next page it reads keeps its small letters.
    const std::string next = recognisedText(printed(900, 200, {{80, 110, 40, "Place of birth"}}), {"en-US"});
    EXPECT_EQ(next, "Place of birth\n");
}

// A zone in OCR-B on pale paper, room for 48 characters a line: each line dark for its first `dark`
// and last `closing` characters and in `faint` ink between; with the width of one character.
struct PaleZone {
    QImage canvas;
    int advance = 0;
};
PaleZone paleZone(const std::vector<std::tuple<std::string, std::size_t, std::size_t>>& lines, QColor faint) {
    QFontDatabase::addApplicationFont("/usr/share/fonts/opentype/ocr-b/OCRB.otf");
    QFont font("OCR B");
    font.setPixelSize(40);
    PaleZone zone;
    zone.advance = QFontMetrics(font).horizontalAdvance(QString(10, 'M')) / 10;
    zone.canvas = QImage(zone.advance * 48, 400, QImage::Format_RGB32);
    zone.canvas.fill(QColor(236, 238, 232));
    QPainter p(&zone.canvas);
    p.setFont(font);
    int y = 200;
    for (const auto& [line, dark, closing] : lines) {
        const std::size_t tail = line.size() - closing;
        p.setPen(QColor(20, 20, 24));
        p.drawText(2 * zone.advance, y, QString::fromStdString(line.substr(0, dark)));
        p.drawText(zone.advance * static_cast<int>(2 + tail), y, QString::fromStdString(line.substr(tail)));
        p.setPen(faint);
        p.drawText(zone.advance * static_cast<int>(2 + dark), y,
                   QString::fromStdString(line.substr(dark, tail - dark)));
        y += 62;
    }
    return zone;
}

// A zone whose closing fillers are too faint for the detector reaches the reader as pieces far apart
// on its rows, the last one only the check digits ("06"), which read as no zone text at all. The
// zone's mask must still reach them.
TEST(Recognition, AZoneReachesItsCheckDigitsAcrossFaintFillers) {
    const PaleZone zone = paleZone({{"P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", 26, 0},
                                    {"L898902C36UTO7408122F1204159<<<<<<<<<<<<<<06", 30, 2}},
                                   QColor(228, 230, 224));
    const auto result = platform::Recognition::recognize(toBitmap(zone.canvas), {"en-US", "ru-RU", "el-GR"});
    ASSERT_FALSE(result.zones.empty());
    double right = 0;
    for (const auto& box : result.zones) {
        right = std::max(right, box.x + box.width);
    }
    EXPECT_GE(right * zone.canvas.width(), zone.advance * 46 - 2);
}

// A passport's zone whose last eight characters on both lines are too faint for the detector: it
// measures as two lines of 36, the width of an identity card's zone, and must still be masked to 44.
TEST(Recognition, APassportZoneIsMaskedToFortyFourCharactersWhereverItsEndIsFaint) {
    const PaleZone zone = paleZone({{"P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", 36, 0},
                                    {"L898902C36UTO7408122F1204159ZE184226B<<<<<10", 36, 0}},
                                   QColor(233, 235, 229));
    const auto result = platform::Recognition::recognize(toBitmap(zone.canvas), {"en-US", "ru-RU", "el-GR"});
    ASSERT_GE(result.zones.size(), 2u); // a line the detector cut in two comes back as two pieces
    for (const auto& box : result.zones) {
        EXPECT_GE((box.x + box.width) * zone.canvas.width(), zone.advance * 46 - 2);
    }
}

TEST(Recognition, TextFarApartOnOneRowComesBackAsSeparateLines) {
    const auto result = platform::Recognition::recognize(
        printed(1600, 400, {{80, 200, 40, "Date of birth"}, {1000, 200, 40, "Date of expiry"}}), {"en-US"});
    ASSERT_EQ(result.lines.size(), 2u);
    EXPECT_EQ(result.lines[0].text, "Date of birth");
    EXPECT_LT(result.lines[0].box.x + result.lines[0].box.width, 0.5);
    EXPECT_EQ(result.lines[1].text, "Date of expiry");
    EXPECT_GT(result.lines[1].box.x, 0.5);
}

// The detector parts a line at a wide blank; a date printed with one ("25 MAY /MAY  14", as some
// passports print their dates) must come back as one line, or no date is read in either piece.
TEST(Recognition, ADatePrintedWithAWideBlankIsReadAsOneLine) {
    // The day and month, and the year nearly two type sizes after them.
    const int year = 90 + QFontMetrics(sans(34)).horizontalAdvance("25 MAY /MAY") + 60;
    const auto result = platform::Recognition::recognize(
        printed(1200, 300, {{90, 150, 34, "25 MAY /MAY"}, {year, 150, 34, "14"}}, QColor(214, 224, 240),
                QColor(30, 30, 90)),
        {"en-US"});
    ASSERT_EQ(result.lines.size(), 1u);
    EXPECT_EQ(result.lines[0].text, "25 MAY /MAY 14");
}

// Lines of the other loaded scripts, Greek capitals and captions among them, come back in their own
// script: the Latin model alone reads many of them fairly surely as Latin look-alikes ("Enwvupo",
// "OAOZEPMOY"), and a reading that stopped at the first model would lose their captions and names.
TEST(Recognition, GreekAndCyrillicLinesComeBackInTheirOwnScript) {
    const std::vector<std::string> lines{"Ημερομηνία γέννησης", "Επώνυμο", "ΠΑΠΑΔΟΠΟΥΛΟΣ", "Дата народження"};
    const std::vector<Print> pieces = stacked(lines, 100, 120, 110, 40);
    const std::string text = recognisedText(printed(1200, 560, pieces), {"en-US", "ru-RU", "el-GR"});
    // The Ukrainian caption's short "на" still comes back as Latin "Ha"; its long word must not.
    for (const std::string& expected : {lines[0], lines[1], lines[2], std::string("родження")}) {
        EXPECT_NE(text.find(expected), std::string::npos) << expected << " in\n" << text;
    }
}

// A page read on by the Latin model alone once its first lines are Latin print must not be a bilingual
// one: a Russian page's captions pair both scripts from the top, and its Cyrillic values further
// down would otherwise come back as Latin look-alikes ("TOPO, MOCKBA").
TEST(Recognition, ABilingualPageKeepsItsOtherScriptPastItsFirstLines) {
    const std::vector<std::string> lines{
        "РОССИЙСКАЯ ФЕДЕРАЦИЯ",    "PASSPORT",   "Фамилия / Surname", "IVANOVA",
        "Имя / Given names",       "MARIIA",     "Пол / Sex",         "F",
        "Date of birth",           "01.02.1985", "Place of birth",    "ГОРОД МОСКВА",
        "Орган, выдавший документ"};
    const std::vector<Print> pieces = stacked(lines, 100, 90, 70, 32);
    const std::string text = recognisedText(printed(1200, 1020, pieces), {"en-US", "ru-RU"});
    for (const char* expected : {"МОСКВА", "документ"}) {
        EXPECT_NE(text.find(expected), std::string::npos) << expected << " in\n" << text;
    }
}

// A licence of the harmonised model from a Greek-speaking country: Latin captions and numbers, and
// the holder's names in Greek. Its first lines are mostly Latin, but one of them is a Greek word read
// surely, so the page is not Latin print, and the address further down keeps its Greek letters
// instead of coming back as Latin look-alikes ("AOHNA").
TEST(Recognition, ALatinLookingPageWithAGreekNameKeepsItsGreek) {
    const std::vector<std::string> lines{"FUHRERSCHEIN",   "1. ΓΕΩΡΓΙΟΥ",    "2. NIKOS",      "3. 13.10.1960",
                                         "4a. 01.03.2019", "4b. 02.08.2031", "4c. LICENSING", "5. HP760H798",
                                         "7. SIGNATURE",   "8. ΑΘΗΝΑ",       "9. AM B1 B"};
    const std::vector<Print> pieces = stacked(lines, 100, 80, 64, 30);
    const std::string text = recognisedText(printed(1000, 800, pieces), {"en-US", "ru-RU", "el-GR"});
    EXPECT_NE(text.find("ΑΘΗΝΑ"), std::string::npos) << text;
}

// A date in small print over a pattern often loses its points to colons or commas; read so, it is no
// date to the field detector, and the mask goes with it.
TEST(Recognition, ADateReadWithColonsComesBackWithPoints) {
    const std::string text =
        recognisedText(printed(900, 200, {{80, 90, 34, "06:09:2015"}, {500, 90, 34, "10:45"}}), {"en-US"});
    EXPECT_NE(text.find("06.09.2015"), std::string::npos) << text;
    // A time is no date.
    EXPECT_NE(text.find("10:45"), std::string::npos) << text;
}

// Small Latin print photographed soft: read by the three models together, short words of letters that
// Cyrillic and Greek share with Latin ("SEX M", "CLASS C", "NONE") come back in those scripts, and a
// caption so read is no caption. On a page printed in Latin they are read again by the Latin model.
TEST(Recognition, LatinPrintComesBackInLatinLetters) {
    const std::vector<std::string> lines{
        "DISTRICT OF COLUMBIA", "15 SEX M   16 HGT 5-09", "9 CLASS C", "12 RESTRICTIONS NONE",
        "18 EYES BRO",          "4b EXP 07/19/2030"};
    QImage canvas(900, 400, QImage::Format_RGB32);
    canvas.fill(QColor(236, 226, 236));
    QPainter p(&canvas);
    p.setFont(sans(30));
    p.setPen(QColor(40, 40, 60));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        p.drawText(60, static_cast<int>(60 + 56 * i), QString::fromStdString(lines[i]));
    }
    p.end();
    const QImage soft = canvas.scaled(300, 133, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    const std::string text = recognisedText(toBitmap(soft), {"en-US", "ru-RU", "el-GR"});
    const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    int foreign = 0;
    for (int32_t i = 0; i < unicode.length(); i = unicode.moveIndex32(i, 1)) {
        UErrorCode status = U_ZERO_ERROR;
        const UScriptCode script = uscript_getScript(unicode.char32At(i), &status);
        foreign += script == USCRIPT_CYRILLIC || script == USCRIPT_GREEK;
    }
    EXPECT_EQ(foreign, 0) << text;
    EXPECT_NE(text.find("SEX"), std::string::npos) << text;
    EXPECT_EQ(text.find("5-09 5-09"), std::string::npos) << text;
}

// A small value on a card photographed soft, its ground shading from dark to light, the ink only a
// little darker than the ground everywhere: the engine's own threshold finds nothing, so the line is
// read again sharpened.
TEST(Recognition, ASoftValueOnAShadedGroundIsRead) {
    QImage canvas(900, 300, QImage::Format_RGB32);
    QLinearGradient ground(0, 0, 900, 0), ink(0, 0, 900, 0);
    ground.setColorAt(0, QColor(60, 60, 80));
    ground.setColorAt(1, QColor(245, 245, 250));
    ink.setColorAt(0, QColor(35, 35, 55));
    ink.setColorAt(1, QColor(220, 220, 225));
    QPainter p(&canvas);
    p.fillRect(canvas.rect(), ground);
    p.setFont(sans(24));
    p.setPen(QPen(QBrush(ink), 1));
    p.drawText(100, 150, "08/27/2015 ANYTOWN 02127");
    p.end();
    const QImage soft = canvas.scaled(450, 150, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    const auto result = platform::Recognition::recognize(toBitmap(soft), {"en-US"});
    ASSERT_EQ(result.lines.size(), 1u);
    EXPECT_NE(result.lines[0].text.find("NYTOWN 02127"), std::string::npos) << result.lines[0].text;
}

// A licence's small print photographed out of focus: each line is read with its edges steepened.
TEST(Recognition, PrintOutOfFocusIsRead) {
    const std::vector<std::string> lines{"4d DLN 384192776", "3 DOB 08/31/1978", "8 2417 MAPLE AVENUE"};
    Bitmap page = printed(900, 330, stacked(lines, 80, 90, 90, 26));
    blur(page, 3.0);
    const std::string text = recognisedText(page, {"en-US"});
    for (const char* value : {" 384192776", "DOB 08/31/1978", "2417 MAPLE AVENUE"}) {
        EXPECT_NE(text.find(value), std::string::npos) << text;
    }
}

// White print on a dark grey band (a licence's class or restriction bar): no colour channel parts it
// better than grey does, and the engine does not read it as it is; it is read turned dark.
TEST(Recognition, LightPrintOnADarkBandIsRead) {
    QImage canvas(900, 200, QImage::Format_RGB32);
    canvas.fill(Qt::white);
    QPainter p(&canvas);
    p.fillRect(QRect(60, 60, 780, 80), QColor(50, 50, 50));
    p.setFont(sans(30));
    p.setPen(Qt::white);
    p.drawText(100, 115, "RESTRICTIONS B 04/17/2031");
    p.end();
    const auto result = platform::Recognition::recognize(toBitmap(canvas), {"en-US"});
    ASSERT_EQ(result.lines.size(), 1u);
    EXPECT_NE(result.lines[0].text.find("04/17/2031"), std::string::npos) << result.lines[0].text;
}

// Red print on a green ground, crossed by grey stripes exactly as light as the letters: in grey the
// letters merge into the stripes; the green channel parts them.
TEST(Recognition, ColouredPrintAsLightAsItsPatternIsRead) {
    QImage canvas(900, 200, QImage::Format_RGB32);
    canvas.fill(QColor(90, 150, 110));
    QPainter p(&canvas);
    p.setPen(QPen(QColor(115, 115, 115), 3));
    for (int x = -200; x < 900; x += 9) {
        p.drawLine(x, 0, x + 200, 200);
    }
    p.setFont(sans(34));
    p.setPen(QColor(200, 80, 80));
    p.drawText(100, 115, "ALABAMA 1234567");
    p.end();
    const auto result = platform::Recognition::recognize(toBitmap(canvas), {"en-US"});
    ASSERT_EQ(result.lines.size(), 1u);
    EXPECT_NE(result.lines[0].text.find("1234567"), std::string::npos) << result.lines[0].text;
}

// Numbers printed up the side of a card, or down it, a degree either way, beside lines set across it:
// each standing line is read the way it runs, whichever end its cut-out happens to start from.
TEST(Recognition, LinesStandingOnEndAreReadTheWayTheyRun) {
    QImage canvas(1200, 800, QImage::Format_RGB32);
    canvas.fill(Qt::white);
    QPainter p(&canvas);
    p.setPen(Qt::black);
    p.setFont(sans(30));
    const char* across[] = {"DRIVER LICENSE", "1 SAMPLE", "2 JOHN PAUL", "3 DOB 04/17/1981", "8 100 MAIN ST"};
    for (int i = 0; i < 5; ++i) {
        p.drawText(420, 150 + 110 * i, across[i]);
    }
    const double angles[] = {-91, -90, -89, 89, 90, 91};
    const char* numbers[] = {"820BAC729CBAC", "736HDV7874JSB", "512KQT3398WWA",
                             "904LMN2261PQR", "377XYZ5510ABC", "615DEF8842GHI"};
    for (int i = 0; i < 6; ++i) {
        p.resetTransform();
        const bool up = angles[i] < 0;
        p.translate(60 + 60 * i + (up ? 0 : 700), up ? 650 : 100);
        p.rotate(angles[i]);
        p.drawText(0, 0, numbers[i]);
    }
    p.end();
    const std::string text = recognisedText(toBitmap(canvas), {"en-US"});
    for (const char* number : numbers) {
        EXPECT_NE(text.find(number), std::string::npos) << number << " in\n" << text;
    }
}

// A serial number printed up a page beside its portrait, character by character with gaps as wide as
// its glyphs and bending with the paper, is no line to the detector; it is masked whole. A ring of
// dots of the same size and spacing (stars of a flag, say) reads no digits and stays.
TEST(Recognition, ANumberPrintedCharacterByCharacterIsMasked) {
    QImage canvas(1000, 700, QImage::Format_RGB32);
    canvas.fill(Qt::white);
    QPainter p(&canvas);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::black);
    p.setFont(sans(26));
    const char* across[] = {"PASSPORT", "SURNAME / NOM", "SAMPLE", "GIVEN NAMES / PRENOMS", "ANNA MARIA"};
    for (int i = 0; i < 5; ++i) {
        p.drawText(330, 120 + 70 * i, across[i]);
    }
    p.setFont(sans(14));
    const std::string serial = "ERE827213";
    double left = 1e9, right = 0, top = 1e9, bottom = 0;
    for (std::size_t i = 0; i < serial.size(); ++i) {
        // Read from the bottom up; the run bows out by 8 pixels at its middle.
        const double t = static_cast<double>(i) / (serial.size() - 1);
        const double x = 860 + 8 * std::sin(t * 3.14159), y = 520 - 28.0 * i;
        p.resetTransform();
        p.translate(x, y);
        p.rotate(-90);
        p.drawText(QRectF(-10, -10, 20, 20), Qt::AlignCenter, QString(serial[i]));
        left = std::min(left, x - 7), right = std::max(right, x + 7);
        top = std::min(top, y - 7), bottom = std::max(bottom, y + 7);
    }
    p.resetTransform();
    p.setBrush(Qt::black);
    std::vector<QPointF> dots;
    for (int i = 0; i < 12; ++i) {
        dots.emplace_back(150 + 45 * std::cos(i * 3.14159 / 6), 250 + 45 * std::sin(i * 3.14159 / 6));
        p.drawEllipse(dots.back(), 5, 5);
    }
    p.end();
    LoadedDocument document;
    document.image = toBitmap(canvas);
    const Analysis analysis = ImagePipeline::analyze(document);
    const Bitmap masked = ImagePipeline::render(document.image, analysis.regions, hideEverything);
    const DrawnField number{
        FieldKind::number, Rect{left / 1000, top / 700, (right - left) / 1000, (bottom - top) / 700}, serial};
    EXPECT_GE(coverage(document.image, masked, number), 0.98);
    for (const QPointF& dot : dots) {
        const std::uint8_t* pixel = masked.at(static_cast<int>(dot.x()) + 7, static_cast<int>(dot.y()));
        EXPECT_EQ(pixel[0], 255) << dot.x() << ", " << dot.y();
    }
}

// Large type set tight on a patterned ground can reach the detector as one region of several lines;
// it is cut between its lines of ink, and a region of one line stays as it is.
TEST(TextDetector, ARegionOfSeveralPrintedLinesIsCutBetweenThem) {
    Bitmap image = printed(900, 400, {{100, 170, 80, "SOUZA"}, {100, 235, 50, "JORGE"}});
    const cv::Mat page(image.height, image.width, CV_8UC3, image.pixels.data(), image.rowBytes());
    // One region around both names: two lines, the first around the surname's ink (rows 112 to 170),
    // the second around the given name's (rows 199 to 235).
    const auto lines = platform::TextDetector::printedLines(page, cv::RotatedRect({400, 175}, {700, 150}, 0));
    ASSERT_EQ(lines.size(), 2u);
    const cv::Rect first = lines[0].boundingRect(), second = lines[1].boundingRect();
    EXPECT_LE(first.y, 112);
    EXPECT_GE(first.y + first.height, 170);
    EXPECT_LE(second.y, 199);
    EXPECT_GE(second.y + second.height, 235);
    EXPECT_LE(first.y + first.height, second.y + 1);
    // A region of one line, accents and all, is not cut.
    EXPECT_EQ(platform::TextDetector::printedLines(page, cv::RotatedRect({400, 145}, {700, 80}, 0)).size(),
              1u);
}

// Each thread loads the line network once and searches pages of every size with it: the lines found
// on a page after pages of other sizes are those a freshly loaded network finds. OpenCV sets the
// network up again for each size, folding and fusing its layers anew, the program's own layer too.
TEST(TextDetector, APageSearchedAfterPagesOfOtherSizesGivesTheSameLines) {
    auto rgb = [](Bitmap& image) {
        return cv::Mat(image.height, image.width, CV_8UC3, image.pixels.data(), image.rowBytes());
    };
    Bitmap card = printed(1000, 640,
                          {{60, 120, 30, "SURNAME / NOM"},
                           {60, 170, 40, "MUSTERMANN"},
                           {60, 260, 30, "DATE OF BIRTH"},
                           {60, 310, 40, "12 AUG 1964"}});
    std::vector<cv::RotatedRect> fresh, after;
    std::thread([&] { fresh = platform::TextDetector::lines(rgb(card), 1280); }).join();
    std::thread([&] {
        // Enough other pages that the card's lines are no longer remembered.
        for (int width : {1400, 700, 900, 1200}) {
            Bitmap other = printed(width, 500, {{40, 200, 36, QString("PAGE %1 WIDE").arg(width)}});
            platform::TextDetector::lines(rgb(other), 1280);
        }
        after = platform::TextDetector::lines(rgb(card), 1280);
    }).join();
    ASSERT_GE(fresh.size(), 4u);
    ASSERT_EQ(after.size(), fresh.size());
    for (std::size_t i = 0; i < fresh.size(); ++i) {
        EXPECT_EQ(after[i].boundingRect(), fresh[i].boundingRect()) << "line " << i;
    }
}

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
