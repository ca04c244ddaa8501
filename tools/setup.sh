#!/bin/sh
# Installs the Debian packages the build, the tests and the simulated camera
# need (when missing), then configures and builds into build/ (and, with
# --asan, build-asan/ with AddressSanitizer and UndefinedBehaviorSanitizer;
# with --fuzz, also clang and build-fuzz/ with the libFuzzer target).
set -eu
cd "$(dirname "$0")/.."

packages="g++ cmake ninja-build pkg-config libtinyxml-dev libgtest-dev lighttpd python3 curl"
[ "${1:-}" = "--fuzz" ] && packages="$packages clang libclang-rt-14-dev"
missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq $missing
fi

# The build machines are shared: two jobs at most.
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build -j2
if [ "${1:-}" = "--asan" ]; then
    cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DONVIF_SANITIZE=ON >/dev/null
    ninja -C build-asan -j2
fi
if [ "${1:-}" = "--fuzz" ]; then
    CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DONVIF_FUZZ=ON >/dev/null
    ninja -C build-fuzz -j2
fi
