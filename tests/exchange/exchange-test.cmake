# Every payload goes through a pipe from one process to another: between two of this build, and, when
# it is cross-compiled, between one of the host and one under the emulator, both ways. Then two talk
# to each other over a channel.
#
# cmake -DPEER=... -DCHANNEL_PEER=... [-DSOURCE=... -DWORK=... -DEMULATOR=...] -P exchange-test.cmake

set(peers own)
set(own ${EMULATOR} ${PEER})
if(WORK)
  list(APPEND peers host)
  set(host ${WORK}/exchange-peer)
  # Neither the compilers nor the packages of the build that this test belongs to.
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=PKG_CONFIG_LIBDIR
      --unset=PKG_CONFIG_SYSROOT_DIR ${CMAKE_COMMAND} -G Ninja -S ${SOURCE} -B ${WORK}
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK} COMMAND_ERROR_IS_FATAL ANY)
endif()

foreach(sender IN LISTS peers)
  foreach(receiver IN LISTS peers)
    execute_process(COMMAND ${${sender}} send COMMAND ${${receiver}} receive
      RESULTS_VARIABLE results OUTPUT_VARIABLE received)
    if(NOT results STREQUAL "0;0" OR NOT received MATCHES "messages with [1-9][0-9]* payloads\n$")
      message(FATAL_ERROR "from ${sender} to ${receiver}: ${results} ${received}")
    endif()
    message("from ${sender} to ${receiver}: ${received}")
    list(APPEND widths ${received})
  endforeach()
endforeach()
if(WORK AND NOT widths MATCHES "32-bit.*64-bit.*32-bit.*64-bit")
  message(FATAL_ERROR "these are not two kinds of process: ${widths}")
endif()

set(asking ${EMULATOR} ${CHANNEL_PEER})
if(WORK)
  set(asking ${WORK}/channel-peer)
endif()
execute_process(COMMAND ${asking} ask ${EMULATOR} ${CHANNEL_PEER} answer
  RESULT_VARIABLE result OUTPUT_VARIABLE said)
message("over a channel: ${said}")
if(NOT result STREQUAL "0" OR NOT said MATCHES "process: [1-9][0-9]* requests each way\n$")
  message(FATAL_ERROR "over a channel: ${result}")
endif()
if(WORK AND NOT said MATCHES "64-bit and 32-bit|32-bit and 64-bit")
  message(FATAL_ERROR "these are not two kinds of process")
endif()
