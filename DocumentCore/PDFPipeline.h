#pragma once

// Cleans a PDF: every page is rendered, analysed like a photo, masked, and the masked page images are
// assembled into a new PDF made only of images, so that no text, annotation or metadata survives.

#include "DocumentTypes.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace platform::Pdf {
class Document;
}

// An opened PDF, shared read-only.
struct PDFDocument {
    std::shared_ptr<const platform::Pdf::Document> handle;
    int pageCount = 0;
};

namespace PDFPipeline {

// Throws DocumentError::invalidImage when the file cannot be opened as a PDF or has no page.
PDFDocument load(const std::filesystem::path& file);

// Names are hidden in PDFs, unlike photos; faces and dates stay visible.
RedactionPolicy pdfPolicy() noexcept;

// Told after each page: pages done, pages in all.
using PageProgress = std::function<void(int done, int total)>;

// Pages strictly one after another; the first failing page fails the whole call. Output pages measure
// one point per pixel of the rendered page. Errors of the recogniser pass through unchanged.
ProcessedPDF process(const PDFDocument& document, const RedactionPolicy& policy, const PageProgress& progress = {});

} // namespace PDFPipeline
