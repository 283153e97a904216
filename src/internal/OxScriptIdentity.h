#pragma once

#include <cstdint>

struct lua_State;

namespace oxil {

class LuaScript;

namespace internal {

/**
 * What tells a script from all others that the process ever had; 0 is nobody's.
 *
 * The address of a Lua state does not: the next one gets the memory of one that was closed.
 */
using ScriptIdentity = std::uint64_t;

/** The identity of the script that a state belongs to, 0 if there is none. */
ScriptIdentity getScriptIdentity(lua_State* state);

/** The script that a state belongs to; null after logging "Invalid state" if there is none, or
 *  another one than the script with this identity. */
LuaScript* getLuaScript(lua_State* state, ScriptIdentity identity);

}  // namespace internal
}  // namespace oxil
