#pragma once

#include "internal/OxLua.h"

namespace oxil::internal {

/**
 * Does what luaL_register() does, but all of it or nothing: pushes a global table with these
 * functions in it, or raises an error and leaves everything as it was. Needs 10 free places on the
 * Lua stack.
 */
void registerLuaTable(lua_State* state, const char* name, const luaL_Reg* functions);

/** The same for one function, which is on top: it becomes a field of that table, or a global if there is
 *  no table. What it pushes stays on the stack. */
void registerLuaFunction(lua_State* state, const char* table, const char* name);

}  // namespace oxil::internal
