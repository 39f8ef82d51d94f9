#include "StreamWatch.h"

#include <algorithm>
#include <cstdio>

namespace vq::sample {

namespace {

unsigned long long Number(std::uint64_t value) {
    return value;
}

}  // namespace

void StreamWatch::See(std::uint64_t number) {
    if (m_received == 0) {
        m_first = number;
    } else if (number > m_last) {
        m_lost += number - m_last - 1;
    } else {
        ++m_restarts;
    }
    m_last = number;
    ++m_received;
    ++m_recent;
}

void StreamWatch::SeeAge(std::int64_t microseconds) {
    ++m_ages;
    m_ageSum += microseconds;
    m_worstAge = std::max(m_worstAge, microseconds);
}

void StreamWatch::Report(double seconds) {
    std::printf("%-16s %7.1f a second  number %llu  lost %llu", m_name.c_str(),
                static_cast<double>(m_recent) / seconds, Number(m_last), Number(m_lost));
    if (m_ages > 0) {
        std::printf("  age %.2f ms, at most %.2f ms",
                    static_cast<double>(m_ageSum) / static_cast<double>(m_ages) / 1000,
                    static_cast<double>(m_worstAge) / 1000);
    }
    std::printf("\n");
    m_recent = m_ages = 0;
    m_ageSum = m_worstAge = 0;
}

void StreamWatch::ReportTotal() const {
    std::printf("total %s received %llu first %llu last %llu lost %llu torn %llu restarts %llu\n",
                m_name.c_str(), Number(m_received), Number(m_first), Number(m_last), Number(m_lost),
                Number(m_torn), Number(m_restarts));
}

}  // namespace vq::sample
