#include "RiskEngine.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <cctype>

namespace RiskEngine {
namespace {

constexpr int pointsPerMismatch = 25;
constexpr int maxZonePoints = 70;
constexpr int editorPoints = 10;
constexpr int lowResolutionPoints = 8;
constexpr int proportionPoints = 5;
constexpr long long lowResolutionPixels = 1000000;
constexpr double maxProportion = 3.0;
constexpr std::size_t minZoneLineLength = 28;

constexpr std::array<std::string_view, 7> editors{"photoshop",  "gimp",      "canva",  "snapseed",
                                                  "pixelmator", "lightroom", "picsart"};

std::string upperWithoutSpaces(const std::string& text) {
    icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    unicode.toUpper(icu::Locale::getRoot());
    std::string upper;
    unicode.toUTF8String(upper);
    std::erase(upper, ' ');
    return upper;
}

bool isZoneText(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '<'; });
}

struct Tally {
    int performed = 0;
    int mismatches = 0;

    // `first` and `check` count from 1 within the line, as the layouts are published.
    void verify(const std::string& line, std::size_t first, std::size_t last, std::size_t check) {
        if (line.size() < check || !std::isdigit(static_cast<unsigned char>(line[check - 1]))) {
            return; // a filler or a letter where the digit belongs: not checkable
        }
        const std::optional<int> digit =
            checkDigit(std::string_view(line).substr(first - 1, last - first + 1));
        if (!digit) {
            return;
        }
        ++performed;
        mismatches += *digit != line[check - 1] - '0';
    }
};

} // namespace

std::optional<int> checkDigit(std::string_view field) noexcept {
    static constexpr int weights[] = {7, 3, 1};
    int sum = 0;
    for (std::size_t p = 0; p < field.size(); ++p) {
        const char c = field[p];
        int value = 0;
        if (c >= '0' && c <= '9') {
            value = c - '0';
        } else if (c >= 'A' && c <= 'Z') {
            value = c - 'A' + 10;
        } else if (c != '<') {
            return std::nullopt;
        }
        sum += value * weights[p % 3];
    }
    return sum % 10;
}

namespace {

// Lines that look like zone lines, top to bottom, upper-cased and without blanks.
std::vector<std::string> zoneCandidates(const std::vector<TextRegion>& lines) {
    std::vector<const TextRegion*> ordered;
    for (const TextRegion& line : lines) {
        ordered.push_back(&line);
    }
    std::stable_sort(ordered.begin(), ordered.end(), [](const TextRegion* a, const TextRegion* b) {
        return a->rect.minY() < b->rect.minY();
    });
    std::vector<std::string> candidates;
    for (const TextRegion* line : ordered) {
        std::string cleaned = upperWithoutSpaces(line->text);
        if (cleaned.size() >= minZoneLineLength && isZoneText(cleaned)) {
            candidates.push_back(std::move(cleaned));
        }
    }
    return candidates;
}

// The check digits of every layout found among the candidates.
Tally checkZones(const std::vector<std::string>& candidates) {
    Tally tally;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        const std::string& line = candidates[i];
        const std::string* previous = i > 0 ? &candidates[i - 1] : nullptr;
        // The second line of a passport (44) or of a two-line card (36): number, birth, expiry.
        const bool td3 =
            previous && line.size() == 44 && previous->size() == 44 && previous->starts_with("P<");
        const bool td2 = previous && line.size() == 36 && previous->size() == 36 &&
                         previous->find("<<") != std::string::npos;
        if (td3 || td2) {
            tally.verify(line, 1, 9, 10);
            tally.verify(line, 14, 19, 20);
            tally.verify(line, 22, 27, 28);
        } else if (line.size() == 30 && i + 2 < candidates.size() &&
                   (line[0] == 'I' || line[0] == 'A' || line[0] == 'C') && candidates[i + 1].size() == 30 &&
                   candidates[i + 2].find("<<") != std::string::npos) {
            tally.verify(line, 6, 14, 15);
            tally.verify(candidates[i + 1], 1, 6, 7);
            tally.verify(candidates[i + 1], 9, 14, 15);
        }
    }
    return tally;
}

// Each finding below adds its text to the card and returns its points.
int zoneFinding(const Tally& tally, RiskAssessment& risk) {
    if (tally.mismatches > 0) {
        risk.findings.push_back("MRZ: несовпадений контрольных цифр — " + std::to_string(tally.mismatches) +
                                " из " + std::to_string(tally.performed) +
                                ". Возможны ошибка OCR, плохое фото или изменение данных.");
        return std::min(pointsPerMismatch * tally.mismatches, maxZonePoints);
    }
    if (tally.performed > 0) {
        risk.findings.push_back("MRZ: " + std::to_string(tally.performed) +
                                " контрольные цифры совпали. Это не подтверждает подлинность документа.");
    } else {
        risk.findings.push_back(
            "MRZ не найдена или не прочитана полностью. Проверка контрольных цифр недоступна.");
    }
    return 0;
}

int editorFinding(const std::optional<std::string>& software, RiskAssessment& risk) {
    if (!software || software->empty()) {
        return 0;
    }
    std::string lower = *software;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (std::string_view editor : editors) {
        if (lower.find(editor) != std::string::npos) {
            risk.findings.push_back("В метаданных указан графический редактор. Это слабый сигнал: обычная "
                                    "обработка фотографии также оставляет такие записи.");
            return editorPoints;
        }
    }
    return 0;
}

int imageFindings(PixelSize image, RiskAssessment& risk) {
    int points = 0;
    const long long pixels = static_cast<long long>(image.width) * image.height;
    if (pixels < lowResolutionPixels) {
        points += lowResolutionPoints;
        risk.findings.push_back("Качество снимка низкое: разрешение меньше 1 Мп. Мелкие защитные элементы и "
                                "монтаж могут быть неразличимы.");
    } else {
        risk.findings.push_back("Качество снимка: разрешение достаточно для базовой оптической проверки (" +
                                std::to_string(image.width) + "×" + std::to_string(image.height) + ").");
    }
    const double longer = std::max(image.width, image.height);
    const double shorter = std::max(std::min(image.width, image.height), 1);
    if (longer / shorter > maxProportion) {
        points += proportionPoints;
        risk.findings.push_back(
            "Необычное соотношение сторон снимка. Проверьте, что документ не обрезан или не "
            "собран из частей.");
    }
    return points;
}

} // namespace

RiskAssessment assess(const std::vector<TextRegion>& lines, const std::optional<std::string>& software,
                      std::optional<PixelSize> image) {
    RiskAssessment risk;
    const Tally tally = checkZones(zoneCandidates(lines));
    // One statement each: the card lists its findings in this order.
    int points = zoneFinding(tally, risk);
    points += editorFinding(software, risk);
    int performed = tally.performed;
    if (image) {
        ++performed;
        points += imageFindings(*image, risk);
    }
    risk.findings.push_back(
        "Замена портрета, монтаж, защитные элементы и чип этой версией не проверяются. Индекс не "
        "является вероятностью подделки.");
    risk.checksPerformed = performed;
    if (performed >= 1) {
        risk.score = points;
    }
    return risk;
}

} // namespace RiskEngine
