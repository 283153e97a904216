#include "page_api.h"

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

namespace picker {
namespace {

// Lua hands a native function its state and nothing else.
Page* page = nullptr;

int addLayout(lua_State* state)
{
    const char* name = luaL_checkstring(state, 1);
    const char* description = luaL_checkstring(state, 2);
    const char* languages = luaL_checkstring(state, 3);
    const char* variants = luaL_checkstring(state, 4);

    oxil::LuaGuard guard(state);
    return guard.run([&] { page->addLayout(name, description, languages, variants); })
               ? 0
               : guard.raise();
}

int addVariant(lua_State* state)
{
    const char* description = luaL_checkstring(state, 1);

    oxil::LuaGuard guard(state);
    return guard.run([&] { page->addVariant(description); }) ? 0 : guard.raise();
}

constexpr luaL_Reg FUNCTIONS[] = {
    {"addLayout", addLayout}, {"addVariant", addVariant}, {nullptr, nullptr}};

}  // namespace

int PageApi::onLoading()
{
    page = &page_;
    registerApiTable("Page", FUNCTIONS);
    return oxil::STATUS_SUCCESS;
}

}  // namespace picker
