#pragma once

#include "internal/OxLua.h"

namespace oxil::internal {

/**
 * Does what luaL_register() does, but all of it or nothing: pushes a global table with these
 * functions in it, or raises an error and leaves everything as it was. Needs 10 free places on the
 * Lua stack.
 */
void registerLuaTable(lua_State* state, const char* name, const luaL_Reg* functions);

}  // namespace oxil::internal
