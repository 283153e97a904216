# What the library exports is its own namespace, and it leaves to others what others may replace.
#
# cmake -DNM=... -DLIBRARY=... -P check-symbols.cmake

cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${NM} -D --defined-only --demangle ${LIBRARY}
  OUTPUT_VARIABLE defined COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "\n$" "" defined "${defined}")
string(REPLACE ";" "," defined "${defined}")
string(REPLACE "\n" ";" defined "${defined}")
list(LENGTH defined count)
if(count LESS 50)
  message(FATAL_ERROR "only ${count} exported symbols")
endif()
# Members for the class itself that are part of the binary interface: they are promised, or what is
# inline in a header calls them.
set(promised __bind __calculateHSV __calculateRGB __call __cancelTimer __check __findValue __fit
  __getNativeDocument __getNativeNode __getNativeStyleSheet __getTypeSize __initInstance __instance
  __keep __loadLuaApi __logLoss __onCharacters __onEndElement __onExactCharacters __onStartElement
  __onTimerExpired __once __parse __pushItems __pushOrLog __pushPlain __pushProtected __readItems
  __readPlain __runTimerExpired __setXmlStyleSheet __start __startRunTimer __startWaitTimer
  __timerExpired __waitTimerExpired)
set(own "^[0-9a-f]+ [A-Za-z] ((typeinfo|typeinfo name|vtable) for )?oxil::")
foreach(symbol IN LISTS defined)
  if(NOT symbol MATCHES "${own}")
    message(SEND_ERROR "exported, but not the library's own: ${symbol}")
  elseif(symbol MATCHES "${own}(internal|[(]anonymous)")  # which its parameters may be
    message(SEND_ERROR "exported, but internal: ${symbol}")
  elseif(symbol MATCHES "^[0-9a-f]+ [A-Za-z] oxil::[A-Za-z]+::(__[A-Za-z]+)" AND NOT CMAKE_MATCH_1 IN_LIST promised)
    message(SEND_ERROR "exported, but for the class itself; OXIL_LOCAL hides it: ${symbol}")
  endif()
endforeach()

execute_process(COMMAND ${NM} -D --undefined-only ${LIBRARY}
  OUTPUT_VARIABLE undefined COMMAND_ERROR_IS_FATAL ANY)
foreach(symbol IN ITEMS malloc free __dlog_print _ZnwjRKSt9nothrow_t|_ZnwmRKSt9nothrow_t)
  if(NOT undefined MATCHES " U (${symbol})(@[^\n]*)?\n")
    message(SEND_ERROR "not left to be replaced: ${symbol}")
  endif()
endforeach()
