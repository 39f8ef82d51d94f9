#include "SparseDevice/StatsCollector.h"

#include "Stats.pb.h"
#include "TestSupport/Test.h"

namespace {

using namespace VirtualDeviceStats;

constexpr StatsEntry kEntry{"entry"};

// Known answers of the checksum.
static_assert(vdtlStat_SparseDevice_UpdateCalls.id == 0x54c2220f);
static_assert(internal_CRC32<9>("123456789") == 0xCBF43926);

TEST(StatsCollectorTest, ASampleWidensTheRangeAndTheFirstOneSetsIt) {
    StatsCollector stats;
    stats.IncrementCounterBy(kEntry, 5);
    EXPECT_EQ(stats.GetCounterData(kEntry), (CounterData{kEntry.id, "entry", 5, 1, 5, 5, 5}));
    stats.DecrementCounter(kEntry);
    EXPECT_EQ(stats.GetCounterData(kEntry), (CounterData{kEntry.id, "entry", 4, 2, -1, 5, -1}));
    stats.SetCounter(StatsEntry{"entry"}, 1);
    EXPECT_EQ(stats.GetCounterData(kEntry), (CounterData{kEntry.id, "entry", 1, 3, -1, 5, 1}));
    stats.ResetCounter(kEntry);
    stats.SetCounter(kEntry, 3);
    stats.SetCounter(kEntry, 1);
    EXPECT_EQ(stats.GetCounterData(kEntry), (CounterData{kEntry.id, "entry", 1, 2, 1, 3, 1}));

    stats.AddTimer(kEntry, 7'000'000'000);
    stats.AddTimer(kEntry, 2);
    EXPECT_EQ(stats.GetTimerData(kEntry),
              (TimerData{kEntry.id, "entry", 7'000'000'002, 2, 2, 7'000'000'000, 2}));
}

TEST(StatsCollectorTest, AMessageCarriesEveryFieldInTheOrderOfTheIds) {
    StatsCollector stats;
    stats.IncrementCounterBy(kEntry, 5);
    stats.IncrementCounterBy(kEntry, -9);
    stats.IncrementCounter(vdtlStat_SparseDevice_UpdateCalls);
    stats.AddTimer(kEntry, 10);
    stats.AddTimer(kEntry, 20);
    vq::st::StatsCollection message;
    message.add_counters()->set_name("old");
    stats.Serialize(message);
    ASSERT_TRUE(message.IsInitialized());
    ASSERT_EQ(message.counters_size(), 2);
    EXPECT_LT(message.counters(0).id(), message.counters(1).id());

    StatsCollector copy;
    StatsEntry const gone{"gone"};
    copy.SetCounter(gone, 1);
    copy.Deserialize(message);
    EXPECT_EQ(copy.GetCounterData(kEntry), stats.GetCounterData(kEntry));
    EXPECT_EQ(copy.GetTimerData(kEntry), stats.GetTimerData(kEntry));
    EXPECT_EQ(copy.GetCounterData(gone).samples, 0);
}

}  // namespace
