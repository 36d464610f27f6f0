#pragma once

// One recognition pass over an upright image: text lines with the boxes of their characters, face
// rectangles and barcode rectangles. Boxes are normalised to the image with the origin at the
// top-left corner, the convention of the whole system.

#include "Bitmap.h"

#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace platform::Recognition {

struct Box {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
};

// A character of a line, or the blank between two words (whose box spans the gap between them).
struct Symbol {
    int start = 0; // UTF-16 offsets of the symbol in its line's text
    int end = 0;
    Box box;
};

struct Line {
    std::string text;
    Box box;
    float confidence = 0; // 0..1
    std::vector<Symbol> symbols;
};

struct Result {
    std::vector<Line> lines;
    std::vector<Box> faces;
    std::vector<Box> barcodes;
    // Lines of a machine-readable zone found in the image, each reaching across the whole zone, from
    // its first character to its last, whether or not its reading is right.
    std::vector<Box> zones;
    // Numbers printed character by character with wide gaps, apart from every line of text (a serial
    // number up a page's edge): found by their marks, not read.
    std::vector<Box> spacedNumbers;
};

// The recogniser failed or its data is missing; the message names what, never document content.
class RecognitionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Installed recognition languages as ll-RR identifiers ("eng" gives "en-US"). Throws RecognitionError
// when the language data folder cannot be read.
std::vector<std::string> supportedLanguages();

// How many cores one document's work may take, for the whole process: 2 (the default) spreads the
// networks' loops over the machine, reads lines on two engines and searches faces beside them; 1 keeps
// all of it on the calling thread, for programs that run one document a core. The results are the
// same either way. Call before any work starts.
void setCoresPerDocument(int cores);

// Text (in the given language order, as far as models for them are loaded), faces and barcodes, run
// together; the text's lines are read by `readers` engines at once (one a core; one in all where
// documents have a core each), with the same result however many. Throws RecognitionError.
Result recognize(const Bitmap& image, const std::vector<std::string>& languages, int readers = 2);

// The two searches `recognize` runs beside the text, on their own: faces (grown to the head) and
// barcodes, boxes normalised as above. For measuring where the time goes.
std::vector<Box> detectFaces(const Bitmap& image);
std::vector<Box> detectBarcodes(const Bitmap& image);

// Quarter turns clockwise (0 to 3) that bring the page's text upright. Throws RecognitionError when
// the text line models are missing.
int uprightTurns(const Bitmap& image);

// The image turned by quarter turns clockwise.
Bitmap turned(const Bitmap& image, int quarterTurns);

// Degrees by which the lines of an upright image fall to the right (rise, when negative), as most of
// its print agrees; 0 when they run level within a degree or do not agree. Throws RecognitionError
// when the text line models are missing.
double skewDegrees(const Bitmap& image);

// An image of `width` x `height` turned counter-clockwise by `degrees` about its centre, onto a canvas
// grown to hold all of it: the canvas's size, and where a point of the image lands on it.
struct Levelling {
    int width = 0;
    int height = 0;
    std::array<double, 6> affine{}; // row-major 2 x 3

    std::pair<double, double> map(double x, double y) const noexcept {
        return {affine[0] * x + affine[1] * y + affine[2], affine[3] * x + affine[4] * y + affine[5]};
    }
};
Levelling levelling(int width, int height, double degrees);

// The image so turned, the corners it uncovers white. The image itself when `degrees` is 0.
Bitmap levelled(const Bitmap& image, double degrees);

// The box of a UTF-16 range of a line: the union of the boxes of the symbols it touches; none when no
// symbol lies in the range.
std::optional<Box> rangeBox(const Line& line, int location, int length);

} // namespace platform::Recognition
