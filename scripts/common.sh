# What the scripts have in common; each begins by reading this. Prints what the script says at its top and ends, if that is
# asked for; goes to the top folder, wherever the script was called from and by whatever name; and sets
#   build    the folder to build in: PROJECT_METADATA_BUILD, by default "build" at the top

script=$(readlink -f "$0")
if [[ ${1-} == --help || ${1-} == -h ]]; then
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$script"
    exit
fi
build=$(realpath -m -- "${PROJECT_METADATA_BUILD:-$(dirname "$script")/../build}")
cd "$(dirname "$script")/.."
