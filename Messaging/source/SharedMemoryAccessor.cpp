#include "Messaging/SharedMemoryAccessor.h"

#include <utility>

#include "Logging/Log.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "ServerRequests.pb.h"
#include "Utils/ServerRegistry.h"

// Where the buffer is: opening, closing and the requests to the server.

using std::chrono::milliseconds;

namespace {

constexpr std::uint64_t kGenerationSize = sizeof(std::uint64_t);
constexpr milliseconds kNoLimit = milliseconds::max();
constexpr milliseconds kServerTimeout{15000};
constexpr milliseconds kRegistryTimeout{3000};

AMessagePipeEventSender* FindMemoryEventSender(AMessageContext const& context) {
    ServerDescriptor server;
    if (!ServerRegistry::Instance().FindServer(context.GetAddress(), server, kRegistryTimeout, nullptr)) {
        LOG_W("Did not find server for shared memory event sending!");
        return nullptr;
    }
    return context.GetPipeProvider()->GetEventSender(server.memoryEventAddress, "", SocketRole::Connect);
}

SharedMemoryType TypeOf(bool resizable) {
    return resizable ? SharedMemoryType::FILE : SharedMemoryType::UNKNOWN;
}

}  // namespace

SharedMemoryAccessor::SharedMemoryAccessor(std::string id, std::string const& memoryName, std::uint64_t size,
                                           std::string const& generationName, std::string const& mutexName,
                                           bool resizable)
    : m_id(std::move(id)), m_resizable(resizable) {
    Init(memoryName, size, generationName, mutexName);
}

SharedMemoryAccessor::SharedMemoryAccessor(AMessagePipeRequestReply* pipe, std::string id, bool resizable)
    : m_pipe(pipe), m_id(std::move(id)), m_resizable(resizable) {
    if (m_pipe != nullptr) {
        m_eventSender = FindMemoryEventSender(*m_pipe->GetContext());
    }
}

SharedMemoryAccessor::~SharedMemoryAccessor() {
    if (m_locked) {
        Unlock();
    }
    if (m_ready) {
        Close();
    }
}

void SharedMemoryAccessor::Close() {
    m_generationMemory->Close();
    m_memory->Close();
    m_mutex.Close();
    m_ready = false;
}

bool SharedMemoryAccessor::Init(std::string const& memoryName, std::uint64_t size,
                                std::string const& generationName, std::string const& mutexName) {
    if (memoryName.empty() || generationName.empty() || mutexName.empty()) {
        LOG_E("invalid SharedMemoryAccessor state: need valid Memory and Generation and Mutex names");
        return false;
    }
    if (m_locked) {
        // The mutex is about to be replaced, and nobody else could free the old one.
        Unlock();
    }
    if (m_ready) {
        Close();
    }
    m_mutexName = mutexName;
    m_mutex = SharedMutex(mutexName);
    if (!m_mutex.Open()) {
        return false;
    }
    m_memory = SharedMemoryFactory::Make(memoryName, size, TypeOf(m_resizable));
    if (!m_memory->Open()) {
        m_mutex.Close();
        return false;
    }
    m_generationMemory = SharedMemoryFactory::Make(generationName, kGenerationSize, SharedMemoryType::ANON);
    if (!m_generationMemory->Open()) {
        m_memory->Close();
        m_mutex.Close();
        return false;
    }
    m_ready = true;
    return true;
}

bool SharedMemoryAccessor::Reopen() {
    // Copies: the objects that hold the names are about to be replaced.
    std::string const memoryName = m_memory->GetName();
    std::string const generationName = m_generationMemory->GetName();
    std::string const mutexName = m_mutexName;
    return Init(memoryName, m_memory->GetSize(), generationName, mutexName);
}

bool SharedMemoryAccessor::Reset() {
    vq::vds::FindServerSharedMemory request;
    vq::vds::FindServerSharedMemory::Reply reply;
    request.set_memory_id(m_id);
    if (!MessageUtils::SendReceive(m_pipe, request, reply, kNoLimit, nullptr)) {
        LOG_W("Failed to discover shared memory");
        return false;
    }
    if (!reply.found()) {
        return false;
    }
    m_resizable = reply.resizable();
    m_portable = reply.has_configuration();
    return Reset(reply.memory_name(), reply.size(), reply.generation_name(), reply.mutex_name());
}

bool SharedMemoryAccessor::Reset(std::string const& memoryName, std::uint64_t size,
                                 std::string const& generationName, std::string const& mutexName) {
    if (m_locked) {
        Unlock();
    }
    if (m_generationMemory != nullptr) {
        LOG_V("Closing shared memory generation object and clearing shared ptr");
        m_generationMemory->Close();
        m_generationMemory.reset();
    }
    if (m_memory != nullptr) {
        LOG_V("Closing shared memory object and clearing shared ptr");
        m_memory->Close();
        m_memory.reset();
    }
    m_ready = false;
    return Init(memoryName, size, generationName, mutexName);
}

bool SharedMemoryAccessor::Exists() {
    if (m_id.empty()) {
        return false;
    }
    bool const hasObjects = m_memory != nullptr && m_generationMemory != nullptr;
    if (m_pipe != nullptr) {
        return (hasObjects && m_ready) || Reset();
    }
    if (!m_ready && hasObjects) {
        Reopen();
    }
    if (hasObjects && !m_memory->GetName().empty() && !m_generationMemory->GetName().empty()) {
        return true;
    }
    LOG_E("Invalid SharedMemoryAccessor setup: neither requestReplyPipe nor server memory id provided");
    return false;
}

std::uint64_t SharedMemoryAccessor::Size() {
    return m_memory != nullptr || (Exists() && m_memory != nullptr) ? m_memory->GetSize() : 0;
}

bool SharedMemoryAccessor::Recover() {
    if (!Exists()) {
        return false;
    }
    LOG_W("Replacing the mutex of shared memory '%s'", m_id.c_str());
    SharedMutex mutex(m_mutexName);
    if (!mutex.Delete() || !mutex.Create()) {
        return false;
    }
    return Reopen();
}

bool SharedMemoryAccessor::CanAsk() const {
    VQ_CHECK(m_pipe != nullptr || m_id.empty());
    return m_pipe != nullptr;
}

bool SharedMemoryAccessor::Create(std::uint64_t size,
                                  vq::vds::PortableSharedMemoryConfiguration const* configuration) {
    if (!CanAsk()) {
        return false;
    }
    vq::vds::CreateServerSharedMemory request;
    vq::vds::CreateServerSharedMemory::Reply reply;
    vq::vds::Error error;
    request.set_memory_id(m_id);
    request.set_size(size);
    request.set_resizable(m_resizable);
    if (!MessageUtils::SendReceive(m_pipe, request, reply, error, kNoLimit, nullptr)) {
        LOG_E("Failed to create shared memory");
        return false;
    }
    if (error.IsInitialized()) {
        // Somebody may have created it before.
        if (!Reset()) {
            LOG_E("Failed to create shared memory: %s", error.message().c_str());
            return false;
        }
        return SetConfiguration(configuration);
    }
    m_resizable = reply.resizable();
    if (configuration != nullptr) {
        SetConfiguration(configuration);
    } else {
        m_portable = false;
    }
    return Init(reply.memory_name(), reply.size(), reply.generation_name(), reply.mutex_name());
}

bool SharedMemoryAccessor::SetConfiguration(vq::vds::PortableSharedMemoryConfiguration const* configuration) {
    if (configuration == nullptr) {
        LOG_I("Marking shared memory '%s' as non-portable", m_id.c_str());
        vq::vds::ClearPortableSharedMemoryConfiguration request;
        vq::vds::ClearPortableSharedMemoryConfiguration::Reply reply;
        request.set_memory_id(m_id);
        bool const done = MessageUtils::SendReceive(m_pipe, request, reply, kServerTimeout, nullptr);
        m_portable = m_portable && !done;
        return done;
    }
    LOG_I("Marking shared memory '%s' as portable", m_id.c_str());
    vq::vds::SetPortableSharedMemoryConfiguration request;
    vq::vds::SetPortableSharedMemoryConfiguration::Reply reply;
    request.set_memory_id(m_id);
    *request.mutable_configuration() = *configuration;
    bool const done = MessageUtils::SendReceive(m_pipe, request, reply, kServerTimeout, nullptr);
    m_portable = m_portable || done;
    return done;
}

bool SharedMemoryAccessor::GetConfiguration(vq::vds::PortableSharedMemoryConfiguration& configuration) {
    if (m_pipe == nullptr) {
        return m_portable;
    }
    LOG_I("Fetching portable configuration for shared memory '%s'", m_id.c_str());
    using Request = vq::vds::GetPortableSharedMemoryConfiguration;
    Request request;
    Request::Reply reply;
    Request::NotPortable notPortable;
    request.set_memory_id(m_id);
    if (!MessageUtils::SendReceive(m_pipe, request, reply, notPortable, kServerTimeout, nullptr)) {
        LOG_E("Failed to fetch portable configuration for '%s'", m_id.c_str());
        return m_portable;
    }
    // The other answer has no field that could tell whether it came.
    m_portable = reply.IsInitialized();
    if (m_portable) {
        configuration = reply.configuration();
    } else {
        configuration.Clear();
    }
    return m_portable;
}

bool SharedMemoryAccessor::Resize(std::uint64_t size) {
    if (!m_resizable) {
        LOG_E("Shared memory buffer %s is not resizable", m_id.c_str());
        return false;
    }
    if (!CanAsk()) {
        return false;
    }
    if (!Exists()) {
        LOG_I("Shared memory %s did not exist, so Resize() will call Create() instead", m_id.c_str());
        return Create(size, nullptr);
    }
    auto const bytes = static_cast<unsigned long long>(size);
    LOG_V("Asking VDS to resize shared memory buffer for %s to %llu", m_id.c_str(), bytes);
    vq::vds::ResizeServerSharedMemory request;
    vq::vds::ResizeServerSharedMemory::Reply reply;
    vq::vds::Error error;
    request.set_memory_id(m_id);
    request.set_size(size);
    if (!MessageUtils::SendReceive(m_pipe, request, reply, error, kServerTimeout, nullptr)) {
        LOG_E("Failed to resize shared memory (comms error)");
        return false;
    }
    if (error.IsInitialized()) {
        LOG_E("Failed to resize shared memory for %s to %llu: %s", m_id.c_str(), bytes,
              error.message().c_str());
        return false;
    }
    return Reset(reply.memory_id(), reply.size(), reply.text_2(), reply.text_3());
}
