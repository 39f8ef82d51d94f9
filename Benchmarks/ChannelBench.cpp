// Channels against the same work by hand: publishing, observing, the bounded queue, writes to shared buffers.

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <zmq.h>

#include <array>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "BufferDescriptors.pb.h"
#include "ByHand.h"
#include "ChannelData.pb.h"
#include "DataTypes/ChannelDescriptor.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/ChannelTypeTraits.h"
#include "Messaging/ZMQMessageContext.h"
#include "Messaging/ZMQMessagePipeBase.h"
#include "Twin.h"
#include "Utils/FileDescriptor.h"
#include "Utils/OSUtils.h"
#include "Utils/SharedMemory.h"
#include "Utils/SharedMutex.h"

namespace {

using bench::Checked;
using bench::HearOfReads;
using bench::Join;
using bench::Socket;
using Vec3 = vq::ch::Vec3ChannelDataEvent;
using Audio = vq::ch::AudioBufferChannelDataEvent;
using Transport = MessageAddress::Transport;

constexpr std::size_t kBatch = 100;
constexpr char kChannel[] = "position";
constexpr std::uint32_t kChannelId = 7;

Vec3 SampleOf(Vec3 const* /*type*/) {
    Vec3 event;
    event.set_x(1);
    event.set_y(2);
    event.set_z(3);
    return event;
}

Audio SampleOf(Audio const* /*type*/) {
    Audio event;
    event.set_data(std::string(64 << 10, 'a'));
    return event;
}

/// By hand the length of a header is known, and with it where the payload's type ends.
template <class Event>
struct HeaderByHand {
    HeaderByHand() {
        text = Event().GetTypeName();
        text.append(1, '\0').append(kChannel, sizeof kChannel);
        text.append(reinterpret_cast<char const*>(&kChannelId), sizeof kChannelId);
    }
    std::string text;
};

/// A publisher and a subscriber by hand, and a channel between two of our pipes.
template <class Event>
class Link {
public:
    using Traits = ChannelTypeTraits<Event>;

    explicit Link(Transport transport) : m_places(transport), m_context(m_places.ours, &m_zmq) {
        // Only the type that is wanted, as an observer: events are matched where they are sent and received.
        zmq_setsockopt(m_subscriber.Get(), ZMQ_UNSUBSCRIBE, "", 0);
        zmq_setsockopt(m_subscriber.Get(), ZMQ_SUBSCRIBE, m_header.text.data(), m_typeSize - 1);
        AMessagePipeProvider& pipes = *m_context.GetPipeProvider();
        AMessagePipeEventSender* const sender = pipes.GetEventSender(m_places.ours, "", SocketRole::Bind);
        m_listener = pipes.GetEventListener(m_places.ours, "", SocketRole::Connect);
        joined = Join(m_publisher.Get(), m_subscriber.Get(), m_places.base) && sender != nullptr &&
                 m_listener != nullptr;
        if (!joined) {
            return;
        }
        m_ourPublisher = dynamic_cast<ZMQMessagePipeBase&>(*sender).GetSocket()->handle();
        m_ourSubscriber = dynamic_cast<ZMQMessagePipeBase&>(*m_listener).GetSocket()->handle();
        producer = std::make_unique<typename Traits::Producer>(&m_context, &m_descriptor);
        producer->SetDataEventPipe(sender);
        producer->SetChannelId(static_cast<std::int32_t>(kChannelId));
        observer = std::make_unique<typename Traits::Observer>(&m_context, m_listener, &m_descriptor);
        WaitForSubscriptions();
    }

    bool PublishByHand() { return Publish(m_publisher.Get()); }
    bool TakeByHand() { return Take(m_subscriber.Get()); }
    /// As by hand, but on the sockets of our pipes: the other half of what is measured.
    bool PublishToOurs() { return Publish(m_ourPublisher); }
    bool TakeFromOurs() { return Take(m_ourSubscriber); }

    bool Publish() {
        producer->SetDataFromMessage(&sample);
        return true;
    }
    bool ObserveByHand() {
        char header[256];
        auto const size = static_cast<std::size_t>(zmq_recv(m_subscriber.Get(), header, sizeof header, 0));
        if (size != m_header.text.size() || std::memcmp(header, m_header.text.data(), m_typeSize) != 0) {
            return false;
        }
        Event event;
        if (!bench::ReceiveBody(m_subscriber.Get(), event)) {
            return false;
        }
        std::lock_guard const lock(m_mutex);
        m_ring[m_tail] = std::make_shared<typename Traits::Data>(std::move(event));
        m_tail = (m_tail + 1) % m_ring.size();
        return true;
    }
    bool Observe() {
        std::unique_ptr<AMessage> const message(
            m_listener->ReceiveNext(std::chrono::milliseconds::max(), nullptr));
        return observer->HandleWireMessage(static_cast<AChannelMessage*>(message.get()));
    }
    void HearOfReadsByHand(int& count) { HearOfReads(m_publisher.Get(), count); }
    void HearOfOurReads(int& count) { HearOfReads(m_ourPublisher, count); }

    bool joined = false;
    Event const sample = SampleOf(static_cast<Event const*>(nullptr));
    std::unique_ptr<typename Traits::Producer> producer;
    std::unique_ptr<typename Traits::Observer> observer;

private:
    bool Publish(void* socket) {
        // A header of its own for each event, as it is for channels of any name.
        char header[sizeof kChannel + 64];
        std::memcpy(header, m_header.text.data(), m_header.text.size());
        return zmq_send(socket, header, m_header.text.size(), ZMQ_SNDMORE) >= 0 &&
               bench::SendBody(socket, sample);
    }
    bool Take(void* socket) {
        char header[256];
        zmq_msg_t body;
        zmq_msg_init(&body);
        bool const taken =
            zmq_recv(socket, header, sizeof header, 0) >= 0 && zmq_msg_recv(&body, socket, 0) >= 0;
        zmq_msg_close(&body);
        return taken;
    }
    /// A subscription takes a moment to arrive; what is published before is lost.
    void WaitForSubscriptions() {
        for (auto const& [publisher, subscriber] :
             {std::pair(m_publisher.Get(), m_subscriber.Get()), std::pair(m_ourPublisher, m_ourSubscriber)}) {
            constexpr int kPollMs = 5;
            zmq_pollitem_t item{subscriber, 0, ZMQ_POLLIN, 0};
            do {
                Publish(publisher);
            } while (zmq_poll(&item, 1, kPollMs) == 0);
            while (zmq_poll(&item, 1, kPollMs) > 0) {
                Take(subscriber);
            }
        }
    }

    HeaderByHand<Event> const m_header;
    std::size_t const m_typeSize = std::strlen(m_header.text.c_str()) + 1;
    bench::Places m_places;
    zmq::context_t m_zmq;
    ZMQMessageContext m_context;
    Socket m_publisher{m_zmq.handle(), ZMQ_PUB};
    Socket m_subscriber{m_zmq.handle(), ZMQ_SUB};
    ChannelDescriptor m_descriptor{kChannel, kChannel, Traits::Data::Type, "", false, true};
    AMessagePipeEventListener* m_listener = nullptr;
    void* m_ourPublisher = nullptr;
    void* m_ourSubscriber = nullptr;
    std::mutex m_mutex;
    std::array<std::shared_ptr<IData>, 20> m_ring;
    std::size_t m_tail = 0;
};

/// Publishes by hand and through a channel; by hand each is taken again.
template <class Event, Transport transport>
void Publish(benchmark::State& state) {
    bench::OneProcessor const pinned;
    Link<Event> link(transport);
    if (!link.joined) {
        state.SkipWithError("the sockets could not be joined");
        return;
    }
    bench::RunTwin(state, kBatch,
                   Checked(state,
                           [&, count = 0]() mutable {
                               link.HearOfReadsByHand(count);
                               return link.PublishByHand() && link.TakeByHand();
                           }),
                   Checked(state, [&, count = 0]() mutable {
                       link.HearOfOurReads(count);
                       return link.Publish() && link.TakeFromOurs();
                   }));
}

void PublishQuiet(benchmark::State& state) {
    Link<Vec3> link(Transport::LOOPBACK);
    bench::RunQuiet(state, kBatch, Checked(state, [&, count = 0]() mutable {
                        link.HearOfReadsByHand(count);
                        return link.PublishByHand() && link.TakeByHand();
                    }));
}

/// Times the reading alone: each block finds its events there.
void Observe(benchmark::State& state) {
    bench::OneProcessor const pinned;
    Link<Vec3> link(Transport::LOOPBACK);
    auto byHand = Checked(state, [&] { return link.ObserveByHand(); });
    auto ours = Checked(state, [&] { return link.Observe(); });
    int count = 0;
    auto const fill = [&](auto publish) {
        for (std::size_t i = 0; i < kBatch; ++i) {
            publish();
        }
    };
    auto const fillByHand = [&] {
        fill([&] {
            link.HearOfReadsByHand(count);
            link.PublishByHand();
        });
    };
    auto const fillOurs = [&] {
        fill([&] {
            link.HearOfOurReads(count);
            link.PublishToOurs();
        });
    };
    bench::TwinRecord record;
    bool baseFirst = true;
    for (auto _ : state) {
        fillByHand();
        fillOurs();
        double base = baseFirst ? bench::TimeBlock(kBatch, byHand) : 0;
        double const candidate = bench::TimeBlock(kBatch, ours);
        base = baseFirst ? base : bench::TimeBlock(kBatch, byHand);
        record.Add(base, candidate);
        baseFirst = !baseFirst;
    }
    fillByHand();
    fillOurs();
    double const baseAllocations = bench::AllocationsOfBlock(kBatch, byHand);
    record.Report(state, baseAllocations, bench::AllocationsOfBlock(kBatch, ours));
}

void QueuePushAndPop(benchmark::State& state) {
    struct Ring {
        void Push(std::shared_ptr<IData> sample) {
            std::lock_guard const lock(mutex);
            slots[tail] = std::move(sample);
            tail = (tail + 1) % slots.size();
            if (size == slots.size()) {
                head = tail;
            } else {
                ++size;
            }
        }
        std::shared_ptr<IData> Pop() {
            std::lock_guard const lock(mutex);
            if (size == 0) {
                return nullptr;
            }
            --size;
            auto sample = std::move(slots[head]);
            head = (head + 1) % slots.size();
            return sample;
        }
        std::mutex mutex;
        std::array<std::shared_ptr<IData>, 20> slots;
        std::size_t head = 0;
        std::size_t tail = 0;
        std::size_t size = 0;
    } ring;
    ChannelObserver::DataQueue queue(20);
    auto const sample = std::make_shared<ChannelTypeTraits<Vec3>::Data>(Vec3());
    bench::RunTwin(
        state, 1000,
        [&] {
            ring.Push(sample);
            return ring.Pop() != nullptr;
        },
        [&] {
            queue.PushNewData(sample);
            return queue.PopOldestData() != nullptr;
        });
}

template <std::size_t Size>
void LockedWrite(benchmark::State& state) {
    auto const memory = SharedMemoryFactory::Make("bench.memory", Size, SharedMemoryType::FILE);
    auto const generation = SharedMemoryFactory::Make("bench.generation", 8, SharedMemoryType::ANON);
    SharedMutex mutex("bench.mutex");
    bool const made = memory->Create() && generation->Create() && mutex.Create();
    SharedMemoryAccessor accessor("bench", "bench.memory", Size, "bench.generation", "bench.mutex", true);
    sem_t* const semaphore = sem_open("bench.mutex", 0);
    FileDescriptor const file(::open((GetUserTempDirectory() + "bench.memory").c_str(), O_RDWR));
    FileDescriptor const counter(::open((GetUserTempDirectory() + "bench.generation").c_str(), O_RDWR));
    if (!made || !accessor.Exists() || semaphore == SEM_FAILED || !file || !counter) {
        state.SkipWithError("no shared memory");
        return;
    }
    std::string const data(Size, 'd');
    constexpr std::size_t kWrites = Size > (1 << 16) ? 4 : 100;
    bench::RunTwin(
        state, kWrites,
        Checked(state,
                [&] {
                    sem_wait(semaphore);
                    constexpr int kBoth = PROT_READ | PROT_WRITE;
                    void* const place = ::mmap(nullptr, Size, kBoth, MAP_SHARED, file.Get(), 0);
                    if (place == MAP_FAILED) {
                        return false;
                    }
                    std::memcpy(place, data.data(), Size);
                    void* const count = ::mmap(nullptr, 8, kBoth, MAP_SHARED, counter.Get(), 0);
                    if (count == MAP_FAILED) {
                        return false;
                    }
                    ++*static_cast<std::uint64_t*>(count);
                    return ::munmap(count, 8) == 0 && ::munmap(place, Size) == 0 && sem_post(semaphore) == 0;
                }),
        Checked(state, [&, descriptor = vq::bd::BufferDescriptor()] {
            void* const place =
                accessor.Lock(SharedMemory::Access::ReadWrite, std::chrono::milliseconds::max(), nullptr);
            if (place == nullptr) {
                return false;
            }
            std::memcpy(place, data.data(), Size);
            bool const failed = accessor.Unlock(nullptr, descriptor, 0, SharedMemoryAccessor::kToEnd);
            return !failed;
        }));
    sem_close(semaphore);
    memory->Delete();
    generation->Delete();
    mutex.Delete();
}

VQ_TWIN("channel_vec3_inproc", (Publish<Vec3, Transport::LOOPBACK>));
VQ_TWIN("channel_vec3_inproc_quiet", PublishQuiet);
VQ_TWIN("channel_vec3_ipc", (Publish<Vec3, Transport::IPC>));
VQ_TWIN("channel_64k_inproc", (Publish<Audio, Transport::LOOPBACK>));
VQ_TWIN("channel_64k_ipc", (Publish<Audio, Transport::IPC>));
VQ_TWIN("observe_vec3", Observe);
VQ_TWIN("queue_push_pop", QueuePushAndPop);
VQ_TWIN("locked_write_4k", LockedWrite<4096>);
VQ_TWIN("locked_write_1m", LockedWrite<(1 << 20)>);

}  // namespace
