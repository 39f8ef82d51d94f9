#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "Messaging/SharedMemoryAccessor.h"
#include "ServerEvents.pb.h"
#include "TestSupport/FakeServer.h"
#include "Utils/ServerRegistry.h"

/// A server that owns shared memory, with its line in the registry and an ear for announced writes.
class SharedMemoryTest : public testing::Test {
protected:
    using Reply = vq::test::FakeServer::Reply;

    SharedMemoryTest() {
        ServeCreation();
        ServeConfiguration();
        MessageAddress events = m_server.Address();
        events.logicalName = "memoryEvents";
        m_context = AMessageManager::Instance().GetContext(m_server.Address());
        m_writes = m_context->GetPipeProvider()->GetEventListener(events, "test", SocketRole::Bind);
        m_writes->ListenTo("vq.vds.SharedMemoryModifiedEvent");
        m_pipe = m_context->GetPipeProvider()->GetRequestReplyClient(m_server.Address(), "test");
        ServerDescriptor line;
        line.name = "stand-in";
        line.address = m_server.Address();
        line.heartbeatAddress = m_server.Address();
        line.memoryEventAddress = m_writes->GetRemote();
        EXPECT_TRUE(ServerRegistry::Instance().RegisterServer(line, std::chrono::seconds(30), nullptr));
    }
    ~SharedMemoryTest() override {
        AMessageManager::Instance().Cleanup();
        for (auto& [id, buffer] : m_buffers) {
            buffer.memory->Delete();
            buffer.generation->Delete();
            buffer.mutex.Delete();
        }
    }

    static vq::vds::PortableSharedMemoryConfiguration Configuration() {
        vq::vds::PortableSharedMemoryConfiguration configuration;
        configuration.set_id_1(3);
        configuration.mutable_settings()->set_value_1(4);
        configuration.mutable_settings()->set_flag_2(true);
        return configuration;
    }

    /// Writes a text and publishes it as the whole buffer.
    static void Write(SharedMemoryAccessor& accessor, std::string const& text,
                      ISharedBufferProducer* producer = nullptr) {
        void* const memory =
            accessor.Lock(SharedMemory::Access::ReadWrite, std::chrono::seconds(30), nullptr);
        ASSERT_NE(memory, nullptr);
        std::memcpy(memory, text.c_str(), text.size() + 1);
        bool const failed = accessor.Unlock(producer, {}, 0, SharedMemoryAccessor::kToEnd);
        EXPECT_FALSE(failed);
        EXPECT_FALSE(accessor.IsLocked());
    }

    vq::test::FakeServer m_server;
    AMessageContext* m_context;
    AMessagePipeRequestReply* m_pipe;
    AMessagePipeEventListener* m_writes;

private:
    struct Buffer {
        std::shared_ptr<SharedMemory> memory;
        std::shared_ptr<SharedMemory> generation;
        SharedMutex mutex;
        bool resizable;
        std::unique_ptr<vq::vds::PortableSharedMemoryConfiguration> configuration;
    };

    void ServeCreation() {
        using namespace vq::vds;
        m_server.On<CreateServerSharedMemory>([this](CreateServerSharedMemory const& request) -> Reply {
            std::string const& id = request.memory_id();
            auto const [place, isNew] = m_buffers.try_emplace(id);
            if (!isNew) {
                return vq::test::FakeServer::Refuse("there is a buffer " + id);
            }
            Buffer& buffer = place->second;
            buffer.memory = SharedMemoryFactory::Make(id + ".memory", request.size(), SharedMemoryType::FILE);
            buffer.generation = SharedMemoryFactory::Make(id + ".generation", 8, SharedMemoryType::ANON);
            buffer.mutex = SharedMutex(id + ".mutex");
            buffer.resizable = request.resizable();
            EXPECT_TRUE(buffer.memory->Create() && buffer.generation->Create() && buffer.mutex.Create());
            auto reply = std::make_unique<CreateServerSharedMemory::Reply>();
            reply->set_memory_name(id + ".memory");
            reply->set_generation_name(id + ".generation");
            reply->set_mutex_name(id + ".mutex");
            reply->set_size(request.size());
            reply->set_resizable(request.resizable());
            return reply;
        });
        m_server.On<FindServerSharedMemory>([this](FindServerSharedMemory const& request) -> Reply {
            auto reply = std::make_unique<FindServerSharedMemory::Reply>();
            std::string const& id = request.memory_id();
            auto const found = m_buffers.find(id);
            bool const known = found != m_buffers.end();
            reply->set_found(known);
            reply->set_memory_name(id + ".memory");
            reply->set_generation_name(id + ".generation");
            reply->set_mutex_name(id + ".mutex");
            reply->set_size(known ? found->second.memory->GetSize() : 0);
            reply->set_resizable(known && found->second.resizable);
            if (known && found->second.configuration != nullptr) {
                *reply->mutable_configuration() = *found->second.configuration;
            } else {
                reply->set_not_portable(true);
            }
            return reply;
        });
        m_server.On<ResizeServerSharedMemory>([this](ResizeServerSharedMemory const& request) -> Reply {
            std::string const& id = request.memory_id();
            if (request.size() > 1 << 20 || !m_buffers.at(id).memory->Resize(request.size())) {
                return vq::test::FakeServer::Refuse("no room");
            }
            auto reply = std::make_unique<ResizeServerSharedMemory::Reply>();
            reply->set_memory_id(id + ".memory");
            reply->set_text_2(id + ".generation");
            reply->set_text_3(id + ".mutex");
            reply->set_size(request.size());
            return reply;
        });
    }
    void ServeConfiguration() {
        using namespace vq::vds;
        m_server.On<SetPortableSharedMemoryConfiguration>(
            [this](SetPortableSharedMemoryConfiguration const& request) {
                m_buffers.at(request.memory_id()).configuration =
                    std::make_unique<PortableSharedMemoryConfiguration>(request.configuration());
                return std::make_unique<SetPortableSharedMemoryConfiguration::Reply>();
            });
        m_server.On<ClearPortableSharedMemoryConfiguration>(
            [this](ClearPortableSharedMemoryConfiguration const& request) {
                m_buffers.at(request.memory_id()).configuration.reset();
                return std::make_unique<ClearPortableSharedMemoryConfiguration::Reply>();
            });
        using Get = GetPortableSharedMemoryConfiguration;
        m_server.On<Get>([this](Get const& request) -> Reply {
            auto const found = m_buffers.find(request.memory_id());
            if (found == m_buffers.end()) {
                return vq::test::FakeServer::Refuse("no such buffer");
            }
            if (found->second.configuration == nullptr) {
                return std::make_unique<Get::NotPortable>();
            }
            auto reply = std::make_unique<Get::Reply>();
            *reply->mutable_configuration() = *found->second.configuration;
            return reply;
        });
    }

    std::map<std::string, Buffer> m_buffers;  // the server's thread, and the destructor
};
