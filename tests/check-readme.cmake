# README.md shows a program; it is the one that is built and run.
#
# cmake -DSOURCE=... -P check-readme.cmake

file(READ ${SOURCE}/README.md readme)
file(READ ${SOURCE}/examples/readme/main.cpp program)
string(FIND "${readme}" "```cpp\n${program}```" place)
if(place EQUAL -1)
  message(FATAL_ERROR "README.md does not show examples/readme/main.cpp as it is")
endif()
