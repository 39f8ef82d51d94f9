#pragma once

#include <utility>

/// Marks the calling thread as being inside a file log while it lives: what the thread logs meanwhile does
/// not come back into any file log. Nested marks restore what was.
class FileLogBusy {
public:
    FileLogBusy() : m_before(std::exchange(t_Busy, true)) {}
    ~FileLogBusy() { t_Busy = m_before; }
    FileLogBusy(FileLogBusy const&) = delete;
    FileLogBusy& operator=(FileLogBusy const&) = delete;

    static bool IsSet() { return t_Busy; }

private:
    static inline constinit thread_local bool t_Busy = false;

    bool const m_before;
};
