#!/bin/sh
# pkg-config.sh LIBRARIES PROGRAM.cpp FOLDER COMPILER
# Builds PROGRAM.cpp in FOLDER with what pkg-config says of the package installed in LIBRARIES, and runs it where there is
# no project, which it answers with the status 1.
set -e
export PKG_CONFIG_PATH="$1/pkgconfig"
pkg-config --exact-version="$(pkg-config --modversion project_metadata)" project_metadata
# Several words each.
# shellcheck disable=SC2046,SC2086
$4 -std=c++17 -o "$3/with_pkg_config" "$2" $(pkg-config --cflags --libs project_metadata) -Wl,-rpath,"$1"
cd "$3"
status=0
./with_pkg_config || status=$?
test $status = 1
