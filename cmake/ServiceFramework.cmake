# Chooses the service framework: CppMicroServices 3 where it is installed, otherwise the embedded subset of it.
#
# Defines
#   project_metadata_services              interface target, alias project_metadata::services, for everything that
#                                          includes the headers of the framework
#   PROJECT_METADATA_SERVICES_NAME         the chosen one, for people
#   PROJECT_METADATA_SERVICES_DEPENDENCY   the line that the installed package configuration needs for it
#
# The target's property PROJECT_METADATA_SERVICES_EMBEDDED, also of the installed target, says which one it is.

include_guard(GLOBAL)

include(GNUInstallDirs)

option(PROJECT_METADATA_EMBEDDED_SERVICES
    "Use the embedded service framework even where CppMicroServices is installed" OFF)

if(NOT PROJECT_METADATA_EMBEDDED_SERVICES)
    find_package(CppMicroServices 3 CONFIG QUIET)
endif()

add_library(project_metadata_services INTERFACE)
add_library(project_metadata::services ALIAS project_metadata_services)
set_target_properties(project_metadata_services PROPERTIES
    EXPORT_NAME services
    EXPORT_PROPERTIES PROJECT_METADATA_SERVICES_EMBEDDED)

if(CppMicroServices_FOUND AND NOT PROJECT_METADATA_EMBEDDED_SERVICES)
    target_link_libraries(project_metadata_services INTERFACE CppMicroServices)
    set_target_properties(project_metadata_services PROPERTIES PROJECT_METADATA_SERVICES_EMBEDDED OFF)
    set(PROJECT_METADATA_SERVICES_NAME "CppMicroServices ${CppMicroServices_VERSION}")
    set(PROJECT_METADATA_SERVICES_DEPENDENCY "find_dependency(CppMicroServices 3 CONFIG)")
else()
    add_subdirectory("${CMAKE_CURRENT_LIST_DIR}/../embedded/cppmicroservices"
        "${PROJECT_BINARY_DIR}/embedded/cppmicroservices")
    target_link_libraries(project_metadata_services INTERFACE project_metadata_embedded_services)
    set_target_properties(project_metadata_services PROPERTIES PROJECT_METADATA_SERVICES_EMBEDDED ON)
    set(PROJECT_METADATA_SERVICES_NAME "embedded CppMicroServices subset")
    set(PROJECT_METADATA_SERVICES_DEPENDENCY "")
endif()
message(STATUS "Service framework: ${PROJECT_METADATA_SERVICES_NAME}")
