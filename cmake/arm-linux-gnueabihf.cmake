# 32-bit ARM with hard float.
set(oxil_target arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-target.cmake)
