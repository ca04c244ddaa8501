#!/bin/sh
# Runs the request fuzz target (build-fuzz/request_fuzzer, built by
# tools/setup.sh --fuzz) for SECONDS (default 60). Seeds: the minimized corpus
# in tests/fuzz/corpus and the tests' own request bodies, collected into
# build-fuzz/bodies by a test run; new inputs go to build-fuzz/corpus,
# findings to build-fuzz/crash-* and the like.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ -x build-fuzz/request_fuzzer ] || tools/setup.sh --fuzz
mkdir -p build-fuzz/bodies build-fuzz/seeds build-fuzz/corpus
if [ -z "$(ls -A build-fuzz/bodies)" ]; then
    [ -x build/onvif_tests ] || tools/setup.sh
    (cd build && ONVIF_FUZZ_SEEDS="$PWD/../build-fuzz/bodies" ctest -j2 >/dev/null 2>&1) || true
fi
# A seed is a body behind the state byte 0: no authentication, variant 0,
# as the tests' own camera starts.
for body in build-fuzz/bodies/*; do
    seed="build-fuzz/seeds/$(basename "$body")"
    [ -f "$seed" ] || { printf '\000'; cat "$body"; } > "$seed"
done
# The target's sandbox roots live here, so that none outlives a finding: in
# memory where /dev/shm is there (the camera's store is tmpfs or flash, and a
# disk's syncs would cost the target most of its speed), else in build-fuzz/.
if [ -d /dev/shm ] && [ -w /dev/shm ]; then
    TMPDIR=$(mktemp -d /dev/shm/onvif-fuzz-XXXXXX)
else
    TMPDIR="$PWD/build-fuzz/tmp"
    rm -rf "$TMPDIR"
    mkdir -p "$TMPDIR"
fi
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT INT TERM
status=0
build-fuzz/request_fuzzer -max_total_time="$seconds" -max_len=65537 -timeout=30 -rss_limit_mb=2048 \
    -dict=tests/fuzz/onvif.dict -artifact_prefix=build-fuzz/ -print_final_stats=1 \
    build-fuzz/corpus tests/fuzz/corpus build-fuzz/seeds || status=$?
rm -rf "$TMPDIR"
exit $status
