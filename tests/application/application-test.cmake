# Builds the manual's application with one of its two projects as an application's author does: alone,
# with the installed library, on a host or for a device; runs its tests; and sees that what gets to the
# device is what doc/application.md says, and runs there.
#
# cmake -DPROJECT=cmake|meson -DBUILD=... -DSOURCE=... -DWORK=... -DCXX=... -DREADELF=... [-DSTAND_INS=1]
#   [-DTOOLCHAIN=... -DTRIPLET=... -DSYSROOT=... -DEMULATOR=...] -P application-test.cmake

cmake_minimum_required(VERSION 3.25)
include(${SOURCE}/tests/support/Commands.cmake)

if(PROJECT STREQUAL meson)
  find_program(meson meson)
  if(NOT meson)
    message(STATUS "Skipped: there is no meson.")
    return()
  endif()
endif()

file(REMOVE_RECURSE ${WORK})
file(COPY ${SOURCE}/examples/application DESTINATION ${WORK})
set(application ${WORK}/application)
set(device ${WORK}/device)

# ---- The toolchain files -------------------------------------------------------------------------

# They are for one triplet, and the page's table says which words are others for another one.
set(page ${SOURCE}/doc/application.md)

# words(VARIABLE TRIPLET): of the row that begins with it
function(words variable triplet)
  file(STRINGS ${page} row REGEX "^[|] `${triplet}` [|]")
  string(REGEX MATCHALL "`[^`]+`" row "${row}")
  list(TRANSFORM row REPLACE "`" "")
  list(LENGTH row count)
  if(NOT count EQUAL 5)
    message(FATAL_ERROR "doc/application.md says of ${triplet}: ${row}")
  endif()
  set(${variable} "${row}" PARENT_SCOPE)
endfunction()

if(TOOLCHAIN)
  words(from arm-linux-gnueabihf)
  words(to ${TRIPLET})
  foreach(suffix IN ITEMS cmake ini)
    file(READ ${application}/arm-linux-gnueabihf.${suffix} content)
    foreach(word other IN ZIP_LISTS from to)
      string(REPLACE ${word} ${other} content "${content}")
    endforeach()
    file(WRITE ${application}/${TRIPLET}.${suffix} "${content}")
  endforeach()
endif()

# ---- The library ---------------------------------------------------------------------------------

if(TOOLCHAIN)
  # A sysroot of its own, because the library gets into it.
  set(sysroot ${WORK}/sysroot)
  execute_process(COMMAND cp -al ${SYSROOT} ${sysroot} RESULT_VARIABLE r ERROR_QUIET)
  if(NOT r EQUAL 0)  # on another disk
    file(REMOVE_RECURSE ${sysroot})
    run(cp -a ${SYSROOT} ${sysroot})
  endif()
  run(${CMAKE_COMMAND} -E env DESTDIR=${sysroot} ${CMAKE_COMMAND} --install ${BUILD} --prefix /usr)
  set(library_path ${sysroot}/usr/lib)
else()
  run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
  set(library_path ${WORK}/prefix/lib)
endif()
run(${CMAKE_COMMAND} -E env DESTDIR=${device} ${CMAKE_COMMAND} --install ${BUILD} --prefix /usr
  --component oxil-runtime --strip)

# ---- The application -----------------------------------------------------------------------------

set(build ${WORK}/build)
set(environment ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${library_path})
if(PROJECT STREQUAL cmake)
  if(TOOLCHAIN)
    set(settings --toolchain ${application}/${TRIPLET}.cmake -DSYSROOT=${sysroot})
  else()
    set(settings -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${WORK}/prefix)
  endif()
  run(${CMAKE_COMMAND} -G Ninja -S ${application} -B ${build} ${settings})
  run(${CMAKE_COMMAND} --build ${build})
  run(${environment} ${CMAKE_CTEST_COMMAND} --test-dir ${build} --output-on-failure
    --no-tests=error)
  run(${CMAKE_COMMAND} -E env DESTDIR=${device} ${CMAKE_COMMAND} --install ${build} --prefix /usr
    --strip)
else()
  if(TOOLCHAIN)
    file(WRITE ${WORK}/sysroot.ini "[constants]\nsysroot = '${sysroot}'\n")
    set(settings --cross-file ${WORK}/sysroot.ini
      --cross-file ${application}/${TRIPLET}.ini)
  else()
    list(APPEND environment CXX=${CXX} PKG_CONFIG_PATH=${WORK}/prefix/lib/pkgconfig)
  endif()
  run(${environment} ${meson} setup --prefix /usr ${settings} ${build} ${application})
  run(${meson} compile -C ${build})
  run(${environment} ${meson} test -C ${build} --print-errorlogs)
  run(${meson} install -C ${build} --no-rebuild --destdir ${device} --strip)
endif()

# ---- The device ----------------------------------------------------------------------------------

# table(VARIABLE PATTERN): the first column of those rows of the page that begin with it
function(table variable pattern)
  file(STRINGS ${page} rows REGEX "^[|] `${pattern}[^`]*` [|]")
  list(TRANSFORM rows REPLACE "^[|] `([^`]*)`.*$" "\\1")
  list(SORT rows)
  set(${variable} "${rows}" PARENT_SCOPE)
endfunction()

# What a build with the stand-ins has in addition, is not needed where there is a platform.
set(stand_ins "liboxil-platform[.]so[.]0")

file(GLOB_RECURSE files RELATIVE ${device} ${device}/*)
list(TRANSFORM files PREPEND /)
list(SORT files)
if(STAND_INS AND NOT files MATCHES "/usr/lib/${stand_ins}")
  message(SEND_ERROR "without the stand-ins: ${files}")
endif()
list(FILTER files EXCLUDE REGEX "${stand_ins}")
table(expected /usr/)
if(NOT files STREQUAL expected)
  message(SEND_ERROR "on the device are ${files}, and doc/application.md says ${expected}")
endif()

set(needed "")
foreach(file IN ITEMS bin/nightlight lib/liboxil.so.0)
  dynamic_entries(entries ${device}/usr/${file} NEEDED)
  list(APPEND needed ${entries})
  dynamic_entries(search_path ${device}/usr/${file} "RPATH|RUNPATH")
  if(search_path AND NOT search_path STREQUAL "\$ORIGIN")
    message(SEND_ERROR "${file} looks for libraries in ${search_path}")
  endif()
endforeach()
lines(loader ${CMAKE_COMMAND} -E env LC_ALL=C ${READELF} -l -W ${device}/usr/bin/nightlight)
list(FILTER loader INCLUDE REGEX "program interpreter: ")
string(REGEX REPLACE ".*/([^/]+)\\]$" "\\1" loader "${loader}")
list(APPEND needed ${loader})
list(REMOVE_DUPLICATES needed)
list(SORT needed)
list(FILTER needed EXCLUDE REGEX "^(liboxil[.]so[.]0|${stand_ins})$")
if(TOOLCHAIN)  # what the host's are called does not matter
  table(expected "[^/`]*[.]so[.]")
  foreach(word other IN ZIP_LISTS from to)
    list(TRANSFORM expected REPLACE "^${word}$" ${other})
  endforeach()
  list(SORT expected)
  if(NOT needed STREQUAL expected)
    message(SEND_ERROR "needed are ${needed}, and doc/application.md says ${expected}")
  endif()
endif()

# Elsewhere than where it was built, and without the sysroot that it was built with.
file(REMOVE_RECURSE ${build} ${application} ${WORK}/prefix ${WORK}/sysroot)
set(nightlight env LD_LIBRARY_PATH=${device}/usr/lib
  ${EMULATOR} ${device}/usr/bin/nightlight)
execute_process(COMMAND ${nightlight} 10
  OUTPUT_VARIABLE output ERROR_VARIABLE log COMMAND_ERROR_IS_FATAL ANY)
if(NOT output STREQUAL "60 %\n40 %\n20 %\n0 %\n" OR NOT log MATCHES "print[(][0-9]+[)] > good night\n$")
  message(SEND_ERROR "the application printed:\n${output}and logged:\n${log}")
endif()

# It ends when it is told to: after its first step here.
execute_process(
  COMMAND sh -c "\"$@\" >${WORK}/output & until grep -qs % ${WORK}/output; do sleep 0.05; done; \
kill $!; wait $!" sh ${nightlight} 1000
  COMMAND_ERROR_IS_FATAL ANY TIMEOUT 60)
file(READ ${WORK}/output output)
if(NOT output STREQUAL "60 %\n")
  message(SEND_ERROR "told to end, the application printed:\n${output}")
endif()
