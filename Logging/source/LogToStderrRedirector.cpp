#include <utility>

#include "Logging/LogConfig.h"

namespace {

/// The callback: passes records to the private handler for as long as that lives.
struct PassToHandler {
    LogConfig* config;
    std::weak_ptr<LogHandler> handler;

    bool operator()(LogRecord const& record) const {
        std::shared_ptr<LogHandler> const target = handler.lock();
        if (!target) {
            return true;
        }
        config->SetLogCallback({});  // a line logged meanwhile must not come back here
        LogRecord copy = record;
        copy.toStderr = true;
        target->Log(copy);
        config->SetLogCallback(*this);
        return false;
    }
};

}  // namespace

LogToStderrRedirector::LogToStderrRedirector(LogConfig& config)
    : m_config(config), m_handler(LogFactory::CreateLogHandler(config, LogTarget::Stderr)) {
    m_previous = m_config.SetLogCallback(PassToHandler{&config, m_handler});
}

LogToStderrRedirector::~LogToStderrRedirector() {
    m_config.SetLogCallback(std::move(m_previous));
}
