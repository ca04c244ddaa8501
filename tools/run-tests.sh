#!/bin/sh
# Sets up, builds and runs every test: a normal build, a build with
# AddressSanitizer and UndefinedBehaviorSanitizer, and the camera build for
# armel (32-bit ARM) under qemu-arm (ONVIF_SKIP_ARMEL=1 leaves it out), and
# the request fuzz target for 60 seconds on the tests' own request bodies.
set -eu
cd "$(dirname "$0")/.."
. tools/packages.sh
install_missing clang libclang-rt-14-dev
tools/setup.sh --asan
# A whole run: every expected schema exception must still be seen.
export ONVIF_SCHEMA_ALL=1
seeds=""
if command -v clang++ >/dev/null 2>&1; then
    rm -rf build-fuzz/bodies
    mkdir -p build-fuzz/bodies
    seeds="$PWD/build-fuzz/bodies"
fi
(cd build && ONVIF_FUZZ_SEEDS="$seeds" ctest -j2 --output-on-failure)
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    sh -c 'cd build-asan && ctest -j2 --output-on-failure'
if [ -z "${ONVIF_SKIP_ARMEL:-}" ]; then
    tools/cross-build.sh armel --tests
    (cd build-armel && ctest -j2 --output-on-failure)
fi
if [ -n "$seeds" ]; then
    tools/setup.sh --fuzz >/dev/null
    tools/fuzz.sh 60
fi
