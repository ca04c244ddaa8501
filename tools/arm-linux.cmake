# CMake toolchain for the camera's 32-bit ARM: Debian's cross compiler and the
# target's libraries from multiarch, programs run under qemu-arm.
# ONVIF_TARGET_TRIPLET: arm-linux-gnueabi (armel) or arm-linux-gnueabihf (armhf).
if(NOT ONVIF_TARGET_TRIPLET)
  set(ONVIF_TARGET_TRIPLET "$ENV{ONVIF_TARGET_TRIPLET}")
endif()
if(NOT ONVIF_TARGET_TRIPLET)
  set(ONVIF_TARGET_TRIPLET arm-linux-gnueabi)
endif()
# try_compile projects read this file again without the cache.
set(ENV{ONVIF_TARGET_TRIPLET} "${ONVIF_TARGET_TRIPLET}")

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER ${ONVIF_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ONVIF_TARGET_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${ONVIF_TARGET_TRIPLET})

# Host programs from the host, libraries and packages only from the target.
set(CMAKE_FIND_ROOT_PATH /usr/${ONVIF_TARGET_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/${ONVIF_TARGET_TRIPLET}/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# -L: the target's loader and C library live in the cross sysroot. armel
# runs on an ARM11 (ARMv6) core, the oldest a camera may have, so that an
# instruction it lacks fails the tests; armhf needs ARMv7 (Cortex-A7 here).
find_program(ONVIF_QEMU_ARM qemu-arm REQUIRED)
if(ONVIF_TARGET_TRIPLET STREQUAL "arm-linux-gnueabi")
  set(ONVIF_QEMU_CPU arm1136)
else()
  set(ONVIF_QEMU_CPU cortex-a7)
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR ${ONVIF_QEMU_ARM} -cpu ${ONVIF_QEMU_CPU} -L /usr/${ONVIF_TARGET_TRIPLET})
