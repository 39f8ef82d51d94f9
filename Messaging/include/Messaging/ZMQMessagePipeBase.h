#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <zmq.hpp>

class AChannelMessage;
class AMessage;
struct MessageAddress;

/// The socket half of a pipe: waits, and whole multipart messages in and out under one mutex.
///
/// Threads: the operations lock the mutex, PollFor for its whole wait.
class ZMQMessagePipeBase {
public:
    using Frames = std::initializer_list<zmq::message_t*>;

    /// @param socket      the socket; when owned, it is told to drop unsent messages on close
    /// @param ownsSocket  close and delete it with the pipe. It stays the caller's when this throws.
    /// Throws zmq::error_t.
    ZMQMessagePipeBase(zmq::socket_t* socket, bool ownsSocket);
    ZMQMessagePipeBase(ZMQMessagePipeBase const&) = delete;
    ZMQMessagePipeBase& operator=(ZMQMessagePipeBase const&) = delete;
    virtual ~ZMQMessagePipeBase();

    zmq::socket_t* GetSocket() const { return m_socket; }

    /// A frame as hexadecimal text for an error line; of a very long one only the beginning, so that no peer
    /// can fill memory and log with it.
    static std::string DumpBadFrame(zmq::message_t const& frame);

    static AMessage* DoNewMessage();
    static AChannelMessage* DoNewChannelMessage();

    /// Four bytes, little-endian; the cursor moves behind them.
    static void WriteUInt32(std::uint8_t*& cursor, std::uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8) {
            *cursor++ = static_cast<std::uint8_t>(value >> shift);
        }
    }
    static std::uint32_t ReadUInt32(std::uint8_t const*& cursor) {
        std::uint32_t value = 0;
        for (int shift = 0; shift < 32; shift += 8) {
            value |= static_cast<std::uint32_t>(*cursor++) << shift;
        }
        return value;
    }

    /// Prepares a send or receive.
    /// @param events    ZMQ_POLLIN or ZMQ_POLLOUT
    /// @param flags     what must go to SendMessages or RecvMessages
    /// @param timeout   0 (or less): no wait here, and the flags say not to wait there either; the maximum:
    ///                  no wait here, but without limit there; else waits here until the socket is ready
    /// @param timedOut  may be null; true when the wait ran out
    /// @return false when it ran out or failed (logged)
    bool PollFor(int events, int& flags, std::chrono::milliseconds timeout, bool* timedOut);

    /// One multipart message, all of it or (on an error at the first frame) nothing. The content of the
    /// frames is moved out. False when the socket would have to wait, or on an error (logged).
    bool SendMessages(int flags, Frames frames);
    /// One multipart message of at least so many frames. Frames behind them stay on the socket, see
    /// DropExtraFrames; one of fewer frames is consumed and logged. False as in SendMessages.
    bool RecvMessages(int flags, Frames frames);

protected:
    /// PollFor and SendMessages in one; the poll, which costs more than a send, only when the socket is not
    /// ready at once or the steps are to be traced.
    /// @param remote  for the warning when the socket does not become ready
    bool Send(Frames frames, std::chrono::milliseconds timeout, bool* timedOut, MessageAddress const& remote);
    /// Send for a message of two frames, of which the first is copied: for less than a frame of its own
    /// takes.
    bool Send(std::string_view header, zmq::message_t& body, std::chrono::milliseconds timeout,
              bool* timedOut, MessageAddress const& remote);
    /// PollFor for a send, with the warning.
    bool PollForSend(int& flags, std::chrono::milliseconds timeout, bool* timedOut,
                     MessageAddress const& remote);
    /// SendMessages after PollFor: not ready when told not to wait counts as timed out.
    bool FinishSend(int flags, Frames frames, bool* timedOut);
    /// PollFor and RecvMessages in one; the wait by the socket's own time limit, which costs less than a
    /// poll.
    bool Receive(Frames frames, std::chrono::milliseconds timeout, bool* timedOut);

    /// Adds to what a SUB socket receives. Throws zmq::error_t.
    void Subscribe(std::string const& prefix);

    /// Drops what RecvMessages left of the last message; true when there was anything.
    bool DropExtraFrames();
    /// True from a message of too few frames until the next one was received or sent.
    bool ReceivedTooFewFrames() const;

private:
    /// How far a transfer came.
    struct Progress {
        std::size_t frames = 0;  ///< done
        int error = 0;           ///< of the frame behind them; 0 when there was none
        bool tooFew = false;     ///< received only: the message ended there
    };
    // Both need m_mutex. Traced: each frame at trace level.
    template <bool Traced>
    Progress SendFrames(int flags, Frames frames);
    template <bool Traced>
    Progress RecvFrames(int flags, Frames frames);
    /// PollFor and SendMessages.
    bool SendByPoll(Frames frames, std::chrono::milliseconds timeout, bool* timedOut,
                    MessageAddress const& remote);
    /// PollFor and RecvMessages.
    bool ReceiveByPoll(Frames frames, std::chrono::milliseconds timeout, bool* timedOut);
    /// Reports a receive without a poll that failed.
    /// @return nothing when the poll has to wait out a socket that cannot become ready
    static std::optional<bool> FinishFailedReceive(Progress const& progress,
                                                   std::chrono::milliseconds timeout, bool* timedOut);
    void SetReceiveTimeout(int milliseconds);  // needs m_mutex
    bool ReportSend(Progress const& progress);
    static bool ReportReceive(Progress const& progress);
    void NoteForeignThread() const;

    mutable std::mutex m_mutex;
    zmq::socket_t* m_socket;
    std::thread::id const m_ownerThread = std::this_thread::get_id();
    bool const m_ownsSocket;
    // Of the socket; -1 for none. Guarded by m_mutex.
    int m_unlimitedTimeout;       // what it came with: the limit of an unlimited receive
    int m_receiveTimeout;         // what it is set to now
    bool m_extraFrames = false;   // guarded by m_mutex
    bool m_tooFewFrames = false;  // guarded by m_mutex
};
