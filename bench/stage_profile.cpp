// Where the time of one document goes, stage by stage, over every image of a folder:
//   stage_profile FOLDER
// Stages run as the pipeline runs them, on this machine's two cores; each is timed on its own, in
// wall time and in the processor time of all its threads (their ratio: the cores it keeps busy).

#include "FileSystem.h"
#include "ImageDecoder.h"
#include "ImagePipeline.h"
#include "OCRLanguages.h"
#include "Recognition.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <vector>

#include <sys/resource.h>

namespace fs = std::filesystem;

namespace {

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Clock {
    std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
    double processor = processorSeconds();
};

struct Spent {
    double wall = 0, processor = 0;
    void add(const Clock& start) {
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - start.wall).count();
        processor += processorSeconds() - start.processor;
    }
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: stage_profile FOLDER\n");
        return 2;
    }
    std::vector<fs::path> images;
    for (const auto& entry : fs::directory_iterator(argv[1])) {
        const std::string ext = entry.path().extension().string();
        if (ext == ".jpg" || ext == ".png" || ext == ".jpeg") {
            images.push_back(entry.path());
        }
    }
    std::sort(images.begin(), images.end());
    const std::vector<std::string> stages{"decode",
                                          "centering",
                                          "orientation",
                                          "recognition, 1 reader",
                                          "recognition, 2 readers",
                                          "faces alone",
                                          "barcodes alone",
                                          "assembly",
                                          "rendering",
                                          "export"};
    std::map<std::string, Spent> total;
    const auto languages = platform::Recognition::supportedLanguages();
    const auto ordered = OCRLanguages::prioritized(languages);
    // Models load once per process; a first document pays for them and is not counted.
    platform::Recognition::recognize(Bitmap(64, 64), ordered);
    const fs::path scratch = fs::temp_directory_path() / "quorvel-stage-profile.png";
    for (const fs::path& file : images) {
        Clock t;
        const auto bytes = platform::FileSystem::readFile(file);
        Bitmap image = platform::ImageDecoder::decodeUpright(bytes, platform::ImageDecoder::sniff(bytes));
        total["decode"].add(t);
        t = Clock();
        ImagePipeline::Centered centered = ImagePipeline::centerDocument(std::move(image));
        total["centering"].add(t);
        t = Clock();
        ImagePipeline::Upright upright = ImagePipeline::turnUpright(std::move(centered.image));
        total["orientation"].add(t);
        t = Clock();
        platform::Recognition::recognize(upright.image, ordered, 1);
        total["recognition, 1 reader"].add(t);
        t = Clock();
        platform::Recognition::detectFaces(upright.image);
        total["faces alone"].add(t);
        t = Clock();
        platform::Recognition::detectBarcodes(upright.image);
        total["barcodes alone"].add(t);
        t = Clock();
        ImagePipeline::AssemblyInput input;
        input.recognition = platform::Recognition::recognize(upright.image, ordered, 2);
        total["recognition, 2 readers"].add(t);
        input.supportedLanguages = languages;
        input.image = RiskEngine::PixelSize{upright.image.width, upright.image.height};
        t = Clock();
        const Analysis analysis = ImagePipeline::assemble(input);
        total["assembly"].add(t);
        t = Clock();
        const Bitmap cleaned = ImagePipeline::render(upright.image, analysis.regions, RedactionPolicy{});
        total["rendering"].add(t);
        t = Clock();
        ImagePipeline::exportPNG(cleaned, scratch);
        total["export"].add(t);
        std::fprintf(stderr, ".");
    }
    fs::remove(scratch);
    std::printf("\n%zu images; mean seconds per image: wall, processor\n", images.size());
    const double n = std::max<std::size_t>(1, images.size());
    for (const std::string& stage : stages) {
        std::printf("  %-24s %6.3f %6.3f\n", stage.c_str(), total[stage].wall / n,
                    total[stage].processor / n);
    }
    return 0;
}
