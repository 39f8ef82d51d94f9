// Manifests with all that they hold: devices, channels, types, properties and settings.

#include "FuzzTarget.h"
#include "QuietLog.h"
#include "SparseDevice/ManifestProcessor.h"
#include "Utils/JsonUtils.h"

void TryInput(std::string_view input) {
    KeepLogQuiet();
    ManifestProcessor processor;
    if (!processor.ProcessManifestString(std::string(input))) {
        FUZZ_CHECK(processor.GetDatas().empty());
        return;
    }
    // What a device saves, it can load.
    for (ManifestProcessor::ManifestData const& device : processor.GetDatas()) {
        Json::Value root;
        std::string errors;
        FUZZ_CHECK(ParseJson(ManifestProcessor::BuildConfigurationJsonString(device), root, errors));
    }
}
