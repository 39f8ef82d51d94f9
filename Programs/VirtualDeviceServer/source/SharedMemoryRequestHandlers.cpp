#include "RequestTable.h"

namespace vq::server {

using namespace vq::vds;  // NOLINT: a table of its messages

namespace {

/// The filled reply, or the reason of the refusal as a vq.vds.Error.
template <class Request, class Operation>
Answer FillUnlessRefused(Operation const& operation) {
    auto reply = std::make_unique<typename Request::Reply>();
    auto const refusal = operation(*reply);
    return refusal ? GeneralError(*refusal) : Answer(std::move(reply));
}

void ServeConfigurations(RequestTable& table, SharedMemoryStore& store) {
    using Set = SetPortableSharedMemoryConfiguration;
    using Clear = ClearPortableSharedMemoryConfiguration;
    using Get = GetPortableSharedMemoryConfiguration;
    table.Serve<Set>([&store](Set const& request) {
        return ReplyUnless<Set>(store.SetConfiguration(request.memory_id(), request.configuration()));
    });
    table.Serve<Clear>([&store](Clear const& request) {
        return ReplyUnless<Clear>(store.ClearConfiguration(request.memory_id()));
    });
    table.Serve<Get>([&store](Get const& request) -> Answer {
        PortableSharedMemoryConfiguration const* configuration = nullptr;
        if (auto const refusal = store.GetConfiguration(request.memory_id(), configuration); refusal) {
            return GeneralError(*refusal);
        }
        if (configuration == nullptr) {
            return std::make_unique<Get::NotPortable>();
        }
        auto reply = std::make_unique<Get::Reply>();
        *reply->mutable_configuration() = *configuration;
        return reply;
    });
}

}  // namespace

void ServeSharedMemoryRequests(RequestTable& table, SharedMemoryStore& store, ServerControl& control) {
    table.Serve<CreateServerSharedMemory>([&](CreateServerSharedMemory const& request) {
        return FillUnlessRefused<CreateServerSharedMemory>([&](CreateServerSharedMemory::Reply& reply) {
            return control.IsStopping() ? SharedMemoryStore::Refusal(kStopping)
                                        : store.Create(request, reply);
        });
    });
    table.Serve<ResizeServerSharedMemory>([&store](ResizeServerSharedMemory const& request) {
        return FillUnlessRefused<ResizeServerSharedMemory>(
            [&](ResizeServerSharedMemory::Reply& reply) { return store.Resize(request, reply); });
    });
    table.Serve<FindServerSharedMemory>([&store](FindServerSharedMemory const& request) -> Answer {
        auto reply = std::make_unique<FindServerSharedMemory::Reply>();
        store.Find(request.memory_id(), *reply);
        return reply;
    });
    table.Serve<DeleteServerSharedMemory>([&store](DeleteServerSharedMemory const& request) {
        return ReplyUnless<DeleteServerSharedMemory>(store.Delete(request.memory_id()));
    });
    ServeConfigurations(table, store);
}

}  // namespace vq::server
