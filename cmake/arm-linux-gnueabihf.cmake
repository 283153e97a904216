# Cross-compiles for 32-bit ARM with hard float, and runs what was built under an emulator.
#
# Debian's g++-arm-linux-gnueabihf and qemu-user are needed, and a sysroot with the libraries for
# Debian's architecture armhf. "./dev sysroot" makes one and prints where it is; another one is named
# by -DOXIL_SYSROOT=... or by the environment variable OXIL_SYSROOT.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# No notes on what changed in the calling convention with GCC 7: everything is built with later ones.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

if(NOT OXIL_SYSROOT)
  set(OXIL_SYSROOT "$ENV{OXIL_SYSROOT}")
endif()
if(NOT OXIL_SYSROOT)
  execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/../dev sysroot --where
    OUTPUT_VARIABLE OXIL_SYSROOT OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
if(NOT EXISTS ${OXIL_SYSROOT}/usr/include)
  message(FATAL_ERROR "There is no sysroot in \"${OXIL_SYSROOT}\"; \"./dev sysroot\" makes it.")
endif()
set(OXIL_SYSROOT ${OXIL_SYSROOT} CACHE PATH "What programs for ARM are built against")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES OXIL_SYSROOT)
set(CMAKE_SYSROOT ${OXIL_SYSROOT})

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${OXIL_SYSROOT})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${OXIL_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${OXIL_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${OXIL_SYSROOT}/usr/share/pkgconfig)
