# The installed package: find_package(project_metadata [COMPONENTS ...]) and pkg-config (project_metadata).
#
#     component     what it has                                          needed by
#     library       the shared libraries and the plug-ins                everybody
#     development   headers, static libraries, CMake and pkg-config      those who build with the library
#     command       project-metadata, its manual page and completions    those who use it

include(CMakePackageConfigHelpers)

set(packageFolder ${CMAKE_INSTALL_LIBDIR}/cmake/project_metadata)
set(headerFolder ${CMAKE_INSTALL_INCLUDEDIR}/project_metadata)

# A host that brings its own facilities installs them itself, and the package with them.
if(NOT TARGET project_metadata_host)
    install(TARGETS project_metadata LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    return()
endif()

set(installed project_metadata project_metadata_host project_metadata_services project_metadata_store_support
    project_metadata_store_testing project_metadata_operations)
if(TARGET project_metadata_embedded_services)
    list(APPEND installed project_metadata_embedded_services)
    install(DIRECTORY embedded/cppmicroservices/include/cppmicroservices DESTINATION ${headerFolder}/services
        COMPONENT development)
endif()
install(TARGETS ${installed} EXPORT project_metadataTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    FILE_SET HEADERS DESTINATION ${headerFolder} COMPONENT development)

install(EXPORT project_metadataTargets NAMESPACE project_metadata:: DESTINATION ${packageFolder} COMPONENT development)
configure_package_config_file(cmake/project_metadataConfig.cmake.in
    ${PROJECT_BINARY_DIR}/project_metadataConfig.cmake INSTALL_DESTINATION ${packageFolder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/project_metadataConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/project_metadataConfig.cmake
    ${PROJECT_BINARY_DIR}/project_metadataConfigVersion.cmake
    cmake/ProjectMetadataBundle.cmake
    DESTINATION ${packageFolder} COMPONENT development)

# A CppMicroServices that is installed tells pkg-config nothing of itself.
if(TARGET project_metadata_embedded_services)
    set(pkgConfigFolder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    file(RELATIVE_PATH toPrefix /prefix/${pkgConfigFolder} /prefix)
    configure_file(cmake/project_metadata.pc.in ${PROJECT_BINARY_DIR}/project_metadata.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/project_metadata.pc DESTINATION ${pkgConfigFolder} COMPONENT development)
endif()

# The guides and the programs that they show, laid out as here, so that what headers and guides refer to is there.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
    PATTERN Doxyfile EXCLUDE PATTERN picture.py EXCLUDE)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development PATTERN pump-controller EXCLUDE)

if(PROJECT_IS_TOP_LEVEL)
    add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -D BUILD=${PROJECT_BINARY_DIR}
        -P ${CMAKE_CURRENT_LIST_DIR}/Uninstall.cmake VERBATIM)
endif()
