#include "Pdf.h"

#include "PlatformError.h"

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-global.h>
#include <poppler/cpp/poppler-image.h>
#include <poppler/cpp/poppler-page-renderer.h>
#include <poppler/cpp/poppler-page.h>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <algorithm>
#include <cstring>
#include <string>

namespace platform::Pdf {

class Document {
public:
    explicit Document(std::unique_ptr<poppler::document> document) : document_(std::move(document)) {}
    const poppler::document& get() const { return *document_; }

private:
    std::unique_ptr<poppler::document> document_;
};

namespace {

void silencePoppler() {
    // Poppler reports damaged files on stderr, sometimes quoting their content.
    static const bool silenced = [] {
        poppler::set_debug_error_function([](const std::string&, void*) {}, nullptr);
        return true;
    }();
    (void)silenced;
}

// Poppler draws a page's crop box, and a smaller crop box came out in one corner of the media box with
// the rest of the page lost. The copy draws the whole media box: where a page's crop box differs, it
// is set to the media box in a copy of the file held in memory. None when no page needs it, or when
// qpdf cannot read the file (Poppler then decides on it alone).
std::optional<poppler::byte_array> withMediaBoxes(const std::filesystem::path& file) {
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processFile(file.string().c_str());
        bool changed = false;
        for (QPDFPageObjectHelper& page : QPDFPageDocumentHelper(pdf).getAllPages()) {
            QPDFObjectHandle crop = page.getAttribute("/CropBox", false);
            QPDFObjectHandle media = page.getMediaBox();
            if (crop.isNull() || crop.unparse() == media.unparse()) {
                continue;
            }
            page.getObjectHandle().replaceKey("/CropBox", media.shallowCopy());
            changed = true;
        }
        if (!changed) {
            return std::nullopt;
        }
        QPDFWriter writer(pdf);
        writer.setOutputMemory();
        writer.write();
        const auto buffer = writer.getBufferSharedPointer();
        const auto* bytes = reinterpret_cast<const char*>(buffer->getBuffer());
        return poppler::byte_array(bytes, bytes + buffer->getSize());
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace

std::shared_ptr<const Document> open(const std::filesystem::path& file) {
    silencePoppler();
    std::optional<poppler::byte_array> copy = withMediaBoxes(file);
    std::unique_ptr<poppler::document> document(copy ? poppler::document::load_from_data(&*copy)
                                                     : poppler::document::load_from_file(file.string()));
    if (!document || document->is_locked()) {
        throw CodecError("not a PDF that can be opened without a password");
    }
    return std::make_shared<const Document>(std::move(document));
}

int pageCount(const Document& document) {
    return document.get().pages();
}

std::optional<MediaBox> mediaBox(const Document& document, int index) {
    std::unique_ptr<poppler::page> page(document.get().create_page(index));
    if (!page) {
        return std::nullopt;
    }
    const poppler::rectf box = page->page_rect(poppler::media_box);
    return MediaBox{box.x(), box.y(), box.width(), box.height()};
}

std::optional<Bitmap> renderPage(const Document& document, int index, double scale, int width, int height) {
    std::unique_ptr<poppler::page> page(document.get().create_page(index));
    if (!page || width < 1 || height < 1) {
        return std::nullopt;
    }
    poppler::page_renderer renderer;
    renderer.set_render_hints(poppler::page_renderer::antialiasing |
                              poppler::page_renderer::text_antialiasing |
                              poppler::page_renderer::text_hinting);
    renderer.set_paper_color(0xFFFFFFFF);
    renderer.set_image_format(poppler::image::format_argb32);
    const double dpi = 72.0 * scale;
    const poppler::image rendered = renderer.render_page(page.get(), dpi, dpi, 0, 0, width, height);
    if (!rendered.is_valid() || rendered.width() < 1 || rendered.height() < 1) {
        return std::nullopt;
    }
    // ARGB32 is one 0xAARRGGBB word a pixel, opaque on the white paper; the page may come out a pixel
    // short of the asked size, and whatever it does not cover stays white.
    Bitmap bitmap(width, height, 255);
    const int rows = std::min(height, rendered.height());
    const int columns = std::min(width, rendered.width());
    for (int y = 0; y < rows; ++y) {
        const auto* source =
            reinterpret_cast<const std::uint32_t*>(rendered.const_data() + y * rendered.bytes_per_row());
        std::uint8_t* target = bitmap.row(y);
        for (int x = 0; x < columns; ++x) {
            const std::uint32_t pixel = source[x];
            target[x * 3 + 0] = static_cast<std::uint8_t>(pixel >> 16);
            target[x * 3 + 1] = static_cast<std::uint8_t>(pixel >> 8);
            target[x * 3 + 2] = static_cast<std::uint8_t>(pixel);
        }
    }
    return bitmap;
}

} // namespace platform::Pdf
