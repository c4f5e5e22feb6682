/// What is fixed about a project's core file. May be called from any thread.
#pragma once

#include <string>

namespace project::metadata {

/// The name of the core file in the metadata folder.
inline const std::u16string& coreFileName() {
    static const std::u16string name = u"Project.xml";
    return name;
}

/// The attribute of its root node that names the kind of store.
inline const std::u16string& metadataTypeKey() {
    static const std::u16string key = u"MetadataType";
    return key;
}

}  // namespace project::metadata
