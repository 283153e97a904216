# The toolchain file that OpenEmbedded's class for CMake writes for a recipe, as far as it is documented.
# What BitBake would write into it comes from the environment.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR $ENV{TARGET_ARCH})
set(CMAKE_C_COMPILER $ENV{CC})
set(CMAKE_CXX_COMPILER $ENV{CXX})
# The sysroot is an option of the compiler; CMake is not told of it.
set(CMAKE_C_FLAGS "$ENV{TOOLCHAIN_OPTIONS} $ENV{CFLAGS}" CACHE STRING "")
set(CMAKE_CXX_FLAGS "$ENV{TOOLCHAIN_OPTIONS} $ENV{CXXFLAGS}" CACHE STRING "")
set(CMAKE_C_FLAGS_RELEASE -DNDEBUG CACHE STRING "")
set(CMAKE_CXX_FLAGS_RELEASE -DNDEBUG CACHE STRING "")

# Programs too come from a sysroot, the one for those of the build host.
set(CMAKE_FIND_ROOT_PATH $ENV{STAGING_DIR_HOST} $ENV{STAGING_DIR_NATIVE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_PROGRAM_PATH /)
set(CMAKE_LIBRARY_PATH /usr/lib /lib)
