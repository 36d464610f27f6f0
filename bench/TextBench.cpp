#include "CountryCatalog.h"
#include "FieldDetector.h"
#include "FieldLexicon.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>

namespace {

// A 40-line page: a bilingual data page with captions, values and a zone, as a recogniser reads it.
std::vector<TextRegion> fortyLinePage() {
    const char* texts[] = {"REPUBLIK ÖSTERREICH",
                           "REISEPASS / PASSPORT / PASSEPORT",
                           "Typ / Type P",
                           "Code AUT",
                           "Pass-Nr. / Passport No. P1234567",
                           "Name / Surname",
                           "MUSTERFRAU",
                           "Vornamen / Given names",
                           "MARIA ANNA",
                           "Staatsangehörigkeit / Nationality",
                           "REPUBLIK ÖSTERREICH",
                           "Geburtsdatum / Date of birth",
                           "12.08.1974",
                           "Geschlecht / Sex F",
                           "Geburtsort / Place of birth",
                           "WIEN",
                           "Ausstellungsdatum / Date of issue",
                           "15.04.2019",
                           "Gültig bis / Date of expiry",
                           "14.04.2029",
                           "Behörde / Authority BH WIEN",
                           "Unterschrift",
                           "Größe / Height 168",
                           "Augenfarbe / Eyes BRAUN",
                           "Wohnort / Residence",
                           "HAUPTSTRASSE 12, 1010 WIEN",
                           "Tel. +43 1 234 5678",
                           "maria.musterfrau@example.at",
                           "Dokumentennummer 00123456",
                           "SPECIMEN",
                           "Seite 2",
                           "Bemerkungen / Observations",
                           "KEINE",
                           "Ausweisnummer 123 456 789",
                           "Vorname MARIA",
                           "Familienname MUSTERFRAU",
                           "Geburtsname HUBER",
                           "Datum 01.01.2020",
                           "P<AUTMUSTERFRAU<<MARIA<ANNA<<<<<<<<<<<<<<<<<",
                           "P1234567<2AUT7408122F2904146<<<<<<<<<<<<<<<0"};
    std::vector<TextRegion> lines;
    for (int i = 0; i < 40; ++i) {
        lines.push_back(TextRegion{texts[i], Rect{0.05, 0.02 + i * 0.024, 0.8, 0.02}, 0.9f});
    }
    return lines;
}

// The first use builds the vocabulary, the six expressions, the catalogue and the region names.
const bool tablesTimed = [] {
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(FieldLexicon::labelMatches("DATE OF BIRTH"));
    const auto lexicon = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(CountryCatalog::detect({TextRegion{"NORWAY", Rect{0, 0, 1, 0.1}, 1}}));
    const auto catalogue = std::chrono::steady_clock::now();
    std::printf("Table building: lexicon %.1f ms, catalogue and region names %.1f ms\n",
                std::chrono::duration<double, std::milli>(lexicon - start).count(),
                std::chrono::duration<double, std::milli>(catalogue - lexicon).count());
    return true;
}();

void BM_DetectCountry40Lines(benchmark::State& state) {
    const auto lines = fortyLinePage();
    for (auto _ : state) {
        benchmark::DoNotOptimize(CountryCatalog::detect(lines));
    }
}
BENCHMARK(BM_DetectCountry40Lines)->Unit(benchmark::kMicrosecond);

void BM_CaptionSearch40Lines(benchmark::State& state) {
    const auto lines = fortyLinePage();
    for (auto _ : state) {
        for (const TextRegion& line : lines) {
            benchmark::DoNotOptimize(FieldLexicon::labelMatches(line.text));
        }
    }
}
BENCHMARK(BM_CaptionSearch40Lines)->Unit(benchmark::kMicrosecond);

// 60 spans: the 40-line page with its captions and values cut apart, plus a second column of
// numbered licence fields.
std::vector<TextRegion> sixtySpanPage() {
    std::vector<TextRegion> lines = fortyLinePage();
    const char* extra[] = {"1. MUSTERFRAU",
                           "2. MARIA",
                           "3. 12.08.1974 WIEN",
                           "4a. 01.02.2020",
                           "4b. 31.01.2035",
                           "4c. BH WIEN",
                           "5. ",
                           "AT123456789",
                           "8. HAUPTSTRASSE 12",
                           "1010 WIEN",
                           "9. AM/B",
                           "12. 01",
                           "Tel.",
                           "+43 1 234 5678",
                           "E-Mail",
                           "maria@example.at",
                           "Nr.",
                           "X4RTBPFW4",
                           "Gültig bis",
                           "14.04.2029"};
    for (int i = 0; i < 20; ++i) {
        lines.push_back(TextRegion{extra[i], Rect{0.55, 0.05 + i * 0.045, 0.3, 0.035}, 0.9f});
    }
    return lines;
}

void BM_FieldDetect60Lines(benchmark::State& state) {
    const auto lines = sixtySpanPage();
    for (auto _ : state) {
        benchmark::DoNotOptimize(FieldDetector::detect(lines));
    }
}
BENCHMARK(BM_FieldDetect60Lines)->Unit(benchmark::kMicrosecond);

} // namespace
