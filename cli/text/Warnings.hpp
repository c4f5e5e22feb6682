/// What the library and the stores log while a command is at work, kept until its end: so no error is told twice, and
/// nothing is written into the line of the progress.
///
/// The main thread calls these functions; records may come from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "cli/Names.hpp"
#include "project/metadata/MetadataDamage.hpp"

namespace cli {

/// Keeps warnings and what is worse from now on. If the environment variable PROJECT_METADATA_LOG is set, records from
/// that severity on are written to the standard error as they come, and nothing is kept.
void collectWarnings();

/// Keeps what is damaged, unless it was kept already: a store logs what it comes upon, which need not be all.
/// @return how many files it is in
std::size_t keepDamage(const std::vector<pm::MetadataDamage>& damages);

/// Forgets all damage that is kept, for commands that find out which of it matters.
void forgetDamage();

/// Leaves out, from now on, what names something in `folder`: a scratch folder, which nobody knows.
void ignoreWarningsAbout(const host::Path& folder);

/// Something that was noticed. A value type.
struct Warning {
    host::Path file;         ///< what is damaged; empty for what is no damage
    std::u16string text;     ///< what is wrong with it, or the whole sentence
    bool isForeign = false;  ///< whether the file only holds something besides its metadata
};

/// What was kept so far, each once.
std::vector<Warning> takeWarnings();

}  // namespace cli
