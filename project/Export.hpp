/// Symbol visibility of the library: everything is compiled hidden, what carries `PROJECT_METADATA_EXPORT` is not.
#pragma once

#define PROJECT_METADATA_EXPORT __attribute__((visibility("default")))
