#pragma once

#include <mutex>

#include "FileLogBusy.h"
#include "Logging/FileLogHandler.h"

/// The handler's mutex together with the mark that keeps the thread's own log lines out: without the mark
/// they would come back for the mutex.
class FileLogHandler::Guard {
public:
    explicit Guard(FileLogHandler const& handler) : m_lock(handler.m_mutex) {}
    explicit Guard(FileLogHandler& handler) : m_lock(handler.m_mutex) { handler.ForgetParent(); }

private:
    FileLogBusy m_busy;
    std::lock_guard<SpinningMutex> m_lock;
};
