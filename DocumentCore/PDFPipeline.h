#pragma once

// Cleans a PDF: every page is rendered, analysed like a photo, masked, and the masked page images are
// assembled into a new PDF made only of images, so that no text, annotation or metadata survives.

#include "DocumentTypes.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

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

// A file whose name ends in ".pdf", in any letter case, is taken for a PDF.
bool isPDFName(const std::filesystem::path& file);

// Told after each page: pages done, pages in all.
using PageProgress = std::function<void(int done, int total)>;
// Given each page as soon as it is done, its images included; the pipeline keeps none of them.
using PageDone = std::function<void(PDFPageResult&& page)>;

// Pages strictly one after another, each rendered, analysed, masked and handed to the writer before
// the next is rendered, so that memory stays flat however long the document: the result holds the
// new PDF and each page's analysis, not its images (those go to `pageDone`). The first failing page
// fails the whole call. Names are hidden whatever `policy` says. Output pages measure one point per
// pixel of the rendered page. Every page carries the copy mark when one is given. Errors of the
// recogniser pass through unchanged.
ProcessedPDF process(const PDFDocument& document, RedactionPolicy policy, const PageProgress& progress = {},
                     const PageDone& pageDone = {}, const std::optional<CopyMark>& mark = std::nullopt);

// The pages of a processed PDF masked again under another policy or mark, without analysing them
// again: `original(i)` gives page i as it was analysed (upright), `analyses[i]` its analysis. Each new
// page goes to `pageDone(i, page)`; the result is the new PDF, as `process` would have written it.
std::vector<std::uint8_t> remask(const std::vector<Analysis>& analyses,
                                 const std::function<Bitmap(int)>& original, RedactionPolicy policy,
                                 const std::optional<CopyMark>& mark,
                                 const std::function<void(int, Bitmap&&)>& pageDone);

} // namespace PDFPipeline
