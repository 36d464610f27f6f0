#include "PDFPipeline.h"

#include "ImagePipeline.h"
#include "Pdf.h"
#include "PlatformError.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <optional>

namespace PDFPipeline {
namespace {

// The longer side aims at 2,200 pixels, but a page is never rendered below 1 or above 2 pixels per
// point, unless it is so large that its bitmap would pass the limits a photo has (20,000 pixels a side,
// 50 megapixels): such a page is rendered at the scale that keeps it within them.
constexpr double targetSide = 2200;
constexpr double minimumScale = 1.0;
constexpr double maximumScale = 2.0;
constexpr double largestSide = 20000;
constexpr double mostPixels = 50e6;
// A side longer than this many points (35 metres) is no document page but a broken or hostile file.
constexpr double largestPage = 100000;

std::optional<Bitmap> render(const PDFDocument& document, int index) {
    const auto box = platform::Pdf::mediaBox(*document.handle, index);
    if (!box || !(box->width > 0) || !(box->height > 0) || !(box->width <= largestPage) ||
        !(box->height <= largestPage)) {
        return std::nullopt;
    }
    const double scale =
        std::min({std::clamp(targetSide / std::max(box->width, box->height), minimumScale, maximumScale),
                  largestSide / std::max(box->width, box->height),
                  std::sqrt(mostPixels / (box->width * box->height))});
    // std::lround rounds half away from zero.
    const long width = std::clamp(std::lround(box->width * scale), 1L, static_cast<long>(largestSide));
    const long height = std::clamp(std::lround(box->height * scale), 1L, static_cast<long>(largestSide));
    return platform::Pdf::renderPage(*document.handle, index, scale, static_cast<int>(width),
                                     static_cast<int>(height));
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

bool isPDFName(const std::filesystem::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".pdf";
}

RedactionPolicy pdfPolicy() noexcept {
    return RedactionPolicy{false, false, false, true};
}

namespace {

// The new PDF, page by page. A writer that fails gives an empty file, which the callers treat as a
// failed export; the pages still go on to be shown.
class PageWriter {
public:
    PageWriter() {
        try {
            writer_.emplace();
        } catch (const platform::CodecError&) {
        }
    }
    void add(const Bitmap& page) {
        if (writer_) {
            try {
                writer_->addPage(page);
            } catch (const platform::CodecError&) {
                writer_.reset();
            }
        }
    }
    std::vector<std::uint8_t> finish() {
        if (writer_) {
            try {
                return writer_->finish("Quorvel");
            } catch (const platform::CodecError&) {
            }
        }
        return {};
    }

private:
    std::optional<platform::Pdf::ImagePDFWriter> writer_;
};

} // namespace

ProcessedPDF process(const PDFDocument& document, RedactionPolicy policy, const PageProgress& progress,
                     const PageDone& pageDone, const std::optional<CopyMark>& mark) {
    policy.hidePersonName = true; // names are always hidden in PDFs
    ProcessedPDF result;
    PageWriter writer;
    for (int index = 0; index < document.pageCount; ++index) {
        std::optional<Bitmap> page = render(document, index);
        if (!page) {
            throw DocumentError(DocumentError::invalidImage);
        }
        // PDF pages are never perspective-centred, but a page scanned sideways is turned upright.
        ImagePipeline::Upright upright = ImagePipeline::turnUpright(std::move(*page));
        LoadedDocument loaded{std::move(upright.image), std::nullopt, CenteringResult{false, 0},
                              upright.quarterTurns, upright.skew};
        Analysis analysis = ImagePipeline::analyze(loaded);
        Bitmap cleaned = ImagePipeline::render(loaded.image, analysis.regions, policy, mark);
        writer.add(cleaned);
        result.pages.push_back(analysis);
        if (pageDone) {
            pageDone(PDFPageResult{index, std::move(loaded.image), std::move(cleaned), std::move(analysis)});
        }
        if (progress) {
            progress(index + 1, document.pageCount);
        }
    }
    result.data = writer.finish();
    return result;
}

std::vector<std::uint8_t> remask(const std::vector<Analysis>& analyses,
                                 const std::function<Bitmap(int)>& original, RedactionPolicy policy,
                                 const std::optional<CopyMark>& mark,
                                 const std::function<void(int, Bitmap&&)>& pageDone) {
    policy.hidePersonName = true; // names are always hidden in PDFs
    PageWriter writer;
    for (std::size_t index = 0; index < analyses.size(); ++index) {
        const int page = static_cast<int>(index);
        Bitmap cleaned = ImagePipeline::render(original(page), analyses[index].regions, policy, mark);
        writer.add(cleaned);
        if (pageDone) {
            pageDone(page, std::move(cleaned));
        }
    }
    return writer.finish();
}

} // namespace PDFPipeline
