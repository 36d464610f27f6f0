// quorvel-cli: the document core on the command line.

#include "CliSupport.h"
#include "DocumentTypes.h"
#include "Evaluation.h"
#include "FileSystem.h"
#include "ImagePipeline.h"
#include "PDFPipeline.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace fs = std::filesystem;
using namespace cli;

namespace {

constexpr const char* usageText = R"(Usage: quorvel-cli COMMAND [OPTIONS]

Finds and masks personal data on photos of identity documents, entirely on
this machine. Photos may be JPEG, PNG, HEIC or HEIF (the type is read from the
file's content, not its name), at most 80 MB, 20,000 pixels a side and 50
megapixels. Nothing is sent anywhere and nothing but the output is written.

Commands:
  redact FILE -o OUT.png [SWITCHES]
      Recognises the document, masks every personal field it finds and saves
      a PNG without metadata.
  redact IN.pdf -o OUT.pdf [SWITCHES]
      Renders every page of a PDF, masks it the same way and saves a new PDF
      made only of the page images: no text layer, fonts, annotations,
      attachments or metadata of the original survive. Names are always
      masked in PDFs. A file whose name ends in .pdf (any case) is a PDF.
      The output's name says what is written: .png for a photo, .pdf for a PDF.
  redact FILE... -o DIR [-j N] [SWITCHES]
      The same for many files; each result is DIR/NAME-redacted.png (or .pdf).
      A file that fails is reported by name and the rest go on; the exit code
      is 1 if any failed. -j N runs N files at a time (default: 1).
  redact ... --report REPORT.json (or --report DIR with many files)
      Also writes what the analysis found, the JSON of analyze --json from
      the same run (a PDF's report: {"pages": [...]}), so that a large job
      recognises each file once. With many files each report is
      DIR/NAME-redacted.json.
  analyze FILE [--json]
      Prints what the analysis found: country, document type, warnings, risk
      and the masks, without writing anything. --json prints one object.
  analyze --lines LINES.json [--json]
      The same analysis from recognised lines given as JSON instead of an
      image: {"lines": [{"text", "x", "y", "width", "height", "confidence",
      "ranges": [{"location", "length", "x", "y", "width", "height"}]}],
      "faces": [rect...], "barcodes": [rect...], "zones": [rect...],
      "image": {"width", "height"},
      "software", "centering": {"applied", "confidence"},
      "supportedLanguages": [...]}. Every key but "lines" is optional; at
      most 2,000 lines of at most 1,000 bytes each;
      rectangles are fractions of the image, origin at the top-left corner;
      ranges count UTF-16 code units. Without "supportedLanguages" the
      languages installed on this machine are assumed.
  eval DIR [--json]
      Measures the pipeline on a folder of annotated images: each NAME.jpg
      (or .png, .heic, .heif) with a NAME.json {"fields": [{"kind", "x", "y",
      "width", "height"}]} (fractions of the image as shown, origin top-left)
      is redacted with every switch on, and the report gives per kind the
      fields fully masked (98% of the box black) and missed, the share of the
      painted area outside every field, and the seconds per image.
  mask IN --regions R.json -o OUT.png [SWITCHES]
      Paints masks over the regions listed in R.json, a list of objects
        {"kind": "number", "x": 0.1, "y": 0.2, "width": 0.3, "height": 0.05}
      (fractions of the image, origin at the top-left corner), and saves a
      PNG without metadata.

Kinds: number, address, birthDate, face, issueDate, expiryDate,
machineReadable, uncertain, manual, personName, phone, email.

Switches (optional fields are shown unless switched on; every other kind is
always masked):
  --hide-face           mask portraits (kind face)
  --hide-issue-date     mask issue dates (kind issueDate)
  --hide-expiry-date    mask expiry dates (kind expiryDate)
  --hide-person-name    mask names (kind personName)

Other options:
  -h, --help            show this help
  --version             show the version

Exit codes:
  0  success
  1  an input could not be read or analysed, or an output could not be written
  2  wrong arguments, or a malformed JSON input
)";

struct Arguments {
    std::vector<std::string> positional;
    std::optional<fs::path> output, regions, lines, report;
    RedactionPolicy policy;
    bool json = false;
    int workers = 1;
};

Arguments parse(const std::vector<std::string>& args, const std::set<std::string>& allowed) {
    Arguments parsed;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg == "-" || !arg.starts_with("-")) {
            parsed.positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        if (!allowed.contains(arg)) {
            throw UsageError("unknown option " + arg + " (see quorvel-cli --help)");
        }
        auto value = [&]() -> std::string {
            if (i + 1 >= args.size()) {
                throw UsageError(arg + " needs a value");
            }
            return args[++i];
        };
        if (arg == "-o" || arg == "--output") {
            parsed.output = value();
            if (parsed.output->empty()) {
                throw UsageError(arg + " needs a file or folder name");
            }
        } else if (arg == "--report") {
            parsed.report = value();
        } else if (arg == "--regions") {
            parsed.regions = value();
        } else if (arg == "--lines") {
            parsed.lines = value();
        } else if (arg == "--json") {
            parsed.json = true;
        } else if (arg == "-j") {
            const std::string n = value();
            try {
                parsed.workers = std::stoi(n);
            } catch (const std::exception&) {
                parsed.workers = 0;
            }
            if (parsed.workers < 1 || parsed.workers > 64) {
                throw UsageError("-j takes a number of files at a time from 1 to 64");
            }
        } else if (arg == "--hide-face") {
            parsed.policy.hideFace = true;
        } else if (arg == "--hide-issue-date") {
            parsed.policy.hideIssueDate = true;
        } else if (arg == "--hide-expiry-date") {
            parsed.policy.hideExpiryDate = true;
        } else if (arg == "--hide-person-name") {
            parsed.policy.hidePersonName = true;
        }
    }
    return parsed;
}

const std::set<std::string> policySwitches{"--hide-face", "--hide-issue-date", "--hide-expiry-date",
                                           "--hide-person-name"};

std::set<std::string> with(std::set<std::string> options, std::initializer_list<std::string> more) {
    options.insert(more);
    return options;
}

// A file's name says what it holds: a PDF's copy is a PDF, a photo's copy a PNG.
void checkOutputType(const fs::path& input, const fs::path& output) {
    const bool pdf = PDFPipeline::isPDFName(input);
    std::string extension = output.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    if (extension != (pdf ? ".pdf" : ".png")) {
        throw UsageError(std::string("the copy of ") + (pdf ? "a PDF is a PDF" : "a photo is a PNG") +
                         ": name the output " + output.stem().string() + (pdf ? ".pdf" : ".png") + " (not " +
                         output.filename().string() + ")");
    }
}

int runMask(const std::vector<std::string>& args) {
    const Arguments a = parse(args, with(policySwitches, {"-o", "--output", "--regions"}));
    if (a.positional.size() != 1 || !a.regions || !a.output) {
        throw UsageError("mask needs IN, --regions R.json and -o OUT.png");
    }
    const fs::path input = a.positional[0];
    if (sameFile(input, *a.output)) {
        throw UsageError("the output would overwrite the input " + input.string());
    }
    checkOutputType(input, *a.output);
    const std::vector<RedactionRegion> regions = regionsFromJson(readJson(*a.regions), a.regions->string());
    // The regions are fractions of the picture as given: it is not turned.
    const LoadedDocument document = ImagePipeline::load(input, false);
    ImagePipeline::exportPNG(ImagePipeline::render(document.image, regions, a.policy), *a.output);
    return exitOK;
}

int runAnalyze(const std::vector<std::string>& args) {
    const Arguments a = parse(args, {"--json", "--lines"});
    Analysis analysis;
    if (a.lines) {
        if (!a.positional.empty()) {
            throw UsageError("analyze takes either FILE or --lines LINES.json");
        }
        analysis = ImagePipeline::assemble(assemblyFromJson(readJson(*a.lines), a.lines->string()));
    } else {
        if (a.positional.size() != 1) {
            throw UsageError("analyze needs one FILE (or --lines LINES.json)");
        }
        analysis = ImagePipeline::analyze(ImagePipeline::load(a.positional[0]));
    }
    std::cout << (a.json ? analysisToJson(analysis).dump(2) + "\n" : analysisToText(analysis));
    return exitOK;
}

// What the analysis found, as `analyze --json` prints it; a PDF's report lists its pages' analyses.
nlohmann::json redactPDF(const fs::path& input, const fs::path& output, RedactionPolicy policy,
                         bool pageProgress) {
    const PDFDocument document = PDFPipeline::load(input);
    std::optional<Progress> pages;
    if (pageProgress) {
        pages.emplace(static_cast<std::size_t>(document.pageCount));
    }
    const ProcessedPDF cleaned = PDFPipeline::process(document, policy, [&](int done, int) {
        if (pages) {
            pages->finished("page " + std::to_string(done));
        }
    });
    if (pages) {
        pages->done();
    }
    if (cleaned.data.empty()) {
        throw DocumentError(DocumentError::exportFailed);
    }
    platform::FileSystem::writeAtomically(output, cleaned.data);
    nlohmann::json report{{"pages", nlohmann::json::array()}};
    for (const Analysis& page : cleaned.pages) {
        report["pages"].push_back(analysisToJson(page));
    }
    return report;
}

// Redacts one file and, when a report is asked for, writes the analysis of the same run beside it, so
// that a large job recognises each file once.
void redactOne(const fs::path& input, const fs::path& output, const RedactionPolicy& policy,
               const std::optional<fs::path>& report, bool pageProgress = false) {
    nlohmann::json found;
    if (PDFPipeline::isPDFName(input)) {
        found = redactPDF(input, output, policy, pageProgress);
    } else {
        const LoadedDocument document = ImagePipeline::load(input);
        const Analysis analysis = ImagePipeline::analyze(document);
        ImagePipeline::exportPNG(ImagePipeline::render(document.image, analysis.regions, policy), output);
        found = analysisToJson(analysis);
    }
    if (report) {
        const std::string text = found.dump(2) + "\n";
        platform::FileSystem::writeAtomically(*report, std::vector<std::uint8_t>(text.begin(), text.end()));
    }
}

int runRedact(const std::vector<std::string>& args) {
    const Arguments a = parse(args, with(policySwitches, {"-o", "--output", "-j", "--report"}));
    if (a.positional.empty() || !a.output) {
        throw UsageError("redact needs FILE... and -o OUT.png or -o DIR");
    }
    std::error_code error;
    const bool toFolder = a.positional.size() > 1 || fs::is_directory(*a.output, error);
    if (!toFolder) {
        if (sameFile(a.positional[0], *a.output)) {
            throw UsageError("the output would overwrite the input " + a.positional[0]);
        }
        checkOutputType(a.positional[0], *a.output);
        if (a.report && (sameFile(a.positional[0], *a.report) || sameFile(*a.output, *a.report))) {
            throw UsageError("the report would overwrite the input or the output: " + a.report->string());
        }
        redactOne(a.positional[0], *a.output, a.policy, a.report, true);
        return exitOK;
    }
    if (!fs::is_directory(*a.output, error)) {
        throw UsageError("with several files, -o must name an existing folder: " + a.output->string());
    }
    if (a.report && !fs::is_directory(*a.report, error)) {
        throw UsageError("with several files, --report must name an existing folder: " + a.report->string());
    }
    std::vector<std::pair<fs::path, fs::path>> jobs;
    std::set<fs::path> targets;
    for (const std::string& name : a.positional) {
        const fs::path input = name;
        const fs::path output =
            *a.output /
            (input.stem().string() + (PDFPipeline::isPDFName(input) ? "-redacted.pdf" : "-redacted.png"));
        if (!targets.insert(output).second) {
            throw UsageError("two inputs would both be written to " + output.string());
        }
        jobs.emplace_back(input, output);
    }
    for (const auto& [input, output] : jobs) {
        for (const std::string& other : a.positional) {
            if (sameFile(other, output)) {
                throw UsageError("the output " + output.string() + " would overwrite an input");
            }
        }
    }
    Progress progress(jobs.size());
    std::atomic<std::size_t> next{0};
    std::atomic<std::size_t> failures{0};
    auto work = [&] {
        for (std::size_t i; (i = next.fetch_add(1)) < jobs.size();) {
            const auto& [input, output] = jobs[i];
            try {
                std::optional<fs::path> report;
                if (a.report) {
                    report = *a.report / (output.stem().string() + ".json");
                }
                redactOne(input, output, a.policy, report);
                progress.finished(input.string());
            } catch (const std::exception& e) {
                ++failures;
                progress.finished(input.string(), e.what());
            }
        }
    };
    std::vector<std::thread> workers;
    for (int w = 1; w < std::min<int>(a.workers, static_cast<int>(jobs.size())); ++w) {
        workers.emplace_back(work);
    }
    work();
    for (std::thread& t : workers) {
        t.join();
    }
    progress.done();
    std::cerr << jobs.size() - failures << " of " << jobs.size() << " files redacted"
              << (failures ? ", " + std::to_string(failures.load()) + " failed" : std::string()) << "\n";
    return failures ? exitFailed : exitOK;
}

int runEval(const std::vector<std::string>& args) {
    const Arguments a = parse(args, {"--json"});
    if (a.positional.size() != 1 || !fs::is_directory(a.positional[0])) {
        throw UsageError("eval needs one folder of annotated images");
    }
    std::size_t total = 0;
    for (const auto& entry : fs::directory_iterator(a.positional[0])) {
        total += entry.path().extension() == ".json";
    }
    Progress progress(total);
    const EvaluationReport report = evaluate(a.positional[0], [&](const std::string& name, bool ok) {
        progress.finished(name, ok ? std::string() : std::string("could not be processed"));
    });
    progress.done();
    std::cout << (a.json ? report.toJson().dump(2) + "\n" : report.toText());
    return exitOK;
}

} // namespace

int main(int argc, char** argv) {
    platform::Recognition::limitRecognitionThreads(argv);
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        std::cerr << usageText;
        return exitUsage;
    }
    if (args[0] == "-h" || args[0] == "--help" || args[0] == "help") {
        std::cout << usageText;
        return exitOK;
    }
    if (args[0] == "--version") {
        std::cout << "quorvel-cli " << QUORVEL_VERSION << "\n";
        return exitOK;
    }
    const std::string command = args[0];
    args.erase(args.begin());
    if (std::find(args.begin(), args.end(), "--help") != args.end() ||
        std::find(args.begin(), args.end(), "-h") != args.end()) {
        std::cout << usageText;
        return exitOK;
    }
    try {
        if (command == "mask") {
            return runMask(args);
        }
        if (command == "analyze") {
            return runAnalyze(args);
        }
        if (command == "redact") {
            return runRedact(args);
        }
        if (command == "eval") {
            return runEval(args);
        }
        throw UsageError("unknown command \"" + command + "\" (see quorvel-cli --help)");
    } catch (const UsageError& error) {
        std::cerr << "quorvel-cli: " << error.what() << "\n";
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "quorvel-cli: " << error.what() << "\n";
        return exitFailed;
    }
}
