#!/bin/sh
# Installs the Debian packages the build, the tests and the simulated camera
# need (when missing), then configures and builds into build/ (and, with
# --asan, build-asan/ with AddressSanitizer and UndefinedBehaviorSanitizer).
set -eu
cd "$(dirname "$0")/.."

packages="g++ cmake ninja-build pkg-config libtinyxml-dev libgtest-dev lighttpd python3 curl"
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

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build
if [ "${1:-}" = "--asan" ]; then
    cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DONVIF_SANITIZE=ON >/dev/null
    ninja -C build-asan
fi
