// Interface ids, and the map from ids to the pointers of one service object.
//
// An interface is known across shared objects by its id, a text. Everything here may be used from several threads.
#pragma once

#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceException.h"

namespace cppmicroservices {
inline namespace project_metadata {

/// Interface id to the service object seen through that interface. What is registered as one service.
using InterfaceMap = std::unordered_map<std::string, std::shared_ptr<void>>;
using InterfaceMapPtr = std::shared_ptr<InterfaceMap>;
using InterfaceMapConstPtr = std::shared_ptr<const InterfaceMap>;

namespace detail {

/// The type's name as written in source, with its namespaces.
US_Framework_EXPORT std::string GetDemangledName(const std::type_info& type);

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices

inline namespace project_metadata_services {

/// The id of the interface T: the type's full name, unless CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE gives another.
/// The id of void is empty.
template <class T>
const std::string& us_service_interface_iid() {
    static const std::string& id =
        *new auto(std::is_void_v<T> ? std::string() : cppmicroservices::detail::GetDemangledName(typeid(T)));
    return id;
}

}  // namespace project_metadata_services

/// Gives an interface the id `interfaceId`, a string literal. Stands outside of every namespace, after the type.
#define CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(interfaceType, interfaceId) \
    template <>                                                                \
    inline const std::string& us_service_interface_iid<interfaceType>() {      \
        static const std::string& id = *new std::string(interfaceId);          \
        return id;                                                             \
    }

namespace cppmicroservices {
inline namespace project_metadata {

/// Makes the map for an object that implements all of `Interfaces`; converts to both pointer types.
template <class... Interfaces>
class MakeInterfaceMap {
public:
    template <class Implementation>
    MakeInterfaceMap(const std::shared_ptr<Implementation>& object) : map_(std::make_shared<InterfaceMap>()) {
        (map_->emplace(us_service_interface_iid<Interfaces>(), std::static_pointer_cast<Interfaces>(object)), ...);
    }

    operator InterfaceMapPtr() { return map_; }
    operator InterfaceMapConstPtr() { return map_; }

private:
    InterfaceMapPtr map_;
};

}  // namespace project_metadata
}  // namespace cppmicroservices
