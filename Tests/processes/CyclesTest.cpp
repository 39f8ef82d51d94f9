// Making and ending the pieces of a connection over and over leaves nothing behind. VQ_CYCLES=10000 makes the
// short form a long one.

#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/EventMonitor.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDeviceHelpers/SparseDeviceMule.h"
#include "TestSupport/Test.h"
#include "Utils/ServerRegistry.h"
#include "Utils/SharedMemoryMmap.h"
#include "Utils/SharedMutex.h"

namespace vq::test {
namespace {

MessageAddress Address(std::string const& name) {
    return {HomeDirectory() + name, MessageAddress::Transport::IPC, ""};
}

void CyclePipes() {
    AMessageManager& manager = AMessageManager::Instance();
    AMessagePipeProvider* const provider = manager.GetContext(Address("cycle"))->GetPipeProvider();
    ASSERT_NE(provider->GetRequestReplyServer(Address("cycle"), ""), nullptr);
    ASSERT_NE(provider->GetRequestReplyClient(Address("cycle"), ""), nullptr);
    ASSERT_NE(provider->GetEventSender(Address("events"), "", SocketRole::Bind), nullptr);
    AMessagePipeEventListener* const listener =
        provider->GetEventListener(Address("events"), "", SocketRole::Connect);
    ASSERT_NE(listener, nullptr);
    listener->ListenTo("vq.vds");
    EventMonitor monitor(listener);
    ASSERT_TRUE(monitor.ConsumeEvents(0ms));
    manager.Cleanup();
}

class IdleDevice : public SparseDevice {
public:
    IdleDevice() : SparseDevice(SparseDeviceType::Generic) {}
    bool Init(ManifestProcessor::ManifestData const&, SparseDeviceApplication*) override { return true; }
    bool FinishInit() { return true; }
    bool Update() override {
        std::this_thread::sleep_for(100us);
        return true;
    }
};

void CycleMule() {
    SparseDeviceMule<IdleDevice> mule;
    ASSERT_TRUE(mule.StartDevice({}, nullptr));
    ASSERT_EQ(mule.Async<101>([] { return 7; }).get(), 7);
    mule.StopDevice();
}

void CycleRegistry() {
    ServerRegistry& registry = ServerRegistry::Instance();
    ServerDescriptor server;
    server.name = "cycle";
    server.address = server.heartbeatAddress = server.memoryEventAddress = Address("cycle");
    server.pid = 1;
    server.protocol = server.minimumProtocol = 12;
    ASSERT_TRUE(registry.RegisterServer(server, 5s, nullptr));
    ASSERT_TRUE(registry.FindServer(server.address, server, 5s, nullptr));
    ASSERT_TRUE(registry.RemoveServer(server, 5s, nullptr));
    registry.Terminate();
    registry.Initialize();
}

void CycleSharedMemory() {
    SharedMemoryMmap memory("cycle", 100000);
    SharedMutex mutex("cycle.mutex");
    ASSERT_TRUE(mutex.Create() && mutex.Lock() && memory.Create());
    ASSERT_NE(memory.Attach(SharedMemory::Access::ReadWrite), nullptr);
    ASSERT_TRUE(memory.Detach() && memory.Resize(1000) && memory.Close() && memory.Delete());
    ASSERT_TRUE(mutex.Unlock() && mutex.Delete());
}

struct Piece {
    char const* name;
    void (*cycle)();
};

/// What this process has of threads, of descriptors, and of files in the places that it leaves them.
std::vector<std::ptrdiff_t> Resources() {
    std::vector<std::ptrdiff_t> counts{CountThreads(::getpid())};
    for (std::string const& folder :
         {std::string("/proc/self/fd"), HomeDirectory(), std::string("/dev/shm")}) {
        bool const isOfSystem = folder.starts_with("/proc");
        counts.push_back(isOfSystem
                             ? std::distance(std::filesystem::directory_iterator(folder), {})
                             : std::distance(std::filesystem::recursive_directory_iterator(folder), {}));
    }
    return counts;
}

class Cycles : public testing::TestWithParam<Piece> {};

TEST_P(Cycles, LeaveNothingBehind) {
    char const* const wish = std::getenv("VQ_CYCLES");
    int const count = wish != nullptr ? std::atoi(wish) : 500;
    std::vector<std::ptrdiff_t> before;
    [[maybe_unused]] double memory = 0;
    for (int i = 0; i < count; ++i) {
        if (i == count / 5) {  // caches are filled by now
            before = Resources();
            memory = ResidentMiB(::getpid());
        }
        GetParam().cycle();
        ASSERT_FALSE(HasFatalFailure()) << "cycle " << i;
    }
    EXPECT_EQ(Resources(), before) << "threads, descriptors, files";
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which keep what was freed
    EXPECT_LT(ResidentMiB(::getpid()) - memory, 1 + count * 50e-6);
#endif
}

INSTANTIATE_TEST_SUITE_P(Pieces, Cycles,
                         testing::Values(Piece{"Pipes", CyclePipes}, Piece{"Mule", CycleMule},
                                         Piece{"Registry", CycleRegistry},
                                         Piece{"SharedMemory", CycleSharedMemory}),
                         [](auto const& each) { return each.param.name; });

}  // namespace
}  // namespace vq::test
