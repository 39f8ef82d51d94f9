#pragma once

#include <cstdint>
#include <string>

namespace vq::sample {

/// What was seen of one stream of numbered samples.
class StreamWatch {
public:
    explicit StreamWatch(std::string name) : m_name(std::move(name)) {}

    /// A sample has come. A number that is not beyond the last one tells of a producer that began anew.
    void See(std::uint64_t number);
    /// @param microseconds  between the making of a sample and the look at it.
    void SeeAge(std::int64_t microseconds);
    /// A look at a buffer that held parts of two writes.
    void SeeTorn() { ++m_torn; }

    std::uint64_t Last() const { return m_last; }

    /// Prints what came since the last report, and what was lost so far.
    /// @param seconds  since the last report.
    void Report(double seconds);
    /// Prints what came in all, in one line that a program can read.
    void ReportTotal() const;

private:
    std::string m_name;
    std::uint64_t m_received = 0;
    std::uint64_t m_first = 0;
    std::uint64_t m_last = 0;
    std::uint64_t m_lost = 0;
    std::uint64_t m_torn = 0;
    std::uint64_t m_restarts = 0;
    // Since the last report.
    std::uint64_t m_recent = 0;
    std::uint64_t m_ages = 0;
    std::int64_t m_ageSum = 0;
    std::int64_t m_worstAge = 0;
};

}  // namespace vq::sample
