# What the scripts have in common; each begins by reading this. Prints what the script says at its top and ends, if that is
# asked for; goes to the top folder, wherever the script was called from and by whatever name; has ccache, where it is
# installed, keep what is compiled, for other copies of the sources too; and sets
#   build    the folder to build in: PROJECT_METADATA_BUILD, by default "build" at the top

script=$(readlink -f "$0")
if [[ ${1-} == --help || ${1-} == -h ]]; then
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$script"
    exit
fi
build=$(realpath -m -- "${PROJECT_METADATA_BUILD:-$(dirname "$script")/../build}")
cd "$(dirname "$script")/.."

if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
    # Where the sources lie is in no object file of a release, and precompiled headers are known by their contents.
    export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
fi
