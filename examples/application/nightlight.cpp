#include "nightlight.h"

#include <cstdio>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

namespace {

Lamp* lamp = nullptr;

int getBrightness(lua_State* state)
{
    lua_pushinteger(state, lamp->getBrightness());
    return 1;
}

// What may raise a Lua error stands outside the guard, what may throw stands inside.
int setBrightness(lua_State* state)
{
    const int percent = static_cast<int>(luaL_checkinteger(state, 1));

    oxil::LuaGuard guard(state);
    return guard.run([&] { lamp->setBrightness(percent); }) ? 0 : guard.raise();
}

void printError(const std::string& function, const std::string& message,
                const std::string& traceback)
{
    std::fprintf(stderr, "%s: %s\n%s\n", function.c_str(), message.c_str(), traceback.c_str());
}

}  // namespace

int LampApi::onLoading()
{
    static const luaL_Reg functions[] = {
        {"getBrightness", getBrightness}, {"setBrightness", setBrightness}, {nullptr, nullptr}};
    registerApiTable("Lamp", functions);
    return oxil::STATUS_SUCCESS;
}

Nightlight::Nightlight(Lamp& theLamp, const std::string& script) : script_(script)
{
    lamp = &theLamp;
    script_.setErrorHandler(printError);
    script_.addLuaApi(&api_);
}

bool Nightlight::start(std::chrono::milliseconds interval)
{
    return script_.load() == oxil::STATUS_SUCCESS &&
           script_.callMethod("start", std::tie(), static_cast<int>(interval.count())) ==
               oxil::STATUS_SUCCESS;
}
