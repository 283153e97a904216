# Runs an example as a test.
#
# add_example_test(NAME TARGET [ARGUMENT...] PRINTS REGEX [COMPLAINS REGEX] [STATUS STATUS])
#
# The program has to end with the status, 0 unless told otherwise, and print exactly what PRINTS is
# the pattern of; COMPLAINS is looked for in what it writes to the standard error output.
function(add_example_test name target)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "PRINTS;COMPLAINS;STATUS" "")
  if(NOT arg_STATUS)
    set(arg_STATUS 0)
  endif()
  set(command ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}> ${arg_UNPARSED_ARGUMENTS})
  add_test(NAME ${name} COMMAND ${CMAKE_COMMAND} "-DCOMMAND=${command}" -DSTATUS=${arg_STATUS}
    "-DPRINTS=^${arg_PRINTS}$" "-DCOMPLAINS=${arg_COMPLAINS}"
    -P ${CMAKE_CURRENT_FUNCTION_LIST_FILE})
  # A sanitizer would tell of the leaks that it has been told of.
  set_tests_properties(${name} PROPERTIES TIMEOUT 60 ENVIRONMENT LSAN_OPTIONS=print_suppressions=0)
endfunction()

if(NOT CMAKE_SCRIPT_MODE_FILE)
  return()
endif()

execute_process(COMMAND ${COMMAND} RESULT_VARIABLE status OUTPUT_VARIABLE output
  ERROR_VARIABLE errors)
message("${output}${errors}")
if(NOT status STREQUAL STATUS)
  message(SEND_ERROR "it ended with ${status}, not with ${STATUS}")
endif()
if(NOT output MATCHES "${PRINTS}")
  message(SEND_ERROR "it printed something else than ${PRINTS}")
endif()
if(NOT errors MATCHES "${COMPLAINS}")
  message(SEND_ERROR "it did not complain about ${COMPLAINS}")
endif()
