#include "OxLuaStack.h"

namespace oxil::internal {
namespace {

int reserve(lua_State* state)
{
    luaL_checkstack(state, *static_cast<int*>(lua_touserdata(state, 1)), "too many values");
    return 0;
}

}  // namespace

bool reserveLuaStack(lua_State* state, int count)
{
    if (lua_checkstack(state, count) != 0) {
        return true;
    }
    // The limit counts from the frame of the running function, so a function of its own can go on.
    // What it needs itself is in the few slots that Lua always keeps in reserve.
    if (lua_cpcall(state, reserve, &count) != 0) {
        lua_pop(state, 1);
        return false;
    }
    return true;
}

}  // namespace oxil::internal
