#pragma once

#include "OxLua.h"

namespace oxil::internal {

/**
 * Prepares a new state for the functions below; false if there is no memory for it.
 *
 * They ask Lua for memory, and a collection may come with that, which runs the script's finalizers.
 * Whatever fails there must not leave by `longjmp` past the C++ that called; so it happens inside
 * protected calls, of functions that are made here once.
 */
bool prepareLuaState(lua_State* state);

/** What reserveLuaStack() does beyond 8000 values. */
bool reserveDeepLuaStack(lua_State* state, int count);

/**
 * Makes room for values on the Lua stack; false if there can't be any.
 *
 * `lua_checkstack` alone refuses at 8000 values, which a script with failing functions reaches:
 * each failed call leaves a message behind.
 */
inline bool reserveLuaStack(lua_State* state, int count)
{
    return lua_checkstack(state, count) != 0 || reserveDeepLuaStack(state, count);
}

// The following need 3 free places on the Lua stack.

/** Pushes a text; false, with nothing pushed, if Lua fails. */
bool pushLuaText(lua_State* state, const char* text);

/** Pushes the text of a number; false, with nothing pushed, if Lua fails. */
bool pushLuaTextOf(lua_State* state, lua_Number number);

/** Pushes a global; if a metatable of the globals raises an error, pushes that: false. */
bool pushLuaGlobal(lua_State* state, const char* name);

/** Replaces the error on top by a function that raises it; false, with the error left, if Lua
 *  fails. */
bool makeLuaRaise(lua_State* state);

/** Registers functions in a global table and pushes that; false, with nothing pushed, if Lua
 *  fails: the name may be taken by something that is no table. */
bool pushLuaTable(lua_State* state, const char* name, const luaL_Reg* functions);

}  // namespace oxil::internal
