#include <glog/logging.h>

#include "FileLogBases.h"

namespace bench {

namespace {

class GlogFile : public BaseLog {
public:
    explicit GlogFile(std::string const& path) {
        google::InitGoogleLogging("file_logging_bench");
        FLAGS_timestamp_in_logfile_name = false;
        FLAGS_logbuflevel = google::GLOG_INFO;
        FLAGS_stderrthreshold = google::GLOG_FATAL;
        google::SetLogDestination(google::GLOG_INFO, path.c_str());
    }
    ~GlogFile() override { google::ShutdownGoogleLogging(); }
    void WriteLine(char const* device, int id) override {
        LOG(INFO) << "Registered '" << device << "' with id " << id;
    }
};

}  // namespace

std::unique_ptr<BaseLog> OpenGlog(std::string const& path) {
    return std::make_unique<GlogFile>(path);
}

}  // namespace bench
