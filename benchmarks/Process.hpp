/// Other programs, started by a benchmark. For use on the thread that runs the benchmarks.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

namespace benchmarks {

/// Starts the program `words[0]` with the rest as its arguments, passes over what it prints, and waits for its end.
/// @return the processor's time that it took, in milliseconds
/// @throws std::runtime_error if it cannot be started, or ends with another status than 0
double run(std::vector<std::string> words);

/// Does the same as the timed part of an iteration of a benchmark, and `finish` as the end of that part. Under valgrind
/// the program and those that it starts run under callgrind, and leave their profiles in the working folder.
void timedRun(
    benchmark::State& state, std::vector<std::string> words, const std::function<void()>& finish = [] {});

/// The command that was built with this program.
std::string findCommand();

}  // namespace benchmarks
