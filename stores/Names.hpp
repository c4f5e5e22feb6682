/// Stores are written in the words of store_support, and of the library as that names it.
#pragma once

#include "store_support/Library.hpp"

namespace stores {

using namespace store_support;

}  // namespace stores
