#include "TestImages.h"
#include "TestPdfs.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <png.h>

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

using namespace testing_support;

namespace {

struct CliRun {
    int exitCode = -1;
    std::string output; // stdout and stderr together
};

std::string quoted(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

CliRun cli(const std::string& arguments) {
    CliRun run;
    const std::string command = quoted(QUORVEL_CLI) + " " + arguments + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    std::array<char, 4096> buffer{};
    while (std::fgets(buffer.data(), buffer.size(), pipe)) {
        run.output += buffer.data();
    }
    const int status = ::pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

class MaskCommand : public ::testing::Test {
protected:
    void SetUp() override { writeBytes(dir / "in.jpg", encodeJpeg(patterned(200, 100))); }

    CliRun mask(const std::string& regionsJson, const std::string& extra = "") {
        const std::vector<std::uint8_t> json(regionsJson.begin(), regionsJson.end());
        writeBytes(dir / "r.json", json);
        return cli("mask " + quoted((dir / "in.jpg").string()) + " --regions " +
                   quoted((dir / "r.json").string()) + " -o " + quoted((dir / "out.png").string()) + " " +
                   extra);
    }

    TempDir dir;
};

} // namespace

TEST_F(MaskCommand, PaintsTheListedRegionsAndHonoursTheSwitches) {
    const std::string regions = R"([{"kind": "number", "x": 0.1, "y": 0.1, "width": 0.2, "height": 0.2},
                                    {"kind": "face", "x": 0.6, "y": 0.5, "width": 0.2, "height": 0.2}])";
    ASSERT_EQ(mask(regions).exitCode, 0);
    const auto withoutFace = readBytes(dir / "out.png");
    EXPECT_EQ(pngChunks(withoutFace), (std::vector<std::string>{"IHDR", "IDAT", "IEND"}));
    ASSERT_EQ(mask(regions, "--hide-face").exitCode, 0);
    EXPECT_NE(readBytes(dir / "out.png"), withoutFace);
}

TEST_F(MaskCommand, DoubleDashEndsTheOptionsSoAFileMayStartWithADash) {
    std::filesystem::copy_file(dir / "in.jpg", dir / "-in.jpg");
    writeBytes(dir / "r.json", std::vector<std::uint8_t>{'[', ']'});
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    const CliRun run = cli("mask --regions r.json -o out.png -- -in.jpg");
    const CliRun unknown = cli("mask --regions r.json -o out.png -in.jpg");
    std::filesystem::current_path(previous);
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_TRUE(std::filesystem::exists(dir / "out.png"));
    EXPECT_EQ(unknown.exitCode, 2) << unknown.output;
}

TEST_F(MaskCommand, MalformedRegionFilesGetOneLineNamingTheProblem) {
    struct Case {
        const char* json;
        const char* expected;
    };
    for (const Case c :
         {Case{"[{\"kind\": \"number\"", "not valid JSON"}, Case{"{\"kind\": \"number\"}", "expected a list"},
          Case{R"([{"kind": "passport", "x": 0, "y": 0, "width": 1, "height": 1}])",
               "unknown kind \"passport\""},
          Case{R"([{"kind": "Number", "x": 0, "y": 0, "width": 1, "height": 1}])", "unknown kind"},
          Case{R"([{"kind": "number", "x": "0", "y": 0, "width": 1, "height": 1}])",
               "\"x\" must be a number from -1000000 to 1000000"},
          Case{R"([{"kind": "number", "x": 0, "y": 1e308, "width": 1, "height": 1}])",
               "\"y\" must be a number from"},
          Case{R"([{"kind": "number", "x": 0, "y": 0, "width": 1e999, "height": 1}])", "not valid JSON"},
          Case{R"([{"kind": "number", "x": 0, "y": 0, "width": 1}])", "\"height\" must be a number from"},
          Case{R"([3])", "region 1 is not an object"}}) {
        const CliRun run = mask(c.json);
        EXPECT_EQ(run.exitCode, 2) << c.json;
        EXPECT_NE(run.output.find(c.expected), std::string::npos) << run.output;
        EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;
        EXPECT_FALSE(std::filesystem::exists(dir / "out.png"));
    }
}

TEST_F(MaskCommand, UnreadableInputsFailWithTheirOwnMessage) {
    writeBytes(dir / "r.json", std::vector<std::uint8_t>{'[', ']'});
    const CliRun missing =
        cli("mask " + quoted((dir / "nope.jpg").string()) + " --regions " +
            quoted((dir / "r.json").string()) + " -o " + quoted((dir / "out.png").string()));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.output.find("No such file or directory"), std::string::npos) << missing.output;

    writeBytes(dir / "text.jpg", std::vector<std::uint8_t>{'h', 'e', 'l', 'l', 'o'});
    const CliRun text = cli("mask " + quoted((dir / "text.jpg").string()) + " --regions " +
                            quoted((dir / "r.json").string()) + " -o " + quoted((dir / "out.png").string()));
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_NE(text.output.find("Не удалось прочитать изображение"), std::string::npos) << text.output;
    EXPECT_FALSE(std::filesystem::exists(dir / "out.png"));
}

TEST_F(MaskCommand, RefusesToOverwriteItsInput) {
    writeBytes(dir / "r.json", std::vector<std::uint8_t>{'[', ']'});
    const auto before = readBytes(dir / "in.jpg");
    const CliRun run = cli("mask " + quoted((dir / "in.jpg").string()) + " --regions " +
                           quoted((dir / "r.json").string()) + " -o " + quoted((dir / "in.jpg").string()));
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(readBytes(dir / "in.jpg"), before);
}

class AnalyzeCommand : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& text) {
        writeBytes(dir / name, std::vector<std::uint8_t>(text.begin(), text.end()));
        return quoted((dir / name).string());
    }
    TempDir dir;
};

TEST_F(AnalyzeCommand, RecognisedLinesAsJsonGiveTheWholeAnalysisAsJson) {
    const std::string lines = write("lines.json", R"({
        "lines": [
            {"text": "REPUBLIK ÖSTERREICH", "x": 0.3, "y": 0.05, "width": 0.4, "height": 0.05},
            {"text": "Geburtsdatum 12.08.1974", "x": 0.3, "y": 0.4, "width": 0.4, "height": 0.05, "confidence": 0.5,
             "ranges": [{"location": 0, "length": 12, "x": 0.3, "y": 0.4, "width": 0.2, "height": 0.05}]}
        ],
        "faces": [{"x": 0.05, "y": 0.2, "width": 0.2, "height": 0.3}],
        "barcodes": [{"x": 0.6, "y": 0.42, "width": 0.3, "height": 0.1}],
        "spacedNumbers": [{"x": 0.83, "y": 0.2, "width": 0.04, "height": 0.25}],
        "image": {"width": 1000, "height": 699},
        "supportedLanguages": ["en-US"]
    })");
    const CliRun run = cli("analyze --lines " + lines + " --json");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    for (const char* expected :
         {R"("code": "AUT")", R"("name": "Австрия")", R"("hasProfile": true)",
          R"("documentType": "Тип не определён")", R"("kind": "birthDate")", R"("evidence": "Подпись поля")",
          R"("kind": "face")", R"("kind": "number")", R"("score": 8)", R"("unavailableOCRLanguages": [)",
          R"("de")", "Низкое разрешение", "Часть текста распознана неуверенно", R"("recognizedLines": 2)",
          // The barcode's rectangle comes back exactly as given, not moved by a unit in the last place.
          "\"y\": 0.42\n"}) {
        EXPECT_NE(run.output.find(expected), std::string::npos) << expected << "\n" << run.output;
    }
}

TEST_F(AnalyzeCommand, AbsentOptionalsAreNullAndBadInputIsNamed) {
    const CliRun empty = cli("analyze --lines " +
                             write("empty.json", R"({"lines": [], "supportedLanguages": []})") + " --json");
    ASSERT_EQ(empty.exitCode, 0) << empty.output;
    EXPECT_NE(empty.output.find(R"("code": null)"), std::string::npos);
    EXPECT_NE(empty.output.find(R"("score": null)"), std::string::npos);
    const CliRun broken = cli("analyze --lines " + write("bad.json", R"({"lines": [{"text": 3}]})"));
    EXPECT_EQ(broken.exitCode, 2);
    EXPECT_NE(broken.output.find("line 1: \"text\" must be a string"), std::string::npos) << broken.output;
    EXPECT_EQ(cli("analyze").exitCode, 2);
}

TEST_F(AnalyzeCommand, MoreThanAPageOfLinesIsRefusedBeforeAnyWork) {
    const std::string line = R"({"text": "%", "x": 0.1, "y": 0.1, "width": 0.5, "height": 0.02})";
    auto withText = [&](const std::string& text) {
        std::string item = line;
        return item.replace(item.find('%'), 1, text);
    };
    const CliRun longest = cli("analyze --lines " +
                               write("long.json", "{\"lines\": [" + withText(std::string(1000, 'A')) + "]}"));
    EXPECT_EQ(longest.exitCode, 0) << longest.output.substr(0, 200);
    const CliRun tooLong = cli(
        "analyze --lines " + write("longer.json", "{\"lines\": [" + withText(std::string(1001, 'A')) + "]}"));
    EXPECT_EQ(tooLong.exitCode, 2);
    EXPECT_NE(tooLong.output.find("line 1: \"text\" may hold at most 1000 bytes"), std::string::npos)
        << tooLong.output;
    std::string many = "{\"lines\": [";
    for (int i = 0; i < 2001; ++i) {
        many += (i ? "," : "") + withText("ANNA");
    }
    const CliRun tooMany = cli("analyze --lines " + write("many.json", many + "]}"));
    EXPECT_EQ(tooMany.exitCode, 2);
    EXPECT_NE(tooMany.output.find("at most 2000 lines, not 2001"), std::string::npos) << tooMany.output;
}

class RedactCommand : public ::testing::Test {
protected:
    TempDir dir;
};

TEST_F(RedactCommand, ManyFilesGoOnPastAFailureAndReportIt) {
    std::filesystem::create_directory(dir / "out");
    writeBytes(dir / "a.jpg", encodeJpeg(patterned(320, 200)));
    writeBytes(dir / "b.png", std::vector<std::uint8_t>{'n', 'o', 't'});
    writeBytes(dir / "c.jpg", encodeJpeg(patterned(200, 320)));
    const CliRun run =
        cli("redact -j 2 " + quoted((dir / "a.jpg").string()) + " " + quoted((dir / "b.png").string()) + " " +
            quoted((dir / "c.jpg").string()) + " -o " + quoted((dir / "out").string()));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.output.find("b.png: Не удалось прочитать изображение"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("2 of 3 files redacted, 1 failed"), std::string::npos) << run.output;
    std::vector<std::string> written;
    for (const auto& entry : std::filesystem::directory_iterator(dir / "out")) {
        written.push_back(entry.path().filename().string());
    }
    std::sort(written.begin(), written.end());
    EXPECT_EQ(written, (std::vector<std::string>{"a-redacted.png", "c-redacted.png"}));
}

TEST_F(RedactCommand, NeverOverwritesAnInput) {
    writeBytes(dir / "a.jpg", encodeJpeg(patterned(64, 64)));
    writeBytes(dir / "a-redacted.png", encodeJpeg(patterned(64, 64)));
    const auto before = readBytes(dir / "a-redacted.png");
    const CliRun run = cli("redact " + quoted((dir / "a.jpg").string()) + " " +
                           quoted((dir / "a-redacted.png").string()) + " -o " + quoted(dir.path().string()));
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(readBytes(dir / "a-redacted.png"), before);
}

TEST_F(RedactCommand, OneFileNeverOverwritesItselfNotEvenThroughALink) {
    writeBytes(dir / "a.png", encodePng(2, 2, PNG_COLOR_TYPE_GRAY, 8, {1, 2, 3, 4}));
    std::filesystem::create_symlink(dir / "a.png", dir / "link.png");
    writeBytes(dir / "r.json", std::vector<std::uint8_t>{'[', ']'});
    const auto before = readBytes(dir / "a.png");
    for (const char* target : {"a.png", "link.png"}) {
        const std::string output = quoted((dir / target).string());
        const CliRun redact = cli("redact " + quoted((dir / "a.png").string()) + " -o " + output);
        EXPECT_EQ(redact.exitCode, 2) << target << ": " << redact.output;
        const CliRun mask = cli("mask " + quoted((dir / "a.png").string()) + " --regions " +
                                quoted((dir / "r.json").string()) + " -o " + output);
        EXPECT_EQ(mask.exitCode, 2) << target << ": " << mask.output;
        EXPECT_EQ(readBytes(dir / "a.png"), before) << target;
    }
}

TEST_F(RedactCommand, TwoInputsOfOneNameFromTwoFoldersAreRefusedBeforeAnyWork) {
    std::filesystem::create_directories(dir / "x");
    std::filesystem::create_directories(dir / "y");
    std::filesystem::create_directories(dir / "out");
    writeBytes(dir / "x" / "scan.jpg", encodeJpeg(patterned(64, 64)));
    writeBytes(dir / "y" / "scan.jpg", encodeJpeg(patterned(64, 64)));
    const CliRun run =
        cli("redact " + quoted((dir / "x" / "scan.jpg").string()) + " " +
            quoted((dir / "y" / "scan.jpg").string()) + " -o " + quoted((dir / "out").string()));
    EXPECT_EQ(run.exitCode, 2) << run.output;
    EXPECT_NE(run.output.find("scan-redacted.png"), std::string::npos) << run.output;
    EXPECT_TRUE(std::filesystem::is_empty(dir / "out"));
}

TEST_F(RedactCommand, TheCopyMarkGoesOnPhotoAndEveryPageAndAddsNothingElse) {
    writeBytes(dir / "a.jpg", encodeJpeg(patterned(320, 200)));
    writeBytes(dir / "in.pdf", makePdf({TestPage{}, TestPage{}}));
    const std::string mark =
        " --mark-copy --purpose " + quoted("for the bank, account 7") + " --mark-date 2026-11-23";
    const std::string photo = "redact " + quoted((dir / "a.jpg").string()) + " -o ";
    ASSERT_EQ(cli(photo + quoted((dir / "plain.png").string())).exitCode, 0);
    const CliRun marked = cli(photo + quoted((dir / "marked.png").string()) + mark);
    ASSERT_EQ(marked.exitCode, 0) << marked.output;
    const auto bytes = readBytes(dir / "marked.png");
    EXPECT_EQ(pngChunks(bytes), (std::vector<std::string>{"IHDR", "IDAT", "IEND"}));
    EXPECT_NE(bytes, readBytes(dir / "plain.png"));

    const CliRun pdf = cli("redact " + quoted((dir / "in.pdf").string()) + " -o " +
                           quoted((dir / "out.pdf").string()) + mark);
    ASSERT_EQ(pdf.exitCode, 0) << pdf.output;
    const PdfFacts facts = inspectPdf(readBytes(dir / "out.pdf"));
    EXPECT_EQ(facts.pageSizes.size(), 2u);
    EXPECT_EQ(facts.infoKeys, std::vector<std::string>{"/Creator"});
    EXPECT_FALSE(facts.hasFonts);
    EXPECT_EQ(facts.text.find_first_not_of(" \n\f"), std::string::npos) << facts.text; // drawn, never text

    for (const std::string& wrong : std::vector<std::string>{
             " --mark-copy --purpose " + quoted(std::string(201, 'x')), " --mark-copy --mark-date 2026-02-30",
             " --mark-copy --mark-date 23.11.2026", " --purpose " + quoted("for the bank"),
             " --mark-copy --purpose " + quoted("a\tb")}) {
        const CliRun run = cli(photo + quoted((dir / "wrong.png").string()) + wrong);
        EXPECT_EQ(run.exitCode, 2) << wrong << ": " << run.output;
        EXPECT_FALSE(std::filesystem::exists(dir / "wrong.png")) << wrong;
    }
}

TEST_F(RedactCommand, APdfBecomesAnImageOnlyPdf) {
    writeBytes(dir / "in.PDF",
               makePdf({TestPage{0, 0, 595, 842, {"SECRETWORD", "Document No X4RTBPFW4"}}, TestPage{}}));
    const CliRun run =
        cli("redact " + quoted((dir / "in.PDF").string()) + " -o " + quoted((dir / "out.pdf").string()));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("2/2"), std::string::npos) << run.output; // page progress
    const PdfFacts facts = inspectPdf(readBytes(dir / "out.pdf"));
    EXPECT_EQ(facts.pageSizes.size(), 2u);
    EXPECT_EQ(facts.infoKeys, std::vector<std::string>{"/Creator"});
    EXPECT_EQ(facts.text.find("SECRETWORD"), std::string::npos);
}

TEST_F(RedactCommand, ABrokenPdfWritesNothing) {
    const auto good = makePdf({TestPage{}});
    writeBytes(dir / "cut.pdf", std::span(good).first(good.size() / 2));
    writeBytes(dir / "locked.pdf", makePdf({TestPage{}}, TestPdfOptions{true, "secret"}));
    for (const char* name : {"cut.pdf", "locked.pdf"}) {
        const CliRun run =
            cli("redact " + quoted((dir / name).string()) + " -o " + quoted((dir / "out.pdf").string()));
        EXPECT_EQ(run.exitCode, 1) << name;
        EXPECT_NE(run.output.find("Не удалось прочитать изображение"), std::string::npos) << run.output;
    }
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"cut.pdf", "locked.pdf"}));
}

TEST(CommandLine, HelpDocumentsEveryOptionAndExitCode) {
    const CliRun help = cli("--help");
    EXPECT_EQ(help.exitCode, 0);
    for (const char* word : {"mask", "redact", "analyze", "--lines", "--json", "-j N", "--regions",
                             "--hide-face", "--hide-issue-date", "--hide-expiry-date", "--hide-person-name",
                             "--mark-copy", "--purpose", "--mark-date", "Exit codes", "--version"}) {
        EXPECT_NE(help.output.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(cli("frobnicate").exitCode, 2);
    EXPECT_EQ(cli("mask in.jpg --bogus").exitCode, 2);
}

TEST(EvalCommand, AnUnknownAnnotationKindIsRefusedAsMaskRefusesIt) {
    const TempDir dir;
    writeBytes(dir / "a.jpg", encodeJpeg(patterned(200, 100)));
    const std::string annotation =
        R"({"fields": [{"kind": "number", "x": 0, "y": 0, "width": 0.1, "height": 0.1},
                                                  {"kind": "bogus", "x": 0, "y": 0, "width": 0.1, "height": 0.1}]})";
    writeBytes(dir / "a.json", std::vector<std::uint8_t>(annotation.begin(), annotation.end()));
    const CliRun run = cli("eval " + quoted(dir.path().string()));
    EXPECT_EQ(run.exitCode, 2) << run.output;
    EXPECT_NE(run.output.find("field 2: unknown kind \"bogus\""), std::string::npos) << run.output;
}

TEST(CommandLine, TheOutputsNameMustSayWhatItHolds) {
    const TempDir dir;
    writeBytes(dir / "in.jpg", encodeJpeg(patterned(200, 100)));
    writeBytes(dir / "in.pdf", makePdf({TestPage{}}));
    for (const auto& [input, output] :
         {std::pair{"in.jpg", "out.pdf"}, {"in.jpg", "out.jpg"}, {"in.pdf", "out.png"}}) {
        const CliRun run =
            cli("redact " + quoted((dir / input).string()) + " -o " + quoted((dir / output).string()));
        EXPECT_EQ(run.exitCode, 2) << input << " -> " << output << ": " << run.output;
        EXPECT_NE(run.output.find("name the output"), std::string::npos) << run.output;
    }
    const CliRun empty = cli("redact " + quoted((dir / "in.jpg").string()) + " -o ''");
    EXPECT_EQ(empty.exitCode, 2) << empty.output;
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"in.jpg", "in.pdf"}));
}

TEST(CommandLine, AReportIsTheAnalysisOfTheSameRun) {
    const TempDir dir;
    writeBytes(dir / "in.jpg", encodeJpeg(patterned(300, 200)));
    const CliRun analyzed = cli("analyze --json " + quoted((dir / "in.jpg").string()));
    ASSERT_EQ(analyzed.exitCode, 0) << analyzed.output;
    const CliRun one =
        cli("redact " + quoted((dir / "in.jpg").string()) + " -o " + quoted((dir / "out.png").string()) +
            " --report " + quoted((dir / "out.json").string()));
    ASSERT_EQ(one.exitCode, 0) << one.output;
    const auto report = readBytes(dir / "out.json");
    EXPECT_EQ(nlohmann::json::parse(report.begin(), report.end()), nlohmann::json::parse(analyzed.output));
    // Many files: one report each, named after its copy.
    std::filesystem::create_directory(dir / "batch");
    writeBytes(dir / "second.jpg", encodeJpeg(patterned(200, 300)));
    const CliRun many =
        cli("redact " + quoted((dir / "in.jpg").string()) + " " + quoted((dir / "second.jpg").string()) +
            " -o " + quoted((dir / "batch").string()) + " --report " + quoted((dir / "batch").string()));
    ASSERT_EQ(many.exitCode, 0) << many.output;
    EXPECT_TRUE(std::filesystem::exists(dir / "batch" / "in-redacted.json"));
    EXPECT_TRUE(std::filesystem::exists(dir / "batch" / "second-redacted.json"));
}
