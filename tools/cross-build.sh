#!/bin/sh
# Builds device_service for the camera's 32-bit ARM (armel: ARMv5TE and up,
# which takes in the ARM11 cores; armhf: ARMv7 only) as a camera release in two
# forms: linked against the C library only (build-ARCH/) and, with --static,
# fully static as well (build-ARCH-static/). Installs Debian's cross
# toolchain, qemu-user and the target's libraries when missing; prints sizes.
#   tools/cross-build.sh armel|armhf [--static] [--tests] [--install DIR]
# --tests also builds the test programs (ctest runs them under qemu-arm).
# --install DIR stages the image's files under DIR (cmake --install with
# DESTDIR): the fully static program with --static, the other one without.
# ONVIF_DEBIAN_TINYXML=1 links Debian's TinyXML (with iostreams) instead.
set -eu
cd "$(dirname "$0")/.."
arch="${1:-}"
case "$arch" in
    armel) triplet=arm-linux-gnueabi ;;
    armhf) triplet=arm-linux-gnueabihf ;;
    *) echo "usage: $0 armel|armhf [--static] [--tests] [--install DIR]" >&2; exit 2 ;;
esac
shift
static=""; tests=""; stage=""
while [ $# -gt 0 ]; do
    case "$1" in
        --static) static=1 ;;
        --tests) tests=1 ;;
        --install) [ $# -ge 2 ] || { echo "--install needs a directory" >&2; exit 2; }
                   stage="$2"; shift ;;
        *) echo "unknown option $1" >&2; exit 2 ;;
    esac
    shift
done
# cmake --install takes DESTDIR from where it runs: make it absolute first.
if [ -n "$stage" ]; then
    mkdir -p "$stage"
    stage=$(cd "$stage" && pwd)
fi

packages="g++-$triplet qemu-user cmake ninja-build pkg-config dpkg-dev patch libtinyxml-dev:$arch"
[ -z "$tests" ] || packages="$packages libgtest-dev:$arch lighttpd curl python3"
. tools/packages.sh
install_missing $packages

tinyxml=""
[ -n "${ONVIF_DEBIAN_TINYXML:-}" ] || tinyxml=$(tools/tinyxml-source.sh build-deps/tinyxml)

configure() {  # build directory, extra options
    dir="$1"; shift
    cmake -S . -B "$dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/tools/arm-linux.cmake" \
        -DONVIF_TARGET_TRIPLET="$triplet" -DONVIF_CAMERA_RELEASE=ON -DONVIF_TINYXML_SOURCE="$tinyxml" "$@" >/dev/null
}
configure "build-$arch" -DONVIF_FULLY_STATIC=OFF -DONVIF_TESTS=$([ -n "$tests" ] && echo ON || echo OFF)
if [ -n "$tests" ]; then ninja -C "build-$arch" -j2; else ninja -C "build-$arch" -j2 device_service; fi
sizes="build-$arch/device_service"
if [ -n "$static" ]; then
    configure "build-$arch-static" -DONVIF_FULLY_STATIC=ON -DONVIF_TESTS=OFF
    ninja -C "build-$arch-static" -j2 device_service
    sizes="$sizes build-$arch-static/device_service"
fi
for f in $sizes; do
    printf '%-40s %8d bytes\n' "$f" "$(stat -c %s "$f")"
done
if [ -n "$stage" ]; then
    staged="build-$arch"
    [ -z "$static" ] || staged="build-$arch-static"
    DESTDIR="$stage" cmake --install "$staged" >/dev/null
    echo "staged $staged into $stage:"
    (cd "$stage" && find . -type f -perm -u+x | sed 's|^\.||')
fi
