#include "Recognition.h"

#include "TextDetector.h"
#include "ZoneReader.h"

#include <ZXing/ReadBarcode.h>
#include <leptonica/allheaders.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>

#include <dlfcn.h>

// Every model Tesseract loads builds its table of ambiguous characters for all scripts (a few
// thousand entries in sorted lists), which only the legacy classifier and its dictionary consult;
// the line recogniser alone reads here. Building it was a tenth of a one-page process's processor
// time (five models a process). The library calls it through its own symbol table, so this empty
// definition, exported by the program, stands in for it; what is read stays the same.
// clang-format off
extern "C" void skipUniversalAmbiguities(void*, const void*, void*) __asm__(
    "_ZN9tesseract13UnicharAmbigs13LoadUniversalERKNS_10UNICHARSETEPS1_");
// clang-format on
extern "C" void skipUniversalAmbiguities(void*, const void*, void*) {}

namespace platform::Recognition {
namespace {

namespace fs = std::filesystem;

// Tesseract language data names and the identifiers the system speaks of.
const std::map<std::string, std::string>& identifiers() {
    static const std::map<std::string, std::string> table{
        {"bul", "bg-BG"}, {"cat", "ca-ES"}, {"ces", "cs-CZ"}, {"dan", "da-DK"}, {"deu", "de-DE"},
        {"ell", "el-GR"}, {"eng", "en-US"}, {"est", "et-EE"}, {"fin", "fi-FI"}, {"fra", "fr-FR"},
        {"gle", "ga-IE"}, {"hrv", "hr-HR"}, {"hun", "hu-HU"}, {"ita", "it-IT"}, {"lav", "lv-LV"},
        {"lit", "lt-LT"}, {"ltz", "lb-LU"}, {"mlt", "mt-MT"}, {"nld", "nl-NL"}, {"pol", "pl-PL"},
        {"por", "pt-PT"}, {"ron", "ro-RO"}, {"rus", "ru-RU"}, {"slk", "sk-SK"}, {"slv", "sl-SI"},
        {"spa", "es-ES"}, {"swe", "sv-SE"}, {"tur", "tr-TR"}, {"ukr", "uk-UA"},
    };
    return table;
}

fs::path dataFolder() {
    if (const char* prefix = std::getenv("TESSDATA_PREFIX")) {
        return prefix;
    }
    return "/usr/share/tesseract-ocr/5/tessdata";
}

// Models loaded for every page, by measured accuracy and speed (see BENCHMARKS.md and EVALUATION.md):
// per-language models of the three scripts of the catalogue's documents. The longer side of the page
// is recognised at this many pixels at most.
const std::vector<std::string> loadedModels{"eng", "rus", "ell"};
constexpr int recognitionSide = 2000;
// Zone lines are read again at this height in pixels, margins included: glyphs about 27 pixels high,
// where the Latin model read generated zones best (against 64 pixels and the size as found).
constexpr int zoneHeight = 40;
// Faces are searched on a copy whose longer side is this large, enlarged when the photo is smaller.
// Faint ghost portraits of 3% of a card's width are near the cascade's smallest window here and often
// missed; they are found by matching the portrait itself (ghostsOf). A search at twice this size
// found them with the cascade for 80% more processor time.
constexpr int faceSide = 800;
// The smallest face the first search looks for, at that size (4% of the longer side): smaller faces
// are ghost portraits (the smallest found on real specimens and generated ones were 2.7% of it),
// which the portrait matching finds, and the smallest windows were most of the search's time. The
// second search, on a page where the first found none, looks for the portrait itself, which was 9% of
// the side or more on every real specimen: from 6% up.
constexpr int smallestFace = 32;
constexpr int smallestPortrait = 48;
// Text lines are searched with the page's longer side at this size, and each line found is read at
// this height in pixels, its margins included.
constexpr int detectionSide = 1280;
constexpr int lineHeight = 48;
// A line read with less mean confidence than this, or whose words span less than this share of its
// width, is read again (at 0.3, a birth date on a 600-pixel photo read at 0.31 as "15;03-205 5" was
// left so; read again, it reads "15.03.1951").
constexpr float weakReading = 0.35f;
constexpr double weakSpan = 0.5;
// A line whose edges are less steep than this (see edgeSteepness) is read steepened. Lines of the
// real specimens were 0.46 on the median and a tenth of them under 0.34; blurred by a Gaussian of 1.5
// pixels, 0.32 on the median.
constexpr double blurredEdges = 0.36;

Box normalised(int left, int top, int right, int bottom, int width, int height) {
    return Box{static_cast<double>(left) / width, static_cast<double>(top) / height,
               static_cast<double>(right - left) / width, static_cast<double>(bottom - top) / height};
}

cv::Mat wrap(const Bitmap& image) {
    return cv::Mat(image.height, image.width, CV_8UC3, const_cast<std::uint8_t*>(image.pixels.data()),
                   image.rowBytes());
}

// A smaller copy when the image is larger than `side`, else the image itself.
cv::Mat reduced(const Bitmap& image, int side) {
    const double scale = static_cast<double>(side) / std::max(image.width, image.height);
    if (scale >= 1.0) {
        return wrap(image);
    }
    cv::Mat small;
    cv::resize(wrap(image), small, cv::Size(), scale, scale, cv::INTER_AREA);
    return small;
}

struct TesseractDeleter {
    void operator()(tesseract::TessBaseAPI* api) const {
        api->End();
        delete api;
    }
};
using Engine = std::unique_ptr<tesseract::TessBaseAPI, TesseractDeleter>;

// Tesseract spreads a line's network over OpenMP threads, which spin while they wait: on two cores
// they tripled a page's time (2.6 s against 0.9 s), and the other core has work of its own. OpenMP
// keeps that limit per thread, so each thread that takes an engine sets it for itself; a Tesseract
// built without OpenMP has nothing to set.
void oneOpenMPThread() {
    using SetLevels = void (*)(int);
    static const auto set = reinterpret_cast<SetLevels>(::dlsym(RTLD_DEFAULT, "omp_set_max_active_levels"));
    if (set) {
        set(0); // no parallel region is active: each runs on the thread that meets it
    }
}

// Engines are kept and reused, one caller at a time each, rather than loaded for every page.
class EnginePool {
public:
    Engine take(const std::string& languages) {
        oneOpenMPThread();
        {
            std::lock_guard lock(mutex_);
            auto it = idle_.find(languages);
            if (it != idle_.end() && !it->second.empty()) {
                Engine engine = std::move(it->second.back());
                it->second.pop_back();
                return engine;
            }
        }
        // The image library's own complaints about odd regions of a page are of no use to a user.
        setMsgSeverity(L_SEVERITY_NONE);
        Engine engine(new tesseract::TessBaseAPI());
        // Dictionary correction off: identifiers and names are not words. Diagnostics go nowhere, so
        // that nothing of a document reaches a log.
        // Inversion off: the engine would read every line it is unsure of a second time inverted,
        // which on photos of documents is nearly every line; readLine turns light print dark itself.
        // The legacy classifier's table of ambiguous characters is not read: only that classifier
        // uses it, and reading it was 6% of a one-page process's time. Its loader skips it
        // while ambiguity training is on, which is turned off at once: it changes what Recognize does.
        std::vector<std::string> names{"load_system_dawg", "load_freq_dawg", "debug_file", "invert_threshold",
                                       "tessedit_ambigs_training"};
        std::vector<std::string> values{"0", "0", "/dev/null", "0", "1"};
        if (engine->Init(dataFolder().c_str(), languages.c_str(), tesseract::OEM_LSTM_ONLY, nullptr, 0,
                         &names, &values, false) != 0 ||
            !engine->SetVariable("tessedit_ambigs_training", "0")) {
            throw RecognitionError("text recognition could not load its language data (" + languages +
                                   ") from " + dataFolder().string());
        }
        return engine;
    }

    void give(const std::string& languages, Engine engine) {
        std::lock_guard lock(mutex_);
        auto& idle = idle_[languages];
        constexpr std::size_t keep = 2; // one per core
        if (idle.size() < keep) {
            engine->Clear();
            idle.push_back(std::move(engine));
        }
    }

private:
    std::mutex mutex_;
    std::map<std::string, std::vector<Engine>> idle_;
};

std::atomic<bool> oneCore{false};

EnginePool& pool() {
    static EnginePool instance;
    return instance;
}

int utf16Length(const std::string& utf8) {
    return icu::UnicodeString::fromUTF8(utf8).length();
}

// A recognised word: its characters with their boxes, in the pixels of the recognised page.
struct Word {
    std::vector<std::pair<std::string, cv::Rect>> glyphs;
    cv::Rect box;
    float confidence = 0; // 0..1
};

// Text printed far apart on one row is separate text to a reader: two columns of captions, or a
// name and the marks read off a ghost portrait beside it. The layout analysis sometimes joins such
// words into one line; a gap wider than this many word heights parts them again.
constexpr double columnGap = 3.0;

std::vector<std::vector<Word>> columns(std::vector<Word>& words) {
    std::vector<std::vector<Word>> pieces;
    if (words.empty()) {
        return pieces;
    }
    std::vector<int> heights;
    for (const Word& w : words) {
        heights.push_back(w.box.height);
    }
    std::nth_element(heights.begin(), heights.begin() + heights.size() / 2, heights.end());
    const double widest = columnGap * heights[heights.size() / 2];
    pieces.emplace_back();
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0 && words[i].box.x - (words[i - 1].box.x + words[i - 1].box.width) > widest) {
            pieces.emplace_back();
        }
        pieces.back().push_back(std::move(words[i]));
    }
    return pieces;
}

// One line of text from words of a row: words joined by single blanks, the line's box the union of
// its words', its confidence their mean.
Line line(const std::vector<Word>& words, int cols, int rows) {
    Line result;
    cv::Rect box = words.front().box;
    float confidence = 0;
    for (const Word& w : words) {
        box |= w.box;
        confidence += w.confidence;
    }
    result.box = normalised(box.x, box.y, box.x + box.width, box.y + box.height, cols, rows);
    result.confidence = confidence / static_cast<float>(words.size());
    int offset = 0;
    for (const Word& w : words) {
        if (offset > 0) {
            // The blank between two words covers the gap between their glyphs, so that the box of a
            // range that ends or starts with it reaches the neighbouring word.
            const Box& before = result.symbols.back().box;
            const double left = before.x + before.width;
            const double right = static_cast<double>(w.glyphs.front().second.x) / cols;
            result.symbols.push_back(Symbol{
                offset, offset + 1, Box{left, result.box.y, std::max(0.0, right - left), result.box.height}});
            result.text += ' ';
            offset += 1;
        }
        for (const auto& [text, glyph] : w.glyphs) {
            const int length = utf16Length(text);
            result.symbols.push_back(Symbol{
                offset, offset + length,
                normalised(glyph.x, glyph.y, glyph.x + glyph.width, glyph.y + glyph.height, cols, rows)});
            result.text += text;
            offset += length;
        }
    }
    return result;
}

// The words of every text line the engine recognised, in reading order; glyph boxes are divided by
// `scale` and moved by `origin`, so that they are in the pixels of the page.
std::vector<std::vector<Word>> textLines(tesseract::TessBaseAPI& engine, bool zone = false,
                                         cv::Point origin = {}, double scale = 1) {
    std::vector<std::vector<Word>> lines;
    std::unique_ptr<tesseract::ResultIterator> it(engine.GetIterator());
    if (!it) {
        return lines;
    }
    it->Begin();
    do {
        if (it->Empty(tesseract::RIL_TEXTLINE)) {
            continue;
        }
        std::vector<Word> words;
        do {
            Word word;
            bool blank = true;
            do {
                std::unique_ptr<char[]> symbol(it->GetUTF8Text(tesseract::RIL_SYMBOL));
                if (!symbol) {
                    continue;
                }
                int l = 0, t = 0, r = 0, b = 0;
                it->BoundingBox(tesseract::RIL_SYMBOL, &l, &t, &r, &b);
                // Rounded outward: on an enlarged line a pixel of the page is several of the engine's,
                // and a box rounded inward leaves the glyph's edge unmasked.
                const int left = static_cast<int>(std::floor(l / scale)),
                          top = static_cast<int>(std::floor(t / scale));
                const cv::Rect glyph(origin.x + left, origin.y + top,
                                     static_cast<int>(std::ceil(r / scale)) - left,
                                     static_cast<int>(std::ceil(b / scale)) - top);
                word.box = word.glyphs.empty() ? glyph : (word.box | glyph);
                word.glyphs.emplace_back(symbol.get(), glyph);
                word.confidence += std::clamp(it->Confidence(tesseract::RIL_SYMBOL) / 100.0f, 0.0f, 1.0f);
                blank = blank && word.glyphs.back().first.find_first_not_of(" \t") == std::string::npos;
            } while (!it->IsAtFinalElement(tesseract::RIL_WORD, tesseract::RIL_SYMBOL) &&
                     it->Next(tesseract::RIL_SYMBOL));
            // The engine rates a word holding a run of zone fillers 0 however sure it is of each
            // character, so a zone's words are rated by their characters' mean.
            word.confidence =
                zone ? word.confidence / static_cast<float>(std::max<std::size_t>(1, word.glyphs.size()))
                     : std::clamp(it->Confidence(tesseract::RIL_WORD) / 100.0f, 0.0f, 1.0f);
            // Codes and pictures leave words of blanks with no character; they are no text.
            if (!blank) {
                words.push_back(std::move(word));
            }
        } while (!it->IsAtFinalElement(tesseract::RIL_TEXTLINE, tesseract::RIL_WORD) &&
                 it->Next(tesseract::RIL_WORD));
        if (!words.empty()) {
            lines.push_back(std::move(words));
        }
    } while (it->Next(tesseract::RIL_TEXTLINE));
    return lines;
}

// Fillers and characters of the zone's alphabet in a reading.
struct ZoneCount {
    int fillers = 0;
    int alphabet = 0;
    int all = 0;
};

ZoneCount zoneCount(const std::vector<Word>& words) {
    ZoneCount count;
    for (const Word& w : words) {
        for (const auto& glyph : w.glyphs) {
            const std::string& g = glyph.first;
            const bool filler = g == "<" || g == "\u00AB" || g == "\u2039";
            count.fillers += filler;
            count.alphabet += filler || (g.size() == 1 && (std::isupper(static_cast<unsigned char>(g[0])) ||
                                                           std::isdigit(static_cast<unsigned char>(g[0]))));
            count.all += 1;
        }
    }
    return count;
}

// Worth reading again as a zone line: a line read in the page's languages renders runs of fillers as
// letters ("KKKK") often enough that only the length and the alphabet of the line can be trusted.
bool zoneCandidate(const ZoneCount& count) {
    return count.fillers >= 2 || (count.all >= 20 && count.alphabet >= 0.8 * count.all);
}

// A line with two or more fillers is a machine-readable zone line. The Greek model reads the filler
// as a guillemet.
bool zoneLike(const std::vector<Word>& words) {
    std::size_t fillers = 0;
    for (const Word& w : words) {
        for (const auto& glyph : w.glyphs) {
            fillers += glyph.first == "<" || glyph.first == "\u00AB" || glyph.first == "\u2039";
        }
    }
    return fillers >= 2;
}

// Glyph boxes of words read from a level line, carried into the page's pixels.
void toPage(std::vector<Word>& words, const cv::Mat& affine) {
    auto map = [&](const cv::Rect& r) {
        std::vector<cv::Point2f> corners{cv::Point2f(r.x, r.y), cv::Point2f(r.x + r.width, r.y),
                                         cv::Point2f(r.x + r.width, r.y + r.height),
                                         cv::Point2f(r.x, r.y + r.height)};
        cv::transform(corners, corners, affine);
        return cv::boundingRect(corners);
    };
    for (Word& word : words) {
        for (auto& glyph : word.glyphs) {
            glyph.second = map(glyph.second);
        }
        word.box = map(word.box);
    }
}

// A detected line and what its reading says of it.
struct FoundLine {
    cv::Rect box; // the detector's line, axis-aligned, in the page's pixels
    ZoneCount count;
    double pitch = 0; // median distance between neighbouring characters, in the page's pixels
    bool zone = false;
    cv::RotatedRect line;  // the detector's line as found
    std::size_t index = 0; // its place among the detected lines
    bool passport = false; // a zone line read opening with a passport's document code, P
};

// A row of a machine-readable zone: the pieces the detector found on it, how far the zone reaches,
// and how many characters its lines hold.
struct ZoneRow {
    std::vector<std::size_t> pieces; // indices of detected lines
    cv::RotatedRect line;            // the whole row, from the zone's first character to its last
    int length = 0;                  // 30, 36 or 44; 0 when the pitch was never read
};

struct ZoneBand {
    std::vector<Box> boxes;
    std::vector<ZoneRow> rows;
};

// Rise along a detected line's long side, per pixel across.
double slope(const cv::RotatedRect& line) {
    std::array<cv::Point2f, 4> p;
    line.points(p.data());
    cv::Point2f along = cv::norm(p[1] - p[0]) >= cv::norm(p[2] - p[1]) ? p[1] - p[0] : p[2] - p[1];
    if (along.x < 0) {
        along = -along;
    }
    return along.x > 0 ? along.y / along.x : 0;
}

// The row through its pieces, tilted as the zone's pieces are, as tall as they are, reaching from
// `left` to `right`.
cv::RotatedRect rowLine(const std::vector<const FoundLine*>& pieces, double tilt, int left, int right) {
    std::vector<double> heights;
    double centre = 0;
    const double middle = (left + right) / 2.0;
    for (const FoundLine* f : pieces) {
        heights.push_back(TextDetector::shortSide(f->line));
        centre += f->line.center.y + tilt * (middle - f->line.center.x);
    }
    centre /= static_cast<double>(pieces.size());
    const double width = (right - left) * std::sqrt(1 + tilt * tilt);
    return cv::RotatedRect(
        cv::Point2f(static_cast<float>(middle), static_cast<float>(centre)),
        cv::Size2f(static_cast<float>(width), static_cast<float>(TextDetector::median(heights))),
        static_cast<float>(std::atan(tilt) * 180 / CV_PI));
}

// The zone's font is monospaced, so the distance from one character to the next is the same
// everywhere on its lines; the median is safe from a few merged or split glyphs.
double characterPitch(const std::vector<Word>& words) {
    std::vector<int> advances;
    for (const Word& w : words) {
        for (std::size_t i = 1; i < w.glyphs.size(); ++i) {
            advances.push_back(w.glyphs[i].second.x - w.glyphs[i - 1].second.x);
        }
    }
    return advances.size() < 5 ? 0 : TextDetector::median(std::move(advances));
}

// Zone lines are 30 to 44 characters with fillers among them; a piece of one that the detector cut
// off is a run of fillers.
void markZone(std::vector<FoundLine>& found) {
    for (FoundLine& f : found) {
        f.zone = (f.count.fillers >= 2 && f.count.all >= 20) || f.count.fillers >= 4;
    }
    // Rows of the zone the detector cut into pieces: whatever continues a zone line on its row, closer
    // than two line heights, belongs to it, however it was read; so does a piece as tall as it further
    // right, however far: nothing else is printed on a zone's rows, and the detector can miss a long
    // faint run of fillers before the closing piece, which the Latin model alone reads as letters.
    auto continues = [](const FoundLine& f, const FoundLine& z) {
        const int rise = std::min(f.box.br().y, z.box.br().y) - std::max(f.box.y, z.box.y);
        const int gap = std::max(f.box.x, z.box.x) - std::min(f.box.br().x, z.box.br().x);
        const bool closing =
            f.box.x >= z.box.br().x && std::abs(f.box.height - z.box.height) < 0.4 * z.box.height;
        return rise > 0.5 * std::min(f.box.height, z.box.height) && (gap < 2 * z.box.height || closing);
    };
    // Lines right above or below a zone line, as long and as tall, read mostly in the zone's alphabet;
    // one as wide as the zone line may have lost most of its characters to glare and still be one.
    auto stacked = [](const FoundLine& f, const FoundLine& z) {
        const int overlap = std::min(f.box.br().x, z.box.br().x) - std::max(f.box.x, z.box.x);
        const double rise = std::abs((f.box.y + f.box.height / 2.0) - (z.box.y + z.box.height / 2.0));
        const bool enough = f.count.all >= 15 || (f.count.all >= 8 && f.box.width > 0.8 * z.box.width);
        return enough && f.count.alphabet >= 0.8 * f.count.all &&
               overlap > 0.6 * std::min(f.box.width, z.box.width) && rise < 2.2 * z.box.height &&
               std::abs(f.box.height - z.box.height) < 0.4 * z.box.height;
    };
    for (bool grown = true; grown;) {
        grown = false;
        for (FoundLine& f : found) {
            if (f.zone) {
                continue;
            }
            for (const FoundLine& z : found) {
                if (z.zone && (continues(f, z) || stacked(f, z))) {
                    f.zone = grown = true;
                    break;
                }
            }
        }
    }
}

// The zone's lines as masks: lines stacked less than two line heights apart are one zone, and each
// of its lines reaches from the zone's leftmost character to its rightmost. The detector often stops
// short of a faint run of closing fillers, so a zone narrower than its lines' printed length (30
// characters on three lines, 36 or 44 on two, at the pitch its characters were read at) is widened
// to the right to that length.
ZoneBand zoneBand(std::vector<FoundLine> found, int cols, int rows) {
    std::erase_if(found, [](const FoundLine& f) { return !f.zone; });
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.box.y < b.box.y; });
    ZoneBand band;
    std::size_t start = 0;
    while (start < found.size()) {
        std::size_t end = start + 1;
        while (end < found.size() &&
               found[end].box.y - found[end - 1].box.br().y < 2 * found[end - 1].box.height) {
            ++end;
        }
        int left = cols, right = 0;
        std::vector<double> pitches, tilts;
        // Pieces of one row go together.
        std::vector<std::vector<const FoundLine*>> pieces;
        for (std::size_t i = start; i < end; ++i) {
            left = std::min(left, found[i].box.x);
            right = std::max(right, found[i].box.br().x);
            if (i == start || found[i].box.y >= found[i - 1].box.br().y - found[i - 1].box.height / 2) {
                pieces.emplace_back();
            }
            pieces.back().push_back(&found[i]);
            if (found[i].pitch > 0) {
                pitches.push_back(found[i].pitch);
            }
            tilts.push_back(slope(found[i].line));
        }
        const int rowCount = static_cast<int>(pieces.size());
        // Passports' zones are two lines of 44 characters (the two-line zone of 36 opens with A, C, I or
        // V), however much of them the detector found: a tilted Czech page's faint closing fillers and
        // check digits were found on neither line, and its zone measured 36.
        const auto first = std::min_element(pieces.front().begin(), pieces.front().end(),
                                            [](const auto* a, const auto* b) { return a->box.x < b->box.x; });
        const bool passport = rowCount == 2 && (*first)->passport;
        int length = 0;
        if (!pitches.empty()) {
            const double pitch = TextDetector::median(pitches);
            const double characters = (right - left) / pitch;
            length = rowCount >= 3 ? 30 : passport || characters > 38 ? 44 : characters > 31 ? 36 : 30;
            if (characters < length) {
                right = std::min(cols, left + static_cast<int>(std::ceil((length + 0.5) * pitch)));
            }
        }
        const double tilt = TextDetector::median(tilts);
        for (const auto& row : pieces) {
            ZoneRow zoneRow{{}, rowLine(row, tilt, left, right), length};
            for (const FoundLine* f : row) {
                zoneRow.pieces.push_back(f->index);
                band.boxes.push_back(normalised(std::max(0, left), std::max(0, f->box.y),
                                                std::min(cols, right), std::min(rows, f->box.br().y), cols,
                                                rows));
            }
            band.rows.push_back(std::move(zoneRow));
        }
        start = end;
    }
    return band;
}

// How steep the print's edges are against the contrast around them: at each pixel where ink meets
// ground, the grey step between its neighbours (Sobel, a quarter of its magnitude) over the range
// of grey within four pixels, the sharpest tenth of the line's edges taken. A step of print
// blurred by a Gaussian of sigma pixels gives about 0.8 / sigma, an ideal step 1, and print enlarged
// to the reading height less. The range is taken locally, so that a ground shaded from dark to light
// does not pass for soft print.
double edgeSteepness(const cv::Mat& grey) {
    constexpr int around = 9;    // pixels: the window of the local range
    constexpr double inked = 40; // grey levels of local range for a pixel to count as an edge
    cv::Mat gx, gy, magnitude, high, low;
    cv::Sobel(grey, gx, CV_32F, 1, 0);
    cv::Sobel(grey, gy, CV_32F, 0, 1);
    cv::magnitude(gx, gy, magnitude);
    const cv::Mat window = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(around, around));
    cv::dilate(grey, high, window);
    cv::erode(grey, low, window);
    std::vector<float> ratios;
    for (int y = 1; y < grey.rows - 1; ++y) {
        for (int x = 1; x < grey.cols - 1; ++x) {
            const int range = high.at<std::uint8_t>(y, x) - low.at<std::uint8_t>(y, x);
            if (range >= inked) {
                ratios.push_back(magnitude.at<float>(y, x) / 4 / static_cast<float>(range));
            }
        }
    }
    if (ratios.size() < 20) {
        return 1;
    }
    const auto tenth = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() * 9 / 10);
    std::nth_element(ratios.begin(), tenth, ratios.end());
    return *tenth;
}

// Soft edges made steep: twice the image's difference from a blur of `sigma` pixels added, and again.
// The engines binarise first, and a soft edge binarises into strokes that run together.
void steepen(cv::Mat& grey, double sigma) {
    for (int pass = 0; pass < 2; ++pass) {
        cv::Mat soft;
        cv::GaussianBlur(grey, soft, cv::Size(), sigma);
        cv::addWeighted(grey, 3, soft, -2, 0, grey);
    }
}

// A zone row read by the zone's own reader, its cells as glyph boxes in the page's pixels; none when
// the row cannot be cut into its characters.
std::optional<Word> readZoneRow(const cv::Mat& page, const ZoneRow& row) {
    if (row.length == 0) {
        return std::nullopt;
    }
    // Half a line more above and below than the detector's box: the reader finds the line's own rows.
    cv::RotatedRect line = row.line;
    line.size.height *= 1.5f;
    const TextDetector::LevelLine level = TextDetector::level(page, line);
    if (level.image.empty()) {
        return std::nullopt;
    }
    cv::Mat grey;
    cv::cvtColor(level.image, grey, cv::COLOR_RGB2GRAY);
    // Blur is judged as on a page's line, at the height lines are read (the row's box is half a line
    // taller here), and the row is steepened at its own size, which the reader's cells refer to.
    const double lineScale = 1.5 * lineHeight / grey.rows;
    cv::Mat sized;
    cv::resize(grey, sized, cv::Size(), lineScale, lineScale,
               lineScale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
    if (edgeSteepness(sized) < blurredEdges) {
        steepen(grey, 2 / lineScale);
    }
    const std::optional<ZoneReader::Reading> reading = ZoneReader::read(grey, row.length);
    if (!reading) {
        return std::nullopt;
    }
    Word word;
    for (std::size_t i = 0; i < reading->text.size(); ++i) {
        word.glyphs.emplace_back(std::string(1, reading->text[i]), reading->cells[i]);
        word.box = i == 0 ? reading->cells[i] : (word.box | reading->cells[i]);
        word.confidence += reading->confidence[i];
    }
    word.confidence /= static_cast<float>(reading->text.size());
    std::vector<Word> words{std::move(word)};
    toPage(words, level.toPage);
    const cv::Rect bounds(0, 0, page.cols, page.rows);
    for (auto& glyph : words.front().glyphs) {
        glyph.second &= bounds;
    }
    words.front().box &= bounds;
    return std::move(words.front());
}

// Mean confidence of a reading's words; 0 for none.
float meanConfidence(const std::vector<Word>& words) {
    float sum = 0;
    for (const Word& w : words) {
        sum += w.confidence;
    }
    return words.empty() ? 0 : sum / static_cast<float>(words.size());
}

// The rows of a line image that hold its print: the tallest run of rows with ink.
std::pair<int, int> inkRows(const cv::Mat& grey) {
    const auto runs = TextDetector::inkRuns(grey);
    if (runs.empty()) {
        return {0, grey.rows};
    }
    return *std::max_element(runs.begin(), runs.end(), [](const auto& a, const auto& b) {
        return a.second - a.first < b.second - b.first;
    });
}

// The share of a line image's width that a reading's words span.
double span(const std::vector<Word>& words, int width) {
    if (words.empty()) {
        return 0;
    }
    int left = words.front().box.x, right = left;
    for (const Word& word : words) {
        left = std::min(left, word.box.x);
        right = std::max(right, word.box.x + word.box.width);
    }
    return static_cast<double>(right - left) / width;
}

// How well Otsu's threshold parts an image into two classes: their between-class variance.
double separation(const cv::Mat& grey) {
    cv::Mat upper;
    const double t = cv::threshold(grey, upper, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    const double n = static_cast<double>(grey.total()), high = cv::countNonZero(upper) / n;
    if (high <= 0 || high >= 1) {
        return 0;
    }
    const double above = cv::mean(grey, upper)[0], below = cv::mean(grey, grey <= t)[0];
    return high * (1 - high) * (above - below) * (above - below);
}

// Letters of a word by script: Latin, and the other two scripts the page's models read.
struct Scripts {
    int latin = 0;
    int foreign = 0;

    Scripts& operator+=(const Scripts& other) {
        latin += other.latin;
        foreign += other.foreign;
        return *this;
    }
};

Scripts scripts(const Word& word) {
    Scripts count;
    for (const auto& glyph : word.glyphs) {
        const icu::UnicodeString text = icu::UnicodeString::fromUTF8(glyph.first);
        for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
            UErrorCode status = U_ZERO_ERROR;
            const UScriptCode script = uscript_getScript(text.char32At(i), &status);
            count.latin += script == USCRIPT_LATIN;
            count.foreign += script == USCRIPT_CYRILLIC || script == USCRIPT_GREEK;
        }
    }
    return count;
}

// Read by the three models together, Latin print now and then comes back as a word in Cyrillic or
// Greek letters, a look-alike reading that won on certainty ("DISTRICT ок COLUMBIA", "Зех/ Sexe",
// "07 DEC /0ЕС 84"); a caption or a month so read is no longer one. On a page whose letters are
// mostly Latin, or in a line that is, such words are read again by the Latin model alone and take
// that reading. A page printed in two scripts (a Russian or Greek document's bilingual captions) is
// under these shares, and its lines in the other script keep it.
constexpr double latinPage = 0.8;
constexpr double latinLine = 0.6;
// A page whose first lines in reading order hold at least this many letters, at least this share of
// them Latin, is Latin print; a bilingual document's first lines are far from it. So is a page
// with a smaller Latin share whose Cyrillic and Greek letters all stand in short or unsure words:
// Latin print over a security pattern comes back from the three models with look-alikes such as
// "Мое", "Νόρο" or "ЗАМОФАУ" read at 0.0-0.5 (down to 67% Latin on the real specimens), while the
// first lines of every Cyrillic or Greek document generated held a word of three letters or more of
// its script read at 0.8 or surer (a Greek licence's name among Latin captions, say). The first
// half of the sample decides alone when it is Latin print already.
constexpr std::size_t sampleLines = 8;
constexpr int sampleLetters = 20;
constexpr double latinSample = 0.9;
constexpr double latinWithLookAlikes = 0.6;
constexpr int foreignWordLetters = 3;
constexpr float sureForeignWord = 0.8f;

Scripts scripts(const std::vector<Word>& words) {
    Scripts total;
    for (const Word& word : words) {
        total += scripts(word);
    }
    return total;
}

bool mostlyLatin(const Scripts& count, double share) {
    return count.latin > 0 && count.latin >= share * (count.latin + count.foreign);
}

// The width two boxes share across.
int sharedWidth(const cv::Rect& a, const cv::Rect& b) {
    return std::min(a.x + a.width, b.x + b.width) - std::max(a.x, b.x);
}

// Each word of the Latin reading goes to the word of the first reading it shares most of its width
// with (the nearer middle deciding a tie); a foreign word that receives any is replaced by them, and
// one that receives none stays as it is.
void settleInLatin(std::vector<Word>& words, const std::vector<Word>& latin) {
    std::vector<char> foreign(words.size());
    for (std::size_t i = 0; i < words.size(); ++i) {
        foreign[i] = scripts(words[i]).foreign > 0;
    }
    std::vector<std::vector<const Word*>> received(words.size());
    for (const Word& other : latin) {
        std::size_t best = words.size();
        int bestShared = 0;
        double bestApart = 0;
        for (std::size_t i = 0; i < words.size(); ++i) {
            const cv::Rect& box = words[i].box;
            const int shared = sharedWidth(box, other.box);
            const double apart = std::abs((box.x + box.width / 2.0) - (other.box.x + other.box.width / 2.0));
            if (shared > bestShared || (shared == bestShared && shared > 0 && apart < bestApart)) {
                best = i;
                bestShared = shared;
                bestApart = apart;
            }
        }
        if (best < words.size() && 2 * bestShared > other.box.width) {
            received[best].push_back(&other);
        }
    }
    // A Latin word that the words taken over reach across ("16HGT5-09" for "16нНСТ" and "5-09") goes,
    // or it would be read twice.
    auto takenOver = [&](const cv::Rect& box) {
        int covered = 0;
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (!foreign[i]) {
                continue;
            }
            for (const Word* other : received[i]) {
                covered += std::max(0, sharedWidth(box, other->box));
            }
        }
        return 2 * covered > box.width;
    };
    std::vector<Word> settled;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (foreign[i] && !received[i].empty()) {
            for (const Word* other : received[i]) {
                settled.push_back(*other);
            }
        } else if (foreign[i] || !takenOver(words[i].box)) {
            settled.push_back(std::move(words[i]));
        }
    }
    words = std::move(settled);
}

// Whether a line's print is lighter than the ground beside it (white letters on a dark band): each
// column's ground is taken from the line's top and bottom rows, its margins, and the pixels well apart
// from it vote. A ground shading from dark to light along the line does not sway it, as a threshold
// over the whole line would be.
bool lightPrint(const cv::Mat& grey) {
    constexpr int apart = 40;
    const int margin = std::max(1, grey.rows / 10);
    long lighter = 0, darker = 0;
    for (int x = 0; x < grey.cols; ++x) {
        int ground = 0;
        for (int y = 0; y < margin; ++y) {
            ground += grey.at<std::uint8_t>(y, x) + grey.at<std::uint8_t>(grey.rows - 1 - y, x);
        }
        ground /= 2 * margin;
        for (int y = margin; y < grey.rows - margin; ++y) {
            const int d = grey.at<std::uint8_t>(y, x) - ground;
            lighter += d > apart;
            darker += d < -apart;
        }
    }
    return lighter > darker;
}

// A grey line image with its ink turned dark, the way the engine reads: ink is the smaller of Otsu's
// two classes.
void darkInk(cv::Mat& grey) {
    cv::Mat upper;
    cv::threshold(grey, upper, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    if (2 * static_cast<std::size_t>(cv::countNonZero(upper)) < upper.total()) {
        cv::bitwise_not(grey, grey);
    }
}

// A line's reading, its glyph boxes in the pixels of the line image it was read from (`toPage` carries
// them into the page's), with that image as the engine saw it.
struct LineReading {
    std::vector<Word> words;
    cv::Mat image;
    double scale = 1;
};

// The words of a line image as sized for the engine, in the line's own pixels (`scale` undone).
std::vector<Word> readImage(tesseract::TessBaseAPI& engine, const cv::Mat& image, double scale) {
    engine.SetImage(image.data, image.cols, image.rows, 1, static_cast<int>(image.step));
    engine.SetSourceResolution(300);
    std::vector<Word> words;
    if (engine.Recognize(nullptr) != 0) {
        return words;
    }
    for (std::vector<Word>& part : textLines(engine, false, {}, scale)) {
        std::move(part.begin(), part.end(), std::back_inserter(words));
    }
    // The engine now and then gives a character a box from the top of the image to its bottom,
    // margins and all; lines set close together then seem to overlap. No box reaches past the
    // line's print.
    const auto [top, bottom] = inkRows(image);
    const int slack = image.rows / 24; // anti-aliased edges fall under Otsu's threshold
    const int first = static_cast<int>(std::floor((top - slack) / scale)),
              last = static_cast<int>(std::ceil((bottom + slack) / scale));
    for (Word& word : words) {
        for (auto& [text, glyph] : word.glyphs) {
            const int y0 = std::max(glyph.y, first), y1 = std::min(glyph.y + glyph.height, last);
            if (y1 > y0) {
                glyph.y = y0;
                glyph.height = y1 - y0;
            }
        }
        word.box = word.glyphs.front().second;
        for (const auto& glyph : word.glyphs) {
            word.box |= glyph.second;
        }
    }
    return words;
}

// A level line read alone at `height` pixels.
LineReading readLine(tesseract::TessBaseAPI& engine, const TextDetector::LevelLine& level, int height) {
    const double scale = static_cast<double>(height) / level.image.rows;
    cv::Mat grey, sized;
    cv::cvtColor(level.image, grey, cv::COLOR_RGB2GRAY);
    cv::resize(grey, sized, cv::Size(std::max(1, static_cast<int>(std::lround(grey.cols * scale))), height),
               0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
    auto read = [&](const cv::Mat& image) { return readImage(engine, image, scale); };
    // Print out of focus (its edges far softer than its contrast) is read with its edges steepened.
    if (edgeSteepness(sized) < blurredEdges) {
        steepen(sized, 2);
    }
    std::vector<Word> words = read(sized);
    cv::Mat kept = sized;
    // A weak reading (unsure, or explaining only part of what the detector found) is read again, the
    // surer reading kept: sharpened and stretched to full contrast, since blurred, low-contrast print
    // (a photo of a card's small values on a tinted ground) often gives the engine's binarisation
    // nothing to read; light print on a dark band turned dark; and in one colour channel (below).
    // The engine's own inverted second look is not asked for: it is two more passes of its network
    // on every weak line, and it masked no field of either set that these readings do not.
    // A line already read as a zone line is read again by the zone's own reader; the page's models'
    // second readings would be wasted on it (27 of the real set's weak lines, among its widest).
    if ((meanConfidence(words) < weakReading || span(words, level.image.cols) < weakSpan) &&
        !zoneLike(words)) {
        auto keepSurer = [&](const cv::Mat& image) {
            std::vector<Word> again = read(image);
            if (meanConfidence(again) > meanConfidence(words)) {
                words = std::move(again);
                kept = image;
            }
        };
        if (lightPrint(sized)) {
            cv::Mat inverted;
            cv::bitwise_not(sized, inverted);
            keepSurer(inverted);
        }
        cv::Mat blurred, sharp;
        cv::GaussianBlur(sized, blurred, cv::Size(), 3);
        cv::addWeighted(sized, 2.0, blurred, -1.0, 0, sharp);
        cv::normalize(sharp, sharp, 0, 255, cv::NORM_MINMAX);
        keepSurer(sharp);
        // Coloured print on a coloured ground (a state's name in red over a pale blue pattern) can
        // lose its contrast in grey; the colour channel that parts ink from ground best is read too,
        // unless a reading so far is sure enough already.
        if (meanConfidence(words) < weakReading) {
            cv::Mat colour;
            cv::resize(level.image, colour, sized.size(), 0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
            std::vector<cv::Mat> channels;
            cv::split(colour, channels);
            std::vector<double> parted;
            for (const cv::Mat& channel : channels) {
                parted.push_back(separation(channel));
            }
            const auto best = std::max_element(parted.begin(), parted.end());
            if (*best > separation(sized)) {
                // A red name is light in the red channel.
                cv::Mat& chosen = channels[best - parted.begin()];
                darkInk(chosen);
                keepSurer(chosen);
            }
        }
    }
    return LineReading{std::move(words), kept, scale};
}

// The Latin model reads many of OCR-B's fillers as "K". The two differ where a reader looks first: a
// K stands on a stem as tall as the glyph, a filler touches its left edge only at its tip. A "K" whose
// leftmost fifth holds ink on less than this share of its rows is a filler.
constexpr double stemRows = 0.55;

void fillersFromK(const cv::Mat& page, std::vector<Word>& words) {
    for (Word& word : words) {
        for (auto& [text, box] : word.glyphs) {
            const cv::Rect glyph = box & cv::Rect(0, 0, page.cols, page.rows);
            if (text != "K" || glyph.width < 3 || glyph.height < 5) {
                continue;
            }
            cv::Mat grey, ink;
            cv::cvtColor(page(glyph), grey, cv::COLOR_RGB2GRAY);
            cv::threshold(grey, ink, 0, 255, cv::THRESH_BINARY_INV | cv::THRESH_OTSU);
            const cv::Mat stem = ink(cv::Rect(0, 0, std::max(1, glyph.width / 5), glyph.height));
            cv::Mat rowsWithInk;
            cv::reduce(stem, rowsWithInk, 1, cv::REDUCE_MAX);
            if (cv::countNonZero(rowsWithInk) < stemRows * glyph.height) {
                text = "<";
            }
        }
    }
}

// Small print read over a pattern often loses a date's points to colons, semicolons or commas
// ("06:09:2076", "06:09,2006" on the real specimens), and the date is then no date to the field
// detector. Two digits, two digits and four, parted by such marks, are a date written with points.
void datePoints(std::vector<Word>& words) {
    auto digit = [](const std::string& g) { return g.size() == 1 && g[0] >= '0' && g[0] <= '9'; };
    auto mark = [](const std::string& g) { return g == "." || g == ":" || g == ";" || g == ","; };
    constexpr std::array<char, 10> form{'d', 'd', 'm', 'd', 'd', 'm', 'd', 'd', 'd', 'd'};
    for (Word& word : words) {
        auto& glyphs = word.glyphs;
        for (std::size_t i = 0; i + form.size() <= glyphs.size(); ++i) {
            bool fits = (i == 0 || !digit(glyphs[i - 1].first)) &&
                        (i + form.size() == glyphs.size() || !digit(glyphs[i + form.size()].first));
            for (std::size_t k = 0; fits && k < form.size(); ++k) {
                fits = form[k] == 'd' ? digit(glyphs[i + k].first) : mark(glyphs[i + k].first);
            }
            if (fits) {
                glyphs[i + 2].first = glyphs[i + 5].first = ".";
            }
        }
    }
}

// Zone lines are printed in OCR-B, which the page's models read poorly, the more so with Cyrillic
// loaded (its look-alikes win). The zone's alphabet is known and Latin, so such a line is read once
// more on its own, by a Latin model held to that alphabet, at the height it reads best. The page's
// reading is kept unless the zone reading still looks like a zone. `latin` is the reading thread's
// own Latin engine, held to the alphabet for this one reading only: a third and fourth engine, kept
// for zones alone, cost a one-page process 0.14 processor-seconds of loading.
std::vector<Word> zoneLine(tesseract::TessBaseAPI& latin, const cv::Mat& page, std::vector<Word> words) {
    cv::Rect box = words.front().box;
    for (const Word& w : words) {
        box |= w.box;
    }
    const int margin = box.height / 4;
    const cv::Rect crop =
        cv::Rect(box.x - margin, box.y - margin, box.width + 2 * margin, box.height + 2 * margin) &
        cv::Rect(0, 0, page.cols, page.rows);
    if (crop.empty()) {
        return words;
    }
    const double scale = static_cast<double>(zoneHeight) / crop.height;
    cv::Mat grey, sized;
    cv::cvtColor(page(crop), grey, cv::COLOR_RGB2GRAY);
    cv::resize(grey, sized, cv::Size(), scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    latin.SetVariable("tessedit_char_whitelist", "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789<");
    latin.SetImage(sized.data, sized.cols, sized.rows, 1, static_cast<int>(sized.step));
    std::vector<std::vector<Word>> read;
    if (latin.Recognize(nullptr) == 0) {
        read = textLines(latin, true, crop.tl(), scale);
    }
    // An empty list lets every character through again, as before the reading.
    latin.SetVariable("tessedit_char_whitelist", "");
    if (read.size() == 1 && zoneLike(read.front())) {
        fillersFromK(page, read.front());
        return std::move(read.front());
    }
    return words;
}

// A spaced run is a number when at least this many of its characters read as digits, one way up or
// the other: nothing on the page tells which end it starts from, and turned over its digits read as
// letters. A run of fillers, stars or a pattern's dots reads none.
constexpr int runDigits = 2;

// Where numbers printed character by character, apart from every detected line, stand on the page.
std::vector<Box> spacedNumbers(const cv::Mat& page, const std::vector<cv::RotatedRect>& detected) {
    std::vector<Box> found;
    const std::vector<TextDetector::SpacedRun> runs = TextDetector::spacedRuns(page, detected);
    if (runs.empty()) {
        return found;
    }
    Engine engine = pool().take("eng");
    engine->SetPageSegMode(tesseract::PSM_SINGLE_LINE);
    auto digits = [&](const cv::Mat& image) {
        engine->SetImage(image.data, image.cols, image.rows, 1, static_cast<int>(image.step));
        engine->SetSourceResolution(300);
        const std::unique_ptr<char[]> text(engine->GetUTF8Text());
        const std::string_view read = text ? text.get() : "";
        return std::count_if(read.begin(), read.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    for (const TextDetector::SpacedRun& run : runs) {
        const double scale = static_cast<double>(lineHeight) / run.image.rows;
        cv::Mat sized, over;
        cv::resize(run.image, sized, cv::Size(), scale, scale, cv::INTER_CUBIC);
        cv::rotate(sized, over, cv::ROTATE_180);
        if (std::max(digits(sized), digits(over)) >= runDigits) {
            // Half a mark past its ends and sides: the marks' boxes hug the ink.
            const int margin = run.image.rows / 2;
            const cv::Rect box = cv::Rect(run.box.x - margin, run.box.y - margin, run.box.width + 2 * margin,
                                          run.box.height + 2 * margin) &
                                 cv::Rect(0, 0, page.cols, page.rows);
            found.push_back(
                normalised(box.x, box.y, box.x + box.width, box.y + box.height, page.cols, page.rows));
        }
    }
    pool().give("eng", std::move(engine));
    return found;
}

struct TextResult {
    std::vector<Line> lines;
    std::vector<Box> zones;
    std::vector<Box> spacedNumbers;
};

TextResult recognizeText(const Bitmap& image, const std::string& languages, int readers) {
    const cv::Mat page = reduced(image, recognitionSide);
    // Tesseract's own page analysis loses most of a document's lines in its security printing; the
    // detector finds them, and each is read alone, by `readers` engines taking lines in turn. Lines
    // are independent readings, so the result does not depend on how many read them.
    std::vector<cv::RotatedRect> detected;
    for (const cv::RotatedRect& found : TextDetector::lines(page, detectionSide)) {
        const std::vector<cv::RotatedRect> printed = TextDetector::printedLines(page, found);
        detected.insert(detected.end(), printed.begin(), printed.end());
    }
    // Lines standing on end are judged here, before the readers start: the direction classifier is
    // then loaded on this thread only.
    std::vector<char> overturned(detected.size());
    for (std::size_t i = 0; i < detected.size(); ++i) {
        overturned[i] = TextDetector::levelsUpsideDown(page, detected[i]);
    }
    std::vector<LineReading> readings(detected.size());
    std::vector<cv::Mat> toPages(detected.size());
    // `work(engine, i)` for every line i from `from` to before `to`, by `threads` threads taking lines
    // in turn; `engine(models)` gives the thread's engine of those models, taken when first asked for.
    auto shared = [&](const auto& work, std::size_t from, std::size_t to, int threads) {
        to = std::min(to, detected.size());
        std::atomic<std::size_t> next{from};
        auto read = [&] {
            std::map<std::string, Engine> engines;
            auto engine = [&](const std::string& models) -> tesseract::TessBaseAPI& {
                Engine& taken = engines[models];
                if (!taken) {
                    taken = pool().take(models);
                    taken->SetPageSegMode(tesseract::PSM_SINGLE_LINE);
                }
                return *taken;
            };
            for (std::size_t i = next++; i < to; i = next++) {
                work(engine, i);
            }
            for (auto& [models, taken] : engines) {
                pool().give(models, std::move(taken));
            }
        };
        // The helpers' futures wait for them on every way out of this block, exceptions included.
        std::vector<std::future<void>> helpers;
        for (int r = 1; r < threads; ++r) {
            helpers.push_back(std::async(std::launch::async, read));
        }
        read();
        for (auto& helper : helpers) {
            helper.get();
        }
    };
    std::string readWith = languages;
    auto readFirst = [&](const auto& engine, std::size_t i) {
        TextDetector::LevelLine level = TextDetector::level(page, detected[i]);
        if (level.image.empty()) {
            return;
        }
        if (overturned[i]) {
            level = TextDetector::turnedOver(level);
        }
        readings[i] = readLine(engine(readWith), level, lineHeight);
        toPages[i] = level.toPage;
    };
    // Only where the Latin model is one of several read together.
    const bool mixed = languages.find("eng") != std::string::npos && languages.find('+') != std::string::npos;
    // The page's first lines are read by every model; when they are Latin print, so is the rest of the
    // page, by the Latin model alone. The others would only be asked about its doubtful words, at the
    // price of a reading each, and what they answer there is look-alikes that are read again in Latin.
    auto latinPrint = [&](std::size_t lines) {
        Scripts sampled;
        bool foreignWords = false;
        for (std::size_t i = 0; i < std::min(lines, readings.size()); ++i) {
            for (const Word& word : readings[i].words) {
                const Scripts count = scripts(word);
                sampled += count;
                foreignWords |= count.foreign >= foreignWordLetters && word.confidence >= sureForeignWord;
            }
        }
        return sampled.latin >= sampleLetters &&
               (mostlyLatin(sampled, latinSample) ||
                (mostlyLatin(sampled, latinWithLookAlikes) && !foreignWords));
    };
    // The first lines are read by one reader: a second engine of every model would take longer to
    // load than those few lines take to read, and on a Latin page it would read nothing else. The face
    // search, beside, keeps the other core busy meanwhile.
    std::size_t sampledLines = 0;
    for (const auto& [lines, threads] : {std::pair{sampleLines / 2, 1}, std::pair{sampleLines, readers}}) {
        shared(readFirst, sampledLines, lines, threads);
        sampledLines = lines;
        if (mixed && latinPrint(lines)) {
            readWith = "eng";
            break;
        }
    }
    shared(readFirst, sampledLines, detected.size(), readers);
    std::vector<Scripts> lineScripts;
    Scripts pageScripts;
    for (const LineReading& reading : readings) {
        pageScripts += lineScripts.emplace_back(scripts(reading.words));
    }
    auto settle = [&](const auto& engine, std::size_t i) {
        std::vector<Word>& words = readings[i].words;
        const Scripts& count = lineScripts[i];
        if (mixed && count.foreign > 0 &&
            (mostlyLatin(pageScripts, latinPage) || mostlyLatin(count, latinLine))) {
            settleInLatin(words, readImage(engine("eng"), readings[i].image, readings[i].scale));
        }
        toPage(words, toPages[i]);
        if (!words.empty() && zoneCandidate(zoneCount(words))) {
            words = zoneLine(engine("eng"), page, std::move(words));
        }
    };
    shared(settle, 0, detected.size(), readers);
    // Each detected line's reading, as lines of text; a zone row read by the zone's reader takes the
    // place of its pieces, at the place of the first.
    std::vector<std::vector<Line>> lines(detected.size());
    std::vector<FoundLine> found;
    for (std::size_t i = 0; i < detected.size(); ++i) {
        std::vector<Word>& words = readings[i].words;
        if (words.empty()) {
            continue;
        }
        const cv::Rect box = detected[i].boundingRect() & cv::Rect(0, 0, page.cols, page.rows);
        if (zoneLike(words)) {
            found.push_back(FoundLine{box, zoneCount(words), characterPitch(words), false, detected[i], i,
                                      words.front().glyphs.front().first == "P"});
            lines[i].push_back(line(words, page.cols, page.rows));
            continue;
        }
        found.push_back(FoundLine{box, zoneCount(words), 0, false, detected[i], i});
        datePoints(words);
        for (const auto& piece : columns(words)) {
            lines[i].push_back(line(piece, page.cols, page.rows));
        }
    }
    markZone(found);
    ZoneBand band = zoneBand(std::move(found), page.cols, page.rows);
    std::vector<std::pair<std::size_t, Word>> rows;
    for (const ZoneRow& row : band.rows) {
        if (std::optional<Word> read = readZoneRow(page, row)) {
            for (std::size_t piece : row.pieces) {
                lines[piece].clear();
            }
            // Pieces of the row that did not read as zone text (under glare, say) are the row too.
            for (std::size_t i = 0; i < detected.size(); ++i) {
                const cv::Rect box = detected[i].boundingRect();
                if ((box & read->box).area() > 0.6 * box.area()) {
                    lines[i].clear();
                }
            }
            rows.emplace_back(*std::min_element(row.pieces.begin(), row.pieces.end()), std::move(*read));
        }
    }
    for (auto& [first, read] : rows) {
        lines[first].push_back(line({std::move(read)}, page.cols, page.rows));
    }
    TextResult result;
    for (auto& piece : lines) {
        std::move(piece.begin(), piece.end(), std::back_inserter(result.lines));
    }
    result.zones = std::move(band.boxes);
    result.spacedNumbers = spacedNumbers(page, detected);
    return result;
}

// A ghost portrait, the small pale copy of the photo printed beside it, is often too faint for the
// cascade; but it is the same picture, so the largest face is looked for again, smaller. On the real
// specimens and the generated cards ghosts were 0.28 to 0.49 of the face and matched it at 0.81 or
// more on a 640-pixel copy; nothing else on any of their pages reached 0.8.
std::vector<cv::Rect> ghostsOf(const cv::Mat& grey, const std::vector<cv::Rect>& faces) {
    // The portrait at least 7.5% of the page's side: a smaller one's ghosts would be patterns of under
    // 12 pixels on the copy searched.
    constexpr int smallestTemplate = faceSide * 3 / 40;
    constexpr double searchSide = 640, smallest = 0.25, largest = 0.56, step = 1.12;
    constexpr double likeness = 0.8;
    const auto face = std::max_element(
        faces.begin(), faces.end(), [](const cv::Rect& a, const cv::Rect& b) { return a.area() < b.area(); });
    if (face == faces.end() || face->width < smallestTemplate) {
        return {};
    }
    const double shrink = std::min(1.0, searchSide / std::max(grey.cols, grey.rows));
    cv::Mat page;
    cv::resize(grey, page, cv::Size(), shrink, shrink, cv::INTER_AREA);
    std::vector<std::pair<double, cv::Rect>> matches;
    for (double k = smallest; k <= largest; k *= step) {
        const int side = static_cast<int>(std::lround(face->width * shrink * k));
        cv::Mat pattern, score;
        cv::resize(grey(*face & cv::Rect(0, 0, grey.cols, grey.rows)), pattern, cv::Size(side, side), 0, 0,
                   cv::INTER_AREA);
        cv::matchTemplate(page, pattern, score, cv::TM_CCOEFF_NORMED);
        for (int n = 0; n < 3; ++n) {
            double best = 0;
            cv::Point at;
            cv::minMaxLoc(score, nullptr, &best, nullptr, &at);
            if (best < likeness) {
                break;
            }
            matches.emplace_back(best,
                                 cv::Rect(static_cast<int>(at.x / shrink), static_cast<int>(at.y / shrink),
                                          static_cast<int>(side / shrink), static_cast<int>(side / shrink)));
            cv::rectangle(score, cv::Rect(at.x - side, at.y - side, 2 * side, 2 * side), cv::Scalar(-1),
                          cv::FILLED);
        }
    }
    std::sort(matches.begin(), matches.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    // A match on a face already found (the portrait itself, or a ghost the cascade saw) adds nothing.
    std::vector<cv::Rect> taken = faces, ghosts;
    for (const auto& match : matches) {
        const cv::Rect& r = match.second;
        const bool apart = std::none_of(taken.begin(), taken.end(), [&](const cv::Rect& t) {
            const cv::Rect head(t.x - t.width / 2, t.y - t.height / 2, 2 * t.width, 2 * t.height);
            return (head & r).area() > 0;
        });
        if (apart) {
            taken.push_back(r);
            ghosts.push_back(r);
        }
    }
    return ghosts;
}

} // namespace

std::vector<Box> detectFaces(const Bitmap& image) {
    auto loaded = [](cv::CascadeClassifier& cascade, const char* name) -> cv::CascadeClassifier& {
        const fs::path file = fs::path("/usr/share/opencv4/haarcascades") / name;
        if (cascade.empty() && !cascade.load(file.string())) {
            throw RecognitionError("face detection could not load " + file.string());
        }
        return cascade;
    };
    thread_local cv::CascadeClassifier first, second;
    cv::CascadeClassifier& cascade = loaded(first, "haarcascade_frontalface_alt2.xml");
    const double scale = static_cast<double>(faceSide) / std::max(image.width, image.height);
    cv::Mat sized;
    cv::resize(wrap(image), sized, cv::Size(), scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    cv::Mat grey;
    cv::cvtColor(sized, grey, cv::COLOR_RGB2GRAY);
    // Local contrast rather than a whole-image histogram: a pale card page stretched as a whole
    // washes the portrait out, and the cascade then misses most faces on flat scans.
    cv::createCLAHE(2.0, cv::Size(8, 8))->apply(grey, grey);
    std::vector<cv::Rect> found;
    // Six neighbours keep guilloche patterns and lettering from passing for faces.
    cascade.detectMultiScale(grey, found, 1.1, 6, 0, cv::Size(smallestFace, smallestFace));
    // A page where it finds none is searched once more by OpenCV's other frontal cascade, which finds
    // portraits photographed in hand, tilted and lit unevenly, that this one misses.
    if (found.empty()) {
        loaded(second, "haarcascade_frontalface_default.xml")
            .detectMultiScale(grey, found, 1.1, 6, 0, cv::Size(smallestPortrait, smallestPortrait));
    }
    // The cascade's threads hand their finds back in whatever order they finish; a page gives the
    // same list on one core or two.
    std::sort(found.begin(), found.end(), [](const cv::Rect& a, const cv::Rect& b) {
        return std::tie(a.y, a.x, a.width, a.height) < std::tie(b.y, b.x, b.width, b.height);
    });
    for (const cv::Rect& ghost : ghostsOf(grey, found)) {
        found.push_back(ghost);
    }
    // The cascade frames the face from brows to mouth; a portrait hidden as a person expects hides
    // the head. On the real specimens the printed portrait's face reached up to 0.30 of the box's
    // height above it, 0.36 below and 0.32 of its width aside; hair, jaw and ears go further.
    constexpr double aside = 0.35, above = 0.6, below = 0.4;
    std::vector<Box> faces;
    for (const cv::Rect& r : found) {
        const int left = std::max(0, static_cast<int>(r.x - aside * r.width));
        const int right = std::min(grey.cols, static_cast<int>(r.x + (1 + aside) * r.width));
        const int top = std::max(0, static_cast<int>(r.y - above * r.height));
        const int bottom = std::min(grey.rows, static_cast<int>(r.y + (1 + below) * r.height));
        faces.push_back(normalised(left, top, right, bottom, grey.cols, grey.rows));
    }
    return faces;
}

std::vector<Box> detectBarcodes(const Bitmap& image) {
    const ZXing::ImageView view(image.pixels.data(), image.width, image.height, ZXing::ImageFormat::RGB,
                                static_cast<int>(image.rowBytes()));
    const ZXing::DecodeHints hints = ZXing::DecodeHints().setTryHarder(true).setTryRotate(true);
    std::vector<cv::Rect> found;
    auto read = [&](const ZXing::DecodeHints& how) {
        for (const ZXing::Result& result : ZXing::ReadBarcodes(view, how)) {
            const ZXing::Position& p = result.position();
            int left = image.width, top = image.height, right = 0, bottom = 0;
            for (int i = 0; i < 4; ++i) {
                left = std::min(left, p[i].x);
                right = std::max(right, p[i].x);
                top = std::min(top, p[i].y);
                bottom = std::max(bottom, p[i].y);
            }
            left = std::clamp(left, 0, image.width);
            right = std::clamp(right + 1, 0, image.width);
            top = std::clamp(top, 0, image.height);
            bottom = std::clamp(bottom + 1, 0, image.height);
            const cv::Rect box(left, top, right - left, bottom - top);
            const bool known = std::any_of(found.begin(), found.end(), [&](const cv::Rect& f) {
                return (f & box).area() > 0.5 * std::min(f.area(), box.area());
            });
            if (!box.empty() && !known) {
                found.push_back(box);
            }
        }
    };
    read(hints);
    // The local threshold breaks a PDF417 code up where a fine pattern shows through its white bars
    // (7 of 58 generated licences' codes, all read with one threshold for the whole image, which found
    // every code the local one found on both sets); the local one stays first for codes under uneven light.
    read(ZXing::DecodeHints(hints).setBinarizer(ZXing::Binarizer::GlobalHistogram));
    std::vector<Box> boxes;
    for (const cv::Rect& r : found) {
        boxes.push_back(normalised(r.x, r.y, r.x + r.width, r.y + r.height, image.width, image.height));
    }
    return boxes;
}

std::vector<std::string> supportedLanguages() {
    std::error_code error;
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(dataFolder(), error)) {
        if (entry.path().extension() != ".traineddata") {
            continue;
        }
        const auto known = identifiers().find(entry.path().stem().string());
        if (known != identifiers().end()) {
            found.push_back(known->second);
        }
    }
    if (error) {
        throw RecognitionError("text recognition data folder " + dataFolder().string() + ": " +
                               error.message());
    }
    std::sort(found.begin(), found.end());
    return found;
}

void setCoresPerDocument(int cores) {
    oneCore = cores <= 1;
    // OpenCV's loops (the networks, the face cascade) share one pool for the whole process.
    cv::setNumThreads(oneCore ? 1 : -1);
}

Result recognize(const Bitmap& image, const std::vector<std::string>& languages, int readers) {
    if (image.empty()) {
        throw RecognitionError("nothing to recognise: the image is empty");
    }
    // Load the chosen models in the order the languages are asked for.
    std::string models;
    for (const std::string& language : languages) {
        for (const auto& [model, identifier] : identifiers()) {
            if (identifier == language &&
                std::find(loadedModels.begin(), loadedModels.end(), model) != loadedModels.end()) {
                models += (models.empty() ? "" : "+") + model;
            }
        }
    }
    if (models.empty()) {
        throw RecognitionError("no text recognition model is installed for the requested languages");
    }
    // Faces and barcodes run beside the text recognition, which keeps one core busy on its own.
    auto others = std::async(oneCore ? std::launch::deferred : std::launch::async, [&image] {
        return std::pair{detectFaces(image), detectBarcodes(image)};
    });
    Result result;
    TextResult text = recognizeText(image, models, oneCore ? 1 : std::max(1, readers));
    result.lines = std::move(text.lines);
    result.zones = std::move(text.zones);
    result.spacedNumbers = std::move(text.spacedNumbers);
    auto [faces, barcodes] = others.get();
    result.faces = std::move(faces);
    result.barcodes = std::move(barcodes);
    return result;
}

int uprightTurns(const Bitmap& image) {
    // The page as recognition will read it, so that the lines found here serve it too when the page
    // is upright already.
    return image.empty() ? 0 : TextDetector::uprightTurns(reduced(image, recognitionSide), detectionSide);
}

Bitmap turned(const Bitmap& image, int quarterTurns) {
    return TextDetector::turned(image, quarterTurns);
}

double skewDegrees(const Bitmap& image) {
    // Measured on the page recognition reads, whose lines are then found already.
    return image.empty() ? 0 : TextDetector::skewDegrees(reduced(image, recognitionSide), detectionSide);
}

Levelling levelling(int width, int height, double degrees) {
    return TextDetector::levelling(width, height, degrees);
}

Bitmap levelled(const Bitmap& image, double degrees) {
    return TextDetector::levelled(image, degrees);
}

std::optional<Box> rangeBox(const Line& line, int location, int length) {
    std::optional<Box> box;
    double right = 0, top = 0;
    for (const Symbol& symbol : line.symbols) {
        if (symbol.end <= location || symbol.start >= location + length) {
            continue;
        }
        if (!box) {
            box = symbol.box;
            right = symbol.box.x + symbol.box.width;
            top = symbol.box.y + symbol.box.height;
            continue;
        }
        box->x = std::min(box->x, symbol.box.x);
        box->y = std::min(box->y, symbol.box.y);
        right = std::max(right, symbol.box.x + symbol.box.width);
        top = std::max(top, symbol.box.y + symbol.box.height);
    }
    if (box) {
        box->width = right - box->x;
        box->height = top - box->y;
    }
    return box;
}

} // namespace platform::Recognition
