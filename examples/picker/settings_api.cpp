#include "settings_api.h"

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

namespace picker {
namespace {

// Lua hands a native function its state and nothing else.
SettingsClient* client = nullptr;

//! [functions]
// What may raise a Lua error stands outside the guard, and holds plain values only.
int list(lua_State* state)
{
    const char* country = luaL_checkstring(state, 1);
    const int page = static_cast<int>(luaL_checkinteger(state, 2));
    bool sent = false;

    oxil::LuaGuard guard(state);
    if (!guard.run([&] { sent = client->call("list", {country, page}); })) {
        return guard.raise();
    }
    lua_pushboolean(state, sent);
    return 1;
}

int describe(lua_State* state)
{
    const char* layout = luaL_checkstring(state, 1);
    const int limit = static_cast<int>(luaL_checkinteger(state, 2));
    bool sent = false;

    oxil::LuaGuard guard(state);
    const bool done = guard.run([&] {
        oxil::KeyValues options;
        options.add("limit", limit);
        sent = client->call("describe", {layout}, options);
    });
    if (!done) {
        return guard.raise();
    }
    lua_pushboolean(state, sent);
    return 1;
}

int get(lua_State* state)
{
    const auto place = static_cast<std::size_t>(luaL_checkinteger(state, 1));
    const char* key = luaL_checkstring(state, 2);
    char text[256] = "";

    oxil::LuaGuard guard(state);
    const bool done = guard.run([&] {
        const oxil::KeyValues& record = client->getRecords().at(place - 1);
        const std::string value = record.getValue(key).toString();
        value.copy(text, sizeof text - 1);
    });
    if (!done) {
        return guard.raise();
    }
    lua_pushstring(state, text);
    return 1;
}
//! [functions]

int isAnswered(lua_State* state)
{
    lua_pushboolean(state, client->getAnswer().getCount() > 0);
    return 1;
}

int getError(lua_State* state)
{
    char text[256] = "";
    oxil::LuaGuard guard(state);
    const bool done = guard.run([&] {
        std::string error = client->getTrouble();
        if (error.empty() && client->getAnswer().getCount() == 1) {
            error = client->getAnswer().getValue("error").toString();
        }
        error.copy(text, sizeof text - 1);
    });
    if (!done) {
        return guard.raise();
    }
    if (text[0] == '\0') {
        lua_pushnil(state);
    } else {
        lua_pushstring(state, text);
    }
    return 1;
}

int getPages(lua_State* state)
{
    int pages = 0;
    oxil::LuaGuard guard(state);
    if (!guard.run([&] { pages = client->getAnswer().getValue("pages").toInt(); })) {
        return guard.raise();
    }
    lua_pushinteger(state, pages);
    return 1;
}

int getCount(lua_State* state)
{
    lua_pushinteger(state, static_cast<lua_Integer>(client->getRecords().size()));
    return 1;
}

constexpr luaL_Reg FUNCTIONS[] = {
    {"list", list},         {"describe", describe}, {"isAnswered", isAnswered},
    {"getError", getError}, {"getPages", getPages}, {"getCount", getCount},
    {"get", get},           {nullptr, nullptr}};

}  // namespace

//! [loading]
int SettingsApi::onLoading()
{
    client = &client_;
    registerApiTable("Settings", FUNCTIONS);
    client_.setOnAnswer([this] { getLuaScript()->callMethod("onAnswer", std::tie()); });
    return oxil::STATUS_SUCCESS;
}

int SettingsApi::onUnloading()
{
    client_.setOnAnswer(nullptr);
    client = nullptr;
    return oxil::STATUS_SUCCESS;
}
//! [loading]

}  // namespace picker
