# What GDB shows of values and records, and that it finds out how by itself: beside the library in the
# build tree, and where the library is installed. Cross-compiled, the program runs under the emulator,
# and GDB talks to that.
#
# cmake -DGDB=... -DPROGRAM=... -DBUILD=... -DWORK=... [-DSYSROOT=... -DEMULATOR=...]
#   -P debugger-test.cmake

cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

set(prints [[
print kinds
print longText
print entry
print nothing
print lamp
print described
print message
print orange
print corner
print size
print area
]])
file(READ ${CMAKE_CURRENT_LIST_DIR}/shown.txt shown)

# see(WHERE LIBRARIES TRUSTED...): debugs the program with the libraries of a folder
function(see where libraries)
  if(EMULATOR)
    set(socket ${WORK}/${where}.socket)
    set(started "set sysroot ${SYSROOT}\nset solib-search-path ${libraries}
shell until [ -S ${socket} ]; do sleep 0.05; done
target remote ${socket}\nbreak stop\ncontinue")
    set(program ${EMULATOR} -E LD_LIBRARY_PATH=${libraries} -g ${socket} ${PROGRAM})
    set(running COMMAND ${program})
  else()
    set(started "set environment LD_LIBRARY_PATH ${libraries}\nbreak stop\nrun")
    set(running)
  endif()
  set(trusting)
  foreach(folder IN LISTS ARGN)
    list(APPEND trusting -iex "add-auto-load-safe-path ${folder}"
      -iex "add-auto-load-scripts-directory ${folder}")
  endforeach()
  file(WRITE ${WORK}/${where}.gdb
    "set print pretty off\nset width 0\n${started}\nup\n${prints}\nkill\n")
  execute_process(
    ${running}
    COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C ${GDB} -nx -batch ${trusting}
      -x ${WORK}/${where}.gdb ${PROGRAM}
    OUTPUT_VARIABLE output ERROR_VARIABLE output TIMEOUT 60)
  if(output MATCHES "ptrace: Operation not permitted")
    message("Skipped: nothing may be debugged here.")
    return()
  endif()
  string(FIND "${output}" "${shown}" place)
  if(place EQUAL -1)
    message(FATAL_ERROR "${where}: GDB should have said\n\n${shown}\nbut said\n\n${output}")
  endif()
  message("${where}: as it should be")
endfunction()

see(built ${BUILD} ${BUILD})
see(installed ${WORK}/prefix/lib ${WORK}/prefix/share/gdb/auto-load)
