# cmake -D PREFIX=<prefix> -D TOP=<source folder> -D BUILD=<build folder> -D BUILD_TYPE=... -D SONAME_VERSION=...
#       -P CheckContent.cmake
#
# Fails when something is installed that is not for users, or lacks what users need.

cmake_minimum_required(VERSION 3.25)

# No path of the machine that has built it.
foreach(path ${TOP} ${BUILD})
    execute_process(COMMAND grep -rlF ${path} ${PREFIX} OUTPUT_VARIABLE files RESULT_VARIABLE status)
    if(NOT status EQUAL 1)
        message(SEND_ERROR "${path} is named in\n${files}")
    endif()
endforeach()

# Headers include what is installed with them, and nothing but headers for users is installed.
set(top ${PREFIX}/include/project_metadata)
file(GLOB_RECURSE headers RELATIVE ${top} ${top}/*.hpp)
foreach(header host/Path.hpp project/Version.hpp project/metadata/MetadataManager.hpp store_support/FileBatch.hpp
        store_testing/StoreContract.hpp operations/Merge.hpp)
    if(NOT header IN_LIST headers)
        message(SEND_ERROR "${header} is not installed")
    endif()
endforeach()
foreach(header IN LISTS headers)
    if(header MATCHES "/detail/" AND NOT header STREQUAL "project/metadata/detail/MetadataEventCombiner.hpp")
        message(SEND_ERROR "${header} is a detail")
    endif()
    file(STRINGS ${top}/${header} lines REGEX "^#include \"" ENCODING UTF-8)
    foreach(line IN LISTS lines)
        string(REGEX REPLACE "^#include \"(.*)\"" "\\1" included "${line}")
        if(NOT EXISTS ${top}/${included})
            message(SEND_ERROR "${header} includes ${included}, which is not installed")
        endif()
    endforeach()
endforeach()
# The command is a user of the operations like any other.
file(GLOB_RECURSE sources ${TOP}/cli/*.hpp ${TOP}/cli/*.cpp)
foreach(source IN LISTS sources)
    file(STRINGS ${source} lines REGEX "^#include \"(operations|project|host|store_testing)/" ENCODING UTF-8)
    foreach(line IN LISTS lines)
        string(REGEX REPLACE "^#include \"(.*)\"" "\\1" included "${line}")
        if(NOT included IN_LIST headers)
            message(SEND_ERROR "${source} includes ${included}, which is not installed")
        endif()
    endforeach()
endforeach()

# Beside those there are only folders of our own, and what lies in them is named by the rest.
file(GLOB_RECURSE files RELATIVE ${PREFIX} ${PREFIX}/*)
foreach(file IN LISTS files)
    if(NOT file MATCHES "project.metadata")
        message(SEND_ERROR "${file} does not say whose it is")
    endif()
endforeach()

# Shared objects: names with the version of the binary interface, and no symbols that only debuggers read.
file(GLOB_RECURSE objects ${PREFIX}/*.so ${PREFIX}/bin/project-metadata)
if(NOT objects)
    message(SEND_ERROR "There are no shared objects in ${PREFIX}")
endif()
foreach(object IN LISTS objects)
    execute_process(COMMAND readelf --wide --dynamic --section-headers ${object} OUTPUT_VARIABLE text)
    cmake_path(GET object FILENAME name)
    if(name MATCHES "^lib" AND NOT text MATCHES "soname: \\[${name}\\.${SONAME_VERSION}\\]")
        message(SEND_ERROR "${object} has another name than ${name}.${SONAME_VERSION}")
    endif()
    if(BUILD_TYPE STREQUAL Release AND text MATCHES "\\.symtab")
        message(SEND_ERROR "${object} is not stripped")
    endif()
endforeach()
