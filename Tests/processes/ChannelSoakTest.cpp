// Sample producers and observers over the real server: what arrives is counted. VQ_SOAK_SECONDS=60 makes the
// short form a soak of ten producers and ten observers.

#include <signal.h>
#include <sys/wait.h>

#include <list>

#include "Messaging/SharedMemoryAccessor.h"
#include "Rig.h"
#include "ServerRequests.pb.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Test.h"
#include "Utils/SharedMutex.h"

namespace vq::test {
namespace {

using Arguments = std::vector<std::string>;

/// What an observer counted of one stream.
struct Total {
    long received = 0;
    long first = 0;
    long last = 0;
    long faults = -1;  ///< lost, torn and restarts together; -1: it has not told
};

/// @param stream  "p0.pose", for one
Total TotalOf(ChildProcess& observer, std::string const& stream) {
    std::string const& output = observer.DrainOutput();
    std::string const start = "total " + stream + " ";
    std::size_t const at = output.find(start);
    Total total;
    long lost = 0;
    long torn = 0;
    long restarts = 0;
    if (at != std::string::npos &&
        std::sscanf(output.c_str() + at + start.size(),
                    "received %ld first %ld last %ld lost %ld torn %ld restarts %ld", &total.received,
                    &total.first, &total.last, &lost, &torn, &restarts) == 6) {
        total.faults = lost + torn + restarts;
    }
    return total;
}

/// The number of the last sample of a stream that the observer reports next.
long Reported(ChildProcess& observer, std::string const& stream) {
    auto const line = observer.ReadLineWith(stream + " ");
    EXPECT_TRUE(line) << observer.DrainOutput();
    std::string const mark = "number ";
    std::size_t const at = line ? line->find(mark) : std::string::npos;
    return at != std::string::npos ? std::atol(line->c_str() + at + mark.size()) : -1;
}

TEST(ChannelSoak, EveryObserverThatKeepsUpSeesEverySampleOfEveryProducer) {
    char const* const soak = std::getenv("VQ_SOAK_SECONDS");
    int const seconds = soak != nullptr ? std::atoi(soak) : 2;
    int const count = soak != nullptr ? 10 : 3;
    constexpr int kRate = 50;
    std::string const last = std::to_string(seconds * kRate);
    Rig rig;
    rig.StartServer();

    std::string prefixes;
    for (int i = 0; i < count; ++i) {
        prefixes += (i == 0 ? "p" : ",p") + std::to_string(i) + ".";
    }
    auto const observing = [&](std::string const& name, char const* reportMs, std::string const& until) {
        return Arguments{"sample_observer", "--prefixes",    prefixes, "--queue",
                         "100000",          "--until",       until,    "--report-ms",
                         reportMs,          "--device-name", name};
    };
    std::list<Program> observers;
    for (int i = 0; i < count; ++i) {
        observers.emplace_back(observing("observer" + std::to_string(i), "3600000", last));
    }
    // Ends when it is told, and not as soon as it finds all that it missed at once.
    Program still(observing("still", "50", "0"));
    EXPECT_EQ(Reported(still, "p0.pose"), 0);
    still.Signal(SIGSTOP);
    std::list<Program> producers;
    for (int i = 0; i < count; ++i) {
        std::string const name = "p" + std::to_string(i);
        producers.emplace_back(Arguments{"sample_producer", "--prefix", name + ".", "--device-name", name,
                                         "--rate", std::to_string(kRate), "--image-rate", "10", "--width",
                                         "128", "--height", "128", "--samples", last});
    }

    auto const limit = kPatience + std::chrono::seconds(2 * seconds);
    long received = 0;
    for (Program& observer : observers) {
        ASSERT_EQ(observer.WaitForExit(limit), 0) << observer.DrainOutput();
        for (int i = 0; i < count; ++i) {
            for (char const* const stream : {"pose", "counter", "image"}) {
                std::string const name = "p" + std::to_string(i) + "." + stream;
                Total const total = TotalOf(observer, name);
                EXPECT_EQ(total.faults, 0) << observer.Output();
                EXPECT_EQ(total.received, total.last - total.first + 1) << name;
                if (std::string(stream) != "image") {
                    EXPECT_EQ(total.last, seconds * kRate) << name;
                }
                received += total.received;
            }
        }
    }
    std::printf("%d observers counted %ld samples of %d producers; the server holds %.0f MiB\n", count,
                received, count, ResidentMiB(rig.Server().Pid()));
    for (Program& producer : producers) {
        producer.Stop();
        EXPECT_THAT(producer.Output(), HasSubstr("counter sent " + last));
    }
    // It has missed much, and the server may have given it up; it goes on.
    still.Signal(SIGCONT);
    while (Reported(still, "p0.pose") == 0) {
    }
    still.Stop();
    rig.Server().Stop();
}

/// A process that dies while it holds the mutex.
void DieInsideTheLock(std::string const& name) {
    pid_t const child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        SharedMutex mutex(name);
        ::_exit(mutex.Open() && mutex.Lock() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
}

TEST(ChannelSoak, AWriterThatDiesInsideTheLockStopsTheImageAloneUntilItsMutexIsReplaced) {
    Rig rig;
    rig.StartServer();
    Program producer({"sample_producer", "--width", "128", "--height", "128"});
    Program observer({"sample_observer", "--report-ms", "100", "--queue", "999999999999"});
    while (Reported(observer, "sample.image") == 0) {
    }
    auto const names =
        RawSocket(ZMQ_REQ, rig.Address()).Get<vq::vds::FindServerSharedMemory>("1:'sample.image'");
    DieInsideTheLock(names.mutex_name());
    long before = 0;
    long now = Reported(observer, "sample.image");
    while (now != before) {
        before = now;
        for (int i = 0; i < 5; ++i) {
            now = Reported(observer, "sample.image");
        }
    }
    long const count = Reported(observer, "sample.counter");
    while (Reported(observer, "sample.counter") == count) {
    }
    EXPECT_EQ(Reported(observer, "sample.image"), before) << "the counts go on, the image does not";

    SharedMemoryAccessor healer("sample.image", names.memory_name(), names.size(), names.generation_name(),
                                names.mutex_name(), names.resizable());
    ASSERT_TRUE(healer.Recover());
    auto const end = std::chrono::steady_clock::now() + kPatience;
    while (now == before && std::chrono::steady_clock::now() < end) {
        now = Reported(observer, "sample.image");
    }
    EXPECT_GT(now, before) << producer.DrainOutput();
    observer.Stop();
    EXPECT_EQ(TotalOf(observer, "sample.image").faults, 0) << observer.Output();
    producer.Stop();
    rig.Server().Stop();
}

}  // namespace
}  // namespace vq::test
