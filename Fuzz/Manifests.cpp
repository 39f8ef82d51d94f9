// Manifests with all that they hold: devices, channels, types, properties and settings.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "QuietLog.h"
#include "SparseDevice/ManifestProcessor.h"
#include "Utils/JsonUtils.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    KeepLogQuiet();
    ManifestProcessor processor;
    if (!processor.ProcessManifestString({reinterpret_cast<char const*>(data), size})) {
        FUZZ_CHECK(processor.GetDatas().empty());
        return 0;
    }
    // What a device saves, it can load.
    for (ManifestProcessor::ManifestData const& device : processor.GetDatas()) {
        Json::Value root;
        std::string errors;
        FUZZ_CHECK(ParseJson(ManifestProcessor::BuildConfigurationJsonString(device), root, errors));
    }
    return 0;
}
