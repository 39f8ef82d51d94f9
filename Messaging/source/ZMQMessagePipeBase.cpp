#include "Messaging/ZMQMessagePipeBase.h"

#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "Logging/Log.h"
#include "Messaging/MessageAddress.h"
#include "Messaging/ZMQMessage.h"
#include "Utils/TextUtils.h"

namespace {

/// Of a frame in an error line, which takes four times as much.
constexpr std::size_t kLongestBadFrame = 64 * 1024;

std::string DumpFrame(zmq::message_t const& frame) {
    return HexDump(frame.data(), frame.size());
}

[[gnu::cold, gnu::noinline]] void ReportNoMore(zmq::message_t const& frame) {
    LOG_E("expected MORE after frame: %s", ZMQMessagePipeBase::DumpBadFrame(frame).c_str());
}

bool WaitsInPoll(std::chrono::milliseconds timeout) {
    return timeout.count() > 0 && timeout != std::chrono::milliseconds::max();
}

}  // namespace

ZMQMessagePipeBase::ZMQMessagePipeBase(zmq::socket_t* socket, bool ownsSocket)
    : m_socket(socket), m_ownsSocket(ownsSocket) {
    if (m_ownsSocket) {
        m_socket->set(zmq::sockopt::linger, 0);
    }
    m_unlimitedTimeout = m_receiveTimeout = m_socket->get(zmq::sockopt::rcvtimeo);
}

ZMQMessagePipeBase::~ZMQMessagePipeBase() {
    std::lock_guard const lock(m_mutex);
    if (m_ownsSocket) {
        LOG_T("CLOSING ZMQ_SOCKET = %p", static_cast<void*>(m_socket));
        delete m_socket;
    }
    m_socket = nullptr;
}

std::string ZMQMessagePipeBase::DumpBadFrame(zmq::message_t const& frame) {
    return HexDump(frame.data(), std::min(frame.size(), kLongestBadFrame));
}

AMessage* ZMQMessagePipeBase::DoNewMessage() {
    return new ZMQMessage;
}

AChannelMessage* ZMQMessagePipeBase::DoNewChannelMessage() {
    return new ZMQChannelMessage;
}

void ZMQMessagePipeBase::NoteForeignThread() const {
    if (IsLogged(LogLevel::Trace) && std::this_thread::get_id() != m_ownerThread) {
        LOG_T("Accessing message pipe %p from wrong thread", static_cast<void const*>(this));
    }
}

bool ZMQMessagePipeBase::PollFor(int events, int& flags, std::chrono::milliseconds timeout, bool* timedOut) {
    NoteForeignThread();
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    flags = 0;
    if (timeout == std::chrono::milliseconds::max()) {
        return true;
    }
    if (timeout.count() <= 0) {
        flags = ZMQ_DONTWAIT;
        return true;
    }
    std::lock_guard const lock(m_mutex);
    zmq_pollitem_t item{m_socket->handle(), 0, static_cast<short>(events), 0};
    int const ready = zmq_poll(&item, 1, static_cast<long>(timeout.count()));
    if (ready < 0) {
        LOG_E("Error in zmq_poll: %s", zmq_strerror(zmq_errno()));
        return false;
    }
    if (ready == 0 && timedOut != nullptr) {
        *timedOut = true;
    }
    return ready > 0;
}

template <bool Traced>
[[gnu::always_inline]] inline ZMQMessagePipeBase::Progress ZMQMessagePipeBase::SendFrames(int flags,
                                                                                          Frames frames) {
    Progress progress;
    for (zmq::message_t* frame : frames) {
        if constexpr (Traced) {
            LOG_T("Sending frame %zu: %s", progress.frames, DumpFrame(*frame).c_str());
        }
        int const more = progress.frames + 1 < frames.size() ? ZMQ_SNDMORE : 0;
        if (zmq_msg_send(frame->handle(), m_socket->handle(), flags | more) < 0) {
            progress.error = zmq_errno();
            return progress;
        }
        // Once the first frame is accepted the rest follow at once.
        flags &= ~ZMQ_DONTWAIT;
        ++progress.frames;
    }
    m_tooFewFrames = false;
    return progress;
}

template <bool Traced>
[[gnu::always_inline]] inline ZMQMessagePipeBase::Progress ZMQMessagePipeBase::RecvFrames(int flags,
                                                                                          Frames frames) {
    Progress progress;
    for (zmq::message_t* frame : frames) {
        if (zmq_msg_recv(frame->handle(), m_socket->handle(), flags) < 0) {
            progress.error = zmq_errno();
            return progress;
        }
        flags &= ~ZMQ_DONTWAIT;
        if constexpr (Traced) {
            LOG_T("Read frame %zu: %s", progress.frames, DumpFrame(*frame).c_str());
        }
        m_extraFrames = frame->more();
        if (++progress.frames < frames.size() && !m_extraFrames) {
            ReportNoMore(*frame);
            progress.tooFew = true;
            break;
        }
    }
    m_tooFewFrames = progress.tooFew;
    return progress;
}

bool ZMQMessagePipeBase::ReportSend(Progress const& progress) {
    if (progress.error != 0 && progress.error != EAGAIN) {
        LOG_E("Failed to send message: %s", zmq_strerror(progress.error));
    }
    return progress.error == 0;
}

bool ZMQMessagePipeBase::ReportReceive(Progress const& progress) {
    if (progress.error != 0 && progress.error != EAGAIN) {
        LOG_E("Failed to receive message: %s", zmq_strerror(progress.error));
    }
    return progress.error == 0 && !progress.tooFew;
}

bool ZMQMessagePipeBase::SendMessages(int flags, Frames frames) {
    std::lock_guard const lock(m_mutex);
    return frames.size() == 0 || ReportSend(SendFrames<true>(flags, frames));
}

bool ZMQMessagePipeBase::RecvMessages(int flags, Frames frames) {
    std::lock_guard const lock(m_mutex);
    SetReceiveTimeout(m_unlimitedTimeout);
    return frames.size() == 0 || ReportReceive(RecvFrames<true>(flags, frames));
}

void ZMQMessagePipeBase::SetReceiveTimeout(int milliseconds) {
    if (m_receiveTimeout != milliseconds) {
        // A socket that refuses this refuses the receive that follows, too.
        zmq_setsockopt(m_socket->handle(), ZMQ_RCVTIMEO, &milliseconds, sizeof milliseconds);
        m_receiveTimeout = milliseconds;
    }
}

bool ZMQMessagePipeBase::PollForSend(int& flags, std::chrono::milliseconds timeout, bool* timedOut,
                                     MessageAddress const& remote) {
    bool const ready = PollFor(ZMQ_POLLOUT, flags, timeout, timedOut);
    if (!ready) {
        LOG_W("ZMQ_POLLOUT timed out for %s", remote.ToString().c_str());
    }
    return ready;
}

bool ZMQMessagePipeBase::Send(Frames frames, std::chrono::milliseconds timeout, bool* timedOut,
                              MessageAddress const& remote) {
    if (IsLogged(LogLevel::Trace)) {
        return SendByPoll(frames, timeout, timedOut, remote);
    }
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    {
        std::lock_guard const lock(m_mutex);
        bool const unlimited = timeout == std::chrono::milliseconds::max();
        Progress const progress = SendFrames<false>(unlimited ? 0 : ZMQ_DONTWAIT, frames);
        if (progress.error == 0) {
            return true;
        }
        if (progress.frames != 0 || !WaitsInPoll(timeout)) {
            if (timeout.count() <= 0 && timedOut != nullptr) {
                *timedOut = true;
            }
            return ReportSend(progress);
        }
    }
    // Not ready, or in a state that only the poll knows how to wait out or to name. The frames are untouched.
    return SendByPoll(frames, timeout, timedOut, remote);
}

bool ZMQMessagePipeBase::Send(std::string_view header, zmq::message_t& body,
                              std::chrono::milliseconds timeout, bool* timedOut,
                              MessageAddress const& remote) {
    if (!IsLogged(LogLevel::Trace)) {
        std::lock_guard const lock(m_mutex);
        int const flags = timeout == std::chrono::milliseconds::max() ? 0 : ZMQ_DONTWAIT;
        void* const socket = m_socket->handle();
        if (zmq_send(socket, header.data(), header.size(), flags | ZMQ_SNDMORE) >= 0) {
            m_tooFewFrames = false;
            if (timedOut != nullptr) {
                *timedOut = false;
            }
            return zmq_msg_send(body.handle(), socket, 0) >= 0 || ReportSend({1, zmq_errno(), false});
        }
    }
    // Once more the ordinary way, which knows how to wait and what to report.
    zmq::message_t frame(header.data(), header.size());
    return Send({&frame, &body}, timeout, timedOut, remote);
}

bool ZMQMessagePipeBase::SendByPoll(Frames frames, std::chrono::milliseconds timeout, bool* timedOut,
                                    MessageAddress const& remote) {
    int flags = 0;
    return PollForSend(flags, timeout, timedOut, remote) && FinishSend(flags, frames, timedOut);
}

bool ZMQMessagePipeBase::FinishSend(int flags, Frames frames, bool* timedOut) {
    bool const sent = SendMessages(flags, frames);
    if (!sent && (flags & ZMQ_DONTWAIT) != 0 && timedOut != nullptr) {
        *timedOut = true;
    }
    return sent;
}

bool ZMQMessagePipeBase::Receive(Frames frames, std::chrono::milliseconds timeout, bool* timedOut) {
    bool const waits = WaitsInPoll(timeout);
    if (IsLogged(LogLevel::Trace) || (waits && timeout.count() > INT_MAX)) {
        return ReceiveByPoll(frames, timeout, timedOut);
    }
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    Progress progress;
    {
        std::lock_guard const lock(m_mutex);
        SetReceiveTimeout(waits ? static_cast<int>(timeout.count()) : m_unlimitedTimeout);
        progress = RecvFrames<false>(timeout.count() <= 0 ? ZMQ_DONTWAIT : 0, frames);
    }
    if (progress.error == 0 && !progress.tooFew) {
        return true;
    }
    std::optional<bool> const received = FinishFailedReceive(progress, timeout, timedOut);
    return received ? *received : ReceiveByPoll(frames, timeout, timedOut);
}

std::optional<bool> ZMQMessagePipeBase::FinishFailedReceive(Progress const& progress,
                                                            std::chrono::milliseconds timeout,
                                                            bool* timedOut) {
    if (!WaitsInPoll(timeout)) {
        if (timeout.count() <= 0 && timedOut != nullptr) {
            *timedOut = true;
        }
        return ReportReceive(progress);
    }
    if (progress.frames != 0) {
        return ReportReceive(progress);
    }
    if (progress.error == EFSM) {
        // The poll waits out even a socket that cannot become ready.
        return std::nullopt;
    }
    if (progress.error != EAGAIN) {
        LOG_E("Error in zmq_poll: %s", zmq_strerror(progress.error));
    } else if (timedOut != nullptr) {
        *timedOut = true;
    }
    return false;
}

bool ZMQMessagePipeBase::ReceiveByPoll(Frames frames, std::chrono::milliseconds timeout, bool* timedOut) {
    int flags = 0;
    if (!PollFor(ZMQ_POLLIN, flags, timeout, timedOut)) {
        return false;
    }
    bool const received = RecvMessages(flags, frames);
    if (!received && (flags & ZMQ_DONTWAIT) != 0 && timedOut != nullptr) {
        *timedOut = true;
    }
    return received;
}

void ZMQMessagePipeBase::Subscribe(std::string const& prefix) {
    std::lock_guard const lock(m_mutex);
    m_socket->set(zmq::sockopt::subscribe, prefix);
}

bool ZMQMessagePipeBase::DropExtraFrames() {
    std::lock_guard const lock(m_mutex);
    bool const any = m_extraFrames;
    zmq::message_t frame;
    while (m_extraFrames) {
        if (zmq_msg_recv(frame.handle(), m_socket->handle(), 0) < 0) {
            LOG_E("Failed to receive message: %s", zmq_strerror(zmq_errno()));
            m_extraFrames = false;
        } else {
            m_extraFrames = frame.more();
        }
    }
    return any;
}

bool ZMQMessagePipeBase::ReceivedTooFewFrames() const {
    std::lock_guard const lock(m_mutex);
    return m_tooFewFrames;
}
