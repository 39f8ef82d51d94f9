#include "Utils/ServerRegistry.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "Logging/Log.h"
#include "ServerTable.h"

namespace {

/// Nominal size of the table in bytes, its NUL included.
constexpr std::uint64_t kTableSize = 1024;
/// One page: what a table without NUL can give at most.
constexpr std::size_t kReadLimit = 4096;
constexpr char const* kRegistryName = "VQTLRegistry";
constexpr char const* kTestRegistryName = "testTLRegistry.";

void Clear(bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
}

ServerRegistry::Servers::iterator FindEntry(ServerRegistry::Servers& list, ServerDescriptor const& server) {
    return std::find_if(list.begin(), list.end(), [&server](ServerDescriptor const& entry) {
        return entry.name == server.name || entry.address == server.address;
    });
}

/// Moves the first entry that fits out of the list; false when none does.
template <class Fits>
bool TakeFirst(ServerRegistry::Servers& list, ServerDescriptor& descriptor, Fits fits) {
    auto const found = std::find_if(list.begin(), list.end(), fits);
    if (found == list.end()) {
        return false;
    }
    descriptor = std::move(*found);
    return true;
}

}  // namespace

ServerRegistry& ServerRegistry::Instance() {
    static ServerRegistry s_registry(kRegistryName);
    return s_registry;
}

std::shared_ptr<ServerRegistry> ServerRegistry::MakeTestInstance() {
    return std::make_shared<ServerRegistry>(kTestRegistryName + std::to_string(::getpid()));
}

ServerRegistry::ServerRegistry(std::string name) : m_name(std::move(name)) {
    Initialize();
}

void ServerRegistry::Initialize() {
    std::lock_guard const lock(m_guard);
    if (m_table.memory != nullptr) {
        return;
    }
    m_table.mutex = std::make_shared<SharedMutex>(m_name + ".mutex");
    if (m_table.mutex->Exists()) {
        if (!m_table.mutex->Open()) {
            LOG_E("Failed to open Tessel Server mutex");
        }
    } else if (!m_table.mutex->Create()) {
        LOG_E("Failed to create Tessel Server mutex");
    }
    m_table.memory = SharedMemoryFactory::Make(m_name + ".memory", kTableSize, SharedMemoryType::FILE);
    if (m_table.memory->Exists()) {
        if (!m_table.memory->Open()) {
            LOG_E("Failed to access Tessel Server registry");
        }
    } else if (!m_table.memory->Create()) {
        LOG_E("Failed to remember virtual device servers");
    }
}

void ServerRegistry::Terminate() {
    std::lock_guard const lock(m_guard);
    m_table = {};
}

void ServerRegistry::Recover() {
    std::lock_guard const lock(m_guard);
    if (m_table.mutex == nullptr) {
        return;
    }
    // Another object: somebody in this process may be waiting on the present one.
    m_table.mutex = std::make_shared<SharedMutex>(m_name + ".mutex");
    if (m_table.mutex->Delete()) {
        LOG_V("Deleted server registry mutex");
    }
    if (!m_table.mutex->Create()) {
        LOG_E("Failed to recreate server registry mutex");
    }
}

ServerRegistry::Table ServerRegistry::GetTable() {
    std::lock_guard const lock(m_guard);
    return m_table;
}

std::string ServerRegistry::ReadRegistry(std::chrono::milliseconds timeout, bool* timedOut) {
    Clear(timedOut);
    std::string text;
    Table const table = GetTable();
    if (table.memory == nullptr || !table.memory->Exists() || !table.mutex->Lock(timeout, timedOut)) {
        return text;
    }
    // A whole text has its NUL well inside; a damaged one ends with the page, or with the file.
    std::array<char, kReadLimit> page;
    text.assign(page.data(), ::strnlen(page.data(), table.memory->CopyTo(page.data(), page.size())));
    table.mutex->Unlock();
    return text;
}

bool ServerRegistry::WriteRegistry(std::string const& text, std::chrono::milliseconds timeout,
                                   bool* timedOut) {
    Clear(timedOut);
    m_syntaxWarned = false;
    Table const table = GetTable();
    if (table.memory == nullptr || !table.memory->Exists() || !table.mutex->Lock(timeout, timedOut)) {
        return false;
    }
    bool written = false;
    {
        std::lock_guard const lock(m_guard);
        written = WriteTable(*table.memory, text);
    }
    return table.mutex->Unlock() && written;
}

bool ServerRegistry::WriteTable(SharedMemory& memory, std::string const& text) {
    if (!memory.Restore()) {
        return false;
    }
    auto* const table = static_cast<char*>(memory.Attach(SharedMemory::Access::Write));
    if (table == nullptr) {
        return true;
    }
    std::size_t const size = memory.GetSize();
    if (text.size() + 1 > size) {
        LOG_E("truncating Tessel Server registry (allocated = %ld; needed = %ld)", static_cast<long>(size),
              static_cast<long>(text.size() + 1));
    }
    std::size_t const writable = std::min<std::size_t>(size, memory.GetTouchableSize());
    std::size_t const used = ::strnlen(text.c_str(), writable);
    std::memcpy(table, text.data(), used);
    std::memset(table + used, 0, writable - used);
    memory.Detach();
    return true;
}

bool ServerRegistry::DeserializeRegistry(std::string const& text, Servers& list) {
    using Reason = ServerTable::BadLine::Reason;
    ServerTable::BadLine const bad = ServerTable::Parse(text, list);
    if (bad.reason == Reason::None) {
        return true;
    }
    if (!m_syntaxWarned.exchange(true)) {
        if (bad.reason == Reason::TooFewFields) {
            LOG_E(
                "unexpected syntax in line (expected seven or more entries separated by tabs), ignoring: "
                "'%s'",
                bad.text.c_str());
        } else {
            LOG_E("unparseable line, ignoring: '%s'", bad.text.c_str());
        }
    }
    return false;
}

std::string ServerRegistry::SerializeRegistry(Servers const& list) {
    return ServerTable::Format(list);
}

bool ServerRegistry::RewriteRegistry(Servers const& list, std::chrono::milliseconds timeout, bool* timedOut) {
    Clear(timedOut);
    if (!WriteRegistry(SerializeRegistry(list), timeout, timedOut)) {
        LOG_E("ServerRegistry: failed to rewrite registry");
        return false;
    }
    return true;
}

bool ServerRegistry::GetServers(Servers& list, std::chrono::milliseconds timeout, bool* timedOut) {
    Clear(timedOut);
    list.clear();
    bool readTimedOut = false;
    std::string const text = ReadRegistry(timeout, &readTimedOut);
    if (readTimedOut) {
        if (timedOut != nullptr) {
            *timedOut = true;
        }
        return false;
    }
    return DeserializeRegistry(text, list);
}

bool ServerRegistry::ValidateAddress(MessageAddress const& address) {
    if (address.transport == MessageAddress::Transport::NONE) {
        LOG_E("Failed to use empty MessageAddress");
        return false;
    }
    if (!address.logicalName.empty()) {
        LOG_E("Failed to use logical MessageAddresses, must use AMessagePipeProvider::Resolve first on %s",
              address.ToString().c_str());
        return false;
    }
    return true;
}

bool ServerRegistry::FindServer(MessageAddress const& address, ServerDescriptor& descriptor,
                                std::chrono::milliseconds timeout, bool* timedOut) {
    Clear(timedOut);
    Servers list;
    return ValidateAddress(address) && GetServers(list, timeout, timedOut) &&
           TakeFirst(list, descriptor, [&](auto const& entry) { return entry.address == address; });
}

bool ServerRegistry::FindServerByName(std::string const& name, ServerDescriptor& descriptor,
                                      std::chrono::milliseconds timeout, bool* timedOut) {
    Servers list;
    return GetServers(list, timeout, timedOut) &&
           TakeFirst(list, descriptor, [&](auto const& entry) { return entry.name == name; });
}

bool ServerRegistry::RegisterServer(ServerDescriptor const& descriptor, std::chrono::milliseconds timeout,
                                    bool* timedOut) {
    Clear(timedOut);
    if (!ValidateAddress(descriptor.address) || !ValidateAddress(descriptor.heartbeatAddress)) {
        return false;
    }
    Servers list;
    if (!GetServers(list, timeout, timedOut)) {
        // This is how a damaged table heals: what could be read of it is written anew.
        LOG_W("ServerRegistry: trying to rewrite registry that we couldn't read");
    }
    if (auto const entry = FindEntry(list, descriptor); entry != list.end()) {
        *entry = descriptor;
    } else {
        list.push_back(descriptor);
    }
    return RewriteRegistry(list, timeout, timedOut);
}

bool ServerRegistry::RemoveServer(ServerDescriptor const& descriptor, std::chrono::milliseconds timeout,
                                  bool* timedOut) {
    Clear(timedOut);
    Servers list;
    if (!GetServers(list, timeout, timedOut)) {
        LOG_E("ServerRegistry: trying to rewrite registry that we couldn't read");
    }
    auto const entry = FindEntry(list, descriptor);
    if (entry == list.end()) {
        return false;
    }
    list.erase(entry);
    return RewriteRegistry(list, timeout, timedOut);
}
