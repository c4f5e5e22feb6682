# The Debian packages that `cpack` makes: libproject-metadata0.1, libproject-metadata-dev and project-metadata, one for each
# component of the installation. scripts/package does everything; the preset "package" is made for it.

set(CPACK_PACKAGE_CONTACT "The authors of project_metadata <authors@project-metadata.invalid>")

foreach(component library development command)
    string(TOUPPER ${component} upper)
    set(name_library libproject-metadata${binaryVersion})
    set(name_development libproject-metadata-dev)
    set(name_command project-metadata)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name_${component}})
    set(CPACK_DEBIAN_${upper}_FILE_NAME DEB-DEFAULT)

    # What every package has to say of itself.
    set(folder ${PROJECT_BINARY_DIR}/debian/${component})
    set(packageName ${name_${component}})
    string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
    string(TIMESTAMP year "%Y" UTC)
    configure_file(cmake/debian/changelog.in ${folder}/changelog @ONLY)
    configure_file(cmake/debian/copyright.in ${folder}/copyright @ONLY)
    execute_process(COMMAND gzip -9nf ${folder}/changelog COMMAND_ERROR_IS_FATAL ANY)
    install(FILES ${folder}/changelog.gz ${folder}/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${packageName} COMPONENT ${component})
endforeach()
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development command)
set(CPACK_PACKAGE_NAME project-metadata)
set(CPACK_PACKAGE_VENDOR project_metadata)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/Prepare.cmake)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(what "A project is a folder. Its metadata is a tree of nodes, each with a name, text\nattributes and ordered children, "
    "kept in a metadata folder below the\nproject's root.\n")
string(CONCAT what ${what})
# What CPack makes of these by itself calls ldconfig in scripts, and stumbles over the plug-ins.
set(folder ${PROJECT_BINARY_DIR}/debian/library)
file(WRITE ${folder}/triggers "activate-noawait ldconfig\n")
file(WRITE ${folder}/shlibs "")
foreach(library project_metadata project_metadata_host project_metadata_services)
    file(APPEND ${folder}/shlibs "lib${library} ${binaryVersion} ${name_library} (>= ${PROJECT_VERSION})\n")
endforeach()
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${folder}/triggers ${folder}/shlibs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libxml2 (>= 2.9.14)")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "metadata of desktop engineering projects - shared library\n${what}\n"
    "This package has the shared library, the embedded host and the plug-ins of the\nstores.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${name_library} (= ${PROJECT_VERSION}), libxml2-dev (>= 2.9.14), libboost-dev (>= 1.74)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "cmake (>= 3.25), pkg-config, libgtest-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "metadata of desktop engineering projects - development files\n${what}\n"
    "This package has the headers, the static libraries for stores and operations,\nguides and examples.")
set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_COMMAND_PACKAGE_DEPENDS "${name_library} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_COMMAND_DESCRIPTION "metadata of desktop engineering projects - command\n${what}\n"
    "This package has the command project-metadata, which looks at metadata,\nchanges, compares, merges, moves and checks it.")
foreach(upper LIBRARY DEVELOPMENT COMMAND)
    string(CONCAT CPACK_COMPONENT_${upper}_DESCRIPTION ${CPACK_COMPONENT_${upper}_DESCRIPTION})
endforeach()

include(CPack)
