#pragma once

// The order in which recognition tries its languages, and the document languages it lacks.

#include <optional>
#include <string>
#include <vector>

namespace OCRLanguages {

// The preferred languages first (en-US, ru-RU, uk-UA, tr-TR, fr-FR, de-DE, es-ES), then the rest in
// their own order; nothing added or dropped.
std::vector<std::string> prioritized(const std::vector<std::string>& supported);

// The detected country's document languages whose two letters begin no supported identifier.
std::vector<std::string> unavailable(const std::optional<std::string>& code,
                                     const std::vector<std::string>& supported);

// The language's name in Russian, or the code itself when the locale data has none.
std::string displayName(const std::string& code);

} // namespace OCRLanguages
