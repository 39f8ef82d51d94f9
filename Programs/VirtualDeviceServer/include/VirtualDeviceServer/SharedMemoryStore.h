#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Messaging/MessageAddress.h"
#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"

namespace vq::server {

/// The buffers in shared memory that the server owns for its clients, by their logical names. Each is three
/// objects: the memory, a generation counter of 8 bytes that starts at 0, and the mutex that guards both.
/// The server makes and removes them and never touches what is in them, nor takes a mutex: no client can hold
/// it up.
///
/// The names of the objects are used once. A buffer is resized in its place, under its names, so that all who
/// have it open go on excluding each other; its store never shrinks, since what others have mapped must stay
/// there. A buffer whose mutex a dead client left taken is healed by a client, by deleting and making it
/// anew, or by a restart of the server, which removes what its former life left.
///
/// Operations that can refuse give the reason as a text for the client, and nothing when all went well.
///
/// Threads: one.
class SharedMemoryStore {
public:
    using EventSink = std::function<void(google::protobuf::MessageLite const&)>;
    using Refusal = std::optional<std::string>;
    using Configuration = vq::vds::PortableSharedMemoryConfiguration;

    /// More buffers than this are refused.
    static constexpr std::size_t kMaximumCount = 4096;

    /// Removes the objects of a former server on that address or of that name: call it once both are ours.
    /// @param address, name  what the names of the objects are made of, beside the user's temporary directory
    /// @param sink           gets an event for every change; must not call back
    SharedMemoryStore(MessageAddress const& address, std::string const& name, EventSink sink);
    SharedMemoryStore(SharedMemoryStore const&) = delete;
    SharedMemoryStore& operator=(SharedMemoryStore const&) = delete;
    /// Removes every buffer, with its event. Who has one open keeps it until he closes it.
    ~SharedMemoryStore();

    /// Refused for a name that is taken.
    Refusal Create(vq::vds::CreateServerSharedMemory const& request,
                   vq::vds::CreateServerSharedMemory::Reply& reply);
    Refusal Resize(vq::vds::ResizeServerSharedMemory const& request,
                   vq::vds::ResizeServerSharedMemory::Reply& reply);
    Refusal Delete(std::string const& id);
    void Find(std::string const& id, vq::vds::FindServerSharedMemory::Reply& reply) const;

    Refusal SetConfiguration(std::string const& id, Configuration const& configuration);
    Refusal ClearConfiguration(std::string const& id);
    /// @param configuration  null when the buffer is not portable; else valid until the next call
    Refusal GetConfiguration(std::string const& id, Configuration const*& configuration) const;

    /// A client has written to a portable buffer: for the log.
    void NoteWrite(vq::vds::SharedMemoryModifiedEvent const& event) const;

private:
    struct Buffer {
        std::string stem;             ///< of the names of the objects
        std::uint64_t size = 0;       ///< nominal
        std::uint64_t allocated = 0;  ///< the largest size so far
        bool resizable = false;
        std::unique_ptr<Configuration> configuration;  ///< null: not portable
    };
    using Buffers = std::map<std::string, Buffer>;

    static bool CreateObjects(Buffer const& buffer);
    static void DeleteObjects(std::string const& stem);
    bool IsLeftover(std::string_view file) const;
    void DeleteLeftovers() const;
    static Refusal RefuseSize(std::uint64_t additional);
    Buffer* Find(std::string const& id);
    Buffer const* Find(std::string const& id) const;
    void PublishChange(std::string const& id, Buffer const& buffer) const;

    std::string const m_addressPart;
    std::string const m_namePart;
    EventSink m_sink;
    Buffers m_buffers;
    std::uint64_t m_created = 0;
};

}  // namespace vq::server
