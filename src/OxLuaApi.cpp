#include "OxLuaApi.h"

#include "OxLog.h"
#include "OxLua.h"
#include "OxLuaScript.h"
#include "OxLuaStack.h"
#include "OxStatus.h"

namespace oxil {
namespace {

/** Arguments: name and functions, as light userdata. Result: the table. */
int registerTable(lua_State* state)
{
    const auto* name = static_cast<const char*>(lua_touserdata(state, 1));
    const auto* functions = static_cast<const luaL_Reg*>(lua_touserdata(state, 2));
    luaL_register(state, name, functions);
    return 1;
}

}  // namespace

LuaApi::LuaApi() : __luaScript(nullptr), __loaded(false) {}

LuaApi::~LuaApi() = default;

int LuaApi::onUnloading()
{
    return 0;
}

int LuaApi::load(LuaScript* script)
{
    if (script == nullptr) {
        OX_ERROR("Invalid parameter");
        return STATUS_INVALID_PARAMETER;
    }
    __luaScript = script;

    const int r = onLoading();
    if (r != 0) {
        OX_ERROR("%d", r);
        return r;
    }
    __loaded = true;
    return STATUS_SUCCESS;
}

int LuaApi::unload()
{
    const int r = onUnloading();
    if (r != 0) {
        OX_ERROR("%d", r);
        return r;
    }
    __loaded = false;
    return STATUS_SUCCESS;
}

bool LuaApi::isLoaded() const
{
    return __loaded;
}

LuaScript* LuaApi::getLuaScript() const
{
    return __luaScript;
}

void LuaApi::registerApiTable(const std::string& name, const luaL_Reg* functions)
{
    if (name.empty()) {
        OX_ERROR("Invalid parameter");
        return;
    }
    if (functions == nullptr) {
        OX_ERROR("Invalid parameter");
        return;
    }
    if (__luaScript == nullptr) {
        OX_ERROR("Invalid state");
        return;
    }
    lua_State* state = __luaScript->getLuaState();
    if (state == nullptr || !internal::reserveLuaStack(state, 3)) {
        OX_ERROR("Invalid state");
        return;
    }

    // A name that is taken makes luaL_register() raise an error, which ends the process outside a
    // protected call.
    lua_pushcfunction(state, registerTable);
    lua_pushlightuserdata(state, const_cast<char*>(name.c_str()));
    lua_pushlightuserdata(state, const_cast<luaL_Reg*>(functions));
    if (lua_pcall(state, 2, 1, 0) != 0) {
        lua_pop(state, 1);
        OX_ERROR("Invalid state");
    }
}

}  // namespace oxil
