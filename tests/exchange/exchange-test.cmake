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
    if(NOT results STREQUAL "0;0" OR
       NOT received MATCHES "^([^:]+): [1-9][0-9]* messages with [1-9][0-9]* payloads\n$")
      message(FATAL_ERROR "from ${sender} to ${receiver}: ${results} ${received}")
    endif()
    set(kind_of_${receiver} ${CMAKE_MATCH_1})
    message("from ${sender} to ${receiver}: ${received}")
  endforeach()
endforeach()
if(WORK AND kind_of_host STREQUAL kind_of_own)
  message(FATAL_ERROR "these are not two kinds of process: ${kind_of_host}")
endif()

set(asking own)
set(ask ${EMULATOR} ${CHANNEL_PEER})
if(WORK)
  set(asking host)
  set(ask ${WORK}/channel-peer)
endif()
execute_process(COMMAND ${ask} ask ${EMULATOR} ${CHANNEL_PEER} answer
  RESULT_VARIABLE result OUTPUT_VARIABLE said)
message("over a channel: ${said}")
set(expected "^${kind_of_${asking}} and ${kind_of_own}: [1-9][0-9]* requests each way\n$")
if(NOT result STREQUAL "0" OR NOT said MATCHES "${expected}")
  message(FATAL_ERROR "over a channel: ${result}, and not ${expected}")
endif()
