// PDF opening, media boxes, page rendering and the rebuilding of an image-only PDF on arbitrary bytes.
// Recognition is left out: it is slow and sees only the rendered bitmaps, which the photo target covers.

#include "FuzzSupport.h"
#include "PDFPipeline.h"
#include "Pdf.h"

#include <algorithm>
#include <cmath>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryFile file(data, size);
    try {
        const PDFDocument document = PDFPipeline::load(file.path());
        std::vector<Bitmap> pages;
        for (int i = 0; i < std::min(document.pageCount, 4); ++i) {
            const auto box = platform::Pdf::mediaBox(*document.handle, i);
            if (!box || !(box->width > 0) || !(box->height > 0) || box->width * box->height > 1e6) {
                continue;
            }
            const int width = std::max(1, static_cast<int>(std::lround(box->width)));
            const int height = std::max(1, static_cast<int>(std::lround(box->height)));
            if (auto page = platform::Pdf::renderPage(*document.handle, i, 1.0, width, height)) {
                pages.push_back(std::move(*page));
            }
        }
        std::vector<const Bitmap*> images;
        for (const Bitmap& page : pages) {
            images.push_back(&page);
        }
        if (!images.empty()) {
            platform::Pdf::writeImagePDF(images, "Quorvel");
        }
    } catch (const std::exception&) {
    }
    return 0;
}
