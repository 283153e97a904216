// LuaScript::call(): results, or what has kept the function from giving them.

#include <OxLuaAnswer.h>
#include <OxLuaScript.h>
#include <OxStatus.h>
#include <OxStreamOutput.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <lua.hpp>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "AllocationSweep.h"
#include "LoadedScript.h"
#include "LuaCalls.h"
#include "LuaMemory.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* CONTENT = R"(
stock = {apples = 3}
function count(article, more) return stock[article] + (more or 0) end
function all() return 'a\0b', true, -3, 0.1, {1, 2}, {name = 'hall', on = true} end
function nothing() end
function kinds(...)
  local names = {}
  for i = 1, select('#', ...) do names[i] = type((select(i, ...))) end
  return table.concat(names, ' ')
end
function back(...) return ... end
function outer(x) inner(x) end
function inner(x) return x.y end
function fail(value) error(value, 0) end
function run(text) native.run(text) end
)";

class LuaAnswerTest : public testing::Test {
protected:
    NativeApi api;
    LoadedScript loaded{CONTENT, {&api}};
    LuaScript& script = loaded.script;
    const int top = loaded.top();

    ~LuaAnswerTest() override { EXPECT_EQ(loaded.top(), top) << "nothing is left on the stack"; }
};

// ---- Results -------------------------------------------------------------------------------------

TEST_F(LuaAnswerTest, AnAnswerHasTheResult)
{
    const auto answer = script.call<int>("count", "apples", 4);

    ASSERT_TRUE(answer);
    EXPECT_EQ(*answer, 7);
    EXPECT_EQ(answer.getStatus(), STATUS_SUCCESS);
    EXPECT_EQ(answer.getMessage(), "");
    EXPECT_EQ(answer.getTraceback(), "");
    EXPECT_EQ(*script.call<std::string>("count", "apples"), "3");
    EXPECT_EQ(script.call<std::string>("back", "text")->size(), 4U);
}

TEST_F(LuaAnswerTest, SeveralResultsAreATuple)
{
    const auto answer =
        script.call<std::string, bool, int, double, std::vector<int>, KeyValues>("all");
    ASSERT_TRUE(answer) << answer.getMessage();

    const auto& [text, flag, number, exact, list, record] = *answer;
    EXPECT_EQ(text, std::string("a\0b", 3));
    EXPECT_TRUE(flag);
    EXPECT_EQ(number, -3);
    EXPECT_EQ(exact, 0.1);
    EXPECT_THAT(list, ElementsAre(1, 2));
    EXPECT_EQ(record, (KeyValues{{"name", "hall"}, {"on", true}}));
}

TEST_F(LuaAnswerTest, NoResultsAreAsked)
{
    EXPECT_TRUE(script.call("all"));
    EXPECT_TRUE(script.call("nothing"));
    EXPECT_FALSE(script.call("fail", "text"));
}

TEST_F(LuaAnswerTest, ResultsAreCutOrFilledUpToTheNumberAskedFor)
{
    EXPECT_EQ(*script.call<int>("back", 1, 2), 1);
    EXPECT_EQ((*script.call<int, std::optional<int>, Variant>("back", 1)),
              (std::tuple(1, std::optional<int>(), Variant())));
}

TEST_F(LuaAnswerTest, ParametersAreLuaValues)
{
    const char* null = nullptr;
    EXPECT_EQ(*script.call<std::string>("kinds", true, 1, 2U, 3LL, 4ULL, 0.5F, 0.25, "text",
                                        std::string("text"), null),
              "boolean number number number number number number string string nil");
    EXPECT_EQ(*script.call<std::string>("kinds", std::string_view("text"), std::optional<int>(),
                                        std::optional<int>(5), Variant(), Variant("text"),
                                        KeyValues{{"a", 1}}, std::vector<int>{1},
                                        std::vector<std::vector<std::string>>{{"a"}, {"b", "c"}}),
              "string nil number nil string table table table");

    EXPECT_EQ(*script.call<double>("back", 0.1), 0.1) << "a double stays one";
    EXPECT_EQ(*script.call<std::string>("back", std::string("a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(*script.call<unsigned int>("back", UINT_MAX), UINT_MAX);
    EXPECT_EQ(*script.call<long long>("back", -(1LL << 53)), -(1LL << 53));
    const std::vector<std::vector<std::string>> lists = {{"a"}, {}, {"b", "c"}};
    EXPECT_EQ(*script.call<std::vector<std::vector<std::string>>>("back", lists), lists);
}

TEST_F(LuaAnswerTest, ItLeavesCallMethodsBookkeepingAlone)
{
    int number = 0;
    ASSERT_EQ(script.callMethod("count", std::tie(number), "apples"), STATUS_SUCCESS);

    EXPECT_TRUE(script.call("back", 1, 2, 3));

    EXPECT_EQ(script.getMethodName(), "count");
    EXPECT_EQ(script.getReturnCount(), 1);
    EXPECT_EQ(script.getParameterCount(), 1);
}

TEST_F(LuaAnswerTest, WhatIsBelowOnTheStackStays)
{
    ASSERT_EQ(script.callMethod("back", 2), STATUS_SUCCESS);
    lua_pop(loaded.state(), 1);

    EXPECT_EQ(*script.call<int>("back", 5), 5);
    EXPECT_FALSE(script.call("fail"));

    EXPECT_EQ(loaded.top(), top + 1);
    lua_settop(loaded.state(), top);
}

// ---- Failures ------------------------------------------------------------------------------------

TEST_F(LuaAnswerTest, AFunctionThatFailsIsToldWithMessageAndTraceback)
{
    int reports = 0;
    script.setErrorHandler(
        [&](const std::string&, const std::string&, const std::string&) { ++reports; });

    const auto answer = script.call<int>("outer", true);

    EXPECT_FALSE(answer);
    EXPECT_EQ(answer.getStatus(), STATUS_FAILURE);
    EXPECT_THAT(answer.getMessage(), HasSubstr("attempt to index local 'x' (a boolean value)"));
    EXPECT_THAT(answer.getTraceback(), StartsWith("stack traceback:\n\t" + loaded.file.path()));
    EXPECT_THAT(answer.getTraceback(), HasSubstr("in function 'inner'"));
    EXPECT_EQ(*answer, 0);
    EXPECT_EQ(reports, 0) << "the answer tells it";
}

TEST_F(LuaAnswerTest, ErrorValuesThatAreNoTextAreToldAsInTheLog)
{
    EXPECT_EQ(script.call("fail", "text").getMessage(), "text");
    EXPECT_EQ(script.call("fail", 12).getMessage(), "12");
    EXPECT_EQ(script.call("fail").getMessage(), "(null)");
    EXPECT_EQ(script.call("fail", KeyValues()).getMessage(), "(null)");
}

TEST_F(LuaAnswerTest, AMissingFunctionIsNotFound)
{
    const auto answer = script.call<std::string>("missing");

    EXPECT_EQ(answer.getStatus(), STATUS_NOT_FOUND);
    EXPECT_EQ(answer.getMessage(), "attempt to call global 'missing' (a nil value)");
    EXPECT_EQ(answer.getTraceback(), "");
    EXPECT_EQ(*answer, "");
    EXPECT_EQ(script.call("").getStatus(), STATUS_NOT_FOUND);
    EXPECT_EQ(script.call("stock").getStatus(), STATUS_FAILURE);
    EXPECT_EQ(script.call("stock").getMessage(), "attempt to call a table value");
}

TEST_F(LuaAnswerTest, AResultOfAnotherTypeIsAFailure)
{
    const auto nothing = script.call<int>("nothing");
    EXPECT_EQ(nothing.getStatus(), STATUS_FAILURE);
    EXPECT_EQ(nothing.getMessage(), "bad result #1 (number expected, got nil)");

    const auto table = script.call<int, std::vector<KeyValues>>("back", 5, std::vector<int>{1});
    EXPECT_EQ(table.getMessage(), "bad result #2 (table expected, got number at [1])");
    EXPECT_EQ(std::get<0>(*table), 0) << "none is read";
}

TEST_F(LuaAnswerTest, AParameterThatLuaCannotHoldIsAFailure)
{
    const auto answer = script.call("back", (1LL << 53) + 1);

    EXPECT_EQ(answer.getStatus(), STATUS_FAILURE);
    EXPECT_EQ(answer.getMessage(), "no number of Lua is 9007199254740993");
}

TEST_F(LuaAnswerTest, WithoutAStateThereIsNoCall)
{
    LuaScript unloaded("no such file");

    const auto answer = unloaded.call<int>("count");

    EXPECT_EQ(answer.getStatus(), STATUS_INVALID_STATE);
    EXPECT_EQ(answer.getMessage(), "the script is not loaded");
}

TEST_F(LuaAnswerTest, GlobalsWithAMetatableAreAsked)
{
    ASSERT_EQ(luaL_dostring(loaded.state(),
                            "setmetatable(_G, {__index = function(_, name)\n"
                            "  if name == 'known' then return function() return 7 end end\n"
                            "  error('no ' .. name, 0) end})"),
              0);
    EXPECT_EQ(*script.call<int>("known"), 7);
    EXPECT_EQ(*script.call<int>("known"), 7);
    EXPECT_EQ(script.call("other").getStatus(), STATUS_FAILURE);
    EXPECT_EQ(script.call("other").getMessage(), "no other");
}

TEST_F(LuaAnswerTest, WhatANativeFunctionThrewComesOut)
{
    api.body = [](lua_State*, const std::string& text) { throw std::out_of_range(text); };

    EXPECT_THROW(static_cast<void>(script.call<int>("run", "too far")), std::out_of_range);
    EXPECT_FALSE(script.call("fail", "too far")) << "but only for its own error";
}

// ---- What may happen meanwhile -------------------------------------------------------------------

TEST_F(LuaAnswerTest, CallsNest)
{
    int depth = 0;
    api.body = [&](lua_State*, const std::string& text) {
        if (++depth < 20) {
            EXPECT_TRUE(script.call("run", text));
            EXPECT_FALSE(script.call("fail", text));
        }
    };
    EXPECT_TRUE(script.call("run", "x"));
    EXPECT_EQ(depth, 20);
}

TEST_F(LuaAnswerTest, TooManyWithinEachOtherAreAnError)
{
    std::string message;
    api.body = [&](lua_State*, const std::string&) {
        const auto answer = script.call("run");
        if (message.empty()) {
            message = answer.getMessage();
        }
    };
    EXPECT_TRUE(script.call("run"));
    EXPECT_THAT(message, HasSubstr("C stack overflow"));
}

TEST_F(LuaAnswerTest, TheScriptMayBeDestroyedOrLoadedAgainMeanwhile)
{
    for (const bool destroys : {true, false}) {
        SCOPED_TRACE(destroys);
        std::unique_ptr<LoadedScript> other;
        NativeApi otherApi([&](lua_State*, const std::string&) {
            if (destroys) {
                other.reset();
            } else {
                other->script.load();
            }
        });
        other = std::make_unique<LoadedScript>(
            "function f() native.run() return 5 end\n"
            "function g() native.run() error('g', 0) end",
            std::initializer_list<LuaApi*>{&otherApi});

        const auto answer = other->script.call<int>("f");

        EXPECT_EQ(answer.getStatus(), STATUS_INVALID_STATE);
        EXPECT_EQ(answer.getMessage(), "the script was destroyed or loaded again");
        EXPECT_EQ(*answer, 0);
        if (!destroys) {
            EXPECT_EQ(other->script.call<int>("g").getMessage(), "g");
        }
    }
}

// ---- Memory --------------------------------------------------------------------------------------

constexpr int MORE_THAN_ENOUGH = 10000;

using Turned = std::tuple<KeyValues, std::string, std::vector<Variant>, std::string>;

const Turned TURNED = {KeyValues{{"level", 5}, {"name", "a name that is long enough"}},
                       "a text that is long enough, and one more",
                       {Variant(1), Variant("two")},
                       "12.5"};

auto turn(LuaScript& script)
{
    return script.call<KeyValues, std::string, std::vector<Variant>, std::string>(
        "turn", std::get<0>(TURNED), "a text that is long enough", std::get<2>(TURNED), 12.5);
}

constexpr const char* TURNING =
    "function turn(record, text, list, number)\n"
    "  return record, text .. ', and one more', list, number end";

TEST_F(LuaAnswerTest, CallsFailWhereverMemoryEnds)
{
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* state) { memory.attach(state); });
    int failures = 0;
    for (int nth = 1; nth < MORE_THAN_ENOUGH; ++nth) {
        LoadedScript other(TURNING);

        memory.refuseFrom(nth);
        const auto answer = turn(other.script);
        const bool refused = memory.refused();
        memory.refuseNothing();

        EXPECT_EQ(other.top(), BUILT_IN);
        if (answer) {
            EXPECT_FALSE(refused);
            EXPECT_EQ(*answer, TURNED);
            break;
        }
        ++failures;
        EXPECT_EQ(answer.getStatus(), STATUS_FAILURE);
        EXPECT_EQ(answer.getMessage(), "not enough memory");
        EXPECT_EQ(*turn(other.script), TURNED);
    }
    EXPECT_GT(failures, 5);
}

TEST_F(LuaAnswerTest, CallsThrowWhereverTheProcesssMemoryEnds)
{
    LoadedScript other(TURNING);
    const int failures = failEachNew([&] { static_cast<void>(turn(other.script)); },
                                     [&](bool) { EXPECT_EQ(other.top(), BUILT_IN); });
    EXPECT_GT(failures, 5);
}

TEST_F(LuaAnswerTest, AFullStackThatCannotGrowRefusesTheCall)
{
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* state) { memory.attach(state); });
    LoadedScript other("function f() return 1 end");
    int filling = 0;
    while (lua_checkstack(other.state(), 1) != 0 && filling < 1000) {
        lua_pushnil(other.state());
        ++filling;
    }
    lua_gc(other.state(), LUA_GCCOLLECT, 0);

    memory.refuseFrom(1);
    const auto answer = other.script.call<int>("f");
    memory.refuseNothing();

    EXPECT_EQ(other.top(), BUILT_IN + filling);
    EXPECT_TRUE(answer || answer.getStatus() == STATUS_FAILURE);
    EXPECT_EQ(*other.script.call<int>("f"), 1);
}

}  // namespace
}  // namespace oxil::test
