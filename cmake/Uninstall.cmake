# cmake -D BUILD=<build folder> -P Uninstall.cmake
#
# Removes what the last `cmake --install` of the build folder has installed, and of the folders that have become empty
# those that are the project's own.

set(manifest ${BUILD}/install_manifest.txt)
if(NOT EXISTS ${manifest})
    message(FATAL_ERROR "Nothing has been installed from ${BUILD}, there is no ${manifest}")
endif()
file(STRINGS ${manifest} files ENCODING UTF-8)
set(folders "")
foreach(file IN LISTS files)
    set(file $ENV{DESTDIR}${file})
    message(STATUS "Removing ${file}")
    file(REMOVE ${file})
    cmake_path(GET file PARENT_PATH folder)
    while(folder MATCHES "/(lib)?project[_-]metadata")
        list(APPEND folders ${folder})
        cmake_path(GET folder PARENT_PATH folder)
    endwhile()
endforeach()
list(REMOVE_DUPLICATES folders)
# The longest paths first, so that a folder is looked at after what was in it.
list(SORT folders ORDER DESCENDING)
foreach(folder IN LISTS folders)
    file(GLOB entries LIST_DIRECTORIES true ${folder}/* ${folder}/.*)
    if(NOT entries)
        file(REMOVE_RECURSE ${folder})
    endif()
endforeach()
file(REMOVE ${manifest})
