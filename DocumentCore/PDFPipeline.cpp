#include "PDFPipeline.h"

#include "ImagePipeline.h"
#include "Pdf.h"
#include "PlatformError.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace PDFPipeline {
namespace {

// The longer side aims at 2,200 pixels, but a page is never rendered below 1 or above 2 pixels per point.
constexpr double targetSide = 2200;
constexpr double minimumScale = 1.0;
constexpr double maximumScale = 2.0;

std::optional<Bitmap> render(const PDFDocument& document, int index) {
    const auto box = platform::Pdf::mediaBox(*document.handle, index);
    if (!box || !(box->width > 0) || !(box->height > 0)) {
        return std::nullopt;
    }
    const double scale = std::clamp(targetSide / std::max(box->width, box->height), minimumScale, maximumScale);
    // std::lround rounds half away from zero.
    const long width = std::max(1L, std::lround(box->width * scale));
    const long height = std::max(1L, std::lround(box->height * scale));
    if (width > 20000 || height > 20000) { // twice the largest page a PDF may have is 28,800 points
        return std::nullopt;
    }
    return platform::Pdf::renderPage(*document.handle, index, scale, static_cast<int>(width), static_cast<int>(height));
}

std::vector<std::uint8_t> makePDF(const std::vector<PDFPageResult>& pages) {
    std::vector<const Bitmap*> images;
    for (const PDFPageResult& page : pages) {
        images.push_back(&page.cleaned);
    }
    try {
        return platform::Pdf::writeImagePDF(images, "Quorvel");
    } catch (const platform::CodecError&) {
        return {}; // no writer: an empty file, as the application expects
    }
}

} // namespace

PDFDocument load(const std::filesystem::path& file) {
    try {
        PDFDocument document{platform::Pdf::open(file), 0};
        document.pageCount = platform::Pdf::pageCount(*document.handle);
        if (document.pageCount < 1) {
            throw DocumentError(DocumentError::invalidImage);
        }
        return document;
    } catch (const platform::CodecError&) {
        throw DocumentError(DocumentError::invalidImage);
    }
}

RedactionPolicy pdfPolicy() noexcept { return RedactionPolicy{false, false, false, true}; }

ProcessedPDF process(const PDFDocument& document, const RedactionPolicy& policy, const PageProgress& progress) {
    ProcessedPDF result;
    for (int index = 0; index < document.pageCount; ++index) {
        std::optional<Bitmap> page = render(document, index);
        if (!page) {
            throw DocumentError(DocumentError::invalidImage);
        }
        // PDF pages are never perspective-centred, but a page scanned sideways is turned upright.
        ImagePipeline::Upright upright = ImagePipeline::turnUpright(std::move(*page));
        LoadedDocument loaded{std::move(upright.image), std::nullopt, CenteringResult{false, 0}, upright.quarterTurns};
        Analysis analysis = ImagePipeline::analyze(loaded);
        Bitmap cleaned = ImagePipeline::render(loaded.image, analysis.regions, policy);
        result.pages.push_back(PDFPageResult{index, std::move(loaded.image), std::move(cleaned), std::move(analysis)});
        if (progress) {
            progress(index + 1, document.pageCount);
        }
    }
    result.data = makePDF(result.pages);
    return result;
}

} // namespace PDFPipeline
