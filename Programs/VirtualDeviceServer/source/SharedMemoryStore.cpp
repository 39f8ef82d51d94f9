#include "VirtualDeviceServer/SharedMemoryStore.h"

#include <chrono>
#include <cstdio>
#include <set>
#include <string_view>
#include <utility>

#include "Fnv1a.h"
#include "Logging/Log.h"
#include "Utils/OSUtils.h"
#include "Utils/SharedMemory.h"
#include "Utils/SharedMutex.h"

namespace vq::server {

namespace {

constexpr std::uint64_t kGenerationSize = 8;
constexpr std::string_view kStart = "vqbuffer.";

std::string MemoryName(std::string const& stem) {
    return stem + ".memory";
}
std::string GenerationName(std::string const& stem) {
    return stem + ".generation";
}
std::string MutexName(std::string const& stem) {
    return stem + ".mutex";
}

std::string NoSuchBuffer(std::string const& id) {
    return "there is no shared memory '" + id + "'";
}

/// A short text for an address or a name. Mutexes are the machine's and not the user's, so that it must tell
/// users apart as well.
std::string HashOf(std::string const& text) {
    std::uint64_t const hash = Fnv1a(GetUserTempDirectory() + '\n' + text);
    char digits[32];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
    return digits;
}

template <class Message>
void FillPortability(SharedMemoryStore::Configuration const* configuration, Message& message) {
    if (configuration != nullptr) {
        *message.mutable_configuration() = *configuration;
    } else {
        message.set_not_portable(true);
    }
}

}  // namespace

SharedMemoryStore::SharedMemoryStore(MessageAddress const& address, std::string const& name, EventSink sink)
    : m_addressPart(HashOf(address.ToString())), m_namePart(HashOf(name)), m_sink(std::move(sink)) {
    DeleteLeftovers();
}

SharedMemoryStore::~SharedMemoryStore() {
    while (!m_buffers.empty()) {
        Delete(std::string(m_buffers.begin()->first));
    }
}

bool SharedMemoryStore::IsLeftover(std::string_view file) const {
    if (!file.starts_with(kStart)) {
        return false;
    }
    file.remove_prefix(kStart.size());
    return file.starts_with(m_addressPart) ||
           (file.size() > m_addressPart.size() && file.substr(m_addressPart.size()).starts_with(m_namePart));
}

void SharedMemoryStore::DeleteLeftovers() const {
    // The files tell: the mutex is made after them and removed before them.
    std::set<std::string> stems;
    for (std::string const& file : GetDirectoryEntries(GetUserTempDirectory())) {
        if (IsLeftover(file)) {
            stems.insert(file.substr(0, file.rfind('.')));
        }
    }
    for (std::string const& stem : stems) {
        LOG_I("Removing the shared memory '%s' of a former server", stem.c_str());
        DeleteObjects(stem);
    }
}

bool SharedMemoryStore::CreateObjects(Buffer const& buffer) {
    auto const memory =
        SharedMemoryFactory::Make(MemoryName(buffer.stem), buffer.size, SharedMemoryType::FILE);
    auto const generation =
        SharedMemoryFactory::Make(GenerationName(buffer.stem), kGenerationSize, SharedMemoryType::ANON);
    // All are closed again here: a buffer costs the server no descriptor.
    return memory->Create() && generation->Create() && SharedMutex(MutexName(buffer.stem)).Create();
}

void SharedMemoryStore::DeleteObjects(std::string const& stem) {
    SharedMutex(MutexName(stem)).Delete();
    SharedMemoryFactory::Make(GenerationName(stem), kGenerationSize, SharedMemoryType::ANON)->Delete();
    SharedMemoryFactory::Make(MemoryName(stem), 0, SharedMemoryType::FILE)->Delete();
}

SharedMemoryStore::Refusal SharedMemoryStore::RefuseSize(std::uint64_t additional) {
    std::uint64_t room = 0;
    GetDiskFreeSpaceFile(GetUserTempDirectory(), room);
    if (additional > room) {
        return "there is no room for " + std::to_string(additional) + " bytes more";
    }
    return std::nullopt;
}

SharedMemoryStore::Buffer* SharedMemoryStore::Find(std::string const& id) {
    auto const found = m_buffers.find(id);
    return found == m_buffers.end() ? nullptr : &found->second;
}

SharedMemoryStore::Buffer const* SharedMemoryStore::Find(std::string const& id) const {
    auto const found = m_buffers.find(id);
    return found == m_buffers.end() ? nullptr : &found->second;
}

SharedMemoryStore::Refusal SharedMemoryStore::Create(vq::vds::CreateServerSharedMemory const& request,
                                                     vq::vds::CreateServerSharedMemory::Reply& reply) {
    std::string const& id = request.memory_id();
    if (id.empty() || request.size() == 0) {
        return "shared memory needs a name and a size";
    }
    if (Find(id) != nullptr) {
        return "there is shared memory '" + id + "' already";
    }
    if (m_buffers.size() >= kMaximumCount) {
        return "there is too much shared memory already";
    }
    if (auto refusal = RefuseSize(request.size()); refusal) {
        return refusal;
    }
    auto const now = std::chrono::system_clock::now().time_since_epoch().count();
    Buffer buffer;
    buffer.stem.append(kStart).append(m_addressPart).append(m_namePart);
    buffer.stem.append(".").append(std::to_string(now)).append("-").append(std::to_string(++m_created));
    buffer.size = buffer.allocated = request.size();
    buffer.resizable = request.resizable();
    if (!CreateObjects(buffer)) {
        DeleteObjects(buffer.stem);
        return "the server cannot make shared memory '" + id + "'";
    }
    reply.set_memory_name(MemoryName(buffer.stem));
    reply.set_generation_name(GenerationName(buffer.stem));
    reply.set_mutex_name(MutexName(buffer.stem));
    reply.set_size(buffer.size);
    reply.set_resizable(buffer.resizable);
    m_buffers.emplace(id, std::move(buffer));
    vq::vds::ServerSharedMemoryCreatedEvent event;
    event.set_memory_id(id);
    m_sink(event);
    return std::nullopt;
}

SharedMemoryStore::Refusal SharedMemoryStore::Resize(vq::vds::ResizeServerSharedMemory const& request,
                                                     vq::vds::ResizeServerSharedMemory::Reply& reply) {
    Buffer* const buffer = Find(request.memory_id());
    if (buffer == nullptr) {
        return NoSuchBuffer(request.memory_id());
    }
    if (!buffer->resizable || request.size() == 0) {
        return "shared memory '" + request.memory_id() + "' cannot be resized to " +
               std::to_string(request.size()) + " bytes";
    }
    if (request.size() > buffer->allocated) {
        if (auto refusal = RefuseSize(request.size() - buffer->allocated); refusal) {
            return refusal;
        }
        auto const memory =
            SharedMemoryFactory::Make(MemoryName(buffer->stem), buffer->allocated, SharedMemoryType::FILE);
        if (!memory->Open() || !memory->Resize(request.size())) {
            return "the server cannot resize shared memory '" + request.memory_id() + "'";
        }
        buffer->allocated = request.size();
    }
    buffer->size = request.size();
    reply.set_memory_id(MemoryName(buffer->stem));
    reply.set_text_2(GenerationName(buffer->stem));
    reply.set_text_3(MutexName(buffer->stem));
    reply.set_size(buffer->size);
    PublishChange(request.memory_id(), *buffer);
    return std::nullopt;
}

SharedMemoryStore::Refusal SharedMemoryStore::Delete(std::string const& id) {
    auto const found = m_buffers.find(id);
    if (found == m_buffers.end()) {
        return NoSuchBuffer(id);
    }
    DeleteObjects(found->second.stem);
    m_buffers.erase(found);
    vq::vds::ServerSharedMemoryDeletedEvent event;
    event.set_memory_id(id);
    m_sink(event);
    return std::nullopt;
}

void SharedMemoryStore::Find(std::string const& id, vq::vds::FindServerSharedMemory::Reply& reply) const {
    Buffer const* const buffer = Find(id);
    bool const found = buffer != nullptr;
    reply.set_found(found);
    reply.set_memory_name(found ? MemoryName(buffer->stem) : "");
    reply.set_generation_name(found ? GenerationName(buffer->stem) : "");
    reply.set_mutex_name(found ? MutexName(buffer->stem) : "");
    reply.set_size(found ? buffer->size : 0);
    reply.set_resizable(found && buffer->resizable);
    FillPortability(found ? buffer->configuration.get() : nullptr, reply);
}

SharedMemoryStore::Refusal SharedMemoryStore::SetConfiguration(std::string const& id,
                                                               Configuration const& configuration) {
    Buffer* const buffer = Find(id);
    if (buffer == nullptr) {
        return NoSuchBuffer(id);
    }
    buffer->configuration = std::make_unique<Configuration>(configuration);
    PublishChange(id, *buffer);
    return std::nullopt;
}

SharedMemoryStore::Refusal SharedMemoryStore::ClearConfiguration(std::string const& id) {
    Buffer* const buffer = Find(id);
    if (buffer == nullptr) {
        return NoSuchBuffer(id);
    }
    if (buffer->configuration != nullptr) {
        buffer->configuration.reset();
        PublishChange(id, *buffer);
    }
    return std::nullopt;
}

SharedMemoryStore::Refusal SharedMemoryStore::GetConfiguration(std::string const& id,
                                                               Configuration const*& configuration) const {
    Buffer const* const buffer = Find(id);
    configuration = buffer != nullptr ? buffer->configuration.get() : nullptr;
    return buffer != nullptr ? Refusal() : NoSuchBuffer(id);
}

void SharedMemoryStore::PublishChange(std::string const& id, Buffer const& buffer) const {
    vq::vds::ServerSharedMemoryChangedEvent event;
    event.set_memory_id(id);
    event.set_size(buffer.size);
    event.set_resizable(buffer.resizable);
    FillPortability(buffer.configuration.get(), event);
    m_sink(event);
}

void SharedMemoryStore::NoteWrite(vq::vds::SharedMemoryModifiedEvent const& event) const {
    if (Find(event.memory_id()) == nullptr) {
        LOG_V("A write to unknown shared memory was announced");
        return;
    }
    LOG_V("Shared memory '%s' is at generation %llu", event.memory_id().c_str(),
          static_cast<unsigned long long>(event.generation()));
}

}  // namespace vq::server
