#include "OxLuaApi.h"

#include "OxLog.h"
#include "OxLuaScript.h"
#include "OxStatus.h"
#include "internal/OxLuaStack.h"

namespace oxil {

LuaApi::LuaApi() = default;

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
    if (state == nullptr) {
        OX_ERROR("Invalid state");
        return;
    }

    internal::ProtectedCall call(state);
    if (!internal::reserveLuaStack(call, 4) ||
        !internal::pushLuaTable(call, name.c_str(), functions)) {
        OX_ERROR("Invalid state");
    }
}

}  // namespace oxil
