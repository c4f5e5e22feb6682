#!/bin/bash
# check_scripts.sh TOP FOLDER
# Fails if a script does not say with --help what it does, from elsewhere and by another name, or if scripts/setup cannot tell
# without dpkg what is there and what is missing. Links are made in FOLDER.
set -euo pipefail
top=$1
folder=$2
rm -rf "$folder"
mkdir -p "$folder/bin"
cd /

for script in "$top"/scripts/*; do
    [[ -x $script ]] || continue
    ln -s "$script" "$folder/link"
    read -r first < <("$folder/link" --help)
    [[ $first == "scripts/${script##*/}"* ]] || { echo "$script --help says: $first" >&2; exit 1; }
    rm "$folder/link"
done

for program in bash c++ cmake cat dirname grep ninja pkg-config readlink realpath sed; do
    ln -s "$(command -v "$program")" "$folder/bin/$program"
done
ask() { env -i PATH="$folder/bin" bash "$top/scripts/setup" build; }
ask || { echo "scripts/setup misses something that is there" >&2; exit 1; }
rm "$folder/bin/ninja"
if missing=$(ask 2>&1) || [[ $missing != *": ninja-build" ]]; then
    echo "scripts/setup says of a missing ninja: $missing" >&2
    exit 1
fi
