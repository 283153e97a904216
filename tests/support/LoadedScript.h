#pragma once

#include <OxLuaScript.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <lua.hpp>
#include <string>

#include "ScriptFile.h"

namespace oxil::test {

/** A Lua script with its file, loaded. */
class LoadedScript {
public:
    explicit LoadedScript(const std::string& content, std::initializer_list<LuaApi*> apis = {})
        : file(content), script(file.path())
    {
        for (LuaApi* api : apis) {
            EXPECT_EQ(script.addLuaApi(api), 0);
        }
        EXPECT_EQ(script.load(), 0);
    }

    lua_State* state() const { return script.getLuaState(); }

    /** The number of values on the Lua stack. */
    int top() const { return lua_gettop(state()); }

    /** The text on top of the Lua stack. */
    std::string message() const
    {
        const char* text = lua_tostring(state(), -1);
        return text != nullptr ? text : "(no text)";
    }

    ScriptFile file;
    LuaScript script;
};

}  // namespace oxil::test
