#include "ImagePipeline.h"

#include "CountryCatalog.h"
#include "DocumentOutline.h"
#include "FieldDetector.h"
#include "FileSystem.h"
#include "ImageDecoder.h"
#include "Lettering.h"
#include "MachineZone.h"
#include "OCRLanguages.h"
#include "PlatformError.h"
#include "PngCodec.h"
#include "UnicodeText.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <new>
#include <optional>

namespace ImagePipeline {
namespace {

// Rectangle arithmetic with the drawing library's semantics, in the renderer's bottom-left pixel space.
std::optional<Rect> intersection(const Rect& a, const Rect& b) {
    const double x0 = std::max(a.minX(), b.minX());
    const double y0 = std::max(a.minY(), b.minY());
    const double x1 = std::min(a.maxX(), b.maxX());
    const double y1 = std::min(a.maxY(), b.maxY());
    // Written so that NaN coordinates count as disjoint.
    if (!(x0 <= x1 && y0 <= y1)) {
        return std::nullopt;
    }
    return Rect{x0, y0, x1 - x0, y1 - y0};
}

Rect standardized(const Rect& r) {
    Rect s = r;
    if (s.width < 0) {
        s.x += s.width;
        s.width = -s.width;
    }
    if (s.height < 0) {
        s.y += s.height;
        s.height = -s.height;
    }
    return s;
}

Rect outset(const Rect& r, double by) {
    return Rect{r.x - by, r.y - by, r.width + 2 * by, r.height + 2 * by};
}

struct PixelSpan {
    long long x0, y0, x1, y1; // half-open, bottom-left origin
};

// Rounds outward to the smallest whole-pixel rectangle that contains `r`.
PixelSpan integral(const Rect& r) {
    return PixelSpan{
        static_cast<long long>(std::floor(r.minX())), static_cast<long long>(std::floor(r.minY())),
        static_cast<long long>(std::ceil(r.maxX())), static_cast<long long>(std::ceil(r.maxY()))};
}

void fillBlack(Bitmap& canvas, PixelSpan span) {
    const long long W = canvas.width;
    const long long H = canvas.height;
    const long long x0 = std::clamp(span.x0, 0LL, W);
    const long long x1 = std::clamp(span.x1, 0LL, W);
    const long long y0 = std::clamp(span.y0, 0LL, H);
    const long long y1 = std::clamp(span.y1, 0LL, H);
    if (x0 >= x1 || y0 >= y1) {
        return;
    }
    for (long long row = y0; row < y1; ++row) {
        std::uint8_t* p = canvas.row(static_cast<int>(row)) + x0 * 3;
        std::memset(p, 0, static_cast<std::size_t>((x1 - x0) * 3));
    }
}

constexpr std::uintmax_t maxFileBytes = 80ull * 1024 * 1024;
constexpr long long maxSide = 20000;
constexpr long long maxPixels = 50000000;

} // namespace

LoadedDocument load(const std::filesystem::path& file, bool turnText) {
    namespace Decoder = platform::ImageDecoder;
    const platform::FileSystem::Attributes attributes = platform::FileSystem::attributes(file);
    if (attributes.size > maxFileBytes) {
        throw DocumentError(DocumentError::tooLarge);
    }
    // A folder, a device or a pipe holds no image container.
    if (!attributes.regularFile) {
        throw DocumentError(DocumentError::invalidImage);
    }
    const std::vector<std::uint8_t> bytes = platform::FileSystem::readFile(file);
    if (bytes.size() > maxFileBytes) { // the file grew after it was measured
        throw DocumentError(DocumentError::tooLarge);
    }
    const Decoder::Container container = Decoder::sniff(bytes);
    if (container == Decoder::Container::other) {
        throw DocumentError(DocumentError::invalidImage);
    }
    Decoder::Properties properties;
    // The decoding libraries' own failures, whatever they throw (a codec's error, memory or threads
    // they could not get on a hostile file), mean that this file cannot be read.
    try {
        properties = Decoder::readProperties(bytes, container);
    } catch (const std::exception&) {
        throw DocumentError(DocumentError::invalidImage);
    }
    const long long width = properties.width;
    const long long height = properties.height;
    if (width < 1 || height < 1) {
        throw DocumentError(DocumentError::invalidImage);
    }
    if (width > maxSide || height > maxSide || width * height > maxPixels) {
        throw DocumentError(DocumentError::tooLarge);
    }
    Bitmap upright;
    try {
        upright = Decoder::decodeUpright(bytes, container);
    } catch (const std::exception&) {
        throw DocumentError(DocumentError::invalidImage);
    }
    // A container whose image differs from what its header declared is not trusted.
    if (upright.empty() || static_cast<long long>(upright.width) * upright.height != width * height) {
        throw DocumentError(DocumentError::invalidImage);
    }
    Centered centered = centerDocument(std::move(upright));
    Upright turned =
        turnText ? turnUpright(std::move(centered.image)) : Upright{std::move(centered.image), 0, Skew{}};
    return LoadedDocument{std::move(turned.image), properties.software, centered.result, turned.quarterTurns,
                          turned.skew};
}

Upright turnUpright(Bitmap image) {
    const int turns = platform::Recognition::uprightTurns(image);
    if (turns != 0) {
        image = platform::Recognition::turned(image, turns);
    }
    // A card photographed askew: its lines are read, zones cut into cells and captions paired with
    // values along rows, all of which want the rows level. The turn grows the canvas, a long strip's
    // many times over (a 20,000 x 2,500 photo turned by 40 degrees would take 250 megapixels); a page
    // that would outgrow the loader's limits is read as it is.
    Skew skew{platform::Recognition::skewDegrees(image), image.width, image.height};
    if (skew.degrees != 0) {
        const auto level = platform::Recognition::levelling(image.width, image.height, skew.degrees);
        if (level.width > maxSide || level.height > maxSide ||
            static_cast<long long>(level.width) * level.height > maxPixels) {
            skew = Skew{};
        } else {
            image = platform::Recognition::levelled(image, skew.degrees);
        }
    }
    return Upright{std::move(image), turns, skew.degrees != 0 ? skew : Skew{}};
}

Centered centerDocument(Bitmap image) {
    namespace Outline = platform::DocumentOutline;
    // A corner this close to a border means the document fills the photo or is cut off.
    constexpr double minimumMargin = 0.018;
    constexpr float minimumConfidence = 0.62f;
    const std::optional<Outline::Observation> outline = Outline::detect(image);
    if (!outline) {
        return Centered{std::move(image), CenteringResult{false, 0}};
    }
    double margin = 1;
    for (const Outline::Point& p :
         {outline->topLeft, outline->topRight, outline->bottomRight, outline->bottomLeft}) {
        margin = std::min({margin, p.x, p.y, 1 - p.x, 1 - p.y});
    }
    if (margin <= minimumMargin || outline->confidence < minimumConfidence) {
        return Centered{std::move(image), CenteringResult{false, outline->confidence}};
    }
    Bitmap straightened = Outline::correctPerspective(image, *outline);
    if (straightened.empty()) {
        return Centered{std::move(image), CenteringResult{false, outline->confidence}};
    }
    return Centered{std::move(straightened), CenteringResult{true, outline->confidence}};
}

namespace {

Rect rectOf(const platform::Recognition::Box& box) {
    return Rect{box.x, box.y, box.width, box.height};
}

// Spans of one recognised line as text regions: the whole line when it does not divide, else each
// non-blank span trimmed, with the box of its characters.
void appendSpans(const platform::Recognition::Line& line, bool drivingLicence,
                 std::vector<TextRegion>& spans) {
    const std::vector<TextRange> ranges = FieldDetector::fieldSpans(line.text, drivingLicence);
    if (ranges.empty()) {
        return;
    }
    if (ranges.size() == 1) {
        spans.push_back(TextRegion{line.text, rectOf(line.box), line.confidence});
        return;
    }
    const icu::UnicodeString text = UnicodeText::utf16(line.text);
    for (const TextRange& range : ranges) {
        if (range.location < 0 || range.end() > text.length()) {
            continue;
        }
        const icu::UnicodeString piece =
            UnicodeText::trimmedHorizontal(icu::UnicodeString(text, range.location, range.length));
        if (piece.isEmpty()) {
            continue;
        }
        const auto box = platform::Recognition::rangeBox(line, range.location, range.length);
        spans.push_back(
            TextRegion{UnicodeText::utf8(piece), rectOf(box.value_or(line.box)), line.confidence});
    }
}

// The zone put right by its layout and check digits, so that country, risk and fields all see it as
// printed; a zone that cannot be made consistent stays as it was read.
std::optional<MachineZone::Found> correctZone(std::vector<platform::Recognition::Line>& lines) {
    std::vector<std::string> texts;
    for (const auto& line : lines) {
        texts.push_back(line.text);
    }
    std::optional<MachineZone::Found> zone = MachineZone::find(texts);
    if (zone && zone->valid) {
        for (std::size_t i = 0; i < zone->lines.size(); ++i) {
            lines[zone->first + i].text = zone->lines[i];
        }
    }
    return zone;
}

// Where a passport or visa page (a two-line zone) carries its portrait: ICAO 9303 keeps the left of
// the data page for it, up to 45 by 45 mm, between the header and the zone. Measured from the zone
// band, whose lines are 36 or 44 characters at 2.54 mm each: from 3 mm left of the zone to 44 mm
// right of its start, from 3 mm to 60 mm above it. None without a two-line band and a known length.
std::optional<Rect> portraitPlace(const std::vector<Rect>& bands, std::size_t characters,
                                  const std::optional<RiskEngine::PixelSize>& image) {
    if (bands.size() != 2 || (characters != 36 && characters != 44) || !image || image->width <= 0 ||
        image->height <= 0) {
        return std::nullopt;
    }
    const Rect& top = bands[0].y < bands[1].y ? bands[0] : bands[1];
    const double mmAcross = top.width / (static_cast<double>(characters) * 2.54); // a millimetre, in widths
    const double mmDown = mmAcross * image->width / image->height;
    Rect place{top.x - 3 * mmAcross, top.y - 60 * mmDown, 47 * mmAcross, 57 * mmDown};
    return intersection(place, Rect{0, 0, 1, 1});
}

// Values the zone vouches for, wherever the page prints them again: a number or date misread past
// its caption's reach, or printed far from it, is still the holder's.
void addVouchedValues(const MachineZone::Found& zone,
                      const std::vector<platform::Recognition::Line>& recognised,
                      const std::vector<TextRegion>& lines, std::vector<RedactionRegion>& regions) {
    const MachineZone::Holder holder = MachineZone::holder(zone.lines);
    for (std::size_t i = 0; i < recognised.size(); ++i) {
        if (i >= zone.first && i < zone.first + zone.lines.size()) {
            continue;
        }
        const std::optional<FieldKind> kind = MachineZone::repeated(holder, recognised[i].text);
        if (!kind) {
            continue;
        }
        // A mask the detector put on the line already stands; a date it could not place gets its kind.
        const Rect& rect = lines[i].rect;
        const auto same = std::find_if(regions.begin(), regions.end(), [&](const RedactionRegion& r) {
            const std::optional<Rect> common = intersection(r.rect, rect);
            return (r.kind == *kind || r.kind == FieldKind::uncertain) && common &&
                   common->width * common->height >= 0.9 * rect.width * rect.height;
        });
        if (same == regions.end()) {
            regions.push_back(RedactionRegion{*kind, rect, Uuid::random(), FieldEvidence::machineReadable});
        } else if (same->kind == FieldKind::uncertain) {
            same->kind = *kind;
            same->evidence = FieldEvidence::machineReadable;
        }
    }
}

// A licence numbers the holder's surname 1 and given names 2, one under the other, and the small
// field number of the first is often lost in reading (read as a comma, or the whole line read in
// another script). A line of letters alone, set directly above a line numbered 2 and starting where
// it starts, is the surname when no mask covers it yet.
void addSurnameAboveGivenNames(bool drivingLicence, const std::vector<TextRegion>& lines,
                               std::optional<RiskEngine::PixelSize> image,
                               std::vector<RedactionRegion>& regions) {
    if (!drivingLicence || !image) {
        return;
    }
    const double across = static_cast<double>(image->height) / image->width; // a height's share in x
    auto givenNames = [](const std::string& text) {
        const std::size_t start = text.find_first_not_of(' ');
        return start != std::string::npos && text.compare(start, 1, "2") == 0 && start + 1 < text.size() &&
               (text[start + 1] == ' ' || text[start + 1] == '.');
    };
    auto lettersOnly = [](const std::string& text) {
        const icu::UnicodeString u = UnicodeText::utf16(text);
        int letters = 0;
        for (int32_t i = 0; i < u.length(); i = u.moveIndex32(i, 1)) {
            const UChar32 c = u.char32At(i);
            if (u_isdigit(c)) {
                return false;
            }
            letters += u_isalpha(c) ? 1 : 0;
        }
        return letters >= 2;
    };
    for (const TextRegion& second : lines) {
        if (!givenNames(second.text)) {
            continue;
        }
        const Rect& below = second.rect;
        for (const TextRegion& first : lines) {
            const Rect& above = first.rect;
            const bool placed = above.y < below.y && above.maxY() > below.y - 0.8 * below.height &&
                                above.maxY() < below.y + 0.5 * below.height &&
                                above.height > 0.5 * below.height && above.height < 2 * below.height &&
                                std::abs(above.x - below.x) < below.height * across;
            if (!placed || !lettersOnly(first.text)) {
                continue;
            }
            const bool covered = std::any_of(regions.begin(), regions.end(), [&](const RedactionRegion& r) {
                const std::optional<Rect> common = intersection(r.rect, above);
                return common && common->width * common->height >= 0.5 * above.width * above.height;
            });
            if (!covered) {
                regions.push_back(RedactionRegion{FieldKind::personName, above, Uuid::random(),
                                                  FieldEvidence::nearbyLabel});
            }
        }
    }
}

// Text boxes hug the ink, and a mask cut to them leaves the strokes' soft edges legible: every text
// mask reaches past its line by this share of the line's height, on every side.
void widenTextMasks(std::vector<RedactionRegion>& regions, std::optional<RiskEngine::PixelSize> image) {
    constexpr double textMargin = 0.2;
    const double aspect = image && image->width > 0 ? static_cast<double>(image->height) / image->width : 1.0;
    for (RedactionRegion& region : regions) {
        const double dy = textMargin * region.rect.height, dx = dy * aspect;
        region.rect = Rect{region.rect.x - dx, region.rect.y - dy, region.rect.width + 2 * dx,
                           region.rect.height + 2 * dy};
    }
}

// Faces, barcodes, spaced numbers and zone bands as the image shows them; returns the zone bands.
std::vector<Rect> addVisionRegions(const platform::Recognition::Result& recognition,
                                   std::vector<RedactionRegion>& regions) {
    // How far a detected face is widened: portraits continue past the face itself.
    constexpr double faceMarginX = 0.012;
    constexpr double faceMarginY = 0.018;
    for (const auto& face : recognition.faces) {
        const Rect r = rectOf(face);
        regions.push_back(RedactionRegion{
            FieldKind::face,
            Rect{r.x - faceMarginX, r.y - faceMarginY, r.width + 2 * faceMarginX, r.height + 2 * faceMarginY},
            Uuid::random(), FieldEvidence::vision});
    }
    for (const auto& barcode : recognition.barcodes) {
        regions.push_back(RedactionRegion{FieldKind::machineReadable, rectOf(barcode), Uuid::random(),
                                          FieldEvidence::vision});
    }
    for (const auto& number : recognition.spacedNumbers) {
        regions.push_back(
            RedactionRegion{FieldKind::number, rectOf(number), Uuid::random(), FieldEvidence::vision});
    }
    // The zone as the image shows it covers what the regions of its recognised lines leave.
    std::vector<Rect> bands;
    for (const auto& zone : recognition.zones) {
        bands.push_back(rectOf(zone));
        regions.push_back(
            RedactionRegion{FieldKind::machineReadable, bands.back(), Uuid::random(), FieldEvidence::vision});
    }
    return bands;
}

// A portrait printed over security patterns defeats the face detector; on a passport page its place
// is known, and is masked when no face was found there.
void addPortraitPlace(const std::optional<MachineZone::Found>& zone, const std::vector<Rect>& bands,
                      std::optional<RiskEngine::PixelSize> image, std::vector<RedactionRegion>& regions) {
    std::size_t zoneLength = 0; // as printed: a zone that is not valid may be read short
    if (zone) {
        for (const std::string& l : zone->lines) {
            zoneLength = std::max(zoneLength, l.size());
        }
        zoneLength = zone->valid ? zoneLength : (zoneLength >= 40 ? 44 : 36);
    }
    const auto place = portraitPlace(bands, zoneLength, image);
    if (!place) {
        return;
    }
    const bool faceThere = std::any_of(regions.begin(), regions.end(), [&](const RedactionRegion& r) {
        const auto common = intersection(r.rect, *place);
        return r.kind == FieldKind::face && common &&
               common->width * common->height > 0.25 * r.rect.width * r.rect.height;
    });
    if (!faceThere) {
        regions.push_back(RedactionRegion{FieldKind::face, *place, Uuid::random(), FieldEvidence::vision});
    }
}

// A driving licence prints its portrait on the left of the card's front, beside the holder's fields
// (the EU model and the US card design alike). A front where no face was found (a drawn portrait, a
// face turned away or lost in glare) still has one there: the page left of the fields, over their
// height below the card's title band, is hidden as the face. The portrait's column holds no fields
// but a number printed up its side and the signature under it, which is often read as a name: one
// level field there is allowed, more mean the fields start at the left. None on a page standing
// upright (a card printed in portrait format keeps its portrait on top), nor where the fields leave
// less than a quarter of the width on their left.
void addLicencePortraitPlace(bool drivingLicence, const std::vector<Rect>& bands,
                             std::optional<RiskEngine::PixelSize> image,
                             std::vector<RedactionRegion>& regions) {
    constexpr double titleBand = 0.15, edge = 0.15, narrowest = 0.25;
    if (!drivingLicence || !bands.empty() || !image || image->width <= image->height) {
        return;
    }
    const auto isFace = [](const RedactionRegion& r) { return r.kind == FieldKind::face; };
    const auto isHolder = [](const RedactionRegion& r) {
        return r.kind == FieldKind::personName || r.kind == FieldKind::birthDate;
    };
    if (std::any_of(regions.begin(), regions.end(), isFace) ||
        std::none_of(regions.begin(), regions.end(), isHolder)) {
        return;
    }
    double left = 1, top = 1, bottom = 0;
    int atEdge = 0;
    for (const RedactionRegion& r : regions) {
        const bool field = r.kind == FieldKind::number || r.kind == FieldKind::address || isHolder(r) ||
                           r.kind == FieldKind::issueDate || r.kind == FieldKind::expiryDate;
        const bool level = r.rect.width * image->width >= r.rect.height * image->height;
        if (!field || !level || r.rect.y < titleBand) {
            continue;
        }
        if (r.rect.x < edge) {
            ++atEdge;
            continue;
        }
        left = std::min(left, r.rect.x);
        top = std::min(top, r.rect.y);
        bottom = std::max(bottom, r.rect.maxY());
    }
    if (atEdge > 1 || left < narrowest || bottom <= top) {
        return;
    }
    regions.push_back(RedactionRegion{FieldKind::face, Rect{0, top, left, bottom - top}, Uuid::random(),
                                      FieldEvidence::vision});
}

// What the person should check on this page, after the detector's own warnings.
void addPageWarnings(const AssemblyInput& input, const CountryDetection& country,
                     const std::vector<std::string>& unavailable, bool textFound,
                     std::vector<std::string>& warnings) {
    constexpr int lowResolutionSide = 699;
    if (input.centering.applied) {
        const int percent = static_cast<int>(input.centering.confidence * 100.0f);
        warnings.push_back("Документ автоматически выровнен по найденным границам (уверенность " +
                           std::to_string(percent) + "%).");
    } else {
        warnings.push_back(
            "Границы документа не удалось уверенно найти. Проверьте наклон и края снимка вручную.");
    }
    if (!unavailable.empty()) {
        std::string names;
        for (const std::string& code : unavailable) {
            names += (names.empty() ? "" : ", ") + OCRLanguages::displayName(code);
        }
        warnings.push_back(
            "В этой системе нет заявленного OCR для: " + names +
            ". Локальные подписи могут быть пропущены; используйте MRZ/латиницу и ручную проверку.");
    }
    if (country.conflict) {
        warnings.push_back(
            "Признаки страны противоречат друг другу. Проверьте страну выдачи; гражданство и место "
            "рождения могут отличаться.");
    }
    if (!country.hasProfile) {
        warnings.push_back(
            "Использованы общие эвристики для номеров, дат, имён и адресов; профиль страны не определён.");
    }
    if (input.image && std::min(input.image->width, input.image->height) <= lowResolutionSide) {
        warnings.push_back("Низкое разрешение. Мелкие номера и повторные фотографии могут быть пропущены.");
    }
    if (!textFound) {
        warnings.push_back("Текст не распознан. Добавьте маски вручную или загрузите более чёткое фото.");
    }
    if (input.recognition.faces.empty()) {
        warnings.push_back(
            "Лицо не найдено автоматически. При необходимости закройте портрет и его копии вручную.");
    }
    warnings.push_back(
        "Проверьте обе стороны документа, все номера, адрес и дату рождения. Детектор не гарантирует "
        "распознавание всех форматов и полей.");
}

} // namespace

Analysis assemble(const AssemblyInput& input) {
    std::vector<platform::Recognition::Line> recognised = input.recognition.lines;
    const std::optional<MachineZone::Found> zone = correctZone(recognised);
    std::vector<TextRegion> lines;
    for (const auto& line : recognised) {
        lines.push_back(TextRegion{line.text, rectOf(line.box), line.confidence});
    }
    const CountryDetection country = CountryCatalog::detect(lines);
    const bool drivingLicence = FieldDetector::documentType(lines) == FieldDetector::drivingLicenceType;
    std::vector<TextRegion> spans;
    for (const auto& line : recognised) {
        appendSpans(line, drivingLicence, spans);
    }
    FieldDetector::Detection detection = FieldDetector::detect(spans);

    std::vector<RedactionRegion> regions = std::move(detection.regions);
    if (zone && zone->valid) {
        addVouchedValues(*zone, recognised, lines, regions);
    }
    addSurnameAboveGivenNames(drivingLicence, lines, input.image, regions);
    widenTextMasks(regions, input.image);
    const std::vector<Rect> bands = addVisionRegions(input.recognition, regions);
    addPortraitPlace(zone, bands, input.image, regions);
    addLicencePortraitPlace(drivingLicence, bands, input.image, regions);

    std::vector<std::string> warnings = std::move(detection.warnings);
    const std::vector<std::string> unavailable =
        OCRLanguages::unavailable(country.code, input.supportedLanguages);
    addPageWarnings(input, country, unavailable, !spans.empty(), warnings);

    return Analysis{std::move(regions),
                    std::move(detection.type),
                    std::move(warnings),
                    RiskEngine::assess(lines, input.software, input.image),
                    static_cast<int>(spans.size()),
                    country,
                    unavailable,
                    zone ? zone->lines : std::vector<std::string>{},
                    zone && zone->valid};
}

Analysis analyze(const LoadedDocument& document) {
    AssemblyInput input;
    input.supportedLanguages = platform::Recognition::supportedLanguages();
    input.recognition =
        platform::Recognition::recognize(document.image, OCRLanguages::prioritized(input.supportedLanguages));
    input.software = document.software;
    input.centering = document.centering;
    input.image = RiskEngine::PixelSize{document.image.width, document.image.height};
    return assemble(input);
}

Bitmap render(const Bitmap& image, const std::vector<RedactionRegion>& regions, const RedactionPolicy& policy,
              const std::optional<CopyMark>& mark) {
    if (image.empty() || image.pixels.size() != image.rowBytes() * static_cast<std::size_t>(image.height)) {
        throw DocumentError(DocumentError::exportFailed);
    }
    Bitmap canvas;
    try {
        canvas = image; // bitmaps are opaque, so drawing onto white is a copy
    } catch (const std::bad_alloc&) {
        throw DocumentError(DocumentError::exportFailed);
    }
    if (mark) {
        try {
            platform::Lettering::repeatAcross(canvas, mark->line());
        } catch (const std::exception&) {
            throw DocumentError(DocumentError::exportFailed);
        }
    }
    const double W = image.width;
    const double H = image.height;
    // Padding follows the height alone, in both directions.
    const double padding = std::max(0.004 * H, 3.0);
    const Rect unit{0, 0, 1, 1};
    for (const RedactionRegion& region : regions) {
        if (!policy.hides(region.kind)) {
            continue;
        }
        const std::optional<Rect> clipped = intersection(standardized(region.rect), unit);
        if (!clipped || !(clipped->width > 0) || !(clipped->height > 0)) {
            continue;
        }
        const Rect pixels{clipped->minX() * W, clipped->minY() * H, clipped->width * W, clipped->height * H};
        fillBlack(canvas, integral(outset(pixels, padding)));
    }
    return canvas;
}

std::string copyWord(std::string_view language) {
    static const std::map<std::string_view, const char*> words{
        {"en", "COPY"},  {"de", "KOPIE"},  {"nl", "KOPIE"},     {"fr", "COPIE"},
        {"es", "COPIA"}, {"it", "COPIA"},  {"pt", "CÓPIA"},     {"hu", "MÁSOLAT"},
        {"pl", "KOPIA"}, {"lv", "KOPIJA"}, {"et", "KOOPIA"},    {"fi", "KOPIO"},
        {"sv", "KOPIA"}, {"no", "KOPI"},   {"el", "ΑΝΤΙΓΡΑΦΟ"}, {"ru", "КОПИЯ"}};
    const auto found = words.find(language);
    return found == words.end() ? "COPY" : found->second;
}

void exportPNG(const Bitmap& image, const std::filesystem::path& to) {
    std::vector<std::uint8_t> encoded;
    try {
        encoded = platform::PngCodec::encode(image);
        const platform::PngCodec::Header header = platform::PngCodec::readHeader(encoded);
        const Bitmap decoded = platform::PngCodec::decode(encoded);
        if (header.imageCount != 1 || decoded.width != image.width || decoded.height != image.height) {
            throw DocumentError(DocumentError::exportFailed);
        }
    } catch (const platform::CodecError&) {
        throw DocumentError(DocumentError::exportFailed);
    } catch (const std::bad_alloc&) {
        throw DocumentError(DocumentError::exportFailed);
    }
    platform::FileSystem::writeAtomically(to, encoded);
}

} // namespace ImagePipeline
