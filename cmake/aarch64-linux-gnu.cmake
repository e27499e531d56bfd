# Cross-builds for 64-bit ARM gateways with Debian's cross compiler
# (g++-aarch64-linux-gnu):
#
#   cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
#
# Without a sysroot, Lua 5.1, GLib and Jansson come from Debian's multiarch :arm64
# development packages (liblua5.1-0-dev:arm64, libglib2.0-dev:arm64,
# libjansson-dev:arm64), found by aarch64-linux-gnu-pkg-config. For the gateway's own
# image, give its root file system as CMAKE_SYSROOT; pkg-config then reads the .pc files
# inside it and prefixes their paths with it. libcapi3 is looked for in CMAKE_PREFIX_PATH
# (inside the sysroot or not) and then in the sysroot's library folders.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(VELCONFIG_CROSS_TRIPLET aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${VELCONFIG_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${VELCONFIG_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${VELCONFIG_CROSS_TRIPLET})

find_program(PKG_CONFIG_EXECUTABLE NAMES ${VELCONFIG_CROSS_TRIPLET}-pkg-config REQUIRED)
if(CMAKE_SYSROOT)
  # The cross pkg-config would otherwise read the build machine's :arm64 .pc files.
  set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
  set(ENV{PKG_CONFIG_LIBDIR}
      "${CMAKE_SYSROOT}/usr/lib/${VELCONFIG_CROSS_TRIPLET}/pkgconfig:${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
endif()

# Tools run on the build machine; libraries and headers are the target's. BOTH lets a
# CMAKE_PREFIX_PATH outside the sysroot (a separately delivered libcapi3) be found.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs and tools the build runs (CTest and custom commands run target
# executables through this) run under user-mode emulation: tools/arm64-run, with the
# cross toolchain's C library and Debian's multiarch arm64 libraries, or qemu with the
# sysroot's.
find_program(VELCONFIG_QEMU_AARCH64 qemu-aarch64)
if(VELCONFIG_QEMU_AARCH64)
  if(CMAKE_SYSROOT)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${VELCONFIG_QEMU_AARCH64} -L ${CMAKE_SYSROOT})
  else()
    get_filename_component(VELCONFIG_ARM64_RUN "${CMAKE_CURRENT_LIST_DIR}/../tools/arm64-run" ABSOLUTE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${VELCONFIG_ARM64_RUN})
  endif()
endif()
