#pragma once

// Identity documents drawn for the tests with Qt: printed captions and values, a machine-readable
// zone in OCR-B, barcodes made with zxing-cpp and, when one is installed, a real portrait. Each drawn
// field is returned with its box, normalised with the origin at the top-left corner.

#include "Bitmap.h"
#include "DocumentTypes.h"

#include <QImage>
#include <QPainter>
#include <ZXing/BarcodeFormat.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

struct DrawnField {
    FieldKind kind;
    Rect box;
    std::string text;
    // On a page drawn askew: the corners of the field's own tilted rectangle, normalised like `box`
    // (which bounds them), clockwise from its top-left.
    std::vector<std::pair<double, double>> corners = {};
};

struct DrawnDocument {
    Bitmap image;
    std::vector<DrawnField> fields;
};

// A TD1 identity card with bilingual captions (French / English), a TD3-style passport zone of two
// 44-character lines with valid check digits, a PDF417 and a QR code; with a portrait, optionally a
// pale grey ghost copy of it at the given share of its size, below the barcodes.
DrawnDocument bilingualCard(const std::optional<std::string>& portrait = std::nullopt, double ghost = 0);

// A barcode drawn dark on white, filling `where`.
void barcode(QPainter& p, ZXing::BarcodeFormat format, const std::string& content, const QRect& where);

// How a zone page was photographed.
struct ZoneLook {
    double tilt = 0;      // degrees, counter-clockwise
    bool glare = false;   // a bright wash across the middle of the zone
    bool faint = false;   // grey ink on a tinted, patterned paper
    int pageWidth = 2000; // the photo's width in pixels
};

// A passport data page of guilloche curves, a few printed lines and the given zone (2 lines of 44 or
// 3 of 30 characters) near its bottom edge, as `look` says; the zone's lines come back as
// machine-readable fields with their text.
DrawnDocument zonePage(const std::vector<std::string>& zone, const ZoneLook& look = {});

// A drawing as the pipeline's RGB bitmap.
Bitmap toBitmap(const QImage& image);

// The public-domain portrait the set-up extracts from Debian's scikit-image package; none when it is
// not there.
std::optional<std::string> testPortrait();

} // namespace testing_support
