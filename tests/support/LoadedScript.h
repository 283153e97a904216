#pragma once

#include <OxLuaScript.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <lua.hpp>
#include <string>

#include "ScriptFile.h"

namespace oxil::test {

/** The number of values that a script with an empty file has on its stack: the built-in tables. */
inline constexpr int BUILT_IN = 3;

/** The message when a script calls a function that it doesn't have. */
inline const std::string CALLING_NIL = "attempt to call a nil value";

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

/** The text of a global of the script. */
inline std::string globalText(const LoadedScript& loaded, const char* name)
{
    lua_getglobal(loaded.state(), name);
    const char* text = lua_tostring(loaded.state(), -1);
    const std::string result = text != nullptr ? text : "(no text)";
    lua_pop(loaded.state(), 1);
    return result;
}

}  // namespace oxil::test
