#!/bin/sh
# Sets up, builds and runs every test: a normal build, a build with
# AddressSanitizer and UndefinedBehaviorSanitizer, and the camera build for
# armel (32-bit ARM) under qemu-arm. ONVIF_SKIP_ARMEL=1 leaves the last out.
set -eu
cd "$(dirname "$0")/.."
tools/setup.sh --asan
# A whole run: every expected schema exception must still be seen.
export ONVIF_SCHEMA_ALL=1
(cd build && ctest -j2 --output-on-failure)
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    sh -c 'cd build-asan && ctest -j2 --output-on-failure'
if [ -z "${ONVIF_SKIP_ARMEL:-}" ]; then
    tools/cross-build.sh armel --tests
    (cd build-armel && ctest -j2 --output-on-failure)
fi
