/// What tells the files in a folder of a "fixedPath" store, and what they say, from all others, as `PathFileLister`
/// says. Nothing is hashed, so no two are the same by chance.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <string>

#include "host/Path.hpp"
#include "stores/fixed_path/Listings.hpp"
#include "stores/fixed_path/SeenFiles.hpp"

namespace stores::fixed_path {

/// The fingerprint of `childFolder` as it is on disk now; empty if that cannot be told.
/// @throws project::metadata::ListChildFilesFailure, MetadataReadFailure if the system cannot look at it now
std::string readFingerprint(const host::Path& childFolder);

/// The fingerprint of a folder that was read as `listing`; empty if there is damage in it, or if one of its files has
/// changed since `seen` began.
std::string makeFingerprint(const Listing& listing, const SeenFiles& seen);

}  // namespace stores::fixed_path
