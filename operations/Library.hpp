/// The library, by the short name that operations have for it.
#pragma once

namespace project::metadata {}

namespace operations {

namespace pm = project::metadata;

}  // namespace operations
