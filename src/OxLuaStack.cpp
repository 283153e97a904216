#include "OxLuaStack.h"

namespace oxil::internal {
namespace {

int reserve(lua_State* state)
{
    luaL_checkstack(state, *static_cast<int*>(lua_touserdata(state, 1)), "too many values");
    return 0;
}

// ---- Functions that are kept in each state
//
// They are given pointers as light userdata, which needs no memory.

const char* toText(lua_State* state, int argument)
{
    return static_cast<const char*>(lua_touserdata(state, argument));
}

int makeText(lua_State* state)
{
    lua_pushstring(state, toText(state, 1));
    return 1;
}

int makeTextOf(lua_State* state)
{
    lua_tostring(state, 1);  // in place
    return 1;
}

int getGlobal(lua_State* state)
{
    lua_getfield(state, LUA_GLOBALSINDEX, toText(state, 1));
    return 1;
}

/** Raises the error that is its upvalue. */
int raise(lua_State* state)
{
    lua_pushvalue(state, lua_upvalueindex(1));
    return lua_error(state);
}

int makeRaise(lua_State* state)
{
    lua_pushcclosure(state, raise, 1);
    return 1;
}

int registerTable(lua_State* state)
{
    luaL_register(state, toText(state, 1), static_cast<const luaL_Reg*>(lua_touserdata(state, 2)));
    return 1;
}

constexpr lua_CFunction KEPT[] = {makeText, makeTextOf, getGlobal, makeRaise, registerTable};
enum Kept { TEXT, TEXT_OF, GLOBAL, RAISE, TABLE };

/** The key of a kept function in the registry: an address that is nobody else's. */
void* keyOf(Kept function)
{
    return const_cast<lua_CFunction*>(&KEPT[function]);
}

int prepare(lua_State* state)
{
    for (const lua_CFunction& function : KEPT) {
        lua_pushlightuserdata(state, const_cast<lua_CFunction*>(&function));
        lua_pushcfunction(state, function);
        lua_rawset(state, LUA_REGISTRYINDEX);
    }
    return 0;
}

void pushKept(lua_State* state, Kept function)
{
    lua_pushlightuserdata(state, keyOf(function));
    lua_rawget(state, LUA_REGISTRYINDEX);
}

void pushPointer(lua_State* state, const void* pointer)
{
    lua_pushlightuserdata(state, const_cast<void*>(pointer));
}

/** Calls a kept function with one argument; false, with nothing left, if it failed. */
template <typename PushArgument>
bool make(lua_State* state, Kept function, const PushArgument& pushArgument)
{
    constexpr int ATTEMPTS = 100;

    for (int i = 0; i < ATTEMPTS; ++i) {
        pushKept(state, function);
        pushArgument();
        const int status = lua_pcall(state, 1, 1, 0);
        if (status == 0) {
            return true;
        }
        lua_pop(state, 1);
        if (status != LUA_ERRRUN) {
            return false;
        }
        // It was a finalizer that failed. It has had its turn, so there is a point in going on.
    }
    return false;
}

}  // namespace

bool prepareLuaState(lua_State* state)
{
    return lua_cpcall(state, prepare, nullptr) == 0;
}

bool reserveDeepLuaStack(lua_State* state, int count)
{
    // The limit counts from the frame of the running function, so a function of its own can go on.
    // What it needs itself is in the few slots that Lua always keeps in reserve.
    if (lua_cpcall(state, reserve, &count) != 0) {
        lua_pop(state, 1);
        return false;
    }
    return true;
}

bool pushLuaText(lua_State* state, const char* text)
{
    return make(state, TEXT, [=] { pushPointer(state, text); });
}

bool pushLuaTextOf(lua_State* state, lua_Number number)
{
    return make(state, TEXT_OF, [=] { lua_pushnumber(state, number); });
}

bool pushLuaGlobal(lua_State* state, const char* name)
{
    pushKept(state, GLOBAL);
    pushPointer(state, name);
    return lua_pcall(state, 1, 1, 0) == 0;
}

bool makeLuaRaise(lua_State* state)
{
    if (!make(state, RAISE, [=] { lua_pushvalue(state, -2); })) {
        return false;
    }
    lua_remove(state, -2);
    return true;
}

bool pushLuaTable(lua_State* state, const char* name, const luaL_Reg* functions)
{
    pushKept(state, TABLE);
    pushPointer(state, name);
    pushPointer(state, functions);
    if (lua_pcall(state, 2, 1, 0) != 0) {
        lua_pop(state, 1);
        return false;
    }
    return true;
}

}  // namespace oxil::internal
