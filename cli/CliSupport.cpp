#include "CliSupport.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <mutex>
#include <system_error>

namespace cli {
namespace {

using json = nlohmann::json;

std::mutex outputMutex;

// Far beyond any fraction, pixel size or text offset a document has, and well inside an int, so that
// every later conversion is exact.
constexpr double largestNumber = 1e6;

double number(const json& object, const char* key, const std::string& where) {
    const auto it = object.find(key);
    if (it == object.end() || !it->is_number() || !std::isfinite(it->get<double>()) ||
        std::abs(it->get<double>()) > largestNumber) {
        throw UsageError(where + ": \"" + key + "\" must be a number from -1000000 to 1000000");
    }
    return it->get<double>();
}

Rect rectFrom(const json& object, const std::string& where) {
    if (!object.is_object()) {
        throw UsageError(where + " is not an object");
    }
    return Rect{number(object, "x", where), number(object, "y", where), number(object, "width", where),
                number(object, "height", where)};
}

platform::Recognition::Box recognitionBox(const Rect& r) {
    return {r.x, r.y, r.width, r.height};
}

std::vector<platform::Recognition::Box> boxes(const json& document, const char* key,
                                              const std::string& source) {
    std::vector<platform::Recognition::Box> out;
    const auto it = document.find(key);
    if (it == document.end()) {
        return out;
    }
    if (!it->is_array()) {
        throw UsageError(source + ": \"" + key + "\" must be a list");
    }
    for (std::size_t i = 0; i < it->size(); ++i) {
        out.push_back(recognitionBox(rectFrom((*it)[i], source + ": " + key + " " + std::to_string(i + 1))));
    }
    return out;
}

json rectJson(const Rect& r) {
    return json{{"x", r.x}, {"y", r.y}, {"width", r.width}, {"height", r.height}};
}

template <class T> json optionalJson(const std::optional<T>& value) {
    return value ? json(*value) : json(nullptr);
}

} // namespace

json readJson(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        throw std::system_error(errno, std::generic_category(), file.string());
    }
    try {
        return json::parse(in);
    } catch (const json::parse_error& error) {
        throw UsageError(file.string() + ": not valid JSON (byte " + std::to_string(error.byte) + ")");
    } catch (const json::exception&) {
        throw UsageError(file.string() + ": not valid JSON (a number is out of range)");
    }
}

std::vector<RedactionRegion> regionsFromJson(const json& document, const std::string& source) {
    if (!document.is_array()) {
        throw UsageError(source + ": expected a list of regions");
    }
    std::vector<RedactionRegion> regions;
    for (std::size_t i = 0; i < document.size(); ++i) {
        const std::string where = source + ": region " + std::to_string(i + 1);
        const json& item = document[i];
        if (!item.is_object()) {
            throw UsageError(where + " is not an object");
        }
        const auto kindField = item.find("kind");
        if (kindField == item.end() || !kindField->is_string()) {
            throw UsageError(where + ": \"kind\" is missing");
        }
        const std::optional<FieldKind> kind = fieldKind(kindField->get<std::string>());
        if (!kind) {
            throw UsageError(where + ": unknown kind \"" + kindField->get<std::string>() + "\"");
        }
        regions.push_back(
            RedactionRegion{*kind, rectFrom(item, where), Uuid::random(), FieldEvidence::manual});
    }
    return regions;
}

ImagePipeline::AssemblyInput assemblyFromJson(const json& document, const std::string& source) {
    if (!document.is_object() || !document.contains("lines") || !document["lines"].is_array()) {
        throw UsageError(source + ": expected an object with a list \"lines\"");
    }
    ImagePipeline::AssemblyInput input;
    const json& lines = document["lines"];
    // A recognised page holds tens of lines of tens of characters; far more is no page, and the
    // detector's work grows with the square of both.
    constexpr std::size_t mostLines = 2000;
    constexpr std::size_t longestLine = 1000;
    if (lines.size() > mostLines) {
        throw UsageError(source + ": at most " + std::to_string(mostLines) + " lines, not " +
                         std::to_string(lines.size()));
    }
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string where = source + ": line " + std::to_string(i + 1);
        const json& item = lines[i];
        if (!item.is_object() || !item.contains("text") || !item["text"].is_string()) {
            throw UsageError(where + ": \"text\" must be a string");
        }
        platform::Recognition::Line line;
        line.text = item["text"].get<std::string>();
        if (line.text.size() > longestLine) {
            throw UsageError(where + ": \"text\" may hold at most " + std::to_string(longestLine) + " bytes");
        }
        line.box = recognitionBox(rectFrom(item, where));
        line.confidence =
            item.contains("confidence") ? static_cast<float>(number(item, "confidence", where)) : 1.0f;
        if (item.contains("ranges")) {
            if (!item["ranges"].is_array()) {
                throw UsageError(where + ": \"ranges\" must be a list");
            }
            for (const json& range : item["ranges"]) {
                const double location = number(range, "location", where + " range");
                const double length = number(range, "length", where + " range");
                line.symbols.push_back(platform::Recognition::Symbol{
                    static_cast<int>(location), static_cast<int>(location + length),
                    recognitionBox(rectFrom(range, where + " range"))});
            }
        }
        input.recognition.lines.push_back(std::move(line));
    }
    input.recognition.faces = boxes(document, "faces", source);
    input.recognition.barcodes = boxes(document, "barcodes", source);
    input.recognition.zones = boxes(document, "zones", source);
    input.recognition.spacedNumbers = boxes(document, "spacedNumbers", source);
    if (document.contains("image")) {
        const json& image = document["image"];
        if (!image.is_object()) {
            throw UsageError(source + ": \"image\" must be an object");
        }
        input.image = RiskEngine::PixelSize{static_cast<int>(number(image, "width", source + ": image")),
                                            static_cast<int>(number(image, "height", source + ": image"))};
    }
    if (document.contains("software") && document["software"].is_string()) {
        input.software = document["software"].get<std::string>();
    }
    if (document.contains("centering")) {
        const json& centering = document["centering"];
        input.centering.applied = centering.value("applied", false);
        input.centering.confidence =
            centering.contains("confidence")
                ? static_cast<float>(number(centering, "confidence", source + ": centering"))
                : 0.0f;
    }
    if (document.contains("supportedLanguages")) {
        for (const json& language : document["supportedLanguages"]) {
            if (language.is_string()) {
                input.supportedLanguages.push_back(language.get<std::string>());
            }
        }
    } else {
        // The languages this machine would have recognised with.
        try {
            input.supportedLanguages = platform::Recognition::supportedLanguages();
        } catch (const std::exception&) {
        }
    }
    return input;
}

json analysisToJson(const Analysis& analysis) {
    json regions = json::array();
    for (const RedactionRegion& region : analysis.regions) {
        json entry = rectJson(region.rect);
        entry["kind"] = std::string(rawValue(region.kind));
        entry["evidence"] = std::string(rawValue(region.evidence));
        regions.push_back(entry);
    }
    return json{
        {"country",
         {{"code", optionalJson(analysis.country.code)},
          {"name", analysis.country.name},
          {"evidence", analysis.country.evidence},
          {"hasProfile", analysis.country.hasProfile},
          {"conflict", analysis.country.conflict}}},
        {"documentType", analysis.documentType},
        {"warnings", analysis.warnings},
        {"risk",
         {{"score", optionalJson(analysis.risk.score)},
          {"findings", analysis.risk.findings},
          {"checksPerformed", analysis.risk.checksPerformed}}},
        {"recognizedLines", analysis.recognizedLines},
        {"unavailableOCRLanguages", analysis.unavailableOCRLanguages},
        {"regions", regions},
    };
}

std::string analysisToText(const Analysis& analysis) {
    std::string out;
    out += "Country: " + analysis.country.name +
           (analysis.country.code ? " (" + *analysis.country.code + ")" : "") + " — " +
           analysis.country.evidence + "\n";
    out += "Document type: " + analysis.documentType + "\n";
    out += "Recognised text regions: " + std::to_string(analysis.recognizedLines) + "\n";
    out += "Risk: " + (analysis.risk.score ? std::to_string(*analysis.risk.score) : std::string("—")) + " (" +
           std::to_string(analysis.risk.checksPerformed) + " checks)\n";
    for (const std::string& finding : analysis.risk.findings) {
        out += "  * " + finding + "\n";
    }
    out += "Warnings:\n";
    for (const std::string& warning : analysis.warnings) {
        out += "  ! " + warning + "\n";
    }
    out += "Regions (" + std::to_string(analysis.regions.size()) + "):\n";
    char line[160];
    for (const RedactionRegion& region : analysis.regions) {
        std::snprintf(line, sizeof line, "  %-16s %-26s x=%.4f y=%.4f w=%.4f h=%.4f\n",
                      std::string(rawValue(region.kind)).c_str(),
                      std::string(rawValue(region.evidence)).c_str(), region.rect.x, region.rect.y,
                      region.rect.width, region.rect.height);
        out += line;
    }
    return out;
}

bool sameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
    std::error_code error;
    return std::filesystem::exists(b, error) && std::filesystem::equivalent(a, b, error);
}

Progress::Progress(std::size_t total) : total_(total), terminal_(::isatty(STDERR_FILENO) == 1) {}

void Progress::finished(const std::string& name, const std::string& failure) {
    std::lock_guard lock(outputMutex);
    ++count_;
    if (!failure.empty()) {
        std::cerr << (terminal_ ? "\r\033[K" : "") << "quorvel-cli: " << name << ": " << failure << "\n";
    }
    if (terminal_) {
        constexpr std::size_t width = 30;
        const std::size_t filled = total_ ? count_ * width / total_ : width;
        std::cerr << "\r[" << std::string(filled, '#') << std::string(width - filled, ' ') << "] " << count_
                  << "/" << total_ << std::flush;
    } else if (failure.empty()) {
        std::cerr << count_ << "/" << total_ << " done: " << name << "\n";
    }
}

void Progress::done() {
    std::lock_guard lock(outputMutex);
    if (terminal_) {
        std::cerr << "\n";
    }
}

} // namespace cli
