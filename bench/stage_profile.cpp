// Where the time of one document goes, stage by stage, over every image of a folder:
//   stage_profile FOLDER
// Stages run as the pipeline runs them, on this machine's two cores; each is timed on its own.

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

namespace fs = std::filesystem;

namespace {

double since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main(int argc, char** argv) {
    platform::Recognition::limitRecognitionThreads(argv);
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
    std::map<std::string, double> total;
    const auto languages = platform::Recognition::supportedLanguages();
    const auto ordered = OCRLanguages::prioritized(languages);
    // Models load once per process; a first document pays for them and is not counted.
    platform::Recognition::recognize(Bitmap(64, 64), ordered);
    const fs::path scratch = fs::temp_directory_path() / "quorvel-stage-profile.png";
    for (const fs::path& file : images) {
        auto t = std::chrono::steady_clock::now();
        const auto bytes = platform::FileSystem::readFile(file);
        Bitmap image = platform::ImageDecoder::decodeUpright(bytes, platform::ImageDecoder::sniff(bytes));
        total["decode"] += since(t);
        t = std::chrono::steady_clock::now();
        ImagePipeline::Centered centered = ImagePipeline::centerDocument(std::move(image));
        total["centering"] += since(t);
        t = std::chrono::steady_clock::now();
        ImagePipeline::Upright upright = ImagePipeline::turnUpright(std::move(centered.image));
        total["orientation"] += since(t);
        t = std::chrono::steady_clock::now();
        platform::Recognition::recognize(upright.image, ordered, 1);
        total["recognition, 1 reader"] += since(t);
        t = std::chrono::steady_clock::now();
        platform::Recognition::detectFaces(upright.image);
        total["faces alone"] += since(t);
        t = std::chrono::steady_clock::now();
        platform::Recognition::detectBarcodes(upright.image);
        total["barcodes alone"] += since(t);
        t = std::chrono::steady_clock::now();
        ImagePipeline::AssemblyInput input;
        input.recognition = platform::Recognition::recognize(upright.image, ordered, 2);
        total["recognition, 2 readers"] += since(t);
        input.supportedLanguages = languages;
        input.image = RiskEngine::PixelSize{upright.image.width, upright.image.height};
        t = std::chrono::steady_clock::now();
        const Analysis analysis = ImagePipeline::assemble(input);
        total["assembly"] += since(t);
        t = std::chrono::steady_clock::now();
        const Bitmap cleaned = ImagePipeline::render(upright.image, analysis.regions, RedactionPolicy{});
        total["rendering"] += since(t);
        t = std::chrono::steady_clock::now();
        ImagePipeline::exportPNG(cleaned, scratch);
        total["export"] += since(t);
        std::fprintf(stderr, ".");
    }
    fs::remove(scratch);
    std::printf("\n%zu images; mean seconds per image\n", images.size());
    for (const std::string& stage : stages) {
        std::printf("  %-24s %6.3f\n", stage.c_str(), images.empty() ? 0.0 : total[stage] / images.size());
    }
    return 0;
}
