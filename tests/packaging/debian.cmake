# The packages of debian/ are of the library's version, and say of it that it exports what it does.
#
# cmake -DSOURCE=... -DVERSION=... -DLIBRARY=... -DPLATFORM=... -DMACHINE=... -DWORK=... -P debian.cmake

cmake_minimum_required(VERSION 3.25)

file(STRINGS ${SOURCE}/debian/changelog entry LIMIT_COUNT 1)
if(NOT entry MATCHES "^oxil \\(([0-9.]+)([+~][^)]*)?\\) ")
  message(FATAL_ERROR "debian/changelog begins with: ${entry}")
endif()
if(NOT CMAKE_MATCH_1 STREQUAL VERSION)
  message(SEND_ERROR "debian/changelog says ${CMAKE_MATCH_1}, and CMakeLists.txt ${VERSION}")
endif()

find_program(gensymbols dpkg-gensymbols)
if(NOT gensymbols)
  message("Skipped: there is no dpkg-gensymbols.")
  return()
endif()
execute_process(COMMAND dpkg-architecture --force --host-type ${MACHINE} --query DEB_HOST_ARCH
  OUTPUT_VARIABLE architecture OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)

# dpkg-gensymbols writes to where it stands, and the sources may be read-only.
file(COPY ${SOURCE}/debian DESTINATION ${WORK})

function(check package library)
  execute_process(COMMAND ${gensymbols} -a${architecture} -p${package} -v${VERSION} -e${library}
    -Idebian/${package}.symbols -O${WORK}/${package}.symbols -c4 WORKING_DIRECTORY ${WORK}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message("${output}")
    message(SEND_ERROR "debian/${package}.symbols says something else; c++filt shows names as it has them")
  endif()
endfunction()

check(liboxil0 ${LIBRARY})
if(PLATFORM)  # else it is the device's
  check(liboxil-platform0 ${PLATFORM})
endif()
