#include "NativeApi.h"

#include <OxLuaGuard.h>
#include <OxLuaScript.h>

#include <lua.hpp>

namespace oxil::test {
namespace {

constexpr luaL_Reg NOTHING[] = {{nullptr, nullptr}};

int run(lua_State* state)
{
    const auto* api = static_cast<NativeApi*>(lua_touserdata(state, lua_upvalueindex(1)));
    const char* text = luaL_optstring(state, 1, "");

    LuaGuard guard(state);
    if (!guard.run([&] { api->body(state, text); })) {
        return guard.raise();
    }
    return 0;
}

}  // namespace

int NativeApi::onLoading()
{
    ++loads;
    whenLoading();
    registerApiTable(table, NOTHING);

    lua_State* state = getLuaScript()->getLuaState();
    if (state != nullptr) {
        // With a value of its own, which the functions of a plain list can't have.
        lua_pushlightuserdata(state, this);
        lua_pushcclosure(state, run, 1);
        lua_setfield(state, -2, "run");
    }
    return loadResult;
}

int NativeApi::onUnloading()
{
    ++unloads;
    return unloadResult;
}

}  // namespace oxil::test
