#pragma once

#include "internal/OxLua.h"
#include "internal/OxProtectedCall.h"

namespace oxil::internal {

/**
 * Opens the standard libraries in a new state and prepares it for the functions below; false if
 * there is no memory for that.
 *
 * They ask Lua for memory, and a collection may come with that, which runs the script's finalizers.
 * Whatever fails there must not leave by `longjmp` past the C++ that called; so it happens inside
 * protected calls, of functions that are made here once.
 */
bool prepareLuaState(lua_State* state);

/** What reserveLuaStack() does beyond the values that every function may push. */
bool growLuaStack(ProtectedCall& call, int count);

/** Puts the stack back to where it was, whatever happens. */
class LuaStackTop {
public:
    explicit LuaStackTop(lua_State* state) noexcept : __state(state), __top(lua_gettop(state)) {}
    ~LuaStackTop() { lua_settop(__state, __top); }

    LuaStackTop(const LuaStackTop&) = delete;
    LuaStackTop& operator=(const LuaStackTop&) = delete;

private:
    lua_State* __state;
    int __top;
};

/** Whether there is room for values without asking for it: what every function may push. */
inline bool hasLuaStack(lua_State* state, int count)
{
    return count <= LUA_MINSTACK - lua_gettop(state);
}

/** Makes room for values on the Lua stack; false if there can't be any. */
inline bool reserveLuaStack(ProtectedCall& call, int count)
{
    return hasLuaStack(call.getState(), count) || growLuaStack(call, count);
}

// The following need 4 free places on the Lua stack.

/** Pushes a text; false, with nothing pushed, if Lua fails. */
bool pushLuaText(ProtectedCall& call, const char* text);

/** Pushes the text of a number; false, with nothing pushed, if Lua fails. */
bool pushLuaTextOf(ProtectedCall& call, lua_Number number);

/** Pushes a global whose name is known from before; false, with nothing pushed, if it is not, or there
 *  is no such global. Runs nothing and needs no memory. */
bool pushKnownLuaGlobal(lua_State* state, const char* name);

/** Pushes a global, or the error that kept it from being found; the status of `lua_pcall`. Its name
 *  is known from then on. */
int pushLuaGlobal(ProtectedCall& call, const char* name);

/** Pushes the function that is in a file, or the error that kept it from being loaded: false. */
bool pushLuaFile(ProtectedCall& call, const char* filePath);

/** Replaces the error on top by a function that raises it; false, with the error left, if Lua
 *  fails. */
bool makeLuaRaise(ProtectedCall& call);

/** Registers functions in a global table and pushes that; false, with nothing pushed, if Lua
 *  fails: the name may be taken by something that is no table. */
bool pushLuaTable(ProtectedCall& call, const char* name, const luaL_Reg* functions);

/** What is to be done inside a protected call: it may raise a Lua error, and returns how many results
 *  it has pushed. It has the 20 places on the stack that each function has. */
struct LuaRequest {
    int (*run)(lua_State* state, const void* data);
    const void* data;
};

/** Pushes a function that does it, and its one argument, which has to be there for the call. Needs two
 *  free places. */
void pushLuaRequest(lua_State* state, const LuaRequest* request);

/** Pushes a global, for a request: what fails there is raised. Its name is known from then on. */
void getLuaGlobal(lua_State* state, const char* name);

/** Pushes the message handler of ProtectedCall. Needs one free place, as the next one. */
void pushLuaErrorHandler(lua_State* state);

/** Pushes what was `debug.traceback` when the state was made. Needs one free place. */
void pushLuaTraceback(lua_State* state);

/** Pushes a function that fails as a call does for which the C stack is too deep. */
void pushLuaOverflow(lua_State* state);

}  // namespace oxil::internal
