# Cross-compiles for a target of "./dev targets", and runs what was built under an emulator: what the
# toolchain files of this folder, which name the target, have in common.
#
# Debian's g++-TRIPLET and qemu-user are needed, and a sysroot with the libraries for the target's
# architecture. "./dev sysroot --target TARGET" makes one and prints where it is; another one is named
# by -DOXIL_SYSROOT=... or by the environment variable OXIL_SYSROOT.

set(oxil_dev ${CMAKE_CURRENT_LIST_DIR}/../dev)
execute_process(COMMAND ${oxil_dev} targets OUTPUT_VARIABLE oxil_targets COMMAND_ERROR_IS_FATAL ANY)
if(NOT oxil_targets MATCHES "\n *${oxil_target} +([^ ]+) +([^ ]+) +([^ ]+) +([^\n]+)\n")
  message(FATAL_ERROR "\"./dev targets\" has no ${oxil_target}:${oxil_targets}")
endif()
set(oxil_triplet ${CMAKE_MATCH_2})
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_MATCH_3})
separate_arguments(oxil_emulator UNIX_COMMAND "${CMAKE_MATCH_4}")

set(CMAKE_C_COMPILER ${oxil_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${oxil_triplet}-g++)
# No notes on what changed in the calling convention with GCC 7: everything is built with later ones.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

if(NOT OXIL_SYSROOT)
  set(OXIL_SYSROOT "$ENV{OXIL_SYSROOT}")
endif()
if(NOT OXIL_SYSROOT)
  execute_process(COMMAND ${oxil_dev} sysroot --target ${oxil_target} --where
    OUTPUT_VARIABLE OXIL_SYSROOT OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endif()
if(NOT EXISTS ${OXIL_SYSROOT}/usr/include)
  message(FATAL_ERROR
    "There is no sysroot in \"${OXIL_SYSROOT}\"; \"./dev sysroot --target ${oxil_target}\" makes it.")
endif()
set(OXIL_SYSROOT ${OXIL_SYSROOT} CACHE PATH "What programs for the target are built against")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES OXIL_SYSROOT)
set(CMAKE_SYSROOT ${OXIL_SYSROOT})

set(CMAKE_CROSSCOMPILING_EMULATOR ${oxil_emulator} -L ${OXIL_SYSROOT})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${OXIL_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${OXIL_SYSROOT}/usr/lib/${oxil_triplet}/pkgconfig:${OXIL_SYSROOT}/usr/share/pkgconfig)
