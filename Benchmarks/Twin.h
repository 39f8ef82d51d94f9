#pragma once

#include <benchmark/benchmark.h>
#include <sched.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

/// Registers a twin or a quiet row under the name that goals.json knows it by.
#define VQ_TWIN(name, function) BENCHMARK(function)->Name(name)->UseRealTime()

namespace bench {

/// Heap allocations by any thread of the process while counting is on, by operator new and its family.
class AllocationCount {
public:
    AllocationCount();
    ~AllocationCount();
    AllocationCount(AllocationCount const&) = delete;
    AllocationCount& operator=(AllocationCount const&) = delete;

    /// Since construction. One object at a time: it is the process that counts.
    std::uint64_t Get() const;
};

/// Keeps the calling thread on one processor while it lives, and with it every thread started meanwhile: what
/// two threads cost each other then no longer depends on where the system happens to run them. For twins with
/// threads; make one before the threads.
class OneProcessor {
public:
    OneProcessor();
    ~OneProcessor();
    OneProcessor(OneProcessor const&) = delete;
    OneProcessor& operator=(OneProcessor const&) = delete;

private:
    cpu_set_t m_before;
};

/// The times of a twin's blocks, in nanoseconds an operation, and their figures.
class TwinRecord {
public:
    void Add(double baseNs, double candidateNs) {
        m_base.push_back(baseNs);
        m_candidate.push_back(candidateNs);
    }

    /// Sets the counters: medians base_ns, cand_ns and diff_ns (candidate less base); the median ratio with
    /// its quartiles ratio_q1 and ratio_q3; base_allocs and cand_allocs, heap allocations an operation.
    void Report(benchmark::State& state, double baseAllocs, double candidateAllocs) const;

private:
    std::vector<double> m_base;
    std::vector<double> m_candidate;
};

/// Runs an operation so many times. A function of its own for each operation, so that its place in the caller
/// changes nothing.
template <typename Operation>
[[gnu::noinline, gnu::aligned(64)]] void RunBlock(std::size_t count, Operation& operation) {
    for (std::size_t i = 0; i < count; ++i) {
        if constexpr (std::is_void_v<decltype(operation())>) {
            operation();
            benchmark::ClobberMemory();
        } else {
            benchmark::DoNotOptimize(operation());
        }
    }
}

/// @return nanoseconds an operation over one block.
template <typename Operation>
double TimeBlock(std::size_t batch, Operation& operation) {
    auto const start = std::chrono::steady_clock::now();
    RunBlock(batch, operation);
    std::chrono::duration<double, std::nano> const took = std::chrono::steady_clock::now() - start;
    return took.count() / static_cast<double>(batch);
}

/// @return heap allocations an operation over one block; of all threads, so those that a reply causes in a
///         peer's thread of this process count too.
template <typename Operation>
double AllocationsOfBlock(std::size_t batch, Operation& operation) {
    AllocationCount const count;
    RunBlock(batch, operation);
    return static_cast<double>(count.Get()) / static_cast<double>(batch);
}

/// Times a hand-written base and our own path against each other: blocks in the order A B, B A, A B, ... so
/// that both see the same machine, one pair an iteration of the benchmark. The result is the median of the
/// pairs' ratios, see TwinRecord::Report. Allocations are counted in blocks of their own after the timed
/// ones.
/// @param batch      operations a block; choose it so that a block takes 20 microseconds at least.
/// @param base       one operation each call; a result keeps the compiler from dropping the work.
/// @param candidate  the same for our own path. A failure is reported by state.SkipWithError.
template <typename Base, typename Candidate>
void RunTwin(benchmark::State& state, std::size_t batch, Base base, Candidate candidate) {
    TwinRecord record;
    RunBlock(batch, base);
    RunBlock(batch, candidate);
    bool baseFirst = true;
    for (auto _ : state) {
        double baseNs = 0;
        double candidateNs = 0;
        if (baseFirst) {
            baseNs = TimeBlock(batch, base);
            candidateNs = TimeBlock(batch, candidate);
        } else {
            candidateNs = TimeBlock(batch, candidate);
            baseNs = TimeBlock(batch, base);
        }
        record.Add(baseNs, candidateNs);
        baseFirst = !baseFirst;
    }
    double const baseAllocs = AllocationsOfBlock(batch, base);
    record.Report(state, baseAllocs, AllocationsOfBlock(batch, candidate));
}

/// The base against itself, as a row beside the twins whose name ends in "_quiet": a ratio outside 0.97
/// to 1.03 says that the machine was too busy for the figures of this binary to count.
template <typename Base>
void RunQuiet(benchmark::State& state, std::size_t batch, Base base) {
    RunTwin(state, batch, base, base);
}

}  // namespace bench
