# Builds the library for a device whose platform brings the logger and the system information, and
# sees that it takes these from there and asks for nothing else.
#
# cmake -DSOURCE=... -DWORK=... -DNM=... -DREADELF=... [-DCXX=...] [-DFLAGS=...]
#   [-DTOOLCHAIN=... [-DSYSROOT=...] [-DEMULATOR=...]] -P device-test.cmake

cmake_minimum_required(VERSION 3.25)

include(${SOURCE}/tests/support/Commands.cmake)

# symbols(VARIABLE LIBRARY TYPES OPTION): the dynamic symbols of these types, as name@version where
# they have one
function(symbols variable library types option)
  lines(entries ${NM} -D ${option} ${library})
  list(FILTER entries INCLUDE REGEX " [${types}] [^ ]+$")
  list(TRANSFORM entries REPLACE ".* " "")
  list(TRANSFORM entries REPLACE "@@" "@")
  set(${variable} "${entries}" PARENT_SCOPE)
endfunction()

# find_needed(VARIABLE NAME): the file that a DT_NEEDED entry means on the device
function(find_needed variable name)
  if(sysroot)  # before the compiler, which may know libraries of its own
    foreach(folder IN ITEMS lib/${architecture} usr/lib/${architecture} lib usr/lib)
      if(EXISTS ${sysroot}/${folder}/${name})
        set(${variable} ${sysroot}/${folder}/${name} PARENT_SCOPE)
        return()
      endif()
    endforeach()
  endif()
  set(options)
  if(target)
    list(APPEND options --target=${target})
  endif()
  lines(file ${compiler} ${options} -print-file-name=${name})
  if(NOT IS_ABSOLUTE "${file}")
    message(FATAL_ERROR "${name} is needed, but not to be found")
  endif()
  set(${variable} ${file} PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})

set(settings -DCMAKE_BUILD_TYPE=Release)
if(FLAGS)  # else the toolchain's own
  list(APPEND settings -DCMAKE_CXX_FLAGS=${FLAGS})
endif()
if(TOOLCHAIN)
  list(APPEND settings --toolchain ${TOOLCHAIN})
  if(SYSROOT)
    list(APPEND settings -DOXIL_SYSROOT=${SYSROOT})
  endif()
elseif(CXX)
  list(APPEND settings -DCMAKE_CXX_COMPILER=${CXX})
endif()

# ---- The platform --------------------------------------------------------------------------------

run(${CMAKE_COMMAND} -G Ninja -S ${SOURCE}/tests/device/platform -B ${WORK}/platform ${settings})
run(${CMAKE_COMMAND} --build ${WORK}/platform)
include(${WORK}/platform/toolchain.cmake)
if(NOT DEFINED EMULATOR)
  set(EMULATOR ${emulator})
endif()

set(platform_symbols __dlog_print system_info_get_platform_int)
set(platform_names libplayed-dlog.so.0 libplayed-system-info.so.0)
set(platform_libraries
  ${WORK}/platform/lib/libplayed-dlog.so
  ${WORK}/platform/lib/libplayed-system-info.so)

# ---- The library ---------------------------------------------------------------------------------

execute_process(COMMAND ${CMAKE_COMMAND} -G Ninja -S ${SOURCE} -B ${WORK}/library ${settings}
    -DOXIL_BUILD_TESTS=OFF -DOXIL_BUILD_EXAMPLES=OFF
    -DCMAKE_INSTALL_PREFIX=${WORK}/prefix -DCMAKE_INSTALL_LIBDIR=${WORK}/prefix/lib
    "-DOXIL_PLATFORM_LIBRARIES=${platform_libraries}" -DOXIL_FEATURE_NAMESPACE=example.org
  COMMAND_ERROR_IS_FATAL ANY)
run(${CMAKE_COMMAND} --build ${WORK}/library)
run(${CMAKE_COMMAND} --install ${WORK}/library --prefix ${WORK}/prefix)
set(library ${WORK}/prefix/lib/liboxil.so.0)

# The stand-ins are left out.
file(GLOB_RECURSE files LIST_DIRECTORIES true ${WORK}/library/* ${WORK}/prefix/*)
list(FILTER files INCLUDE REGEX "oxil-platform")
if(files)
  message(SEND_ERROR "built or installed, but a stand-in: ${files}")
endif()
foreach(file IN ITEMS cmake/oxil/oxil-targets.cmake pkgconfig/oxil.pc)
  file(READ ${WORK}/prefix/lib/${file} content)
  if(content MATCHES "oxil-platform|${WORK}/platform")
    message(SEND_ERROR "${file} leads to the platform's libraries:\n${content}")
  endif()
endforeach()

# The library's folder is absolute here, and the package file is right all the same.
lines(flags ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${WORK}/prefix/lib/pkgconfig
  pkg-config --cflags --libs oxil)
separate_arguments(flags UNIX_COMMAND "${flags}")  # as a shell would
if(NOT flags STREQUAL "-I${WORK}/prefix/include/oxil;-L${WORK}/prefix/lib;-loxil")
  message(SEND_ERROR "oxil.pc gives ${flags}")
endif()

dynamic_entries(needed ${library} NEEDED)
foreach(name IN LISTS platform_names)
  if(NOT name IN_LIST needed)
    message(SEND_ERROR "not linked, but the platform's: ${name}; what is: ${needed}")
  endif()
endforeach()
if(needed MATCHES "oxil-platform")
  message(SEND_ERROR "linked, but a stand-in: ${needed}")
endif()
dynamic_entries(search_path ${library} "RPATH|RUNPATH")
if(search_path)
  message(SEND_ERROR "the installed library looks for others in ${search_path}")
endif()

# What it takes from elsewhere: all from its other libraries but for the two functions. What is
# undefined and weak may stay undefined.
symbols(undefined ${library} U --undefined-only)
list(LENGTH undefined count)
if(count LESS 100)
  message(FATAL_ERROR "only ${count} undefined symbols: ${undefined}")
endif()
list(REMOVE_ITEM needed ${platform_names})
foreach(name IN LISTS needed)
  find_needed(file ${name})
  symbols(defined ${file} "A-Za-z" --defined-only)
  if(NOT defined)
    message(FATAL_ERROR "no symbols in ${file}")
  endif()
  list(REMOVE_ITEM undefined ${defined})
endforeach()
list(SORT undefined)
if(NOT undefined STREQUAL platform_symbols)
  message(SEND_ERROR "provided by none of ${needed}: ${undefined}")
endif()

run(${CMAKE_COMMAND} -DNM=${NM} -DLIBRARY=${library} -P ${SOURCE}/tests/check-symbols.cmake)

# ---- A program -----------------------------------------------------------------------------------

execute_process(COMMAND ${CMAKE_COMMAND} -G Ninja -S ${SOURCE}/tests/device/program
    -B ${WORK}/program ${settings} -Doxil_DIR=${WORK}/prefix/lib/cmake/oxil
    "-DPLATFORM_LIBRARIES=${platform_libraries}"
  COMMAND_ERROR_IS_FATAL ANY)
run(${CMAKE_COMMAND} --build ${WORK}/program)

set(on_device ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${WORK}/prefix/lib:${WORK}/platform/lib
  ${EMULATOR})
execute_process(COMMAND ${on_device} ${WORK}/program/device-program
  OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(CONCAT expected
  "^dlog: 0 6 OX OxKeyValues[.]cpp: getKeyValue[(][0-9]+[)] > Invalid key [(]question[)]\n"
  "system_info: example[.]org/feature/screen[.]width\n"
  "system_info: example[.]org/feature/screen[.]height\n"
  "screen: 321 x 654\n$")
if(NOT output MATCHES "${expected}")
  message(SEND_ERROR "the program printed:\n${output}")
endif()

# A test's capture stands before the platform's logger.
execute_process(COMMAND ${on_device} ${WORK}/program/device-capture
  OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
if(NOT output STREQUAL "captured: Invalid key (question)\n")
  message(SEND_ERROR "the capture printed:\n${output}")
endif()
