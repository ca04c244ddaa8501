#!/bin/sh
# Fetches Debian's TinyXML source package (with Debian's fixes) into DIR and
# takes back its one change that forces std::string and stream mode, so the
# camera build can compile TinyXML without iostreams. Prints DIR.
# apt's own lists and sources stay untouched: the source index is kept in DIR.
set -eu
dir=$(mkdir -p "$1" && cd "$1" && pwd)
if [ -f "$dir/tree/tinystr.cpp" ]; then echo "$dir/tree"; exit 0; fi
command -v dpkg-source >/dev/null || {
    sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -o DPkg::Lock::Timeout=900 -y -qq dpkg-dev patch >&2
}
. /etc/os-release
cat > "$dir/sources.list" <<LIST
deb-src http://deb.debian.org/debian ${VERSION_CODENAME} main
deb-src http://deb.debian.org/debian-security ${VERSION_CODENAME}-security main
LIST
mkdir -p "$dir/lists/partial" "$dir/cache/archives/partial"
opts="-o Dir::Etc::SourceList=$dir/sources.list -o Dir::Etc::SourceParts=/dev/null -o Dir::State::Lists=$dir/lists
      -o Dir::Cache=$dir/cache -o Acquire::Languages=none -o APT::Sandbox::User=$(id -un)"
# A security index that is mid-sync fails now and then; the main one suffices.
apt-get $opts -qq update >&2 || true
rm -rf "$dir/fetch" && mkdir -p "$dir/fetch"
(cd "$dir/fetch" && apt-get $opts -qq source tinyxml >&2)
src=$(find "$dir/fetch" -mindepth 1 -maxdepth 1 -type d -name 'tinyxml-*' | head -n 1)
if grep -q '^[[:space:]]*#define TIXML_USE_STL' "$src/tinyxml.h"; then
    (cd "$src" && patch -R -s -p1 < debian/patches/enforce-use-stl.patch)
fi
rm -rf "$dir/tree" && mv "$src" "$dir/tree"
rm -rf "$dir/fetch" "$dir/lists" "$dir/cache"
echo "$dir/tree"
