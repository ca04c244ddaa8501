#!/bin/sh
# Installs the Debian packages the build, the tests and the simulated camera
# need (when missing) and the npm client libraries of tests/clients, then
# configures and builds into build/ (and, with --asan, build-asan/ with
# AddressSanitizer and UndefinedBehaviorSanitizer; with --fuzz, also clang and
# build-fuzz/ with the libFuzzer target).
set -eu
cd "$(dirname "$0")/.."

packages="g++ cmake ninja-build pkg-config libtinyxml-dev libgtest-dev lighttpd python3 python3-lxml curl"
# The web servers the program is tested behind besides lighttpd.
packages="$packages apache2 mini-httpd"
# The simulated camera's stream and snapshots, and ffprobe for their tests.
packages="$packages libgstrtspserver-1.0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-good"
packages="$packages gstreamer1.0-plugins-ugly ffmpeg libjpeg-dev"
# The watch page's test: headless Chromium.
packages="$packages chromium"
# The client flows: zeep, and node with npm for the npm clients (a node that
# came without Debian's package is kept as it is).
packages="$packages python3-zeep"
command -v node >/dev/null || packages="$packages nodejs"
command -v npm >/dev/null || packages="$packages npm"
[ "${1:-}" = "--fuzz" ] && packages="$packages clang libclang-rt-14-dev"
. tools/packages.sh
install_missing $packages

# Once configured, ninja itself re-runs cmake when a CMakeLists.txt changes;
# newly installed packages need a new look for the optional parts.
[ -f build/build.ninja ] && [ -z "$missing" ] || cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
# The build machines are shared: two jobs at most.
ninja -C build -j2
# The npm clients at the versions the lockfile pins, again when it changed.
[ tests/clients/node_modules/.package-lock.json -nt tests/clients/package-lock.json ] \
    || (cd tests/clients && npm ci --no-audit --no-fund)
if [ "${1:-}" = "--asan" ]; then
    cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DONVIF_SANITIZE=ON >/dev/null
    ninja -C build-asan -j2
fi
if [ "${1:-}" = "--fuzz" ]; then
    CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DONVIF_FUZZ=ON >/dev/null
    ninja -C build-fuzz -j2
fi
