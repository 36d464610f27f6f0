// quorvel-cli: the document core on the command line.

#include "DocumentTypes.h"
#include "ImagePipeline.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;
using json = nlohmann::json;

namespace {

constexpr int exitOK = 0;
constexpr int exitFailed = 1; // a document could not be read or written
constexpr int exitUsage = 2;  // wrong arguments or a malformed region file

constexpr const char* usageText = R"(Usage: quorvel-cli COMMAND [OPTIONS]

Masks personal data on identity-document photos, entirely on this machine.

Commands:
  mask IN --regions R.json -o OUT.png [SWITCHES]
      Paints opaque black masks over the regions listed in R.json and saves a
      PNG without metadata. IN is a JPEG, PNG, HEIC or HEIF photo (the type is
      read from the file's content, not its name). R.json is a list of objects
        {"kind": "number", "x": 0.1, "y": 0.2, "width": 0.3, "height": 0.05}
      with the rectangle in fractions of the image's width and height, origin
      at the top-left corner. Kinds: number, address, birthDate, face,
      issueDate, expiryDate, machineReadable, uncertain, manual, personName,
      phone, email.

Switches (optional fields, shown unless switched on):
  --hide-face           mask portraits (kind face)
  --hide-issue-date     mask issue dates (kind issueDate)
  --hide-expiry-date    mask expiry dates (kind expiryDate)
  --hide-person-name    mask names (kind personName)
Every other kind is always masked.

Other options:
  -h, --help            show this help
  --version             show the version

Exit codes:
  0  success
  1  an input could not be read, or the output could not be written
  2  wrong arguments, or a malformed region file
)";

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

double coordinate(const json& object, const char* key, std::size_t index) {
    const auto it = object.find(key);
    if (it == object.end() || !it->is_number() || !std::isfinite(it->get<double>())) {
        throw UsageError("region " + std::to_string(index + 1) + ": \"" + key + "\" must be a finite number");
    }
    return it->get<double>();
}

std::vector<RedactionRegion> readRegions(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        throw std::system_error(errno, std::generic_category(), file.string());
    }
    json document;
    try {
        document = json::parse(in);
    } catch (const json::parse_error& error) {
        throw UsageError(file.string() + ": not valid JSON (byte " + std::to_string(error.byte) + ")");
    } catch (const json::exception&) {
        throw UsageError(file.string() + ": not valid JSON (a number is out of range)");
    }
    if (!document.is_array()) {
        throw UsageError(file.string() + ": expected a list of regions");
    }
    std::vector<RedactionRegion> regions;
    for (std::size_t i = 0; i < document.size(); ++i) {
        const json& item = document[i];
        if (!item.is_object()) {
            throw UsageError(file.string() + ": region " + std::to_string(i + 1) + " is not an object");
        }
        const auto kindField = item.find("kind");
        if (kindField == item.end() || !kindField->is_string()) {
            throw UsageError(file.string() + ": region " + std::to_string(i + 1) + ": \"kind\" is missing");
        }
        const std::optional<FieldKind> kind = fieldKind(kindField->get<std::string>());
        if (!kind) {
            throw UsageError(file.string() + ": region " + std::to_string(i + 1) + ": unknown kind \"" +
                             kindField->get<std::string>() + "\"");
        }
        try {
            const Rect rect{coordinate(item, "x", i), coordinate(item, "y", i), coordinate(item, "width", i),
                            coordinate(item, "height", i)};
            regions.push_back(RedactionRegion{*kind, rect, Uuid::random(), FieldEvidence::manual});
        } catch (const UsageError& error) {
            throw UsageError(file.string() + ": " + error.what());
        }
    }
    return regions;
}

bool sameFile(const fs::path& a, const fs::path& b) {
    std::error_code error;
    return fs::exists(b, error) && fs::equivalent(a, b, error);
}

int runMask(const std::vector<std::string>& args) {
    std::optional<fs::path> input, regionsFile, output;
    RedactionPolicy policy;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= args.size()) {
                throw UsageError(arg + " needs a value");
            }
            return args[++i];
        };
        if (arg == "--regions") {
            regionsFile = value();
        } else if (arg == "-o" || arg == "--output") {
            output = value();
        } else if (arg == "--hide-face") {
            policy.hideFace = true;
        } else if (arg == "--hide-issue-date") {
            policy.hideIssueDate = true;
        } else if (arg == "--hide-expiry-date") {
            policy.hideExpiryDate = true;
        } else if (arg == "--hide-person-name") {
            policy.hidePersonName = true;
        } else if (arg == "--") {
            if (i + 1 < args.size() && !input) {
                input = args[++i];
            }
        } else if (arg.starts_with("-") && arg.size() > 1) {
            throw UsageError("unknown option " + arg);
        } else if (!input) {
            input = arg;
        } else {
            throw UsageError("unexpected argument " + arg);
        }
    }
    if (!input || !regionsFile || !output) {
        throw UsageError("mask needs IN, --regions R.json and -o OUT.png");
    }
    if (sameFile(*input, *output)) {
        throw UsageError("the output would overwrite the input " + input->string());
    }
    const std::vector<RedactionRegion> regions = readRegions(*regionsFile);
    const LoadedDocument document = ImagePipeline::load(*input);
    const Bitmap cleaned = ImagePipeline::render(document.image, regions, policy);
    ImagePipeline::exportPNG(cleaned, *output);
    return exitOK;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "-h" || args[0] == "--help" || args[0] == "help") {
        std::cout << usageText;
        return args.empty() ? exitUsage : exitOK;
    }
    if (args[0] == "--version") {
        std::cout << "quorvel-cli " << QUORVEL_VERSION << "\n";
        return exitOK;
    }
    const std::string command = args[0];
    args.erase(args.begin());
    for (const std::string& arg : args) {
        if (arg == "-h" || arg == "--help") {
            std::cout << usageText;
            return exitOK;
        }
    }
    try {
        if (command == "mask") {
            return runMask(args);
        }
        throw UsageError("unknown command \"" + command + "\" (see quorvel-cli --help)");
    } catch (const UsageError& error) {
        std::cerr << "quorvel-cli: " << error.what() << "\n";
        return exitUsage;
    } catch (const DocumentError& error) {
        std::cerr << "quorvel-cli: " << error.what() << "\n";
        return exitFailed;
    } catch (const std::system_error& error) {
        std::cerr << "quorvel-cli: " << error.what() << "\n";
        return exitFailed;
    } catch (const std::exception& error) {
        std::cerr << "quorvel-cli: " << error.what() << "\n";
        return exitFailed;
    }
}
