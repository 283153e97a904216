# What scripts that are tests have in common.

# run(COMMAND...): it has to succeed
function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# lines(VARIABLE COMMAND...): the lines that a command prints
function(lines variable)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE ";" "," output "${output}")
  string(REPLACE "\n" ";" output "${output}")
  set(${variable} "${output}" PARENT_SCOPE)
endfunction()

# dynamic_entries(VARIABLE FILE TAG): values of the dynamic section's entries of this kind
function(dynamic_entries variable file tag)
  lines(entries ${CMAKE_COMMAND} -E env LC_ALL=C ${READELF} -d -W ${file})
  list(FILTER entries INCLUDE REGEX "\\((${tag})\\).*\\[.*\\]$")
  list(TRANSFORM entries REPLACE ".*\\[(.*)\\]$" "\\1")
  set(${variable} "${entries}" PARENT_SCOPE)
endfunction()
