#include "LuaCalls.h"

#include <lua.hpp>

#include <utility>

#include "NextDefinition.h"

namespace oxil::test {
namespace {

LuaStates* watch = nullptr;

}  // namespace

LuaStates::LuaStates()
{
    watch = this;
}

LuaStates::~LuaStates()
{
    watch = nullptr;
    if (__kept != nullptr) {
        lua_close(__kept);
    }
}

void LuaStates::refuseNext()
{
    __refusing = true;
}

void LuaStates::reuse()
{
    __reusing = true;
}

lua_State* LuaStates::open(lua_State* (*newState)())
{
    if (std::exchange(__refusing, false)) {
        return nullptr;
    }
    lua_State* state = std::exchange(__kept, nullptr);
    if (state != nullptr) {
        lua_settop(state, 0);
        return state;
    }
    state = newState();
    if (state != nullptr && __whenOpened) {
        __whenOpened(state);
    }
    return state;
}

void LuaStates::close(lua_State* state, void (*closeState)(lua_State*))
{
    __closed.push_back(state);
    if (__reusing && __kept == nullptr) {
        __kept = state;
    } else {
        closeState(state);
    }
}

}  // namespace oxil::test

// Stand before those of the Lua library, because a definition in the executable wins.
extern "C" __attribute__((visibility("default"))) lua_State* luaL_newstate(void)
{
    static const auto original = oxil::test::real<lua_State*()>("luaL_newstate");

    return oxil::test::watch != nullptr ? oxil::test::watch->open(original) : original();
}

extern "C" __attribute__((visibility("default"))) void lua_close(lua_State* state)
{
    static const auto original = oxil::test::real<void(lua_State*)>("lua_close");

    if (oxil::test::watch != nullptr) {
        oxil::test::watch->close(state, original);
    } else {
        original(state);
    }
}
