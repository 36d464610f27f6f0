#pragma once

// Text drawn into a page with FreeType (through OpenCV), shaped by HarfBuzz so that right-to-left and
// combining scripts come out in order. Internal to the platform layer's callers in the core: the core
// decides what is written, this decides how it looks.

#include "Bitmap.h"

#include <string>

namespace platform::Lettering {

// Writes `line` (UTF-8, one line) across the whole page in rows rising at 30 degrees, repeated along
// each row and row after row a quarter of the page's shorter side apart, in a semi-transparent red, so
// that no crop of the page keeps a clean area of any size. Throws CodecError when the font is missing.
void repeatAcross(Bitmap& page, const std::string& line);

} // namespace platform::Lettering
