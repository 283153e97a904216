# 32-bit ARM with soft float, from ARMv5TE on.
set(oxil_target armel)
include(${CMAKE_CURRENT_LIST_DIR}/debian-target.cmake)
