// Field recognition on arbitrary text: each input line becomes a recognised line with a box taken
// from the bytes, and goes through every classifier, the span splitter, field detection, country
// detection and the risk check.

#include "CountryCatalog.h"
#include "FieldClassifiers.h"
#include "FieldLexicon.h"
#include "RiskEngine.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<TextRegion> lines;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size() && lines.size() < 200; ++i) {
        if (i == text.size() || text[i] == '\n') {
            const std::string line = text.substr(start, i - start);
            const double seed = line.empty() ? 0.5 : static_cast<unsigned char>(line[0]) / 255.0;
            lines.push_back(TextRegion{line, Rect{seed * 0.5, lines.size() * 0.04, 0.2 + seed * 0.3, 0.03},
                                       static_cast<float>(seed)});
            start = i + 1;
        }
    }
    for (const TextRegion& line : lines) {
        FieldDetector::fieldSpans(line.text, true);
        FieldDetector::identifierRanges(line.text);
        FieldDetector::isLikelyName(line.text);
        FieldDetector::labelHasNameValue(line.text);
        FieldLexicon::labelMatches(line.text);
    }
    FieldDetector::detect(lines);
    CountryCatalog::detect(lines);
    RiskEngine::assess(lines, text.substr(0, 40), RiskEngine::PixelSize{static_cast<int>(size), 700});
    return 0;
}
