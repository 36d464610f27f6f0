#include "Pdf.h"

#include "PlatformError.h"

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-global.h>
#include <poppler/cpp/poppler-image.h>
#include <poppler/cpp/poppler-page-renderer.h>
#include <poppler/cpp/poppler-page.h>
#include <qpdf/Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <algorithm>
#include <cstring>
#include <string_view>
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

// An unencrypted PDF needs no file identifier, but qpdf always writes one. It is overwritten with blanks
// of the same length in the trailer, which follows the cross-reference table, so no offset moves.
void blankDocumentID(std::vector<std::uint8_t>& pdf) {
    const std::string_view text(reinterpret_cast<const char*>(pdf.data()), pdf.size());
    const std::size_t trailer = text.rfind("trailer");
    if (trailer == std::string_view::npos) {
        throw CodecError("PDF writer: no trailer");
    }
    const std::size_t id = text.find("/ID", trailer);
    const std::size_t end = id == std::string_view::npos ? id : text.find(']', id);
    if (end == std::string_view::npos) {
        return;
    }
    std::fill(pdf.begin() + static_cast<std::ptrdiff_t>(id), pdf.begin() + static_cast<std::ptrdiff_t>(end) + 1, ' ');
}

} // namespace

std::shared_ptr<const Document> open(const std::filesystem::path& file) {
    silencePoppler();
    std::unique_ptr<poppler::document> document(poppler::document::load_from_file(file.string()));
    if (!document || document->is_locked()) {
        throw CodecError("not a PDF that can be opened without a password");
    }
    return std::make_shared<const Document>(std::move(document));
}

int pageCount(const Document& document) { return document.get().pages(); }

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
    renderer.set_render_hints(poppler::page_renderer::antialiasing | poppler::page_renderer::text_antialiasing |
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
        const auto* source = reinterpret_cast<const std::uint32_t*>(rendered.const_data() + y * rendered.bytes_per_row());
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

std::vector<std::uint8_t> writeImagePDF(const std::vector<const Bitmap*>& pages, const std::string& creator) {
    try {
        QPDF pdf;
        pdf.emptyPDF();
        QPDFPageDocumentHelper helper(pdf);
        for (const Bitmap* image : pages) {
            const std::string width = std::to_string(image->width);
            const std::string height = std::to_string(image->height);
            QPDFObjectHandle picture = QPDFObjectHandle::newStream(&pdf);
            picture.replaceDict(QPDFObjectHandle::parse("<< /Type /XObject /Subtype /Image /Width " + width +
                                                        " /Height " + height +
                                                        " /ColorSpace /DeviceRGB /BitsPerComponent 8 >>"));
            // Stored unfiltered here; the writer compresses it losslessly (Flate), so masks stay pure black.
            picture.replaceStreamData(std::string(reinterpret_cast<const char*>(image->pixels.data()), image->pixels.size()),
                                      QPDFObjectHandle::newNull(), QPDFObjectHandle::newNull());
            QPDFObjectHandle contents =
                QPDFObjectHandle::newStream(&pdf, "q " + width + " 0 0 " + height + " 0 0 cm /Im0 Do Q\n");
            QPDFObjectHandle page = pdf.makeIndirectObject(QPDFObjectHandle::parse(
                "<< /Type /Page /MediaBox [0 0 " + width + " " + height + "] /Resources << /XObject << >> >> >>"));
            page.getKey("/Resources").getKey("/XObject").replaceKey("/Im0", picture);
            page.replaceKey("/Contents", contents);
            helper.addPage(QPDFPageObjectHelper(page), false);
        }
        QPDFObjectHandle info = pdf.makeIndirectObject(QPDFObjectHandle::newDictionary());
        info.replaceKey("/Creator", QPDFObjectHandle::newUnicodeString(creator));
        pdf.getTrailer().replaceKey("/Info", info);
        QPDFWriter writer(pdf);
        writer.setOutputMemory();
        // Derived from the content rather than the clock while it exists; it is blanked below.
        writer.setDeterministicID(true);
        writer.setCompressStreams(true);
        writer.write();
        const std::shared_ptr<Buffer> buffer = writer.getBufferSharedPointer();
        const auto* bytes = buffer->getBuffer();
        std::vector<std::uint8_t> file(bytes, bytes + buffer->getSize());
        blankDocumentID(file);
        return file;
    } catch (const std::exception& error) {
        throw CodecError(std::string("PDF writer: ") + error.what());
    }
}

} // namespace platform::Pdf
