// A script keeps the names of functions that were called. What they mean is looked up each time.

#include <OxLuaScript.h>
#include <OxStatus.h>
#include <gtest/gtest.h>

#include <lua.hpp>
#include <string>
#include <tuple>

#include "LoadedScript.h"
#include "LuaChunk.h"

namespace oxil::test {
namespace {

class LuaKnownNamesTest : public testing::Test {
protected:
    std::string call(const std::string& name)
    {
        std::string text;
        EXPECT_EQ(loaded.script.callMethod(name, std::tie(text)), STATUS_SUCCESS);
        return text;
    }

    void run(const std::string& chunk) { ASSERT_EQ(runChunk(loaded.state(), chunk), ""); }

    LoadedScript loaded{"function name() return 'first' end"};
    const int top = loaded.top();
};

TEST_F(LuaKnownNamesTest, AFunctionThatIsReplacedIsNotCalledAgain)
{
    EXPECT_EQ(call("name"), "first");
    EXPECT_EQ(call("name"), "first");

    run("function name() return 'second' end");
    EXPECT_EQ(call("name"), "second");
    EXPECT_EQ(loaded.top(), top);
}

TEST_F(LuaKnownNamesTest, AFunctionThatIsGoneIsNotThere)
{
    EXPECT_EQ(call("name"), "first");

    run("name = nil");
    EXPECT_EQ(call("name"), "attempt to call a nil value");
    EXPECT_EQ(loaded.top(), top);
}

TEST_F(LuaKnownNamesTest, AFunctionThatIsGoneIsAskedOfTheMetatable)
{
    EXPECT_EQ(call("name"), "first");

    run("name = nil\n"
        "setmetatable(_G, {__index = function(_, name) return function() return 'no ' .. name end "
        "end})");
    EXPECT_EQ(call("name"), "no name");
    EXPECT_EQ(call("name"), "no name");
    EXPECT_EQ(loaded.top(), top);
}

TEST_F(LuaKnownNamesTest, GlobalsMayBeOtherOnesAltogether)
{
    EXPECT_EQ(call("name"), "first");

    run("setfenv(0, {name = function() return 'elsewhere' end})");
    EXPECT_EQ(call("name"), "elsewhere");
}

TEST_F(LuaKnownNamesTest, ThereMayBeMoreFunctionsThanNamesAreKept)
{
    run("for i = 1, 300 do _G['f' .. i] = function() return 'f' .. i end end");
    for (int round = 0; round < 2; ++round) {
        for (int i = 1; i <= 300; ++i) {
            const std::string name = "f" + std::to_string(i);
            ASSERT_EQ(call(name), name);
        }
    }
    EXPECT_EQ(loaded.top(), top);
}

TEST_F(LuaKnownNamesTest, NamesAreToldApartAtTheirEnds)
{
    run("function abcd() return 'abcd' end abce = nil abc = nil");
    EXPECT_EQ(call("abcd"), "abcd");
    EXPECT_EQ(call("abce"), "attempt to call a nil value");  // the same slot
    EXPECT_EQ(call("abc"), "attempt to call a nil value");
    EXPECT_EQ(call("abcd"), "abcd");
}

TEST_F(LuaKnownNamesTest, AFunctionIsFoundAlsoWithALotOnTheStack)
{
    EXPECT_EQ(call("name"), "first");

    constexpr int MANY = 1000;
    ASSERT_NE(lua_checkstack(loaded.state(), MANY), 0);
    for (int i = 0; i < MANY; ++i) {
        lua_pushnil(loaded.state());
    }
    int count = 0;
    run("function add(a, b, c) return a + b + (c and 1 or 0) end");
    EXPECT_EQ(loaded.script.callMethod("add", std::tie(count), 20, 21.0f, true), STATUS_SUCCESS);
    EXPECT_EQ(count, 42);
    EXPECT_EQ(call("name"), "first");
    EXPECT_EQ(loaded.top(), top + MANY);
}

TEST_F(LuaKnownNamesTest, AReferenceOfTheApplicationIsItsOwn)
{
    EXPECT_EQ(call("name"), "first");

    lua_State* state = loaded.state();
    lua_pushliteral(state, "mine");
    const int reference = luaL_ref(state, LUA_REGISTRYINDEX);
    EXPECT_EQ(call("name"), "first");
    lua_rawgeti(state, LUA_REGISTRYINDEX, reference);
    EXPECT_STREQ(lua_tostring(state, -1), "mine");
    lua_pop(state, 1);

    luaL_unref(state, LUA_REGISTRYINDEX, reference);
    EXPECT_EQ(call("name"), "first");
}

}  // namespace
}  // namespace oxil::test
