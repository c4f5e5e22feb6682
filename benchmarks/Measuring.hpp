/// How a benchmark takes its figures. For use on the thread that runs the benchmarks.
#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <valgrind/callgrind.h>

#include <chrono>
#include <ctime>
#include <string>

#include "host/Path.hpp"

namespace benchmarks {

/// Adds to the processor's time of the iteration what another process has taken, in milliseconds.
inline void addProcessorTime(benchmark::State& state, double milliseconds) {
    benchmark::Counter& processor = state.counters["processor_ms"];
    processor.flags = benchmark::Counter::kAvgIterations;
    processor.value += milliseconds;
}

/// Runs `work` once, as the timed part of an iteration of a benchmark registered with `add`. The processor's time is
/// counted beside the wall's. Under callgrind, started with --instr-atstart=no and --collect-atstart=no, only this is
/// counted, and what comes before the first one is not slowed down for it.
template <class Work>
void timed(benchmark::State& state, const Work& work) {
    using Clock = std::chrono::steady_clock;
    const std::clock_t processorStart = std::clock();
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_TOGGLE_COLLECT;
    const Clock::time_point start = Clock::now();
    work();
    const Clock::time_point end = Clock::now();
    CALLGRIND_TOGGLE_COLLECT;
    const std::clock_t processorEnd = std::clock();
    state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    addProcessorTime(state, 1000.0 * static_cast<double>(processorEnd - processorStart) / CLOCKS_PER_SEC);
}

/// Registers the benchmark `name`. What `run` does in its loop outside of `timed` may take its time.
template <class Run>
benchmark::internal::Benchmark* add(const std::string& name, benchmark::IterationCount iterations, const Run& run) {
    const auto runWithTidyHeap = [run](benchmark::State& state) {
        malloc_trim(0);  // what the one before has left scattered is not tidied up in the time of this one
        run(state);
    };
    return benchmark::RegisterBenchmark(name.c_str(), runWithTidyHeap)
        ->Iterations(iterations)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

/// The folder for scratch files of this process, which lives as long as it.
const host::Path& scratchFolder();

}  // namespace benchmarks
