/// The library, by the short name that the command has for it, as the operations have.
#pragma once

#include "operations/Library.hpp"

namespace cli {

namespace pm = operations::pm;

}  // namespace cli
