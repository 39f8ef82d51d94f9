#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "FileLogBases.h"

namespace bench {

namespace {

class SpdlogFile : public BaseLog {
public:
    explicit SpdlogFile(std::string const& path)
        : m_logger("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true)) {
        m_logger.set_pattern("%H%M%S.%e <file_logging_bench~first> %L [%s:%#] %v");
    }
    void WriteLine(char const* device, int id) override {
        m_logger.log(spdlog::source_loc{__FILE__, __LINE__, __func__}, spdlog::level::info,
                     "Registered '{}' with id {}", device, id);
    }

private:
    spdlog::logger m_logger;
};

}  // namespace

std::unique_ptr<BaseLog> OpenSpdlog(std::string const& path) {
    return std::make_unique<SpdlogFile>(path);
}

}  // namespace bench
