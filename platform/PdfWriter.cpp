// The PDF writer, on its own because qpdf's headers need C++17 mode under clang 14 (they trip its
// C++20 checks of libstdc++'s vector).

#include "Pdf.h"

#include "PlatformError.h"

#include <qpdf/Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <zlib.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace platform::Pdf {
namespace {

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
    std::fill(pdf.begin() + static_cast<std::ptrdiff_t>(id),
              pdf.begin() + static_cast<std::ptrdiff_t>(end) + 1, ' ');
}

} // namespace

struct ImagePDFWriter::State {
    QPDF pdf;
    std::unique_ptr<QPDFPageDocumentHelper> pages;
};

ImagePDFWriter::ImagePDFWriter() : state_(std::make_unique<State>()) {
    try {
        state_->pdf.emptyPDF();
        state_->pages = std::make_unique<QPDFPageDocumentHelper>(state_->pdf);
    } catch (const std::exception& error) {
        throw CodecError(std::string("PDF writer: ") + error.what());
    }
}

ImagePDFWriter::~ImagePDFWriter() = default;

void ImagePDFWriter::addPage(const Bitmap& image) {
    // Compressed now rather than when the file is written: the writer keeps every page until then.
    uLongf size = compressBound(static_cast<uLong>(image.pixels.size()));
    std::string packed(size, '\0');
    if (compress2(reinterpret_cast<Bytef*>(packed.data()), &size, image.pixels.data(),
                  static_cast<uLong>(image.pixels.size()), Z_DEFAULT_COMPRESSION) != Z_OK) {
        throw CodecError("PDF writer: a page could not be compressed");
    }
    packed.resize(size);
    try {
        QPDF& pdf = state_->pdf;
        const std::string width = std::to_string(image.width);
        const std::string height = std::to_string(image.height);
        QPDFObjectHandle picture = QPDFObjectHandle::newStream(&pdf);
        picture.replaceDict(QPDFObjectHandle::parse("<< /Type /XObject /Subtype /Image /Width " + width +
                                                    " /Height " + height +
                                                    " /ColorSpace /DeviceRGB /BitsPerComponent 8 >>"));
        // Lossless, so that masks stay pure black.
        picture.replaceStreamData(packed, QPDFObjectHandle::newName("/FlateDecode"),
                                  QPDFObjectHandle::newNull());
        QPDFObjectHandle contents =
            QPDFObjectHandle::newStream(&pdf, "q " + width + " 0 0 " + height + " 0 0 cm /Im0 Do Q\n");
        QPDFObjectHandle page =
            pdf.makeIndirectObject(QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 " + width + " " +
                                                           height + "] /Resources << /XObject << >> >> >>"));
        page.getKey("/Resources").getKey("/XObject").replaceKey("/Im0", picture);
        page.replaceKey("/Contents", contents);
        state_->pages->addPage(QPDFPageObjectHelper(page), false);
    } catch (const std::exception& error) {
        throw CodecError(std::string("PDF writer: ") + error.what());
    }
}

std::vector<std::uint8_t> ImagePDFWriter::finish(const std::string& creator) {
    try {
        QPDF& pdf = state_->pdf;
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

std::vector<std::uint8_t> writeImagePDF(const std::vector<const Bitmap*>& pages, const std::string& creator) {
    ImagePDFWriter writer;
    for (const Bitmap* page : pages) {
        writer.addPage(*page);
    }
    return writer.finish(creator);
}

} // namespace platform::Pdf
