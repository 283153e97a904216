#include "OxLuaScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <lua.hpp>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "LoadedScript.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "ScriptFile.h"
#include "ScriptLog.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/** More values than lua_checkstack() agrees to, fewer than any Lua holds. */
constexpr int MANY = 20000;

const LoggedBy logged("OxLuaScript.cpp");

// ---- Calls ---------------------------------------------------------------------------------------

TEST(LuaCallTest, TypedCallPassesParametersAndReadsResults)
{
    LoadedScript loaded(
        "function add(a, b) return a + b end\n"
        "function describe(...)\n"
        "  local types = {}\n"
        "  for i = 1, select('#', ...) do types[i] = type((select(i, ...))) end\n"
        "  return table.concat(types, ' ')\n"
        "end\n"
        "function all() return 'text', true, -3, 0.5 end");
    int sum = 0;
    EXPECT_EQ(loaded.script.callMethod("add", std::tie(sum), 2, 3), STATUS_SUCCESS);
    EXPECT_EQ(sum, 5);
    float ratio = 0;
    EXPECT_EQ(loaded.script.callMethod("add", std::tie(ratio), 0.25F, 1), STATUS_SUCCESS);
    EXPECT_EQ(ratio, 1.25F);

    std::string types;
    EXPECT_EQ(loaded.script.callMethod("describe", std::tie(types), "a", std::string("b"), true, 1,
                                       2.0F, 3.0),
              STATUS_SUCCESS);
    EXPECT_EQ(types, "string string boolean number number number");
    EXPECT_EQ(loaded.script.callMethod("describe", std::tie(types)), STATUS_SUCCESS);
    EXPECT_EQ(types, "");

    std::string text;
    bool flag = false;
    int number = 0;
    EXPECT_EQ(loaded.script.callMethod("all", std::tie(text, flag, number, ratio)), STATUS_SUCCESS);
    EXPECT_EQ(std::tie(text, flag, number, ratio), std::make_tuple("text", true, -3, 0.5F));

    EXPECT_EQ(loaded.top(), BUILT_IN);
    EXPECT_EQ(loaded.script.getMethodName(), "all");
    EXPECT_EQ(loaded.script.getReturnCount(), 4);
    EXPECT_EQ(loaded.script.getParameterCount(), 0);
}

TEST(LuaCallTest, ResultsAreCutOrFilledUpToTheNumberAskedFor)
{
    LoadedScript loaded("function two() return 1, 2 end");
    int first = -1;
    int second = -1;
    bool third = true;

    EXPECT_EQ(loaded.script.callMethod("two", std::tie()), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN);
    EXPECT_EQ(loaded.script.callMethod("two", std::tie(first)), STATUS_SUCCESS);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(loaded.script.callMethod("two", std::tie(first, second, third)), STATUS_SUCCESS);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
    EXPECT_FALSE(third);
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaCallTest, ParametersArriveAsLuaValues)
{
    struct Case {
        std::string name;
        std::function<int(LuaScript&)> push;
        std::function<void(lua_State*)> check;
    };
    const auto isNumber = [](double expected) {
        return [expected](lua_State* state) {
            EXPECT_EQ(lua_type(state, -1), LUA_TNUMBER);
            EXPECT_EQ(lua_tonumber(state, -1), expected);
        };
    };
    const auto isBool = [](int expected) {
        return [expected](lua_State* state) {
            EXPECT_EQ(lua_type(state, -1), LUA_TBOOLEAN);
            EXPECT_EQ(lua_toboolean(state, -1), expected);
        };
    };
    const auto isText = [](const std::string& expected) {
        return [expected](lua_State* state) {
            EXPECT_EQ(lua_type(state, -1), LUA_TSTRING);
            std::size_t length = 0;
            const char* text = lua_tolstring(state, -1, &length);
            EXPECT_EQ(std::string(text, length), expected);
        };
    };
    const auto pushing = [](auto value) {
        return [value](LuaScript& script) { return script.onMethodParameterAdded(value); };
    };
    const std::vector<Case> cases = {
        {"int", pushing(7), isNumber(7)},
        {"smallest int", pushing(INT_MIN), isNumber(INT_MIN)},
        {"largest int", pushing(INT_MAX), isNumber(INT_MAX)},
        {"float", pushing(0.1F), isNumber(static_cast<double>(0.1F))},
        {"negative float", pushing(-2.5F), isNumber(-2.5)},
        {"true", pushing(true), isBool(1)},
        {"false", pushing(false), isBool(0)},
        {"text", pushing(std::string("text")), isText("text")},
        {"number as text", pushing(std::string("12")), isText("12")},
        {"empty text", pushing(std::string()), isText("")},
        {"text with NUL", pushing(std::string("a\0b", 3)), isText("a")},
    };
    LoadedScript loaded("");
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        EXPECT_EQ(test.push(loaded.script), 0);
        EXPECT_EQ(loaded.top(), BUILT_IN + 1);
        test.check(loaded.state());
        lua_settop(loaded.state(), BUILT_IN);
    }
}

TEST(LuaCallTest, TypedCallPassesDoublesAsFloatAndCTextAsText)
{
    LoadedScript loaded("function f(...) received = {...} end");
    const double real = 0.1;
    const char* text = "text";

    EXPECT_EQ(loaded.script.callMethod("f", std::tie(), real, text, std::string("a\0b", 3)),
              STATUS_SUCCESS);

    lua_State* state = loaded.state();
    lua_getglobal(state, "received");
    lua_rawgeti(state, -1, 1);
    EXPECT_EQ(lua_tonumber(state, -1), static_cast<double>(0.1F));
    lua_rawgeti(state, -2, 2);
    EXPECT_EQ(lua_type(state, -1), LUA_TSTRING);
    EXPECT_STREQ(lua_tostring(state, -1), "text");
    lua_rawgeti(state, -3, 3);
    EXPECT_EQ(lua_objlen(state, -1), 1U);
    EXPECT_STREQ(lua_tostring(state, -1), "a");
}

TEST(LuaCallTest, ResultsConvertAsInLua)
{
    struct Case {
        std::string expression;
        bool flag;
        int number;
        float ratio;
    };
    const std::vector<Case> cases = {
        {"nil", false, 0, 0},
        {"false", false, 0, 0},
        {"true", true, 0, 0},
        {"0", true, 0, 0},
        {"1.25", true, 1, 1.25F},
        {"-3", true, -3, -3},
        {"'12'", true, 12, 12},
        {"' 0x10 '", true, 16, 16},
        {"'1.25'", true, 1, 1.25F},
        {"'abc'", true, 0, 0},
        {"''", true, 0, 0},
        {"{}", true, 0, 0},
        {"print", true, 0, 0},
        {"2147483647", true, INT_MAX, 2147483648.0F},
        {"-2147483648", true, INT_MIN, -2147483648.0F},
        {"0.1", true, 0, 0.1F},
        {"3000000000", true, INT_MAX, 3e9F},
        {"-3000000000", true, INT_MIN, -3e9F},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.expression);
        LoadedScript loaded("function f() return " + test.expression + " end");
        bool flag = !test.flag;
        int number = -99;
        float ratio = -99;

        EXPECT_EQ(loaded.script.callMethod("f", std::tie(flag)), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod("f", std::tie(number)), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod("f", std::tie(ratio)), STATUS_SUCCESS);

        EXPECT_EQ(flag, test.flag);
        EXPECT_EQ(number, test.number);
        EXPECT_EQ(ratio, test.ratio);
        EXPECT_EQ(loaded.top(), BUILT_IN);
    }
}

TEST(LuaCallTest, TextsAndNumbersAreReadAsText)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"'text'", "text"}, {"''", ""},       {"12", "12"},
        {"-1.5", "-1.5"},   {"'a\\0b'", "a"}, {"('x'):rep(5000)", std::string(5000, 'x')},
    };
    for (const auto& [expression, expected] : cases) {
        SCOPED_TRACE(expression);
        LoadedScript loaded("function f() return " + expression + " end");
        std::string text = "before";

        EXPECT_EQ(loaded.script.callMethod("f", std::tie(text)), STATUS_SUCCESS);
        EXPECT_EQ(text, expected);
        EXPECT_EQ(loaded.top(), BUILT_IN);
    }
}

TEST(LuaCallTest, ResultHooksReadUpwardsFromTheFirstValue)
{
    LoadedScript loaded("");
    lua_State* state = loaded.state();
    lua_settop(state, 0);
    lua_pushinteger(state, 5);
    lua_pushboolean(state, 1);
    lua_pushnumber(state, 1.5);
    lua_pushliteral(state, "text");
    int number = 0;
    bool flag = false;
    float ratio = 0;
    std::string text;

    const LuaScript& script = loaded.script;
    EXPECT_EQ(script.onGetReturnValue(number), 0);
    EXPECT_EQ(script.onGetReturnValue(flag), 0);
    EXPECT_EQ(script.onGetReturnValue(ratio), 0);
    EXPECT_EQ(script.onGetReturnValue(text), 0);

    EXPECT_EQ(std::tie(number, flag, ratio, text), std::make_tuple(5, true, 1.5F, "text"));
    EXPECT_EQ(loaded.top(), 4);
}

TEST(LuaCallTest, ResultsOfAnUntypedCallCanBeReadByHand)
{
    LoadedScript loaded("function f() return 'a', 2, true end");
    std::string text;
    int number = 0;
    bool flag = false;

    ASSERT_EQ(loaded.script.callMethod("f", 3), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 3);
    loaded.script.onReturnValueEvaluateBegin();
    EXPECT_EQ(loaded.script.onGetReturnValue(text), 0);
    EXPECT_EQ(loaded.script.onGetReturnValue(number), 0);
    EXPECT_EQ(loaded.script.onGetReturnValue(flag), 0);
    EXPECT_EQ(loaded.top(), BUILT_IN + 3);
    loaded.script.onReturnValueEvaluateEnd();

    EXPECT_EQ(std::tie(text, number, flag), std::make_tuple("a", 2, true));
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaCallTest, ReadingWithoutResultsIsLogged)
{
    LuaScript unloaded;
    LoadedScript loaded("function f() return 1 end");
    ASSERT_EQ(loaded.script.callMethod("f"), STATUS_SUCCESS);
    for (LuaScript* script : {&unloaded, &loaded.script}) {
        LogCapture log;
        script->onReturnValueEvaluateBegin();
        script->onReturnValueEvaluateEnd();
        EXPECT_THAT(log.lines(), ElementsAre(logged("onReturnValueEvaluateBegin", "retCount (0)"),
                                             logged("onReturnValueEvaluateEnd", "retCount (0)")));
    }
    EXPECT_EQ(loaded.top(), BUILT_IN);

    // The place to read from is that of a new script still.
    int number = -1;
    lua_pushinteger(loaded.state(), 9);
    lua_replace(loaded.state(), 1);
    EXPECT_EQ(loaded.script.onGetReturnValue(number), 0);
    EXPECT_EQ(number, 9);
}

TEST(LuaCallTest, UntypedCallLeavesItsResultsOnTheStack)
{
    LoadedScript loaded("function f(...) return select('#', ...), 'b' end");

    EXPECT_EQ(loaded.script.callMethod("f", 2), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 2);
    EXPECT_EQ(lua_tointeger(loaded.state(), -2), 0);
    EXPECT_STREQ(lua_tostring(loaded.state(), -1), "b");

    EXPECT_EQ(loaded.script.callMethod("f", 4), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 6);
    EXPECT_TRUE(lua_isnil(loaded.state(), -1));

    EXPECT_EQ(loaded.script.callMethod("f"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 6);
}

TEST(LuaCallTest, CallMayAskForThousandsOfResults)
{
    LoadedScript loaded("function f() return 1 end");
    constexpr int RESULTS = 5000;

    EXPECT_EQ(loaded.script.callMethod("f", RESULTS), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + RESULTS);
    EXPECT_EQ(lua_tointeger(loaded.state(), BUILT_IN + 1), 1);
    EXPECT_TRUE(lua_isnil(loaded.state(), -1));

    LogCapture log;
    EXPECT_EQ(loaded.script.callMethod("f", INT_MAX), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
}

TEST(LuaCallTest, AnythingThatCanBeCalledIsCalled)
{
    LoadedScript loaded(
        "callable = setmetatable({}, {__call = function(self, x) return x * 2 end})\n"
        "_G['odd name.x'] = function(x) return x * 3 end\n"
        "setmetatable(_G, {__index = function(_, name) return function(x) return name .. x end "
        "end})");
    int number = 0;
    EXPECT_EQ(loaded.script.callMethod("callable", std::tie(number), 4), STATUS_SUCCESS);
    EXPECT_EQ(number, 8);
    EXPECT_EQ(loaded.script.callMethod("odd name.x", std::tie(number), 4), STATUS_SUCCESS);
    EXPECT_EQ(number, 12);
    std::string text;
    EXPECT_EQ(loaded.script.callMethod("anything", std::tie(text), 4), STATUS_SUCCESS);
    EXPECT_EQ(text, "anything4");
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaCallTest, CallingHookPushesTheGlobal)
{
    LoadedScript loaded("function f() end; number = 5");
    lua_State* state = loaded.state();

    EXPECT_EQ(loaded.script.onMethodCalling("f"), 0);
    EXPECT_TRUE(lua_isfunction(state, -1));
    EXPECT_EQ(loaded.script.onMethodCalling("number"), 0);
    EXPECT_EQ(lua_tointeger(state, -1), 5);
    EXPECT_EQ(loaded.script.onMethodCalling("missing"), 0);
    EXPECT_TRUE(lua_isnil(state, -1));
    EXPECT_EQ(loaded.top(), BUILT_IN + 3);
}

// ---- Failing calls -------------------------------------------------------------------------------

TEST(LuaCallTest, LuaErrorIsNotReportedButLeavesItsMessage)
{
    LoadedScript loaded(
        "number = 5\n"
        "function f() error('boom', 0) end\n"
        "function again() return 1 + again() end\n"
        "function odd() error({}) end");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"f", "boom"},
        {"missing", CALLING_NIL},
        {"number", "attempt to call a number value"},
        {"again", "stack overflow"},
        {"odd", "(no text)"},
    };
    int expectedTop = BUILT_IN;
    for (const auto& [name, message] : cases) {
        for (const int returnCount : {0, 1, 4}) {
            SCOPED_TRACE(name);
            EXPECT_EQ(loaded.script.callMethod(name, returnCount), STATUS_SUCCESS);
            EXPECT_EQ(loaded.top(), ++expectedTop);
            EXPECT_THAT(loaded.message(), HasSubstr(message));
        }
    }
    EXPECT_EQ(loaded.script.callMethod("f"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.script.callMethod("f", std::tie(), 1, "text"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), expectedTop + 2);
    EXPECT_EQ(loaded.message(), "boom");
}

TEST(LuaCallTest, MessageOfAFailedCallIsReadAsItsResult)
{
    LoadedScript loaded(
        "function boom() error('boom', 0) end\n"
        "function number() error(12, 0) end");
    struct Case {
        std::string name;
        std::string text;
        int number;
    };
    for (const Case& test :
         {Case{"missing", CALLING_NIL, 0}, Case{"boom", "boom", 0}, Case{"number", "12", 12}}) {
        SCOPED_TRACE(test.name);
        std::string text;
        bool flag = false;
        int number = -1;
        float ratio = -1;

        EXPECT_EQ(loaded.script.callMethod(test.name, std::tie(text)), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod(test.name, std::tie(flag), 1), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod(test.name, std::tie(number), "a"), STATUS_SUCCESS);
        EXPECT_EQ(loaded.script.callMethod(test.name, std::tie(ratio)), STATUS_SUCCESS);

        EXPECT_EQ(text, test.text);
        EXPECT_TRUE(flag);
        EXPECT_EQ(number, test.number);
        EXPECT_EQ(ratio, static_cast<float>(test.number));
        EXPECT_EQ(loaded.top(), BUILT_IN);
    }
}

TEST(LuaCallTest, MessageOfAFailedCallIsTheLastOfSeveralResults)
{
    LoadedScript loaded("");
    lua_pushinteger(loaded.state(), 5);
    int number = 0;
    std::string text;

    EXPECT_EQ(loaded.script.callMethod("missing", std::tie(number, text)), STATUS_SUCCESS);
    EXPECT_EQ(number, 5);  // whatever lay below it
    EXPECT_EQ(text, CALLING_NIL);
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST(LuaCallTest, FailedCallNeverTakesMoreThanIsThere)
{
    LoadedScript loaded("function add(a, b) return a + b end");
    constexpr int RESULTS = 4;
    for (int below = 0; below < 6; ++below) {
        SCOPED_TRACE(below);
        lua_settop(loaded.state(), 0);
        lua_settop(loaded.state(), below);
        int number = -1;
        bool flag = true;
        float ratio = -1;
        std::string text;

        EXPECT_EQ(loaded.script.callMethod("missing", std::tie(number, flag, ratio, text)),
                  STATUS_SUCCESS);
        EXPECT_EQ(std::tie(number, flag, ratio, text),
                  std::make_tuple(0, false, 0.0F, CALLING_NIL));
        EXPECT_EQ(loaded.top(), std::max(below + 1 - RESULTS, 0));

        EXPECT_EQ(loaded.script.callMethod("add", std::tie(number), 2, 3), STATUS_SUCCESS);
        EXPECT_EQ(number, 5);
    }
    lua_settop(loaded.state(), 0);
    for (int i = 0; i < 100; ++i) {
        int first = -1;
        int second = -1;
        EXPECT_EQ(loaded.script.callMethod("missing", std::tie(first, second)), STATUS_SUCCESS);
        EXPECT_EQ(loaded.top(), 0);
    }
}

TEST(LuaCallTest, ResultThatIsNoTextIsReadAsEmptyText)
{
    for (const char* expression : {"nil", "true", "{}", "print"}) {
        SCOPED_TRACE(expression);
        LoadedScript loaded(std::string("function f() return ") + expression + ", 'next' end");
        std::string text = "before";
        std::string next;

        EXPECT_EQ(loaded.script.callMethod("f", std::tie(text, next)), STATUS_SUCCESS);
        EXPECT_EQ(text, "");
        EXPECT_EQ(next, "next");
    }
}

TEST(LuaCallTest, ThousandsOfFailedCallsLeaveTheirMessages)
{
    LoadedScript loaded(
        "function add(a, b) return a + b end\n"
        "function pair() return 'a', 'b' end\n"
        "function again() return 1 + again() end");
    for (int i = 0; i < MANY; ++i) {
        ASSERT_EQ(loaded.script.callMethod("missing"), STATUS_SUCCESS);
    }
    EXPECT_EQ(loaded.top(), BUILT_IN + MANY);
    EXPECT_THAT(loaded.message(), HasSubstr(CALLING_NIL));

    int sum = 0;
    EXPECT_EQ(loaded.script.callMethod("add", std::tie(sum), 2, 3), STATUS_SUCCESS);
    EXPECT_EQ(sum, 5);
    std::string first;
    std::string second;
    EXPECT_EQ(loaded.script.callMethod("pair", std::tie(first, second)), STATUS_SUCCESS);
    EXPECT_EQ(first + second, "ab");
    EXPECT_EQ(loaded.script.callMethod("missing", std::tie(first), 1, "x"), STATUS_SUCCESS);
    EXPECT_EQ(first, CALLING_NIL);
    EXPECT_EQ(loaded.top(), BUILT_IN + MANY);

    EXPECT_EQ(loaded.script.callMethod("again"), STATUS_SUCCESS);
    EXPECT_THAT(loaded.message(), HasSubstr("stack overflow"));
    NativeApi api;
    EXPECT_EQ(loaded.script.addLuaApi(&api), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + MANY + 2);
}

TEST(LuaCallTest, ThousandsOfUnreadResultsStayToo)
{
    LoadedScript loaded("function f() return 1, 2 end");
    for (int i = 0; i < MANY / 2; ++i) {
        ASSERT_EQ(loaded.script.callMethod("f", 2), STATUS_SUCCESS);
    }
    EXPECT_EQ(loaded.top(), BUILT_IN + MANY);
    EXPECT_EQ(lua_tointeger(loaded.state(), -1), 2);
    EXPECT_EQ(lua_tointeger(loaded.state(), BUILT_IN + 1), 1);
}

TEST(LuaCallTest, StrictGlobalsMakeAMissingFunctionALuaError)
{
    LoadedScript loaded(
        "function add(a, b) return a + b end\n"
        "setmetatable(_G, {__index = function(_, name) error('no ' .. name, 0) end})");
    int sum = 0;
    std::string text;

    EXPECT_EQ(loaded.script.callMethod("unknown"), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    EXPECT_TRUE(lua_isstring(loaded.state(), -1));
    EXPECT_EQ(loaded.script.callMethod("unknown", std::tie(text), 1, 2), STATUS_SUCCESS);
    EXPECT_NE(text, "");
    EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    EXPECT_EQ(loaded.script.callMethod("add", std::tie(sum), 2, 3), STATUS_SUCCESS);
    EXPECT_EQ(sum, 5);
}

TEST(LuaCallTest, HooksOfAnUnloadedScriptFail)
{
    LuaScript fresh;
    const ScriptFile file("error('boom', 0)");
    LuaScript failed(file.path());
    {
        LogCapture log;
        ASSERT_EQ(failed.load(), STATUS_INVALID_STATE);
    }
    for (LuaScript* script : {&fresh, &failed}) {
        LogCapture log;
        bool flag = true;
        int number = 1;
        float ratio = 1;
        std::string text = "text";

        EXPECT_LT(script->onMethodCalling("f"), 0);
        EXPECT_LT(script->onMethodParameterAdded(text), 0);
        EXPECT_LT(script->onMethodParameterAdded(true), 0);
        EXPECT_LT(script->onMethodParameterAdded(1), 0);
        EXPECT_LT(script->onMethodParameterAdded(1.0F), 0);
        EXPECT_LT(script->onMethodCalled("f"), 0);
        EXPECT_THAT(log.lines(), IsEmpty());

        // There is nothing to read, so the results are neutral.
        script->onGetReturnValue(flag);
        script->onGetReturnValue(number);
        script->onGetReturnValue(ratio);
        script->onGetReturnValue(text);
        EXPECT_EQ(std::tie(flag, number, ratio, text), std::make_tuple(false, 0, 0.0F, ""));
    }
}

TEST(LuaCallTest, CallOfAnUnloadedScriptIsAnInvalidState)
{
    LuaScript script;
    int number = 1;
    LogCapture log;

    EXPECT_EQ(script.callMethod("f", 1), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
    // Nothing to read, nothing to crash on.
    script.onReturnValueEvaluateBegin();
    script.onReturnValueEvaluateEnd();

    log.clear();
    EXPECT_EQ(script.callMethod("f"), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(),
                ElementsAre(refusedCall(), LoggedIn("OxScript.cpp", "callMethod", "(-524271)")));

    log.clear();
    EXPECT_EQ(script.callMethod("f", std::tie(number), 1, "text"), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(refusedCall()));
    EXPECT_EQ(number, 1);
}

// ---- Calls within calls --------------------------------------------------------------------------

TEST(LuaCallTest, TypedCallReadsItsOwnResultsAfterCallsFromWithin)
{
    LuaScript* script = nullptr;
    NativeApi api([&](lua_State*, const std::string& text) {
        if (text == "typed") {
            int sum = 0;
            EXPECT_EQ(script->callMethod("add", std::tie(sum), 2, 3), STATUS_SUCCESS);
            EXPECT_EQ(sum, 5);
        } else {
            EXPECT_EQ(script->callMethod(text, 3), STATUS_SUCCESS);
        }
    });
    LoadedScript loaded(
        "function add(a, b) return a + b end\n"
        "function three() return 7, 8, 9 end\n"
        "function outer(what) native.run(what) return what, 2 end",
        {&api});
    script = &loaded.script;

    for (const char* what : {"typed", "three", "missing"}) {
        SCOPED_TRACE(what);
        std::string text;
        int number = 0;
        EXPECT_EQ(script->callMethod("outer", std::tie(text, number), what), STATUS_SUCCESS);
        EXPECT_EQ(text, what);
        EXPECT_EQ(number, 2);
        EXPECT_EQ(script->getMethodName(), "outer");
        EXPECT_EQ(script->getReturnCount(), 2);
        EXPECT_EQ(script->getParameterCount(), 1);
        EXPECT_EQ(loaded.top(), BUILT_IN + 1);
    }
}

TEST(LuaCallTest, TypedCallReadsItsOwnResultsAfterATimerInAWaitingLoop)
{
    LoadedScript loaded(
        "ticks = 0\n"
        "function tick() ticks = ticks + 1 WaitingLoop.quit(loop) end\n"
        "function outer(a)\n"
        "  loop = WaitingLoop.create()\n"
        "  local timer = Timer.start(0, 'tick', false)\n"
        "  WaitingLoop.run(loop)\n"
        "  Timer.stop(timer)\n"
        "  WaitingLoop.destroy(loop)\n"
        "  return a + 1, 'done', ticks\n"
        "end");
    int number = 0;
    std::string text;
    int ticks = 0;

    EXPECT_EQ(loaded.script.callMethod("outer", std::tie(number, text, ticks), 4), STATUS_SUCCESS);
    EXPECT_EQ(std::tie(number, text, ticks), std::make_tuple(5, "done", 1));
    EXPECT_EQ(loaded.top(), BUILT_IN);
    EXPECT_EQ(loaded.script.getMethodName(), "outer");
}

TEST(LuaCallTest, CallFromWithinOverwritesTheBookkeepingOfAnUntypedCall)
{
    LuaScript* script = nullptr;
    NativeApi api([&](lua_State*, const std::string&) {
        EXPECT_EQ(script->callMethod("inner", std::tie(), 1, 2, 3), STATUS_SUCCESS);
    });
    LoadedScript loaded(
        "function inner() end\n"
        "function outer() native.run() return 1, 2 end",
        {&api});
    script = &loaded.script;

    EXPECT_EQ(script->callMethod("outer", 2), STATUS_SUCCESS);
    EXPECT_EQ(loaded.top(), BUILT_IN + 1 + 2);
    EXPECT_EQ(script->getMethodName(), "inner");
    EXPECT_EQ(script->getReturnCount(), 0);
    EXPECT_EQ(script->getParameterCount(), 3);
}

TEST(LuaCallTest, ACallThatLooksForItsFunctionKeepsItsBookkeeping)
{
    NativeApi api;
    LoadedScript loaded(
        "function two(a, b) return a + b end\n"
        "setmetatable(_G, {__index = function() native.run() return function(...)\n"
        "    return select('#', ...), ... end end})",
        {&api});
    int nested = 0;
    api.body = [&](lua_State*, const std::string&) {
        EXPECT_EQ(loaded.script.callMethod("two", std::tie(nested), 20, 22), 0);
    };
    int count = 0;
    int value = 0;

    EXPECT_EQ(loaded.script.callMethod("missing", std::tie(count, value), 9), 0);

    EXPECT_EQ(nested, 42);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(loaded.script.getMethodName(), "missing");
    EXPECT_EQ(loaded.script.getParameterCount(), 1);
    EXPECT_EQ(loaded.script.getReturnCount(), 2);
}

TEST(LuaCallTest, ANumberFarOutOfRangeIsTheLimit)
{
    LoadedScript loaded("function f() return 1e300, -1e300, 0/0, 1.9, -1.9 end");
    int most = 0;
    int least = 0;
    int none = 1;
    int up = 0;
    int down = 0;

    EXPECT_EQ(loaded.script.callMethod("f", std::tie(most, least, none, up, down)), 0);

    EXPECT_EQ(most, INT_MAX);
    EXPECT_EQ(least, INT_MIN);
    EXPECT_EQ(none, 0);
    EXPECT_EQ(up, 1);
    EXPECT_EQ(down, -1);
}

TEST(LuaCallTest, ACallWithoutItsFunctionOnTheStackIsRefused)
{
    LoadedScript loaded("");
    lua_settop(loaded.state(), 0);

    EXPECT_LT(loaded.script.onMethodCalled("f"), 0);
    EXPECT_EQ(loaded.top(), 0);
}

}  // namespace
}  // namespace oxil::test
