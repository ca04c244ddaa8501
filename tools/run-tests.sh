#!/bin/sh
# Sets up, builds and runs every test twice: a normal build and a build with
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -eu
cd "$(dirname "$0")/.."
tools/setup.sh --asan
(cd build && ctest -j2 --output-on-failure)
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    sh -c 'cd build-asan && ctest -j2 --output-on-failure'
