#pragma once

// PDFs made for the tests with qpdf: pages with a real text layer in a standard font, drawn shapes,
// any media box, metadata, encryption.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace testing_support {

struct TestPage {
    double x = 0, y = 0, width = 595, height = 842; // media box, points
    std::vector<std::string> lines;                 // text drawn from the top left of the box
    bool blackCornerSquare = false;                 // a 50-point black square at the box's lower-left corner
    double cropInset = 0;                           // a crop box this far inside the media box, when above 0
};

struct TestPdfOptions {
    bool withMetadata = true; // title, author, producer, dates and an XMP stream
    std::string userPassword; // encrypted when not empty
};

std::vector<std::uint8_t> makePdf(const std::vector<TestPage>& pages, const TestPdfOptions& options = {});

struct PdfFacts {
    std::vector<std::pair<double, double>> pageSizes; // media box width and height of each page
    std::vector<std::string> infoKeys;                // keys of the information dictionary
    std::string creator;
    bool hasXmp = false;
    bool hasDocumentID = false;
    bool hasFonts = false;
    std::string text; // all text Poppler can extract
};

PdfFacts inspectPdf(const std::vector<std::uint8_t>& pdf);

} // namespace testing_support
