/// The version of the library that a program is compiled with.
///
/// A version with another first or second number may be another interface, in sources and in binaries; with another
/// third number only, it is the same. The build takes its version from here.
#pragma once

#define PROJECT_METADATA_VERSION_MAJOR 0
#define PROJECT_METADATA_VERSION_MINOR 1
#define PROJECT_METADATA_VERSION_PATCH 0

/// All three as a text: "1.2.3".
#define PROJECT_METADATA_VERSION                                                           \
    PROJECT_METADATA_JOIN_(PROJECT_METADATA_VERSION_MAJOR, PROJECT_METADATA_VERSION_MINOR, \
                           PROJECT_METADATA_VERSION_PATCH)

#define PROJECT_METADATA_JOIN_(major, minor, patch) \
    PROJECT_METADATA_TEXT_(major) "." PROJECT_METADATA_TEXT_(minor) "." PROJECT_METADATA_TEXT_(patch)
#define PROJECT_METADATA_TEXT_(number) #number
