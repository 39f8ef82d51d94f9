#include "ProcessRunState.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Logging/Log.h"
#include "Utils/OSUtils.h"
#include "Utils/ThreadUtils.h"

ProcessRunState::ProcessRunState(Pipes pipes) : m_pipes(std::move(pipes)) {
    if (!m_pipes.output) {
        return;
    }
    if (!m_wakeUp.IsOpen()) {
        throw std::system_error(errno, std::generic_category());
    }
    try {
        BlockedSignals const blocked;
        Start(m_outputThread, m_pipes.output.Get(), m_outputText);
        Start(m_errorThread, m_pipes.error.Get(), m_errorText);
    } catch (std::system_error const&) {
        Stop();
        throw;
    }
}

ProcessRunState::~ProcessRunState() {
    Stop();
}

void ProcessRunState::Start(std::thread& thread, int descriptor, std::string& text) {
    thread = std::thread([this, descriptor, &text] {
        UseDefaultScheduling();
        MonitorStandardStream(descriptor, text);
    });
}

void ProcessRunState::MonitorStandardStream(int descriptor, std::string& text) const {
    std::array<char, 16384> buffer;
    bool open = true;
    // The word to stop is looked for before a read: what came before it is in the pipe then. And no more than
    // that is read, since another process may go on writing for ever.
    bool stopping = m_stop.load();
    std::size_t wanted = stopping ? BytesInPipe(descriptor) : buffer.size();
    while (!stopping || (open && wanted > 0)) {
        ssize_t const count = open ? ::read(descriptor, buffer.data(), std::min(wanted, buffer.size())) : 0;
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
            if (errno != EPIPE) {
                LOG_E("error reading stdout/stderr: %s", GetOSErrorText(errno).c_str());
            }
            return;
        }
        open = count != 0;
        if (stopping) {
            wanted -= count > 0 ? static_cast<std::size_t>(count) : 0;
            continue;
        }
        if (count <= 0) {
            WaitForMore(open ? descriptor : -1);
        }
        if (m_stop.load()) {
            stopping = true;
            wanted = BytesInPipe(descriptor);
        }
    }
}

void ProcessRunState::WaitForMore(int descriptor) const {
    // A negative descriptor is passed over.
    std::array<pollfd, 2> events{pollfd{.fd = descriptor, .events = POLLIN, .revents = 0},
                                 pollfd{.fd = m_wakeUp.Get(), .events = POLLIN, .revents = 0}};
    ::poll(events.data(), events.size(), -1);
}

void ProcessRunState::Stop() {
    m_stop.store(true);
    m_wakeUp.Signal();
    for (std::thread* const thread : {&m_outputThread, &m_errorThread}) {
        if (thread->joinable()) {
            thread->join();
        }
    }
    m_pipes.output.Reset();
    m_pipes.error.Reset();
}

void ProcessRunState::Complete(ProcessResult& result) {
    Stop();
    result.standardOutput = std::move(m_outputText);
    result.standardError = std::move(m_errorText);
}

std::FILE* ProcessRunState::TakeInput() {
    std::FILE* const stream = ::fdopen(m_pipes.input.Get(), "wt");
    if (stream != nullptr) {
        m_pipes.input.Release();
    }
    return stream;
}
