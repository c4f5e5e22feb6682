/// What all stores name of the library and the host, so that they can do so without the namespaces.
#pragma once

#include "host/Path.hpp"
#include "host/Text.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"

namespace store_support {

using host::fromUtf8;
using host::Path;
using host::toUtf8;
using project::metadata::coreFileName;
using project::metadata::MetadataDamage;
using project::metadata::MetadataNode;
using project::metadata::MetadataPath;
using project::metadata::MetadataReadFailure;
using project::metadata::metadataTypeKey;
using project::metadata::MetadataWriteFailure;
using project::metadata::PathElement;
using project::metadata::raise;

}  // namespace store_support
