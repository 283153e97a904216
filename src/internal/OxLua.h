#pragma once

// The C headers of Lua 5.1, for the C build of Lua.
extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}
