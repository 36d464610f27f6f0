#include "ImagePipeline.h"
#include "TestImages.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <fstream>
#include <random>
#include <string>

namespace {

// A 4000 x 3000 photo of a card on a table: the card covers the middle with a margin, as in a phone shot.
Bitmap cardPhoto() {
    cv::Mat photo(3000, 4000, CV_8UC3, cv::Scalar(70, 60, 55));
    std::mt19937 noise(11);
    for (int y = 0; y < photo.rows; ++y) {
        auto* row = photo.ptr<cv::Vec3b>(y);
        for (int x = 0; x < photo.cols; ++x) {
            row[x][0] = static_cast<std::uint8_t>(60 + noise() % 16);
        }
    }
    const std::vector<cv::Point> card{{600, 420}, {3450, 560}, {3380, 2480}, {520, 2380}};
    cv::fillConvexPoly(photo, card, cv::Scalar(232, 228, 218), cv::LINE_AA);
    for (int i = 0; i < 12; ++i) {
        cv::rectangle(photo, {1500, 700 + i * 130}, {1500 + 900 + (i * 97) % 900, 760 + i * 130},
                      cv::Scalar(40, 40, 50), cv::FILLED);
    }
    Bitmap image(4000, 3000);
    std::memcpy(image.pixels.data(), photo.data, image.pixels.size());
    return image;
}

void loadFile(benchmark::State& state, const std::string& name, const std::vector<std::uint8_t>& bytes) {
    const auto file = std::filesystem::temp_directory_path() / name;
    testing_support::writeBytes(file, bytes);
    for (auto _ : state) {
        benchmark::DoNotOptimize(ImagePipeline::load(file));
    }
    // Peak resident memory of one more load above what the process holds before it, in bitmaps of the
    // image's size (36 MB each).
    std::ofstream("/proc/self/clear_refs") << "5";
    const long before = testing_support::residentKiB("VmRSS:");
    benchmark::DoNotOptimize(ImagePipeline::load(file));
    state.counters["peakMB"] = static_cast<double>(testing_support::residentKiB("VmHWM:") - before) / 1024.0;
    state.counters["peakBitmaps"] =
        static_cast<double>(testing_support::residentKiB("VmHWM:") - before) * 1024.0 / 36e6;
    std::filesystem::remove(file);
}

void BM_Load12MPJpeg(benchmark::State& state) {
    loadFile(state, "quorvel-bench.jpg", testing_support::encodeJpeg(cardPhoto()));
}
BENCHMARK(BM_Load12MPJpeg)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_Load12MPHeic(benchmark::State& state) {
    loadFile(state, "quorvel-bench.heic", testing_support::encodeHeic({{cardPhoto(), 1}}));
}
BENCHMARK(BM_Load12MPHeic)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_Center12MP(benchmark::State& state) {
    const Bitmap photo = cardPhoto();
    bool applied = false;
    for (auto _ : state) {
        applied = ImagePipeline::centerDocument(photo).result.applied;
    }
    state.counters["applied"] = applied;
}
BENCHMARK(BM_Center12MP)->Unit(benchmark::kMillisecond)->Iterations(10);

} // namespace
