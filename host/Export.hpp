/// Symbol visibility of the host facilities: everything is compiled hidden, what carries `HOST_EXPORT` is not.
#pragma once

#define HOST_EXPORT __attribute__((visibility("default")))
