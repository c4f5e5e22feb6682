// Reading and writing XML files, in time and memory, with this project's library and with its peers.

#include "benchmarks/Benchmarks.hpp"

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "benchmarks/Generated.hpp"
#include "benchmarks/Heap.hpp"
#include "benchmarks/Measuring.hpp"
#include "benchmarks/Peers.hpp"
#include "project/metadata/MetadataXml.hpp"

namespace benchmarks {

namespace {

/// A file to read and write.
struct Input {
    const char* name;
    std::size_t nodes;     ///< of a generated file, 0 for others
    const char* realFile;  ///< where a package of Debian puts it, null for generated files
};

constexpr const char* referenceInput = "reference";

constexpr std::array<Input, 8> inputs = {{
    {"1000", 1000, nullptr},
    {"10000", 10000, nullptr},
    {"100000", 100000, nullptr},
    {"1000000", 1000000, nullptr},
    {referenceInput, 200000, nullptr},
    {"shared_mime_info", 0, "/usr/share/mime/packages/freedesktop.org.xml"},
    {"gir_gio", 0, "/usr/share/gir-1.0/Gio-2.0.gir"},
    {"iso_639_3", 0, "/usr/share/xml/iso-codes/iso_639-3.xml"},
}};

/// Where the tree of `input` is as this library writes it, made when it is first needed.
std::string writtenFileOf(const Input& input) {
    const std::string file = scratchFolder().accessName() + "/" + input.name + ".xml";
    if (!std::filesystem::exists(file)) {
        const auto tree = input.realFile ? project::metadata::readFromFile(host::Path::fromAccessName(input.realFile))
                                         : makeTree(input.nodes);
        project::metadata::writeToFile(*tree, host::Path::fromAccessName(file), false);
    }
    return file;
}

std::string fileOf(const Input& input) {
    return input.realFile ? input.realFile : writtenFileOf(input);
}

/// Few nodes are read so quickly that the clock wants more of them.
benchmark::IterationCount iterationsFor(const Input& input) {
    constexpr std::size_t enough = 20000;
    return input.nodes > 0 && input.nodes < enough ? static_cast<benchmark::IterationCount>(enough / input.nodes) : 1;
}

void read(benchmark::State& state, const Peer& peer, const Input& input) {
    const std::string file = fileOf(input);
    peer.read(file);  // not the first time in its life
    for (auto _ : state)
        timed(state, [&] { benchmark::DoNotOptimize(peer.read(file)); });
}

std::string contentOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void write(benchmark::State& state, const Peer& peer, const Input& input) {
    const std::string source = writtenFileOf(input);
    const std::string target = (scratchFolder() / u"target.xml").accessName();
    const std::unique_ptr<Document> document = peer.read(source);
    document->write(target);  // not the first time in its life
    for (auto _ : state)
        timed(state, [&] { document->write(target); });
    if (peer.writing == Writing::sameBytes && contentOf(target) != contentOf(source))
        state.SkipWithError("not the bytes that were read");
}

/// What one peer takes from the heap to read a file, and what the document holds.
void takeMemory(benchmark::State& state, const Peer& peer, const Input& input) {
    const std::string file = fileOf(input);
    peer.read(file);  // not the first time in its life
    for (auto _ : state) {
        std::unique_ptr<Document> document;
        HeapUse use;
        timed(state, [&] { use = measureHeap([&] { document = peer.read(file); }); });
        state.counters["held"] = static_cast<double>(use.held);
        state.counters["peak"] = static_cast<double>(use.peak);
        state.counters["allocations"] = static_cast<double>(use.allocations);
    }
}

}  // namespace

void addXmlBenchmarks() {
    for (const Input& input : inputs) {
        if (input.realFile && !std::filesystem::exists(input.realFile))
            continue;
        for (const Peer& peer : allPeers()) {
            const std::string name = std::string("/") + input.name + "/" + peer.name;
            const auto with = [&](const auto& run) {
                return [run, peer, input](benchmark::State& state) { run(state, peer, input); };
            };
            const auto repeat = [&](benchmark::internal::Benchmark* added) {
                if (input.nodes >= 1000000)
                    added->Repetitions(2);  // each takes some seconds
            };
            if (peer.isReader) {
                repeat(add("read" + name, iterationsFor(input), with(read)));
                if (input.name == std::string(referenceInput))
                    add("memory" + name, 1, with(takeMemory))->Repetitions(1);
            }
            if (peer.writing != Writing::none)
                repeat(add("write" + name, iterationsFor(input), with(write)));
        }
    }
}

}  // namespace benchmarks
