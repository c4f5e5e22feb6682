/// What all operations name of the library and the host, and the short name that they have for the library.
#pragma once

#include "host/Path.hpp"
#include "host/Text.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace operations {

namespace pm = project::metadata;

}  // namespace operations
