// Photo loading on arbitrary bytes: container sniffing, header and metadata reading, decoding,
// orientation and centering. Any outcome but a crash, a leak or a hang is fine.

#include "FuzzSupport.h"
#include "ImageDecoder.h"
#include "ImagePipeline.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace Decoder = platform::ImageDecoder;
    // The pixel limits are tested on their own; here large pictures would only slow the search down.
    constexpr long long fuzzPixels = 4000000;
    try {
        const std::span<const std::uint8_t> bytes(data, size);
        const auto container = Decoder::sniff(bytes);
        if (container != Decoder::Container::other) {
            const auto properties = Decoder::readProperties(bytes, container);
            if (static_cast<long long>(properties.width) * properties.height > fuzzPixels) {
                return 0;
            }
        }
    } catch (const std::exception&) {
    }
    const MemoryFile file(data, size);
    try {
        ImagePipeline::load(file.path());
    } catch (const std::exception&) {
    }
    return 0;
}
