/// The parts of the benchmark of the library. Each function registers its benchmarks, before any runs.
#pragma once

namespace benchmarks {

void addXmlBenchmarks();      ///< read/INPUT/PEER, write/INPUT/PEER and memory/INPUT/PEER
void addPathBenchmarks();     ///< less/PATHS/WAY and copy/PATHS/WAY
void addNodeBenchmarks();     ///< put/ATTRIBUTES/WAY
void addProjectBenchmarks();  ///< export_STORE, readAll_STORE and firstWrite_STORE/NODES/WAY
void addCommandBenchmarks();  ///< command_WHAT_STORE/FILES/project_metadata, command_WHAT/FILES/WAY

}  // namespace benchmarks
