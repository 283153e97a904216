#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <variant>

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>

/** What all benchmark programs share. */
namespace oxil::bench {

/** The kinds of oxil::Variant, in their order, for those who do without it. */
using Value = std::variant<std::monostate, int, unsigned int, long, unsigned long, long long,
                           unsigned long long, float, double, bool, std::string>;

/** Ends the program: without what is prepared there is nothing to be measured. */
inline void require(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "benchmark: %s\n", what);
        std::abort();
    }
}

/** Called before anything is timed: who computes something else is not measured. */
inline void expect(benchmark::State& state, bool isRight)
{
    if (!isRight) {
        state.SkipWithError("wrong result");
    }
}

/** Registers "operation/contender" with function(State&). */
template <typename Function>
benchmark::internal::Benchmark* add(const std::string& operation, const std::string& contender,
                                    Function&& function)
{
    const std::string name = operation + "/" + contender;
    return benchmark::RegisterBenchmark(name.c_str(), std::forward<Function>(function));
}

/** Registers "operation/contender/size" with function(State&, int size). */
template <typename Function>
benchmark::internal::Benchmark* add(const std::string& operation, const std::string& contender,
                                    int size, Function&& function)
{
    const std::string name = operation + "/" + contender + "/" + std::to_string(size);
    return benchmark::RegisterBenchmark(name.c_str(),
                                        [=](benchmark::State& state) { function(state, size); });
}

/** How often another process has taken the processor away from this one. */
inline long interruptions()
{
    rusage usage;
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nivcsw;
}

/**
 * Times only @p work of each iteration; the benchmark has to use manual time.
 *
 * Work that has been interrupted is done once more, a few times at the most.
 */
template <typename Prepare, typename Work>
void timeWork(benchmark::State& state, const Prepare& prepare, const Work& work)
{
    using Clock = std::chrono::steady_clock;

    for (auto _ : state) {
        std::chrono::duration<double> shortest = Clock::duration::max();
        bool interrupted = true;
        for (int attempt = 0; attempt < 4 && interrupted; ++attempt) {
            auto prepared = prepare();
            const long before = interruptions();
            benchmark::ClobberMemory();
            const Clock::time_point start = Clock::now();
            work(prepared);
            benchmark::ClobberMemory();
            shortest = std::min<std::chrono::duration<double>>(shortest, Clock::now() - start);
            interrupted = interruptions() != before;
        }
        state.SetIterationTime(shortest.count());
    }
}

/** Runs the registered benchmarks as the command line says. */
inline int run(int argc, char** argv)
{
    // Memory stays with the process, so that nobody pays for pages that someone else gave back.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace oxil::bench
