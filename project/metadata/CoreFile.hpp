/// What is fixed about a project's core file. May be called from any thread, and until the process is gone.
#pragma once

#include <string>

namespace project::metadata {

/// The name of the core file in the metadata folder.
inline const std::u16string& coreFileName() {
    static const auto& name = *new std::u16string(u"Project.xml");
    return name;
}

/// The attribute of its root node that names the kind of store.
inline const std::u16string& metadataTypeKey() {
    static const auto& key = *new std::u16string(u"MetadataType");
    return key;
}

}  // namespace project::metadata
