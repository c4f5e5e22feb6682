# cmake -D TOP=<source folder> -P CheckLayers.cmake
#
# Fails when a file includes or names what its layer must not know, and names all such files and lines.

# Nothing in `folder` may include a path that starts with one of the others.
function(forbid folder)
    list(JOIN ARGN "|" forbidden)
    file(GLOB_RECURSE files ${TOP}/${folder}/*.hpp ${TOP}/${folder}/*.cpp ${TOP}/${folder}/*.h)
    if(NOT files)
        message(SEND_ERROR "There are no sources in ${folder}/")
    endif()
    foreach(file IN LISTS files)
        file(STRINGS "${file}" lines REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"](${forbidden})/")
        foreach(line IN LISTS lines)
            message(SEND_ERROR "${file} must not have: ${line}")
        endforeach()
    endforeach()
endfunction()

forbid(host project embedded store_support store_testing stores operations cli tests)
forbid(project embedded store_support store_testing stores operations cli tests)
forbid(embedded project store_support store_testing stores operations cli tests)
forbid(store_support embedded store_testing stores operations cli tests)
forbid(host_testing project embedded store_support store_testing stores operations cli tests)
forbid(store_testing embedded store_support stores operations cli tests)
forbid(operations embedded store_testing stores cli tests CLI nlohmann)
forbid(cli embedded store_support stores tests)
forbid(examples embedded stores cli tests)

# Nothing in `folder` may match one of the expressions, such as the names of what only one store knows.
function(forbid_words folder)
    list(JOIN ARGN "|" forbidden)
    file(GLOB_RECURSE files ${TOP}/${folder}/*.hpp ${TOP}/${folder}/*.cpp)
    foreach(file IN LISTS files)
        file(STRINGS "${file}" lines REGEX "${forbidden}")
        foreach(line IN LISTS lines)
            message(SEND_ERROR "${file} must not have: ${line}")
        endforeach()
    endforeach()
endfunction()

set(storeWords "\"fixedPath\"" "\"monolithic\"" "\"sqlite\"" "\"postgresql\"" "metadata\\.db" "\"\\.lock" "\"\\.pending" "\"Rank\"" "-shm")
forbid_words(operations ${storeWords} nlohmann "CLI/" "std::cout" "std::cerr" "stdout" "stderr")
forbid_words(cli ${storeWords})

# A store knows no other one.
file(GLOB stores RELATIVE ${TOP}/stores ${TOP}/stores/*/CMakeLists.txt)
list(TRANSFORM stores REPLACE "/.*" "")
foreach(store IN LISTS stores)
    set(others ${stores})
    list(REMOVE_ITEM others ${store})
    list(TRANSFORM others PREPEND stores/)
    forbid(stores/${store} embedded store_testing operations cli tests ${others})
endforeach()
