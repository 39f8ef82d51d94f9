#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Utils/ServerDescriptor.h"
#include "Utils/SharedMemory.h"
#include "Utils/SharedMutex.h"

/// The table of the servers that run on this machine for this user: one line of text a server, in a small
/// block of shared memory behind a named mutex. The table outlives every process; an entry stays until its
/// server, or another registration, replaces or removes it, and nothing tests whether a server still lives.
///
/// Any thread may call any operation. Timeouts bound the wait for the mutex; milliseconds::max() waits
/// without limit. Every `timedOut` may be null; it tells a timeout from other failures.
class ServerRegistry {
public:
    using Servers = std::vector<ServerDescriptor>;

    /// The process-wide registry, built on first use.
    static ServerRegistry& Instance();
    /// A registry under a name of this process's own.
    static std::shared_ptr<ServerRegistry> MakeTestInstance();

    /// @param name  base name of the block and the mutex; both are opened or created at once. A failure is
    ///              logged and not retried: later calls then find no table.
    explicit ServerRegistry(std::string name);
    ServerRegistry(ServerRegistry const&) = delete;
    ServerRegistry& operator=(ServerRegistry const&) = delete;
    ~ServerRegistry() = default;

    /// What the constructor does; for after Terminate. Does nothing while the registry is open.
    void Initialize();
    /// Closes block and mutex, once the operations under way have ended, and leaves both in place for others.
    void Terminate();
    /// Replaces a mutex that a dead process left locked. It is a new mutex under the old name: processes that
    /// have the old one open keep excluding only each other, until they open the registry again. So do the
    /// operations of this process that are under way.
    void Recover();

    /// Reads the table.
    /// @param list  emptied first. When the table has a bad line it holds the entries before that line.
    /// @return false on timeout, and when the table could not be read to its end. No table is an empty one.
    bool GetServers(Servers& list, std::chrono::milliseconds timeout, bool* timedOut);
    /// @param address     physical; compared byte for byte.
    /// @param descriptor  the first entry with that address; untouched when there is none.
    bool FindServer(MessageAddress const& address, ServerDescriptor& descriptor,
                    std::chrono::milliseconds timeout, bool* timedOut);
    /// The same by name.
    bool FindServerByName(std::string const& name, ServerDescriptor& descriptor,
                          std::chrono::milliseconds timeout, bool* timedOut);

    /// True for a physical address of a kind other than NONE; anything else is logged.
    bool ValidateAddress(MessageAddress const& address);

    /// What the user chose by VQ_VDS_ADDRESS: an address, or a bare port on localhost. The default address
    /// when the variable is not set, or (logged) makes no sense.
    static MessageAddress GetUserServerAddress();
    /// The user's choice by address, else by VQ_VDS_NAME, else the first server of the table, else the
    /// default server. A name that is not in the table gives the default-constructed address.
    static MessageAddress GetServerAddress();

    /// Enters a server, in place of the entry with its name or address if there is one. A table that cannot
    /// be read is rewritten with what could be read of it. Reading and writing are two steps: two servers
    /// that register in the same moment can lose one entry.
    bool RegisterServer(ServerDescriptor const& descriptor, std::chrono::milliseconds timeout,
                        bool* timedOut);
    /// Removes the first entry with the descriptor's name or address; false when there is none.
    bool RemoveServer(ServerDescriptor const& descriptor, std::chrono::milliseconds timeout, bool* timedOut);

    /// Who this process is to its peers; copied into pipes and devices as they are made. Empty unless set.
    std::string identity;

private:
    /// What the processes share. An operation keeps the objects that it began with.
    struct Table {
        std::shared_ptr<SharedMemory> memory;
        std::shared_ptr<SharedMutex> mutex;
    };
    /// Both null after Terminate.
    Table GetTable();
    static bool WriteTable(SharedMemory& memory, std::string const& text);
    std::string ReadRegistry(std::chrono::milliseconds timeout, bool* timedOut);
    bool WriteRegistry(std::string const& text, std::chrono::milliseconds timeout, bool* timedOut);
    bool RewriteRegistry(Servers const& list, std::chrono::milliseconds timeout, bool* timedOut);
    bool DeserializeRegistry(std::string const& text, Servers& list);
    static std::string SerializeRegistry(Servers const& list);

    std::string const m_name;
    /// A bad line is reported once until the next write.
    std::atomic<bool> m_syntaxWarned{false};
    /// Guards m_table; held while the block is mapped.
    std::mutex m_guard;
    Table m_table;
};
