// The main function of every benchmark binary: in a HOME of its own, as the tests run.

#include <benchmark/benchmark.h>

#include "TestSupport/PrivateHome.h"

int main(int argc, char** argv) {
    vq::test::PrivateHome const home;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    std::size_t const ran = benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return ran == 0 ? 1 : 0;
}
