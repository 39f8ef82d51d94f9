#include "Logging/LogParameters.h"

#include <memory>
#include <mutex>
#include <utility>

#include "Logging/FileLogHandler.h"
#include "Logging/LogConfig.h"
#include "Logging/LogParameterCLIProcessor.h"
#include "Logging/LoggingOptions.h"
#include "Utils/TextUtils.h"

namespace {

/// One request at a time: getopt's state is the process's, and a request may delete the file log that another
/// describes.
constinit std::mutex g_requests;

/// What the log reports at error level or worse while parameters are applied.
struct CollectedErrors {
    std::mutex mutex;
    std::string text;
};

}  // namespace

std::vector<std::string> DescribeLogParameters() {
    std::lock_guard const requests(g_requests);
    std::vector<std::string> parameters = ExportLoggingOptions(LogConfig::Instance());
    for (LogHandler* const handler : LogConfig::Instance().GetLogHandlers()) {
        if (auto const* const file = dynamic_cast<FileLogHandler*>(handler)) {
            parameters.emplace_back("--logfile");
            parameters.push_back(file->GetLocation());
        }
    }
    return parameters;
}

bool ApplyLogParameters(std::vector<std::string> const& parameters, std::string& errors) {
    std::lock_guard const requests(g_requests);
    std::vector<std::string> texts = {"dummy_executable_name"};
    texts.insert(texts.end(), parameters.begin(), parameters.end());
    std::vector<char*> argv = ArgumentPointers(texts);

    // Shared: another thread may still be in the callback when it has been taken out.
    auto const collected = std::make_shared<CollectedErrors>();
    LogCallback before = LogConfig::Instance().SetLogCallback([collected](LogRecord const& record) {
        if (record.level <= LogLevel::Error) {
            std::lock_guard const lock(collected->mutex);
            collected->text += (collected->text.empty() ? "" : "\n") + record.message;
        }
        return true;
    });
    bool const applied = LogParameterCLIProcessor::ProcessParams(static_cast<int>(texts.size()), argv.data());
    LogConfig::Instance().SetLogCallback(std::move(before));
    if (!applied) {
        std::lock_guard const lock(collected->mutex);
        errors = collected->text.empty() ? "failed to parse arguments" : collected->text;
    }
    return applied;
}
