#include "Messaging/ZMQMessagePipeBase.h"

#include <zmq.h>

#include <cerrno>

#include "Logging/Log.h"
#include "Messaging/ZMQMessage.h"
#include "Utils/TextUtils.h"

namespace {

std::string DumpFrame(zmq::message_t const& frame) {
    return HexDump(frame.data(), frame.size());
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
}

ZMQMessagePipeBase::~ZMQMessagePipeBase() {
    std::lock_guard const lock(m_mutex);
    if (m_ownsSocket) {
        LOG_T("CLOSING ZMQ_SOCKET = %p", static_cast<void*>(m_socket));
        delete m_socket;
    }
    m_socket = nullptr;
}

AMessage* ZMQMessagePipeBase::DoNewMessage() {
    return new ZMQMessage;
}

AChannelMessage* ZMQMessagePipeBase::DoNewChannelMessage() {
    return new ZMQChannelMessage;
}

void ZMQMessagePipeBase::WriteUInt32(std::uint8_t*& cursor, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        *cursor++ = static_cast<std::uint8_t>(value >> shift);
    }
}

std::uint32_t ZMQMessagePipeBase::ReadUInt32(std::uint8_t const*& cursor) {
    std::uint32_t value = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        value |= static_cast<std::uint32_t>(*cursor++) << shift;
    }
    return value;
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

ZMQMessagePipeBase::Progress ZMQMessagePipeBase::SendFrames(int flags, Frames frames) {
    Progress progress;
    for (zmq::message_t* frame : frames) {
        LOG_T("Sending frame %zu: %s", progress.frames, DumpFrame(*frame).c_str());
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

ZMQMessagePipeBase::Progress ZMQMessagePipeBase::RecvFrames(int flags, Frames frames) {
    Progress progress;
    for (zmq::message_t* frame : frames) {
        if (zmq_msg_recv(frame->handle(), m_socket->handle(), flags) < 0) {
            progress.error = zmq_errno();
            return progress;
        }
        flags &= ~ZMQ_DONTWAIT;
        LOG_T("Read frame %zu: %s", progress.frames, DumpFrame(*frame).c_str());
        m_extraFrames = frame->more();
        if (++progress.frames < frames.size() && !m_extraFrames) {
            LOG_E("expected MORE after frame: %s", DumpFrame(*frame).c_str());
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
    return frames.size() == 0 || ReportSend(SendFrames(flags, frames));
}

bool ZMQMessagePipeBase::RecvMessages(int flags, Frames frames) {
    std::lock_guard const lock(m_mutex);
    return frames.size() == 0 || ReportReceive(RecvFrames(flags, frames));
}

std::optional<bool> ZMQMessagePipeBase::TrySend(Frames frames, std::chrono::milliseconds timeout,
                                                bool* timedOut) {
    if (!WaitsInPoll(timeout) || IsLogged(LogLevel::Trace)) {
        return std::nullopt;
    }
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    std::lock_guard const lock(m_mutex);
    Progress const progress = SendFrames(ZMQ_DONTWAIT, frames);
    if (progress.frames == 0 && progress.error != 0) {
        // Not ready, or in a state that only the poll knows how to wait out or to name.
        return std::nullopt;
    }
    return ReportSend(progress);
}

bool ZMQMessagePipeBase::FinishSend(int flags, Frames frames, bool* timedOut) {
    bool const sent = SendMessages(flags, frames);
    if (!sent && (flags & ZMQ_DONTWAIT) != 0 && timedOut != nullptr) {
        *timedOut = true;
    }
    return sent;
}

bool ZMQMessagePipeBase::Receive(Frames frames, std::chrono::milliseconds timeout, bool* timedOut) {
    if (WaitsInPoll(timeout) && !IsLogged(LogLevel::Trace)) {
        if (timedOut != nullptr) {
            *timedOut = false;
        }
        std::lock_guard const lock(m_mutex);
        Progress const progress = RecvFrames(ZMQ_DONTWAIT, frames);
        if (progress.frames != 0) {
            return ReportReceive(progress);
        }
    }
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
