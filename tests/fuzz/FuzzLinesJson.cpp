// The --lines JSON input of quorvel-cli analyze: parsing, validation and the whole assembly of an
// analysis from recognised lines.

#include "CliSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto document = nlohmann::json::parse(data, data + size);
        const Analysis analysis = ImagePipeline::assemble(cli::assemblyFromJson(document, "fuzz"));
        (void)cli::analysisToJson(analysis).dump();
    } catch (const std::exception&) {
    }
    return 0;
}
