#pragma once

// What the subcommands of quorvel-cli share: exit codes, usage errors, JSON in and out, and the
// progress display of long runs.

#include "DocumentTypes.h"
#include "ImagePipeline.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

constexpr int exitOK = 0;
constexpr int exitFailed = 1; // a document could not be read, analysed or written
constexpr int exitUsage = 2;  // wrong arguments or a malformed input file

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Parses a JSON file; a file that is not valid JSON is a UsageError naming it.
nlohmann::json readJson(const std::filesystem::path& file);

// A list of {"kind", "x", "y", "width", "height"} (normalised, top-left origin) as manual masks.
std::vector<RedactionRegion> regionsFromJson(const nlohmann::json& document, const std::string& source);

// Recognised lines given as JSON (see `quorvel-cli --help`) as the input of an analysis.
ImagePipeline::AssemblyInput assemblyFromJson(const nlohmann::json& document, const std::string& source);

nlohmann::json analysisToJson(const Analysis& analysis);
std::string analysisToText(const Analysis& analysis);

bool sameFile(const std::filesystem::path& a, const std::filesystem::path& b);

// Progress of a batch: a redrawn bar on a terminal, plain lines otherwise. Thread-safe.
class Progress {
public:
    explicit Progress(std::size_t total);
    void finished(const std::string& name, const std::string& failure = {});
    void done();

private:
    std::size_t total_;
    std::size_t count_ = 0;
    bool terminal_;
};

} // namespace cli
