#!/bin/sh
# try.sh
# Installs the packages beside it in a root that has nothing but a Debian system, uses them, and removes them. For
# scripts/package, which runs it there as root.
set -eu
cd "$(dirname "$0")"
export DEBIAN_FRONTEND=noninteractive
install() { apt-get install -qq -y --no-install-recommends "$@" >/dev/null; }
list_ours() { find / -xdev \( -name '*project?metadata*' -o -name '*ProjectMetadata*' \) ! -path "$PWD*" ! -path '/proc/*' | sort; }
fail() { echo "tests/package/try.sh: $*" >&2; exit 1; }

[ -z "$(list_ours)" ] || fail "the root is not clean"

echo "== the command"
install ./libproject-metadata[0-9]*.deb ./project-metadata_*.deb
for store in fixedPath monolithic sqlite; do
    mkdir "$store"
    project-metadata init "$store" --store "$store"
    project-metadata scan "$store" examples
    project-metadata check "$store"
    project-metadata export "$store" -o "$store.xml"
done
cmp fixedPath.xml monolithic.xml
cmp fixedPath.xml sqlite.xml
[ -f /usr/share/man/man1/project-metadata.1.gz ] || fail "there is no manual page"

[ -n "$(list_ours)" ] || fail "nothing is installed"

echo "== development"
install ./libproject-metadata-dev_*.deb g++ pkg-config
c++ -std=c++17 -o minimal examples/minimal/main.cpp $(pkg-config --cflags --libs project_metadata)
(cd fixedPath && ../minimal) | grep -q Folder || fail "the program does not see the project's paths"

echo "== removal"
apt-get purge -qq -y '*project-metadata*' >/dev/null
rm -r ~/.local/state/project-metadata # what scans remember is the user's
[ -z "$(list_ours)" ] || fail "these are left: $(list_ours)"
