#pragma once

#include <string>
#include <string_view>

#include "Messaging/MessageAddress.h"
#include "VirtualDeviceServer/ServerState.h"

namespace vq::server {

/// Where the server publishes, beside its request address. All physical.
struct PublishingAddresses {
    MessageAddress events;
    MessageAddress dataEvents;
    MessageAddress heartbeat;
    MessageAddress memoryEvents;

    friend bool operator==(PublishingAddresses const&, PublishingAddresses const&) = default;
};

/// What outlives the server process: a crash included.
struct JournalContent {
    ServerMemory memory;
    /// Listeners reconnect to the addresses that they know: the next server binds them again.
    PublishingAddresses addresses;

    friend bool operator==(JournalContent const&, JournalContent const&) = default;
};

/// The small file in which a server keeps what the next one under its name and address needs. Lines of text:
/// a head, one line a fact with a keyword, and "end". It is replaced as a whole, so a reader finds the old or
/// the new one.
///
/// Threads: one.
class ServerJournal {
public:
    /// @param path  need not exist
    explicit ServerJournal(std::string path) : m_path(std::move(path)) {}

    /// The place of the journal of a server: in the user's temporary directory.
    static std::string PathFor(std::string const& name, MessageAddress const& address);

    /// @return what could be read: the default content when there is no journal; what stands before the
    ///         damage, with a warning line, when there is a damaged one
    JournalContent Read() const;
    /// False, with an error line, when it could not be written.
    bool Write(JournalContent const& content) const;

    static std::string Serialize(JournalContent const& content);
    /// @param content  gets what stands before the first damage
    /// @return false when the text is damaged
    static bool Parse(std::string_view text, JournalContent& content);

private:
    std::string m_path;
};

}  // namespace vq::server
