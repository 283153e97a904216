#include "OxLuaApi.h"

#include <memory>

#include "OxLog.h"
#include "OxLuaScript.h"
#include "OxStatus.h"
#include "internal/OxLuaFunction.h"
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

int LuaApi::__bind(const std::string& name, const internal::LuaFunction& function, void* object)
{
    std::unique_ptr<void, void (*)(void*)> owned(object, function.destroy);

    const std::size_t dot = name.rfind('.');  // npos, which is one before the beginning, if none
    if (dot == 0 || dot + 1 == name.length()) {
        OX_ERROR_AS("bind", "Invalid parameter");
        return STATUS_INVALID_PARAMETER;
    }
    lua_State* state = __luaScript != nullptr ? __luaScript->getLuaState() : nullptr;
    if (state == nullptr) {
        OX_ERROR_AS("bind", "Invalid state");
        return STATUS_INVALID_STATE;
    }

    const std::string table = dot != std::string::npos ? name.substr(0, dot) : std::string();
    const internal::NewLuaFunction wanted = {function, owned, table.c_str(),
                                             name.c_str() + dot + 1};
    internal::ProtectedCall call(state);
    if (!internal::reserveLuaStack(call, 4) || !internal::bindLuaFunction(call, wanted)) {
        OX_ERROR_AS("bind", "Invalid state");
        return STATUS_INVALID_STATE;
    }
    return STATUS_SUCCESS;
}

}  // namespace oxil
