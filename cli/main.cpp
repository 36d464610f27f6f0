// quorvel-cli: the document core on the command line.

#include "CliSupport.h"
#include "DocumentTypes.h"
#include "Evaluation.h"
#include "FileSystem.h"
#include "ImagePipeline.h"
#include "PDFPipeline.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <sched.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace cli;

namespace {

constexpr const char* introText =
    R"(Finds and masks personal data on photos of identity documents, entirely on
this machine. Photos may be JPEG, PNG, HEIC or HEIF (the type is read from the
file's content, not its name), at most 80 MB, 20,000 pixels a side and 50
megapixels. Nothing is sent anywhere and nothing but the output is written.)";

constexpr const char* closingText = R"(
Kinds: number, address, birthDate, face, issueDate, expiryDate,
machineReadable, uncertain, manual, personName, phone, email.
Optional fields are shown unless switched on; every other kind is always
masked.

Exit codes:
  0  success
  1  an input could not be read or analysed, or an output could not be written
  2  wrong arguments, or a malformed JSON input
)";

// The first number in a file, if it holds one: a container's limits ("max" or a missing file: none).
std::optional<long long> firstNumber(const char* path) {
    std::ifstream in(path);
    long long value = 0;
    return in >> value ? std::optional(value) : std::nullopt;
}

// The cores the program may run on, but no more documents at a time than the memory holds: one takes
// up to about 600 MB. A container's limits count (cgroup v2 and v1), as does a CPU affinity mask.
int defaultCores() {
    cpu_set_t allowed;
    long long cores = ::sched_getaffinity(0, sizeof allowed, &allowed) == 0
                          ? CPU_COUNT(&allowed)
                          : std::thread::hardware_concurrency();
    std::ifstream cpuMax("/sys/fs/cgroup/cpu.max");
    long long quota = 0, period = 0;
    if (!(cpuMax >> quota >> period)) {
        quota = firstNumber("/sys/fs/cgroup/cpu/cpu.cfs_quota_us").value_or(-1);
        period = firstNumber("/sys/fs/cgroup/cpu/cpu.cfs_period_us").value_or(0);
    }
    if (quota > 0 && period > 0) {
        cores = std::min(cores, std::max(1LL, quota / period));
    }
    long long memory = static_cast<long long>(::sysconf(_SC_PHYS_PAGES)) * ::sysconf(_SC_PAGESIZE);
    for (const char* limit : {"/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory/memory.limit_in_bytes"}) {
        if (const auto bytes = firstNumber(limit); bytes && *bytes > 0) {
            memory = memory > 0 ? std::min(memory, *bytes) : *bytes;
        }
    }
    constexpr long long perDocument = 600LL << 20;
    if (memory > 0) {
        cores = std::min(cores, memory / perDocument);
    }
    return static_cast<int>(std::clamp(cores, 1LL, 64LL));
}

struct Arguments {
    std::vector<std::string> positional;
    std::optional<fs::path> output, regions, lines, report;
    RedactionPolicy policy;
    bool markCopy = false;
    std::string purpose, markDate;
    bool json = false;
    int cores = defaultCores();
};

// The switches of the optional kinds, for the commands that paint.
void addSwitches(CLI::App& command, RedactionPolicy& policy) {
    command.add_flag("--hide-face", policy.hideFace, "mask portraits (kind face)");
    command.add_flag("--hide-issue-date", policy.hideIssueDate, "mask issue dates (kind issueDate)");
    command.add_flag("--hide-expiry-date", policy.hideExpiryDate, "mask expiry dates (kind expiryDate)");
    command.add_flag("--hide-person-name", policy.hidePersonName, "mask names (kind personName)");
}

void addOutput(CLI::App& command, Arguments& a, const std::string& what) {
    command.add_option("-o,--output", a.output, what)->type_name("OUT")->check([](const std::string& name) {
        return name.empty() ? "needs a file or folder name" : "";
    });
}

// Every command and option, declared once: the parser and the help both read them from here.
void declare(CLI::App& app, Arguments& a) {
    app.footer(closingText);
    app.set_version_flag("--version", std::string("quorvel-cli ") + QUORVEL_VERSION);
    app.require_subcommand(1, 1);

    CLI::App& redact = *app.add_subcommand(
        "redact", R"(Recognises the document, masks every personal field it finds and saves a
copy without metadata.
  redact FILE -o OUT.png: a photo's copy is a PNG.
  redact IN.pdf -o OUT.pdf: every page of a PDF is rendered, masked the same
      way and saved in a new PDF made only of the page images: no text layer,
      fonts, annotations, attachments or metadata of the original survive.
      Names are always masked in PDFs. A file whose name ends in .pdf (any
      case) is a PDF. The output's name says what is written.
  redact FILE... -o DIR: the same for many files; each result is
      DIR/NAME-redacted.png (or .pdf). A file that fails is reported by name
      and the rest go on; the exit code is 1 if any failed.
  --report also writes what the analysis found, the JSON of analyze --json
      from the same run (a PDF's report: {"pages": [...]}), so that a large
      job recognises each file once; with many files it names a folder, and
      each report is DIR/NAME-redacted.json.)");
    redact.add_option("FILE", a.positional, "photos or PDFs")->required()->type_name("");
    addOutput(redact, a, "the copy, or an existing folder for many files");
    redact
        .add_option("-j", a.cores,
                    "cores to use, 1 to 64 (default: " + std::to_string(a.cores) +
                        ": the cores it may use, as far as memory holds a document for each); with many "
                        "files, N go at a time, one a core")
        ->check(CLI::Range(1, 64).description(""))
        ->type_name("N");
    redact.add_option("--report", a.report, "a JSON report, or a folder with many files")
        ->type_name("REPORT");
    redact.add_flag(
        "--mark-copy", a.markCopy,
        "write COPY (in the language of the locale: KOPIE, COPIE, КОПИЯ, ...), the purpose and the "
        "date across the whole copy, under the masks");
    redact
        .add_option("--purpose", a.purpose, "what the copy is for, at most 200 characters (with --mark-copy)")
        ->type_name("TEXT");
    redact.add_option("--mark-date", a.markDate, "the date of the mark (default: today)")
        ->type_name("YYYY-MM-DD");
    addSwitches(redact, a.policy);

    CLI::App& analyze = *app.add_subcommand(
        "analyze", R"(Prints what the analysis found: country, document type, warnings, risk and
the masks, without writing anything.
  analyze FILE
  analyze --lines LINES.json: the same analysis from recognised lines given
      as JSON instead of an image: {"lines": [{"text", "x", "y", "width",
      "height", "confidence", "ranges": [{"location", "length", "x", "y",
      "width", "height"}]}], "faces": [rect...], "barcodes": [rect...],
      "zones": [rect...], "spacedNumbers": [rect...], "image": {"width",
      "height"}, "software", "centering": {"applied", "confidence"},
      "supportedLanguages": [...]}.
      Every key but "lines" is optional; at most 2,000 lines of at most 1,000
      bytes each; rectangles are fractions of the image, origin at the
      top-left corner; ranges count UTF-16 code units. Without
      "supportedLanguages" the languages installed on this machine are
      assumed.)");
    analyze.add_option("FILE", a.positional, "a photo")->expected(1)->type_name("");
    analyze.add_option("--lines", a.lines, "recognised lines instead of a photo")->type_name("LINES.json");
    analyze.add_flag("--json", a.json, "print one JSON object");

    CLI::App& eval = *app.add_subcommand(
        "eval", R"(Measures the pipeline on a folder of annotated images: each NAME.jpg (or
.png, .heic, .heif) with a NAME.json {"fields": [{"kind", "x", "y", "width",
"height"}]} (fractions of the image as shown, origin top-left) is redacted
with every switch on, and the report gives per kind the fields fully masked
(98% of the box black) and missed, the share of the painted area outside
every field, and the seconds per image.)");
    eval.add_option("DIR", a.positional, "the folder")->required()->expected(1)->type_name("");
    eval.add_flag("--json", a.json, "print one JSON object");

    CLI::App& mask =
        *app.add_subcommand("mask", R"(Paints masks over the regions listed in R.json, a list of objects
  {"kind": "number", "x": 0.1, "y": 0.2, "width": 0.3, "height": 0.05}
(fractions of the image, origin at the top-left corner), and saves a PNG
without metadata.)");
    mask.add_option("IN", a.positional, "a photo")->required()->expected(1)->type_name("");
    mask.add_option("--regions", a.regions, "the regions")->required()->type_name("R.json");
    addOutput(mask, a, "the copy, a PNG");
    mask.get_option("--output")->required();
    addSwitches(mask, a.policy);
}

// The mark asked for with --mark-copy: the word in the language of the user's locale, the purpose as
// given (one line of at most 200 characters) and the date given, or today's.
std::optional<CopyMark> copyMark(const Arguments& a) {
    if (!a.markCopy) {
        if (!a.purpose.empty() || !a.markDate.empty()) {
            throw UsageError("--purpose and --mark-date describe the mark of --mark-copy");
        }
        return std::nullopt;
    }
    std::string language = "en";
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value && *value) {
            language = std::string(value).substr(0, 2);
            break;
        }
    }
    std::size_t characters = 0;
    for (unsigned char c : a.purpose) {
        if (c < 0x20 || c == 0x7F) {
            throw UsageError("--purpose is one line of text, without control characters");
        }
        characters += (c & 0xC0) != 0x80;
    }
    if (characters > ImagePipeline::longestPurpose) {
        throw UsageError("--purpose has " + std::to_string(characters) + " characters; at most " +
                         std::to_string(ImagePipeline::longestPurpose) + " are written");
    }
    std::string date = a.markDate;
    if (date.empty()) {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        ::localtime_r(&now, &local);
        char text[11];
        std::strftime(text, sizeof text, "%Y-%m-%d", &local);
        date = text;
    } else {
        int y = 0;
        unsigned m = 0, d = 0;
        char tail = 0;
        const bool shaped = date.size() == 10 && date[4] == '-' && date[7] == '-' &&
                            std::sscanf(date.c_str(), "%4d-%2u-%2u%c", &y, &m, &d, &tail) == 3;
        if (!shaped ||
            !std::chrono::year_month_day(std::chrono::year(y), std::chrono::month(m), std::chrono::day(d))
                 .ok()) {
            throw UsageError("--mark-date takes a date as YYYY-MM-DD, not " + date);
        }
    }
    return CopyMark{ImagePipeline::copyWord(language), a.purpose, date};
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

int runMask(const Arguments& a) {
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

int runAnalyze(const Arguments& a) {
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
                         const std::optional<CopyMark>& mark, bool pageProgress) {
    const PDFDocument document = PDFPipeline::load(input);
    std::optional<Progress> pages;
    if (pageProgress) {
        pages.emplace(static_cast<std::size_t>(document.pageCount));
    }
    const ProcessedPDF cleaned = PDFPipeline::process(
        document, policy,
        [&](int done, int) {
            if (pages) {
                pages->finished("page " + std::to_string(done));
            }
        },
        {}, mark);
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
               const std::optional<CopyMark>& mark, const std::optional<fs::path>& report,
               bool pageProgress = false) {
    nlohmann::json found;
    if (PDFPipeline::isPDFName(input)) {
        found = redactPDF(input, output, policy, mark, pageProgress);
    } else {
        const LoadedDocument document = ImagePipeline::load(input);
        const Analysis analysis = ImagePipeline::analyze(document);
        ImagePipeline::exportPNG(ImagePipeline::render(document.image, analysis.regions, policy, mark),
                                 output);
        found = analysisToJson(analysis);
    }
    if (report) {
        const std::string text = found.dump(2) + "\n";
        platform::FileSystem::writeAtomically(*report, std::vector<std::uint8_t>(text.begin(), text.end()));
    }
}

int runRedact(const Arguments& a) {
    if (!a.output) {
        throw UsageError("redact needs -o OUT.png, or -o DIR with many files");
    }
    const std::optional<CopyMark> mark = copyMark(a);
    // Documents side by side, a core each, do more in a minute than one document spread over the
    // cores, whose work does not divide evenly.
    const int workers = std::min<int>(a.cores, static_cast<int>(a.positional.size()));
    platform::Recognition::setCoresPerDocument(a.cores / workers);
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
        redactOne(a.positional[0], *a.output, a.policy, mark, a.report, true);
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
                redactOne(input, output, a.policy, mark, report);
                progress.finished(input.string());
            } catch (const std::exception& e) {
                ++failures;
                progress.finished(input.string(), e.what());
            }
        }
    };
    std::vector<std::thread> helpers;
    for (int w = 1; w < workers; ++w) {
        helpers.emplace_back(work);
    }
    work();
    for (std::thread& t : helpers) {
        t.join();
    }
    progress.done();
    std::cerr << jobs.size() - failures << " of " << jobs.size() << " files redacted"
              << (failures ? ", " + std::to_string(failures.load()) + " failed" : std::string()) << "\n";
    return failures ? exitFailed : exitOK;
}

int runEval(const Arguments& a) {
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

std::string helpText(const CLI::App& app) {
    return std::string(introText) + "\n\n" + app.help("", CLI::AppFormatMode::All);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("", "quorvel-cli");
    Arguments arguments;
    declare(app, arguments);
    // The help shows every command with its options.
    app.set_help_flag("-h,--help", "show this help");
    for (CLI::App* command : app.get_subcommands({})) {
        command->set_help_flag();
        command->add_flag_callback(
            "-h,--help", [] { throw CLI::CallForAllHelp(); }, "show this help");
    }
    app.get_formatter()->column_width(26);
    if (argc < 2) {
        std::cerr << helpText(app);
        return exitUsage;
    }
    const std::string first = argv[1];
    const auto commands = app.get_subcommands({});
    const bool known = std::any_of(commands.begin(), commands.end(),
                                   [&](const CLI::App* command) { return command->get_name() == first; });
    if (!first.starts_with("-") && first != "help" && !known) {
        std::cerr << "quorvel-cli: unknown command \"" << first << "\" (see quorvel-cli --help)\n";
        return exitUsage;
    }
    if (argc == 2 && std::string(argv[1]) == "help") {
        std::cout << helpText(app);
        return exitOK;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << helpText(app);
        return exitOK;
    } catch (const CLI::CallForAllHelp&) {
        std::cout << helpText(app);
        return exitOK;
    } catch (const CLI::CallForVersion& version) {
        std::cout << version.what() << "\n";
        return exitOK;
    } catch (const CLI::ParseError& error) {
        std::cerr << "quorvel-cli: " << error.what() << " (see quorvel-cli --help)\n";
        return exitUsage;
    }
    try {
        const std::string command = app.get_subcommands().front()->get_name();
        if (command == "mask") {
            return runMask(arguments);
        }
        if (command == "analyze") {
            return runAnalyze(arguments);
        }
        if (command == "redact") {
            return runRedact(arguments);
        }
        return runEval(arguments);
    } catch (const UsageError& error) {
        std::cerr << "quorvel-cli: " << error.what() << "\n";
        return exitUsage;
    } catch (const std::exception& error) {
        std::cerr << "quorvel-cli: " << error.what() << "\n";
        return exitFailed;
    }
}
