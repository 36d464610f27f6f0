#pragma once

#include "DocumentTypes.h"
#include "Recognition.h"
#include "RiskEngine.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ImagePipeline {

// Refuses files over 80 MB, containers other than JPEG, PNG, HEIC and HEIF (decided by content), and
// images over 20,000 pixels a side or 50,000,000 in all, all before pixels are decoded; then decodes
// upright at full size, centres the document and, unless told not to, turns it so that its text
// reads upright (masks given for the picture as stored need it unturned). Errors of the file system
// pass through unchanged.
LoadedDocument load(const std::filesystem::path& file, bool turnText = true);

struct Centered {
    Bitmap image;
    CenteringResult result;
};

// Straightens the photo when one confident document outline lies well inside the frame.
Centered centerDocument(Bitmap image);

struct Upright {
    Bitmap image;
    int quarterTurns = 0;
    Skew skew;
};

// The page turned by quarter turns so that its text reads upright, then by the slant of its lines so
// that they run level, both judged from its text lines.
Upright turnUpright(Bitmap image);

// One recognition pass (text, faces, barcodes) over the upright image, then the assembly below.
// Errors of the recogniser pass through unchanged.
Analysis analyze(const LoadedDocument& document);

// Everything an analysis concludes from one recognition pass: lines and field spans, country,
// document type, masks, warnings and risk. Pure, so that it runs on recognised text from anywhere.
struct AssemblyInput {
    platform::Recognition::Result recognition;
    std::vector<std::string> supportedLanguages;
    std::optional<std::string> software;
    CenteringResult centering;
    std::optional<RiskEngine::PixelSize> image; // none: no resolution warning, no image check
};
Analysis assemble(const AssemblyInput& input);

// A new opaque copy of `image`, the copy mark written across it when given, with the regions that
// `policy` hides painted solid black on top, with hard edges, padded by 0.4% of the image height (at
// least 3 pixels) on every side. Throws DocumentError::exportFailed when no bitmap can be made.
Bitmap render(const Bitmap& image, const std::vector<RedactionRegion>& regions, const RedactionPolicy& policy,
              const std::optional<CopyMark>& mark = std::nullopt);

// "COPY" in an interface language, by its code ("de" gives "KOPIE"); English for any other code.
std::string copyWord(std::string_view language);

// Longest purpose a mark carries, in characters.
inline constexpr std::size_t longestPurpose = 200;

// Encodes `image` as a PNG without metadata, decodes the bytes again to check them, then replaces
// the file at `to` atomically. Encoding or verification failures throw DocumentError::exportFailed
// and write nothing; a failing write throws the system's error for the path.
void exportPNG(const Bitmap& image, const std::filesystem::path& to);

} // namespace ImagePipeline
