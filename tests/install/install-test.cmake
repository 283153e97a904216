# Uses the library as its users do: from an installation through CMake and through pkg-config, and as
# a subdirectory of another project.
#
# cmake -DBUILD=... -DSOURCE=... -DWORK=... -DCXX=... [-DFLAGS=...]
#   [-DTOOLCHAIN=... -DSYSROOT=... -DEMULATOR=...] -P install-test.cmake

include(${SOURCE}/tests/support/Commands.cmake)

set(installed ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${WORK}/prefix/lib ${EMULATOR})

function(run_consumer program)
  execute_process(COMMAND ${installed} ${program}
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  if(NOT output MATCHES "^answer = 42\ncaptured: OxKeyValues.cpp: getKeyValue.* > Invalid key .question.\n$")
    message(FATAL_ERROR "${program} printed:\n${output}")
  endif()
endfunction()

function(run_capture program)
  execute_process(COMMAND ${installed} ${program}
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  if(NOT output STREQUAL "OxKeyValues.cpp: getKeyValue > Invalid key (question)\n")
    message(FATAL_ERROR "${program} printed:\n${output}")
  endif()
  execute_process(COMMAND ${installed} ${program} unexpected
    RESULT_VARIABLE r OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  if(r EQUAL 0 OR output OR NOT errors MATCHES "unexpected log line: .*Invalid key .question.")
    message(FATAL_ERROR "${program} ended with ${r} and printed:\n${output}${errors}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
set(consumer ${SOURCE}/tests/install/consumer)
if(TOOLCHAIN)
  set(same_build -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DOXIL_SYSROOT=${SYSROOT}
    -DCMAKE_FIND_ROOT_PATH=${WORK}/prefix)
  string(APPEND FLAGS " --sysroot=${SYSROOT}")
else()
  set(same_build -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${FLAGS})
endif()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)

run(${CMAKE_COMMAND} -G Ninja -S ${consumer} -B ${WORK}/package
  -DCMAKE_PREFIX_PATH=${WORK}/prefix ${same_build})
run(${CMAKE_COMMAND} --build ${WORK}/package)
run_consumer(${WORK}/package/consumer)
run_capture(${WORK}/package/capture)

run(${CMAKE_COMMAND} -G Ninja -S ${consumer} -B ${WORK}/subdirectory
  -DOXIL_SOURCE_DIR=${SOURCE} ${same_build})
run(${CMAKE_COMMAND} --build ${WORK}/subdirectory)
run_consumer(${WORK}/subdirectory/consumer)
run_capture(${WORK}/subdirectory/capture)

# The package files have come to another place than the one that the tree was configured for.
separate_arguments(own_flags UNIX_COMMAND "${FLAGS}")
foreach(package IN ITEMS oxil oxil-testing)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${WORK}/prefix/lib/pkgconfig
      pkg-config --cflags --libs ${package}
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(${package}_flags UNIX_COMMAND "${flags}")  # as a shell would
endforeach()
run(${CXX} -std=c++17 ${own_flags} ${consumer}/main.cpp ${oxil_flags} -o ${WORK}/plain)
run_consumer(${WORK}/plain)
run(${CXX} -std=c++17 ${own_flags} ${consumer}/capture.cpp ${oxil-testing_flags}
  -o ${WORK}/plain-capture)
run_capture(${WORK}/plain-capture)
