/// Where a project's metadata is, as its core file says it, and which servers it may be on. Both are written down at
/// the top of Address.cpp.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <boost/uuid/uuid.hpp>

#include <optional>
#include <string>
#include <vector>

#include "stores/Names.hpp"

namespace stores::postgresql {

/// The name of this kind of store.
extern const std::u16string& postgresqlName;

/// The schema that is meant where none is named.
extern const std::u16string& usualSchema;

/// A schema of the database that a service in the user's libpq service file leads to.
struct Server {
    std::u16string service;
    std::u16string schema;
};

struct Address {
    Server server;
    boost::uuids::uuid project;
};

inline bool operator==(const Server& a, const Server& b) {
    return a.service == b.service && a.schema == b.schema;
}

inline bool operator==(const Address& a, const Address& b) {
    return a.server == b.server && a.project == b.project;
}

/// What `coreFile` says; no value if there is no such file.
/// @throws MetadataReadFailure naming the file, if it is damaged or of another kind of store
std::optional<Address> readAddress(const Path& coreFile);

/// Writes a core file.
/// @throws MetadataWriteFailure
void writeAddress(const Address& address, const Path& file);

/// The name of the setting that allows servers, for errors.
std::u16string getSettingName();

/// The servers that the user's settings allow, the one for new projects first.
/// @throws MetadataReadFailure naming `coreFile`, if the settings cannot be read
std::vector<Server> getAllowedServers(const Path& coreFile);

/// @throws MetadataReadFailure naming `coreFile`, if the user's settings do not allow `server`
void requireAllowed(const Server& server, const Path& coreFile);

}  // namespace stores::postgresql
