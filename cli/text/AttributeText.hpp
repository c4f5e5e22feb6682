/// Attributes on the command line: "Owner=Ann", or "Notes@FILE" for a value that is a file's content.
///
/// Main thread only.
#pragma once

#include <string>
#include <vector>

#include "cli/Names.hpp"
#include "operations/NodeAddress.hpp"
#include "operations/NodeEdit.hpp"

namespace cli {

/// The text that `bytes` from the command line or from a file spell.
/// @param what what it is to be, such as "The key in \"x\"", for the error sentence
/// @throws CommandError with `Status::usage` for what is no UTF-8
std::u16string readText(const std::string& bytes, const std::string& what);

/// The attributes that `texts` from the place `first` on name; the last one of a key counts.
/// @throws CommandError saying what is wrong with one of them; as `readInput`
AttributeChanges parseAttributes(const std::vector<std::string>& texts, std::size_t first);

/// That `node`, which is at `address`, has no attribute `key`; with what comes of that, such as "; nothing is changed",
/// and with the one that may have been meant.
std::string describeMissingKey(const pm::MetadataNode& node, const NodeAddress& address, const std::u16string& key,
                               const std::string& consequence = {});

/// Such as "Owner=Ann", for a note: safe to show, and of a long value only how long it is.
std::string describeAttribute(const std::u16string& key, const std::u16string& value);

}  // namespace cli
