#include "ImagePipeline.h"

#include <gtest/gtest.h>

namespace {

using platform::Recognition::Box;
using platform::Recognition::Line;
using platform::Recognition::Symbol;

// A line as the recogniser reports it, from a top-left rectangle; each character gets an equal share
// of the width as its box.
Line line(const std::string& text, double x, double y, double width, double height,
          float confidence = 0.95f) {
    Line l;
    l.text = text;
    l.box = Box{x, y, width, height};
    l.confidence = confidence;
    const int n = static_cast<int>(text.size()); // ASCII in these tests
    for (int i = 0; i < n; ++i) {
        if (text[i] != ' ') {
            l.symbols.push_back(Symbol{i, i + 1, Box{x + width * i / n, l.box.y, width / n, height}});
        }
    }
    return l;
}

ImagePipeline::AssemblyInput input(std::vector<Line> lines) {
    ImagePipeline::AssemblyInput in;
    in.recognition.lines = std::move(lines);
    in.supportedLanguages = {"en-US", "ru-RU"};
    in.image = RiskEngine::PixelSize{1600, 1000};
    return in;
}

const std::string notCentred =
    "Границы документа не удалось уверенно найти. Проверьте наклон и края снимка вручную.";
const std::string noText = "Текст не распознан. Добавьте маски вручную или загрузите более чёткое фото.";
const std::string noFace =
    "Лицо не найдено автоматически. При необходимости закройте портрет и его копии вручную.";
const std::string reminder =
    "Проверьте обе стороны документа, все номера, адрес и дату рождения. Детектор не гарантирует "
    "распознавание всех форматов и полей.";
const std::string generic =
    "Использованы общие эвристики для номеров, дат, имён и адресов; профиль страны не определён.";
const std::string lowResolution =
    "Низкое разрешение. Мелкие номера и повторные фотографии могут быть пропущены.";

// A text mask as assembly paints it: a fifth of the line's height past the box on every side, the same
// distance in pixels across (the test image is 1600 by 1000).
Rect masked(const Rect& box) {
    const double dy = 0.2 * box.height, dx = dy * 1000.0 / 1600.0;
    return Rect{box.x - dx, box.y - dy, box.width + 2 * dx, box.height + 2 * dy};
}

std::vector<Rect> faces(const Analysis& analysis) {
    std::vector<Rect> found;
    for (const RedactionRegion& r : analysis.regions) {
        if (r.kind == FieldKind::face) {
            found.push_back(r.rect);
        }
    }
    return found;
}

bool near(const Rect& a, const Rect& b) {
    return std::abs(a.x - b.x) < 1e-9 && std::abs(a.y - b.y) < 1e-9 && std::abs(a.width - b.width) < 1e-9 &&
           std::abs(a.height - b.height) < 1e-9;
}

} // namespace

TEST(Assembly, AnImageWithoutText) {
    const Analysis analysis = ImagePipeline::assemble(input({}));
    EXPECT_EQ(analysis.recognizedLines, 0);
    EXPECT_TRUE(analysis.regions.empty());
    // The detector's three, centering, generic rules, no text, no face, and the reminder last.
    ASSERT_EQ(analysis.warnings.size(), 8u);
    EXPECT_EQ(analysis.warnings[3], notCentred);
    EXPECT_EQ(analysis.warnings[4], generic);
    EXPECT_EQ(analysis.warnings[5], noText);
    EXPECT_EQ(analysis.warnings[6], noFace);
    EXPECT_EQ(analysis.warnings[7], reminder);
    EXPECT_EQ(analysis.country, CountryDetection::unknown());
    EXPECT_EQ(analysis.risk.checksPerformed, 1);
}

TEST(Assembly, LinesAreCutIntoSpansWithTheBoxesOfTheirCharacters) {
    auto in = input({line("DOCUMENT NO AB123456 SURNAME SMITH", 0.1, 0.2, 0.68, 0.04)});
    const Analysis analysis = ImagePipeline::assemble(in);
    // Four spans, of which the blank one is dropped.
    EXPECT_EQ(analysis.recognizedLines, 3);
    const auto number =
        std::find_if(analysis.regions.begin(), analysis.regions.end(), [](const RedactionRegion& r) {
            return r.kind == FieldKind::number && r.evidence == FieldEvidence::nearbyLabel;
        });
    ASSERT_NE(number, analysis.regions.end());
    // Characters 12 to 19 of 34, each 0.02 wide.
    EXPECT_TRUE(near(number->rect, masked(Rect{0.1 + 0.02 * 12, 0.2, 0.02 * 8, 0.04})))
        << number->rect.x << " " << number->rect.width;
}

TEST(Assembly, AWholeLineKeepsItsUntrimmedTextAndBox) {
    auto in = input({line("  SPECIMEN  ", 0.1, 0.5, 0.3, 0.05)});
    const Analysis analysis = ImagePipeline::assemble(in);
    ASSERT_EQ(analysis.regions.size(), 1u);
    EXPECT_EQ(analysis.regions[0].kind, FieldKind::personName);
    EXPECT_TRUE(near(analysis.regions[0].rect, masked(Rect{0.1, 0.5, 0.3, 0.05})));
    EXPECT_EQ(analysis.recognizedLines, 1);
}

TEST(Assembly, ASpanWithoutCharacterBoxesTakesTheLineBox) {
    Line l = line("NO AB123456", 0.1, 0.3, 0.44, 0.04);
    l.symbols.clear();
    const Analysis analysis = ImagePipeline::assemble(input({l}));
    for (const RedactionRegion& region : analysis.regions) {
        EXPECT_TRUE(near(region.rect, masked(Rect{0.1, 0.3, 0.44, 0.04})));
    }
    EXPECT_EQ(analysis.recognizedLines, 2);
}

TEST(Assembly, FacesAreWidenedAndBarcodesKeptAsTheyAre) {
    auto in = input({});
    in.recognition.faces = {Box{0.1, 0.2, 0.2, 0.3}, Box{0.0, 0.9, 0.1, 0.1}};
    in.recognition.barcodes = {Box{0.5, 0.8, 0.4, 0.1}};
    const Analysis analysis = ImagePipeline::assemble(in);
    ASSERT_EQ(analysis.regions.size(), 3u);
    EXPECT_EQ(analysis.regions[0].kind, FieldKind::face);
    EXPECT_EQ(analysis.regions[0].evidence, FieldEvidence::vision);
    EXPECT_TRUE(near(analysis.regions[0].rect, Rect{0.088, 0.182, 0.224, 0.336}));
    // A face at the bottom-left corner reaches past the image; the renderer clips it.
    EXPECT_TRUE(near(analysis.regions[1].rect, Rect{-0.012, 0.882, 0.124, 0.136}));
    EXPECT_EQ(analysis.regions[2].kind, FieldKind::machineReadable);
    EXPECT_TRUE(near(analysis.regions[2].rect, Rect{0.5, 0.8, 0.4, 0.1}));
    EXPECT_EQ(std::count(analysis.warnings.begin(), analysis.warnings.end(), noFace), 0);
}

TEST(Assembly, CenteringTextFollowsTheDetectorWarnings) {
    auto in = input({line("SURNAME", 0.1, 0.1, 0.2, 0.04)});
    for (auto [confidence, shown] : {std::pair{0.876f, "87"}, {0.999f, "99"}, {1.0f, "100"}}) {
        in.centering = CenteringResult{true, confidence};
        const auto warnings = ImagePipeline::assemble(in).warnings;
        const auto centering =
            std::find(warnings.begin(), warnings.end(),
                      std::string("Документ автоматически выровнен по найденным границам (уверенность ") +
                          shown + "%).");
        ASSERT_NE(centering, warnings.end()) << shown;
        // Directly after the detector's last warning.
        EXPECT_EQ(*(centering - 1), "Дата рождения не определена по подписи. Проверьте, что она закрыта.");
    }
}

TEST(Assembly, LowResolutionIsTheSmallerSideUpTo699) {
    auto in = input({});
    in.image = RiskEngine::PixelSize{1000, 699};
    const auto low = ImagePipeline::assemble(in).warnings;
    EXPECT_NE(std::find(low.begin(), low.end(), lowResolution), low.end());
    in.image = RiskEngine::PixelSize{700, 700};
    const auto fine = ImagePipeline::assemble(in).warnings;
    EXPECT_EQ(std::find(fine.begin(), fine.end(), lowResolution), fine.end());
    in.image.reset();
    const auto none = ImagePipeline::assemble(in);
    EXPECT_EQ(std::find(none.warnings.begin(), none.warnings.end(), lowResolution), none.warnings.end());
    EXPECT_EQ(none.risk.checksPerformed, 0);
}

TEST(Assembly, MissingLanguagesConflictsAndTheCountry) {
    // A Belgian card read with English and French only; a German heading contradicts the zone.
    auto in = input({line("KONINKRIJK DER NEDERLANDEN", 0.3, 0.12, 0.4, 0.05),
                     line("IDBELX4RTBPFW46<<<<<<<<<<<<<<<", 0.05, 0.8, 0.9, 0.05)});
    in.supportedLanguages = {"en-US", "fr-FR"};
    const Analysis analysis = ImagePipeline::assemble(in);
    EXPECT_EQ(analysis.country.code, "BEL");
    EXPECT_TRUE(analysis.country.conflict);
    EXPECT_EQ(analysis.unavailableOCRLanguages, (std::vector<std::string>{"nl", "de"}));
    const auto& w = analysis.warnings;
    const auto missing =
        std::find(w.begin(), w.end(),
                  "В этой системе нет заявленного OCR для: нидерландский, немецкий. Локальные подписи "
                  "могут быть пропущены; используйте MRZ/латиницу и ручную проверку.");
    ASSERT_NE(missing, w.end());
    EXPECT_EQ(*(missing + 1),
              "Признаки страны противоречат друг другу. Проверьте страну выдачи; гражданство и место "
              "рождения могут отличаться.");
    EXPECT_EQ(std::find(w.begin(), w.end(), generic), w.end());
}

TEST(Assembly, RiskReadsWholeLinesNotSpans) {
    // The splitter cuts zone lines at their long runs; the risk check still sees each line whole.
    auto in = input({line("P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", 0.04, 0.84, 0.92, 0.05),
                     line("L898902C36UTO7408122F1204159ZE184226B<<<<<10", 0.04, 0.91, 0.92, 0.05)});
    const Analysis analysis = ImagePipeline::assemble(in);
    EXPECT_EQ(analysis.risk.checksPerformed, 4);
    EXPECT_EQ(analysis.risk.score, 0);
    EXPECT_EQ(analysis.documentType, "Паспорт");
}

TEST(Assembly, ValuesTheZoneVouchesForAreMaskedWhereverThePageRepeatsThem) {
    // A date with no caption in reach and names written with a comma: the detector alone leaves the
    // date to the "uncertain" mask and the names unmasked.
    std::vector<Line> page{line("12 AUG/AOUT 74", 0.35, 0.48, 0.17, 0.03),
                           line("ERIKSSON, ANNA MARIA", 0.36, 0.27, 0.26, 0.03)};
    auto kindsOf = [](const Analysis& analysis, FieldEvidence evidence) {
        std::vector<FieldKind> kinds;
        for (const RedactionRegion& r : analysis.regions) {
            if (r.evidence == evidence) {
                kinds.push_back(r.kind);
            }
        }
        return kinds;
    };
    const Analysis alone = ImagePipeline::assemble(input(page));
    EXPECT_TRUE(kindsOf(alone, FieldEvidence::machineReadable).empty());
    page.push_back(line("P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", 0.04, 0.84, 0.92, 0.05));
    page.push_back(line("L898902C36UTO7408122F1204159ZE184226B<<<<<10", 0.04, 0.91, 0.92, 0.05));
    const Analysis withZone = ImagePipeline::assemble(input(page));
    const auto vouched = kindsOf(withZone, FieldEvidence::machineReadable);
    EXPECT_EQ(std::count(vouched.begin(), vouched.end(), FieldKind::birthDate), 1);
    EXPECT_EQ(std::count(vouched.begin(), vouched.end(), FieldKind::personName), 1);
    // The date's mask took its kind instead of standing twice.
    EXPECT_EQ(std::count_if(withZone.regions.begin(), withZone.regions.end(),
                            [](const RedactionRegion& r) { return r.kind == FieldKind::uncertain; }),
              0);
}

TEST(Assembly, APassportPortraitTheDetectorMissedIsMaskedWhereThePageKeepsIt) {
    // A TD3 page 1600 pixels wide: the zone's 44 characters span 0.92 of it, 13.1 pixels a millimetre.
    auto in = input({line("P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<", 0.04, 0.84, 0.92, 0.05),
                     line("L898902C36UTO7408122F1204159ZE184226B<<<<<10", 0.04, 0.91, 0.92, 0.05)});
    in.recognition.zones = {Box{0.04, 0.84, 0.92, 0.05}, Box{0.04, 0.91, 0.92, 0.05}};
    const auto place = faces(ImagePipeline::assemble(in));
    ASSERT_EQ(place.size(), 1u);
    const double mm = 0.92 / (44 * 2.54);
    EXPECT_NEAR(place[0].x, 0.04 - 3 * mm, 1e-9);
    EXPECT_NEAR(place[0].maxX(), 0.04 + 44 * mm, 1e-9);
    EXPECT_NEAR(place[0].maxY(), 0.84 - 3 * mm * 1.6, 1e-9);
    EXPECT_NEAR(place[0].y, 0.84 - 60 * mm * 1.6, 1e-9);
    // A face found there stands alone; one found elsewhere (a ghost copy at the right) does not count.
    in.recognition.faces = {Box{0.1, 0.25, 0.15, 0.3}};
    EXPECT_EQ(faces(ImagePipeline::assemble(in)).size(), 1u);
    in.recognition.faces = {Box{0.85, 0.4, 0.05, 0.1}};
    EXPECT_EQ(faces(ImagePipeline::assemble(in)).size(), 2u);
    // A card's three-line zone says nothing of where its portrait is.
    in.recognition.faces.clear();
    in.recognition.zones.push_back(Box{0.04, 0.96, 0.92, 0.04});
    EXPECT_TRUE(faces(ImagePipeline::assemble(in)).empty());
}

TEST(Assembly, ALicenceFrontWhoseFaceWasNotFoundHasItsPortraitPlaceHidden) {
    auto licence = [](double shift) {
        return input({line("FÜHRERSCHEIN", 0.30, 0.03, 0.40, 0.05),
                      line("BUNDESREPUBLIK DEUTSCHLAND", 0.30, 0.09, 0.45, 0.04),
                      line("1. MUSTERMANN", 0.35 + shift, 0.18, 0.30, 0.045),
                      line("2. ERIKA", 0.35 + shift, 0.25, 0.20, 0.045),
                      line("3. 12.08.1964 BERLIN", 0.35 + shift, 0.32, 0.35, 0.045),
                      line("4a. 01.02.2020", 0.35 + shift, 0.39, 0.20, 0.045),
                      line("4b. 31.01.2035", 0.56 + shift, 0.39, 0.20, 0.045),
                      line("5. ", 0.35 + shift, 0.53, 0.04, 0.045),
                      line("B072RRE2I55", 0.40 + shift, 0.53, 0.22, 0.045)});
    };
    auto in = licence(0);
    const auto place = faces(ImagePipeline::assemble(in));
    ASSERT_EQ(place.size(), 1u);
    // From the page's left edge to the fields' masks, over the fields' height: the first field's mask
    // starts a fifth of its line height above it, the number's ends as far below.
    EXPECT_DOUBLE_EQ(place[0].x, 0);
    EXPECT_NEAR(place[0].maxX(), masked(Rect{0.35, 0.18, 0.30, 0.045}).x, 1e-9);
    EXPECT_NEAR(place[0].y, masked(Rect{0.35, 0.18, 0.30, 0.045}).y, 1e-9);
    EXPECT_NEAR(place[0].maxY(), masked(Rect{0.40, 0.53, 0.22, 0.045}).maxY(), 1e-9);
    // A face found anywhere on the page stands alone.
    in.recognition.faces = {Box{0.05, 0.25, 0.2, 0.3}};
    EXPECT_EQ(faces(ImagePipeline::assemble(in)).size(), 1u);
    // No place where the fields start near the left edge, nor on a card standing upright.
    EXPECT_TRUE(faces(ImagePipeline::assemble(licence(-0.25))).empty());
    in = licence(0);
    in.image = RiskEngine::PixelSize{1000, 1600};
    EXPECT_TRUE(faces(ImagePipeline::assemble(in)).empty());
}

TEST(Assembly, ALicenceSurnameWhoseFieldNumberWasLostIsHiddenAboveTheGivenNames) {
    auto licence = [](const std::string& surname, double shift) {
        return input({line("DRIVER LICENSE", 0.35, 0.03, 0.30, 0.05),
                      line("4d NUMBER", 0.60, 0.10, 0.12, 0.03), line("S123456789", 0.60, 0.13, 0.20, 0.04),
                      line(surname, 0.35 + shift, 0.30, 0.15, 0.06), line("2 JORGE", 0.35, 0.37, 0.12, 0.045),
                      line("3 DOB 03/18/1978", 0.35, 0.45, 0.25, 0.045)});
    };
    auto surnames = [](const Analysis& analysis) {
        return std::count_if(analysis.regions.begin(), analysis.regions.end(), [](const RedactionRegion& r) {
            return r.kind == FieldKind::personName && near(r.rect, masked(Rect{0.35, 0.30, 0.15, 0.06}));
        });
    };
    // The field number read as a comma, or the line read in another script.
    EXPECT_EQ(surnames(ImagePipeline::assemble(licence(",SOUZA", 0))), 1);
    EXPECT_EQ(surnames(ImagePipeline::assemble(licence("‚МАВГА", 0))), 1);
    // Read whole, the line is named once.
    EXPECT_EQ(surnames(ImagePipeline::assemble(licence("1 SOUZA", 0))), 1);
    // Not a line with digits, nor one set elsewhere, nor on a page that is no licence.
    auto dated = ImagePipeline::assemble(licence("SEX M 1978", 0));
    EXPECT_EQ(surnames(dated), 0);
    const Analysis shifted = ImagePipeline::assemble(licence(",SOUZA", 0.1));
    EXPECT_TRUE(std::none_of(shifted.regions.begin(), shifted.regions.end(), [](const RedactionRegion& r) {
        return r.kind == FieldKind::personName && r.rect.y < 0.3;
    }));
    auto passport = licence(",SOUZA", 0);
    passport.recognition.lines[0] = line("PASSPORT", 0.35, 0.03, 0.30, 0.05);
    EXPECT_EQ(surnames(ImagePipeline::assemble(passport)), 0);
}
