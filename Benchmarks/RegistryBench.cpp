// What a look at the table of running servers costs.

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Twin.h"
#include "Utils/OSUtils.h"
#include "Utils/ServerRegistry.h"

namespace {

constexpr std::size_t kServers = 8;
constexpr std::size_t kReads = 20;
constexpr std::size_t kPage = 4096;
constexpr std::chrono::milliseconds kTimeout{1000};

/// A server as somebody would hold it who needs no more than the fields.
struct PlainServer {
    std::string name, address, heartbeat, memoryEvents;
    int pid = 0, protocol = 0, minimumProtocol = 0;
};

std::string_view TakeUntil(char end, std::string_view& text) {
    std::size_t const length = text.find(end);
    std::string_view const taken = text.substr(0, length);
    text.remove_prefix(length == std::string_view::npos ? text.size() : length + 1);
    return taken;
}

int ToNumber(std::string_view text) {
    int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

std::vector<PlainServer> Split(std::string_view text) {
    std::vector<PlainServer> servers;
    while (!text.empty()) {
        std::string_view line = TakeUntil('\n', text);
        PlainServer& server = servers.emplace_back();
        server.name = TakeUntil('\t', line);
        server.address = TakeUntil('\t', line);
        server.pid = ToNumber(TakeUntil('\t', line));
        server.heartbeat = TakeUntil('\t', line);
        server.memoryEvents = TakeUntil('\t', line);
        server.protocol = ToNumber(TakeUntil('\t', line));
        server.minimumProtocol = ToNumber(TakeUntil('\t', line));
    }
    return servers;
}

/// The table read by the system's calls alone.
class PlainTable {
public:
    explicit PlainTable(std::string const& name)
        : m_path(GetUserTempDirectory() + name + ".memory"),
          m_file(::open(m_path.c_str(), O_RDWR | O_CLOEXEC)),
          m_semaphore(::sem_open((name + ".mutex").c_str(), 0)) {}
    ~PlainTable() {
        ::close(m_file);
        if (m_semaphore != SEM_FAILED) {
            ::sem_close(m_semaphore);
        }
    }
    PlainTable(PlainTable const&) = delete;
    PlainTable& operator=(PlainTable const&) = delete;

    std::vector<PlainServer> Read() const {
        struct stat status {};
        if (::stat(m_path.c_str(), &status) != 0 || ::sem_trywait(m_semaphore) != 0) {
            return {};
        }
        std::string text;
        if (void* const page = ::mmap(nullptr, kPage, PROT_READ, MAP_SHARED, m_file, 0); page != MAP_FAILED) {
            char const* const begin = static_cast<char const*>(page);
            text.assign(begin, ::strnlen(begin, kPage));
            ::munmap(page, kPage);
        }
        ::sem_post(m_semaphore);
        return Split(text);
    }

private:
    std::string const m_path;
    int const m_file;
    sem_t* const m_semaphore;
};

/// A table of eight servers, gone again at the end.
class FullTable {
public:
    FullTable() : m_name("benchTLRegistry." + std::to_string(::getpid())), m_registry(m_name) {
        for (std::size_t i = 0; i < kServers; ++i) {
            int const port = 17975 + 10 * static_cast<int>(i);
            ServerDescriptor server;
            server.name = "Rig-" + std::to_string(i);
            server.address = Address(port);
            server.heartbeatAddress = Address(port + 1);
            server.memoryEventAddress = Address(port + 2);
            server.pid = 4242;
            server.protocol = 12;
            server.minimumProtocol = 11;
            m_registry.RegisterServer(server, kTimeout, nullptr);
        }
    }
    ~FullTable() {
        ::sem_unlink((m_name + ".mutex").c_str());
        ::unlink((GetUserTempDirectory() + m_name + ".memory").c_str());
    }
    FullTable(FullTable const&) = delete;
    FullTable& operator=(FullTable const&) = delete;

    std::string const& GetName() const { return m_name; }
    ServerRegistry& Get() { return m_registry; }

private:
    static MessageAddress Address(int port) {
        return MessageAddress::FromString("SOCKET:localhost:" + std::to_string(port));
    }

    std::string const m_name;
    ServerRegistry m_registry;
};

void ReadEight(benchmark::State& state) {
    FullTable table;
    PlainTable const plain(table.GetName());
    ServerRegistry::Servers servers;
    if (!table.Get().GetServers(servers, kTimeout, nullptr) || servers.size() != kServers ||
        plain.Read().size() != kServers) {
        state.SkipWithError("the table cannot be read");
        return;
    }
    bench::RunTwin(
        state, kReads, [&plain] { return plain.Read(); },
        [&table] {
            ServerRegistry::Servers list;
            bool timedOut = false;
            table.Get().GetServers(list, kTimeout, &timedOut);
            return list;
        });
}

void ReadEightQuiet(benchmark::State& state) {
    FullTable const table;
    PlainTable const plain(table.GetName());
    bench::RunQuiet(state, kReads, [&plain] { return plain.Read(); });
}

VQ_TWIN("registry_read_8", ReadEight);
VQ_TWIN("registry_read_8_quiet", ReadEightQuiet);

}  // namespace
