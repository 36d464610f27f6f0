#pragma once

// Reading PDF pages with Poppler and writing image-only PDFs with qpdf.

#include "Bitmap.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform::Pdf {

class Document; // an opened PDF; shared, read-only after opening

// Throws CodecError when the file is not a PDF Poppler can open, or needs a password.
std::shared_ptr<const Document> open(const std::filesystem::path& file);

int pageCount(const Document& document);

// In PDF points, origin and size as the page's media box states them.
struct MediaBox {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
};
std::optional<MediaBox> mediaBox(const Document& document, int index);

// Renders page `index` at `scale` pixels per point onto white, into a bitmap of exactly the given
// size, the media box's lower-left corner at the bitmap's lower-left corner. None when the page cannot
// be rendered.
std::optional<Bitmap> renderPage(const Document& document, int index, double scale, int width, int height);

// A PDF whose every page is one of the images, drawn at one point per pixel; the information dictionary
// holds only the creator. Nothing else: no text, fonts, dates, producer or metadata stream. Pages are
// added one at a time and compressed (losslessly, Flate) as they come, so that a long document holds
// only compressed pages. Throws CodecError when the writer fails.
class ImagePDFWriter {
public:
    ImagePDFWriter();
    ~ImagePDFWriter();
    ImagePDFWriter(const ImagePDFWriter&) = delete;
    ImagePDFWriter& operator=(const ImagePDFWriter&) = delete;

    void addPage(const Bitmap& image);
    std::vector<std::uint8_t> finish(const std::string& creator);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The same for pages at hand.
std::vector<std::uint8_t> writeImagePDF(const std::vector<const Bitmap*>& pages, const std::string& creator);

} // namespace platform::Pdf
