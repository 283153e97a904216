#pragma once

#include <lua.hpp>

#include <string>

namespace oxil::test {

/** A Lua value in words: texts as they are, numbers and booleans as Lua writes them. */
inline std::string inWords(lua_State* state, int index)
{
    switch (lua_type(state, index)) {
        case LUA_TSTRING: {
            std::size_t length = 0;
            const char* text = lua_tolstring(state, index, &length);
            return std::string(text, length);
        }
        case LUA_TNUMBER: {
            lua_pushvalue(state, index);  // it is converted in place
            const std::string words = lua_tostring(state, -1);
            lua_pop(state, 1);
            return words;
        }
        case LUA_TBOOLEAN:
            return lua_toboolean(state, index) != 0 ? "true" : "false";
        default:
            return lua_typename(state, lua_type(state, index));
    }
}

/**
 * Runs a chunk of Lua, called "chunk" in messages, past the library; the stack is left as it was.
 *
 * @return its results in words with ", " between, or "error: " and the error in words
 */
inline std::string runChunk(lua_State* state, const std::string& chunk)
{
    const int top = lua_gettop(state);
    int status = luaL_loadbuffer(state, chunk.data(), chunk.size(), "=chunk");
    if (status == 0) {
        status = lua_pcall(state, 0, LUA_MULTRET, 0);
    }

    std::string words = status == 0 ? "" : "error: ";
    for (int i = top + 1; i <= lua_gettop(state); ++i) {
        words += (i > top + 1 ? ", " : "") + inWords(state, i);
    }
    lua_settop(state, top);
    return words;
}

}  // namespace oxil::test
