#include "Twin.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

/// The value below which the given share of the values lies, between neighbours in proportion.
double Quantile(std::vector<double> values, double share) {
    if (values.empty()) {
        return std::nan("");
    }
    std::sort(values.begin(), values.end());
    double const place = share * static_cast<double>(values.size() - 1);
    auto const below = static_cast<std::size_t>(place);
    auto const above = std::min(below + 1, values.size() - 1);
    return values[below] + (values[above] - values[below]) * (place - std::floor(place));
}

}  // namespace

OneProcessor::OneProcessor() {
    CPU_ZERO(&m_before);
    int const current = ::sched_getcpu();
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(std::max(current, 0)), &one);
    if (current < 0 || ::sched_getaffinity(0, sizeof m_before, &m_before) != 0 ||
        ::sched_setaffinity(0, sizeof one, &one) != 0) {
        std::perror("keeping to one processor");
        std::exit(1);
    }
}

OneProcessor::~OneProcessor() {
    ::sched_setaffinity(0, sizeof m_before, &m_before);
}

void TwinRecord::Report(benchmark::State& state, double baseAllocs, double candidateAllocs) const {
    std::vector<double> ratios;
    std::vector<double> differences;
    for (std::size_t i = 0; i < m_base.size(); ++i) {
        ratios.push_back(m_candidate[i] / m_base[i]);
        differences.push_back(m_candidate[i] - m_base[i]);
    }
    state.counters["base_ns"] = Quantile(m_base, 0.5);
    state.counters["cand_ns"] = Quantile(m_candidate, 0.5);
    state.counters["diff_ns"] = Quantile(differences, 0.5);
    state.counters["ratio"] = Quantile(ratios, 0.5);
    state.counters["ratio_q1"] = Quantile(ratios, 0.25);
    state.counters["ratio_q3"] = Quantile(ratios, 0.75);
    state.counters["base_allocs"] = baseAllocs;
    state.counters["cand_allocs"] = candidateAllocs;
}

}  // namespace bench
