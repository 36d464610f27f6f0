#include "OCRLanguages.h"

#include "CountryCatalog.h"
#include "UnicodeText.h"

#include <unicode/locid.h>

#include <algorithm>
#include <array>
#include <set>

namespace OCRLanguages {

std::vector<std::string> prioritized(const std::vector<std::string>& supported) {
    static constexpr std::array<const char*, 7> preferred{"en-US", "ru-RU", "uk-UA", "tr-TR",
                                                          "fr-FR", "de-DE", "es-ES"};
    std::vector<std::string> ordered;
    for (const char* identifier : preferred) {
        if (std::find(supported.begin(), supported.end(), identifier) != supported.end()) {
            ordered.emplace_back(identifier);
        }
    }
    for (const std::string& identifier : supported) {
        if (std::find(preferred.begin(), preferred.end(), identifier) == preferred.end()) {
            ordered.push_back(identifier);
        }
    }
    return ordered;
}

std::vector<std::string> unavailable(const std::optional<std::string>& code,
                                     const std::vector<std::string>& supported) {
    std::set<std::string> prefixes;
    for (const std::string& identifier : supported) {
        prefixes.insert(identifier.substr(0, 2));
    }
    const std::optional<CountryProfile> row = CountryCatalog::profile(code);
    std::vector<std::string> missing;
    if (!row) {
        return missing;
    }
    for (const std::string& language : row->languages) {
        if (!prefixes.contains(language)) {
            missing.push_back(language);
        }
    }
    return missing;
}

std::string displayName(const std::string& code) {
    icu::UnicodeString name;
    icu::Locale(code.c_str()).getDisplayLanguage(icu::Locale("ru_RU"), name);
    // ICU answers with the code itself when it knows no name.
    return name.isEmpty() ? code : UnicodeText::utf8(name);
}

} // namespace OCRLanguages
