#include "DocumentTypes.h"
#include "ImagePipeline.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <random>

namespace {

// A 12 MP photo-like picture: smooth gradients plus sensor noise, which is what makes photos hard to
// compress.
Bitmap photoLike(int width, int height) {
    Bitmap image(width, height);
    std::mt19937 noise(7);
    for (int y = 0; y < height; ++y) {
        std::uint8_t* row = image.row(y);
        for (int x = 0; x < width; ++x) {
            const int n = static_cast<int>(noise() % 9) - 4;
            row[x * 3 + 0] = static_cast<std::uint8_t>(std::clamp(60 + x * 120 / width + n, 0, 255));
            row[x * 3 + 1] = static_cast<std::uint8_t>(std::clamp(90 + y * 100 / height + n, 0, 255));
            row[x * 3 + 2] = static_cast<std::uint8_t>(std::clamp(140 + (x + y) % 50 + n, 0, 255));
        }
    }
    return image;
}

std::vector<RedactionRegion> fortyRegions() {
    std::vector<RedactionRegion> regions;
    for (int i = 0; i < 40; ++i) {
        regions.push_back(RedactionRegion{FieldKind::number,
                                          Rect{0.05 + (i % 5) * 0.18, 0.04 + (i / 5) * 0.12, 0.15, 0.05},
                                          Uuid::random(), FieldEvidence::format});
    }
    return regions;
}

void BM_Render12MP40Regions(benchmark::State& state) {
    const Bitmap image = photoLike(4000, 3000);
    const auto regions = fortyRegions();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ImagePipeline::render(image, regions, RedactionPolicy{}));
    }
}
BENCHMARK(BM_Render12MP40Regions)->Unit(benchmark::kMillisecond);

// The same with the copy mark written across the photo first.
void BM_Render12MP40RegionsMarked(benchmark::State& state) {
    const Bitmap image = photoLike(4000, 3000);
    const auto regions = fortyRegions();
    const CopyMark mark{"KOPIE", "für den Mietvertrag, Wohnung 3", "2026-11-23"};
    for (auto _ : state) {
        benchmark::DoNotOptimize(ImagePipeline::render(image, regions, RedactionPolicy{}, mark));
    }
}
BENCHMARK(BM_Render12MP40RegionsMarked)->Unit(benchmark::kMillisecond);

void BM_ExportPNG12MP(benchmark::State& state) {
    const Bitmap image = ImagePipeline::render(photoLike(4000, 3000), fortyRegions(), RedactionPolicy{});
    const auto target = std::filesystem::temp_directory_path() / "quorvel-bench-export.png";
    for (auto _ : state) {
        ImagePipeline::exportPNG(image, target);
    }
    std::filesystem::remove(target);
}
BENCHMARK(BM_ExportPNG12MP)->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace
