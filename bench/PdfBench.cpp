#include "PDFPipeline.h"
#include "TestImages.h"
#include "TestPdfs.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

// A4 pages of a data page's worth of text each.
void BM_ProcessA4Pdf(benchmark::State& state) {
    using namespace testing_support;
    const int pages = static_cast<int>(state.range(0));
    std::vector<TestPage> content;
    for (int i = 0; i < pages; ++i) {
        content.push_back(TestPage{0,
                                   0,
                                   595,
                                   842,
                                   {"REPUBLIQUE FRANCAISE", "Nom / Surname", "MARTIN",
                                    "Date de naissance 14.07.1985", "Document No X4RTBPFW4",
                                    "Adresse 8 RUE DES LILAS 69003 LYON", "Page " + std::to_string(i + 1)}});
    }
    const auto file = std::filesystem::temp_directory_path() / "quorvel-bench.pdf";
    writeBytes(file, makePdf(content));
    std::ofstream("/proc/self/clear_refs") << "5";
    const long before = testing_support::residentKiB("VmRSS:");
    double seconds = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(PDFPipeline::process(PDFPipeline::load(file), PDFPipeline::pdfPolicy()));
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    state.counters["secondsPerPage"] = seconds / pages;
    state.counters["peakMB"] = static_cast<double>(testing_support::residentKiB("VmHWM:") - before) / 1024.0;
    std::filesystem::remove(file);
}
BENCHMARK(BM_ProcessA4Pdf)->Arg(1)->Arg(10)->Arg(50)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace
