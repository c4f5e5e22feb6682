# The installed package: find_package(project_metadata) gives project_metadata::project_metadata, project_metadata::host,
# project_metadata::operations, project_metadata::store_support, project_metadata::store_testing and
# project_metadata_add_bundle().

include(CMakePackageConfigHelpers)

set(packageFolder ${CMAKE_INSTALL_LIBDIR}/cmake/project_metadata)

# A host that brings its own facilities installs them itself, and the package with them.
if(NOT TARGET project_host)
    install(TARGETS project_metadata LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    return()
endif()

install(TARGETS project_metadata project_host project_metadata_operations project_metadata_store_support
    project_metadata_store_testing
    EXPORT project_metadataTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY host operations project store_support DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.hpp" PATTERN detail EXCLUDE)
# Of what lies in there, the one header that others include.
install(FILES project/metadata/detail/MetadataEventCombiner.hpp
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/project/metadata/detail)
install(FILES store_testing/StoreContract.hpp store_testing/StoreContractTest.hpp
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/store_testing)
install(EXPORT project_metadataTargets NAMESPACE project_metadata:: DESTINATION ${packageFolder})

configure_package_config_file(cmake/project_metadataConfig.cmake.in
    ${PROJECT_BINARY_DIR}/project_metadataConfig.cmake INSTALL_DESTINATION ${packageFolder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/project_metadataConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/project_metadataConfig.cmake
    ${PROJECT_BINARY_DIR}/project_metadataConfigVersion.cmake
    cmake/ProjectMetadataBundle.cmake
    DESTINATION ${packageFolder})
