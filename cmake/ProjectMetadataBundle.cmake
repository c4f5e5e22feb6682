# project_metadata_add_bundle(<target> NAME <symbolic name> SOURCES <file>...
#                             [OUTPUT_DIRECTORY <dir>] [INSTALL_DESTINATION <dir> [COMPONENT <component>]])
#
# Adds a bundle for the service framework: a module <target>.so whose sources are compiled with the framework's
# headers and export an activator with CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR. What makes it a bundle is generated.
#
#   NAME                 the symbolic name, an identifier, unique among the bundles of a process
#   OUTPUT_DIRECTORY     where the module is built, by default the current binary folder
#   INSTALL_DESTINATION  where it is installed, relative to the prefix; it then finds the libraries in the prefix's
#                        ${CMAKE_INSTALL_LIBDIR} wherever the prefix is moved. Not installed without.
#
# A bundle with a store belongs into ${PROJECT_METADATA_PLUGIN_FOLDER}, below the prefix where project_metadata is or
# another one that PROJECT_METADATA_PREFIX names in the environment.
#
# The same in the project's own build and after find_package(project_metadata), with either service framework.

include_guard(GLOBAL)

function(project_metadata_add_bundle target)
    cmake_parse_arguments(PARSE_ARGV 1 BUNDLE "" "NAME;OUTPUT_DIRECTORY;INSTALL_DESTINATION;COMPONENT" "SOURCES")
    if(BUNDLE_UNPARSED_ARGUMENTS OR BUNDLE_KEYWORDS_MISSING_VALUES)
        message(FATAL_ERROR "project_metadata_add_bundle(${target}): what is meant by "
            "'${BUNDLE_UNPARSED_ARGUMENTS}${BUNDLE_KEYWORDS_MISSING_VALUES}'?")
    endif()
    if(NOT BUNDLE_NAME MATCHES "^[A-Za-z_][A-Za-z0-9_]*$" OR NOT BUNDLE_SOURCES)
        message(FATAL_ERROR "project_metadata_add_bundle(${target}): needs a NAME that is an identifier, and SOURCES")
    endif()

    set(generated "${CMAKE_CURRENT_BINARY_DIR}/${target}.bundle")
    file(CONFIGURE OUTPUT "${generated}/initialization.cpp" CONTENT
        "#include \"cppmicroservices/BundleInitialization.h\"\n\nCPPMICROSERVICES_INITIALIZE_BUNDLE\n")

    add_library(${target} MODULE ${BUNDLE_SOURCES} "${generated}/initialization.cpp")
    target_compile_features(${target} PRIVATE cxx_std_17)
    target_compile_definitions(${target} PRIVATE US_BUNDLE_NAME=${BUNDLE_NAME})
    target_link_libraries(${target} PRIVATE project_metadata::services)
    set_target_properties(${target} PROPERTIES
        PREFIX ""
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)

    get_target_property(embedded project_metadata::services PROJECT_METADATA_SERVICES_EMBEDDED)
    if(NOT embedded)
        project_metadata_embed_manifest_(${target} ${BUNDLE_NAME} "${generated}")
    endif()

    if(BUNDLE_OUTPUT_DIRECTORY)
        set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${BUNDLE_OUTPUT_DIRECTORY}")
    endif()
    if(BUNDLE_INSTALL_DESTINATION)
        include(GNUInstallDirs)
        file(RELATIVE_PATH toLibraries
            "/prefix/${BUNDLE_INSTALL_DESTINATION}" "/prefix/${CMAKE_INSTALL_LIBDIR}")
        set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${toLibraries}")
        if(BUNDLE_COMPONENT)
            set(component COMPONENT ${BUNDLE_COMPONENT})
        endif()
        install(TARGETS ${target} LIBRARY DESTINATION "${BUNDLE_INSTALL_DESTINATION}" ${component})
    endif()
endfunction()

# CppMicroServices reads a bundle's name from a manifest.json inside the shared object.
function(project_metadata_embed_manifest_ target name folder)
    file(CONFIGURE OUTPUT "${folder}/manifest.json" @ONLY CONTENT
        "{\"bundle.symbolic_name\": \"@name@\", \"bundle.activator\": true}\n")
    # Not every linker can link it; what is appended is lost when the module is stripped.
    set(mode APPEND)
    if(US_RESOURCE_LINKING_AVAILABLE)
        set(mode LINK)
    endif()
    usFunctionEmbedResources(TARGET ${target} BUNDLE_NAME ${name} ${mode}
        WORKING_DIRECTORY "${folder}" FILES manifest.json)
    usFunctionGetResourceSource(TARGET ${target} OUT resources ${mode})
    target_sources(${target} PRIVATE ${resources})
endfunction()
