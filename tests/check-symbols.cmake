# What the library exports is its own namespace, and it leaves to others what others may replace.
#
# cmake -DNM=... -DLIBRARY=... -P check-symbols.cmake

execute_process(COMMAND ${NM} -D --defined-only --demangle ${LIBRARY}
  OUTPUT_VARIABLE defined COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "\n$" "" defined "${defined}")
string(REPLACE ";" "," defined "${defined}")
string(REPLACE "\n" ";" defined "${defined}")
list(LENGTH defined count)
if(count LESS 50)
  message(FATAL_ERROR "only ${count} exported symbols")
endif()
foreach(symbol IN LISTS defined)
  if(NOT symbol MATCHES "^[0-9a-f]+ [A-Za-z] ((typeinfo|typeinfo name|vtable) for )?oxil::")
    message(SEND_ERROR "exported, but not the library's own: ${symbol}")
  elseif(symbol MATCHES "oxil::(internal|[(]anonymous)")
    message(SEND_ERROR "exported, but internal: ${symbol}")
  endif()
endforeach()

execute_process(COMMAND ${NM} -D --undefined-only ${LIBRARY}
  OUTPUT_VARIABLE undefined COMMAND_ERROR_IS_FATAL ANY)
foreach(symbol IN ITEMS malloc free __dlog_print _ZnwjRKSt9nothrow_t|_ZnwmRKSt9nothrow_t)
  if(NOT undefined MATCHES " U (${symbol})(@[^\n]*)?\n")
    message(SEND_ERROR "not left to be replaced: ${symbol}")
  endif()
endforeach()
