# cmake -D TOP=<source folder> -P CheckReadme.cmake
#
# Fails when the program that README.md shows is not the one in examples/minimal, which is built and run.

file(READ ${TOP}/README.md readme)
file(READ ${TOP}/examples/minimal/main.cpp program)
string(FIND "${readme}" "```cpp\n${program}```" found)
if(found EQUAL -1)
    message(FATAL_ERROR "README.md does not show examples/minimal/main.cpp as it is")
endif()
