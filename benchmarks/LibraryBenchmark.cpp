// What the library costs, next to what it is made of and to what people use instead. docs/performance.md says what each
// figure means. One thread, files in the folder for scratch files.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "benchmarks/Benchmarks.hpp"
#include "benchmarks/Measuring.hpp"
#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"

namespace benchmarks {

const host::Path& scratchFolder() {
    static const host::TempDirGuard guard(host::FileSystem::temp_directory_name().text(), u"benchmark-", u"");
    static const host::Path folder(guard.getDirectoryName());
    return folder;
}

}  // namespace benchmarks

int main(int argc, char** argv) {
    // Unless told otherwise, all is done several times in a random order: what disturbs one disturbs the others too.
    std::string repetitions = "--benchmark_repetitions=5";
    std::string order = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> arguments = {argv[0], repetitions.data(), order.data()};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 1;
    // The command keeps there what it remembers of its scans.
    setenv("XDG_STATE_HOME", (benchmarks::scratchFolder() / u"state").accessName().c_str(), 1);
    benchmarks::addXmlBenchmarks();
    benchmarks::addPathBenchmarks();
    benchmarks::addNodeBenchmarks();
    benchmarks::addProjectBenchmarks();
    benchmarks::addCommandBenchmarks();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::ClearRegisteredBenchmarks();
}
