# Builds for a device with a 32-bit ARM processor and hard float, and runs tests under an emulator.
# -DSYSROOT=... names the folder that has the device's headers and libraries, from the root on.

if(NOT SYSROOT)
  message(FATAL_ERROR "-DSYSROOT=... has to name the folder with the device's libraries.")
endif()
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SYSROOT)

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# No notes on what changed in the calling convention with GCC 7.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_SYSROOT ${SYSROOT})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${SYSROOT})

# Programs are the host's; libraries, headers and packages are the device's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${SYSROOT})
set(lib ${SYSROOT}/usr/lib)
set(ENV{PKG_CONFIG_LIBDIR}
  ${lib}/arm-linux-gnueabihf/pkgconfig:${lib}/pkgconfig:${SYSROOT}/usr/share/pkgconfig)
