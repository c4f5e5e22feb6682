/// The command is written in the words of the operations, and of the library as those call it.
#pragma once

#include "operations/Library.hpp"

namespace cli {

using namespace operations;

}  // namespace cli
