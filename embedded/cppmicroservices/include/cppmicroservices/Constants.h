// Names that the framework gives a meaning: the system bundle and the service properties.
#pragma once

#include <string>

namespace cppmicroservices {
inline namespace project_metadata {
namespace Constants {

inline const std::string& SYSTEM_BUNDLE_LOCATION = *new std::string("System Bundle");
inline const std::string& SYSTEM_BUNDLE_SYMBOLICNAME = *new std::string("system_bundle");

/// std::vector<std::string>, set by the framework: the interface ids that a service is registered under.
inline const std::string& OBJECTCLASS = *new std::string("objectclass");
/// long, set by the framework: grows with every registration and is never used again.
inline const std::string& SERVICE_ID = *new std::string("service.id");
/// std::string, set by the framework unless it is given: SCOPE_SINGLETON, there being no other.
inline const std::string& SERVICE_SCOPE = *new std::string("service.scope");
inline const std::string& SCOPE_SINGLETON = *new std::string("singleton");
/// int, 0 when absent: references are listed by falling ranking, then by rising service id.
inline const std::string& SERVICE_RANKING = *new std::string("service.ranking");

}  // namespace Constants
}  // namespace project_metadata
}  // namespace cppmicroservices
