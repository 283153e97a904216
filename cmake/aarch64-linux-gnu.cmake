# 64-bit ARM.
set(oxil_target arm64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-target.cmake)
