#include "OxLuaValue.h"

#include <OxLuaGuard.h>
#include <OxStatus.h>
#include <OxStreamOutput.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <lua.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "LoadedScript.h"
#include "LuaCalls.h"
#include "LuaMemory.h"
#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

const LoggedBy logged("OxLuaValue.cpp");

class LuaValueTest : public testing::Test {
protected:
    /** Pushes what a Lua expression is. */
    void evaluate(const std::string& expression) const
    {
        const std::string code = "return " + expression;
        ASSERT_EQ(luaL_dostring(state, code.c_str()), 0) << lua_tostring(state, -1);
    }

    /** What a Lua expression is in C++. */
    template <typename T>
    T got(const std::string& expression) const
    {
        evaluate(expression);
        T value{};
        EXPECT_EQ(LuaValue::get(state, -1, value), STATUS_SUCCESS);
        EXPECT_EQ(lua_gettop(state), top + 1);
        lua_settop(state, top);
        return value;
    }

    /** What comes back of a value that Lua has been given. */
    template <typename T>
    T turned(const T& value) const
    {
        EXPECT_EQ(LuaValue::push(state, value), STATUS_SUCCESS);
        EXPECT_EQ(lua_gettop(state), top + 1);
        T back{};
        EXPECT_EQ(LuaValue::get(state, top + 1, back), STATUS_SUCCESS);
        lua_settop(state, top);
        return back;
    }

    /** That a Lua expression is refused, for this reason. */
    template <typename T>
    void expectRefusal(const std::string& expression, const std::string& reason, T before) const
    {
        SCOPED_TRACE(expression);
        evaluate(expression);
        LogCapture log;
        T value = before;

        EXPECT_EQ(LuaValue::get(state, -1, value), STATUS_INVALID_PARAMETER);

        EXPECT_THAT(log.lines(), ElementsAre(logged("get", "Invalid value (" + reason + ").")));
        EXPECT_EQ(value, before);
        EXPECT_EQ(lua_gettop(state), top + 1);
        lua_settop(state, top);
    }

    LoadedScript loaded{""};
    lua_State* state = loaded.state();
    const int top = lua_gettop(state);
};

TEST_F(LuaValueTest, AVariantIsOfTheFirstKindThatTheNumberIs)
{
    EXPECT_EQ(got<Variant>("nil"), Variant());
    EXPECT_EQ(got<Variant>("true"), Variant(true));
    EXPECT_EQ(got<Variant>("false"), Variant(false));
    EXPECT_EQ(got<Variant>("'12'"), Variant("12"));
    EXPECT_EQ(got<Variant>("'a\\0b'"), Variant(std::string("a\0b", 3)));
    EXPECT_EQ(got<Variant>("0"), Variant(0));
    EXPECT_EQ(got<Variant>("2147483647"), Variant(INT_MAX));
    EXPECT_EQ(got<Variant>("-2147483648"), Variant(INT_MIN));
    EXPECT_EQ(got<Variant>("2147483648"), Variant(2147483648LL));
    EXPECT_EQ(got<Variant>("-2147483649"), Variant(-2147483649LL));
    EXPECT_EQ(got<Variant>("2^53"), Variant(1LL << 53));
    EXPECT_EQ(got<Variant>("-2^53"), Variant(-(1LL << 53)));
    EXPECT_EQ(got<Variant>("2^53 + 2"), Variant(9007199254740994.0));
    EXPECT_EQ(got<Variant>("1e300"), Variant(1e300));
    EXPECT_EQ(got<Variant>("0.5"), Variant(0.5));
    EXPECT_EQ(got<Variant>("1 / 0"), Variant(HUGE_VAL));
    const Variant zero = got<Variant>("-1 / (1 / 0)");
    EXPECT_TRUE(zero.is<double>() && std::signbit(zero.get<double>()));
    const Variant nan = got<Variant>("0 / 0");
    EXPECT_TRUE(nan.is<double>() && std::isnan(nan.get<double>()));
}

TEST_F(LuaValueTest, EveryNumberComesBackToLuaAsItWas)
{
    for (const char* number : {"0", "-1", "2147483647", "-2147483648", "4294967295", "2^53",
                               "-2^53", "2^53 + 2", "0.1", "-0.5", "1e300", "5e-324", "1 / 0"}) {
        SCOPED_TRACE(number);
        evaluate(number);
        Variant value;
        ASSERT_EQ(LuaValue::get(state, -1, value), STATUS_SUCCESS);
        ASSERT_EQ(LuaValue::push(state, value), STATUS_SUCCESS);
        EXPECT_EQ(lua_rawequal(state, -1, -2), 1);
        lua_settop(state, top);
    }
    const Variant zero = turned(Variant(-0.0));
    EXPECT_TRUE(zero.is<double>() && std::signbit(zero.get<double>()));
}

TEST_F(LuaValueTest, EachKindGoesToLuaWithItsValue)
{
    EXPECT_EQ(turned(Variant()), Variant());
    EXPECT_EQ(turned(Variant(-5)), Variant(-5));
    EXPECT_EQ(turned(Variant(5U)), Variant(5));
    EXPECT_EQ(turned(Variant(UINT_MAX)), Variant(4294967295LL));
    EXPECT_EQ(turned(Variant(-5L)), Variant(-5));
    EXPECT_EQ(turned(Variant(5UL)), Variant(5));
    EXPECT_EQ(turned(Variant(1LL << 40)), Variant(1LL << 40));
    EXPECT_EQ(turned(Variant(1ULL << 53)), Variant(1LL << 53));
    EXPECT_EQ(turned(Variant(0.1F)), Variant(static_cast<double>(0.1F)));
    EXPECT_EQ(turned(Variant(2.0F)), Variant(2));
    EXPECT_EQ(turned(Variant(2.5)), Variant(2.5));
    EXPECT_EQ(turned(Variant(DBL_MAX)), Variant(DBL_MAX));
    EXPECT_EQ(turned(Variant(true)), Variant(true));
    EXPECT_EQ(turned(Variant("text")), Variant("text"));
    EXPECT_EQ(turned(Variant(1LL << 60)), Variant(1152921504606846976.0)) << "exact, if large";
}

TEST_F(LuaValueTest, PlainTypesGoBothWays)
{
    EXPECT_EQ(turned(true), true);
    EXPECT_EQ(turned(INT_MIN), INT_MIN);
    EXPECT_EQ(turned(UINT_MAX), UINT_MAX);
    EXPECT_EQ(turned(1LL << 53), 1LL << 53);
    EXPECT_EQ(turned(LLONG_MIN), LLONG_MIN);
    EXPECT_EQ(turned(1ULL << 63), 1ULL << 63);
    EXPECT_EQ(turned(0.1F), 0.1F);
    EXPECT_EQ(turned(0.1), 0.1);
    EXPECT_EQ(turned(std::string("a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(turned(std::optional<int>(5)), 5);
    EXPECT_EQ(turned(std::optional<int>()), std::nullopt);
    EXPECT_EQ(got<std::string>("12.5"), "12.5");
    EXPECT_EQ(got<std::string>("1e15"), "1e+15") << "as Lua writes it";
    EXPECT_EQ(got<int>("' 0x10 '"), 16);
}

TEST_F(LuaValueTest, ARecordHasItsEntriesInTheOrderOfTheirKeys)
{
    const KeyValues record =
        got<KeyValues>("{b = 1, ['a'] = 'x', B = true, ['\\128'] = 0.5, ab = 2^40, ['a\\0'] = 3}");

    EXPECT_EQ(record, (KeyValues{{"B", true},
                                 {"a", "x"},
                                 {std::string("a\0", 2), 3},
                                 {"ab", 1LL << 40},
                                 {"b", 1},
                                 {"\200", 0.5}}));
    EXPECT_EQ(got<KeyValues>("{}"), KeyValues());
}

TEST_F(LuaValueTest, ARecordOfManyFieldsIsTheSameHoweverItWasFilled)
{
    const KeyValues up = got<KeyValues>(
        "(function() local t = {} for i = 1, 500 do t['k' .. i] = i end return t end)()");
    const KeyValues down = got<KeyValues>(
        "(function() local t = {} for i = 700, 1, -1 do t['k' .. i] = i end\n"
        "for i = 501, 700 do t['k' .. i] = nil end return t end)()");

    EXPECT_EQ(up.getCount(), 500);
    EXPECT_EQ(up, down);
    EXPECT_EQ(turned(up), up);
}

TEST_F(LuaValueTest, AnEntryWithoutValueIsNoField)
{
    EXPECT_EQ(turned(KeyValues{{"a", 1}, {"b", Variant()}, {"c", "x"}}),
              (KeyValues{{"a", 1}, {"c", "x"}}));
}

TEST_F(LuaValueTest, ListsGoBothWays)
{
    using Lists = std::vector<std::vector<std::vector<std::vector<int>>>>;

    EXPECT_THAT(got<std::vector<Variant>>("{1, 'two', true, 0.5}"),
                ElementsAre(Variant(1), Variant("two"), Variant(true), Variant(0.5)));
    EXPECT_THAT(got<std::vector<int>>("{[3] = 30, [1] = 10, [2] = 20}"), ElementsAre(10, 20, 30));
    EXPECT_THAT(got<std::vector<int>>("{}"), IsEmpty());
    EXPECT_EQ(turned(std::vector<bool>{true, false}), (std::vector<bool>{true, false}));
    EXPECT_EQ(turned(std::vector<std::string>{"a", ""}), (std::vector<std::string>{"a", ""}));
    EXPECT_EQ(turned(Lists{{{{1, 2}, {}}, {}}, {{{3}}}}), (Lists{{{{1, 2}, {}}, {}}, {{{3}}}}));
    const std::vector<KeyValues> records = {{{"a", 1}}, {}, {{"b", true}, {"c", "x"}}};
    EXPECT_EQ(turned(records), records);
}

TEST_F(LuaValueTest, TextsOfOthersCanBePushed)
{
    EXPECT_EQ(LuaValue::push(state, "text"), STATUS_SUCCESS);
    EXPECT_EQ(LuaValue::push(state, std::string_view("view")), STATUS_SUCCESS);
    EXPECT_EQ(LuaValue::push(state, std::vector<const char*>{"a", "b"}), STATUS_SUCCESS);

    EXPECT_STREQ(lua_tostring(state, -3), "text");
    EXPECT_STREQ(lua_tostring(state, -2), "view");
    EXPECT_EQ(lua_objlen(state, -1), 2U);
}

TEST_F(LuaValueTest, WhatDoesNotFitIsRefusedAndChangesNothing)
{
    expectRefusal("{}", "boolean, number or string expected, got table", Variant(5));
    expectRefusal("print", "boolean, number or string expected, got function", Variant(5));
    expectRefusal("'x'", "number expected, got string", 5);
    expectRefusal("nil", "number expected, got nil", 5);
    expectRefusal("1", "boolean expected, got number", true);
    expectRefusal("true", "string expected, got boolean", std::string("before"));
    expectRefusal("{1}", "record expected, got table with other keys", KeyValues{{"a", 1}});
    expectRefusal("{a = {}}", "boolean, number or string expected, got table at a",
                  KeyValues{{"a", 1}});
    expectRefusal("{1, a = 2}", "list expected, got table with other keys", std::vector<int>{5});
    expectRefusal("{1, nil, nil, 2}", "list expected, got table with other keys",
                  std::vector<int>{5});
    expectRefusal("{1, {}}", "number expected, got table at [2]", std::vector<int>{5});
    expectRefusal("{1, 'x'}", "number expected, got string at [2]",
                  std::optional<std::vector<int>>());
    const std::string longKey(300, 'k');
    expectRefusal("{['" + longKey + "'] = {}}",
                  "boolean, number or string expected, got table at " + longKey.substr(0, 64),
                  KeyValues());
}

TEST_F(LuaValueTest, TheReasonDoesNotDependOnWhereAFieldLies)
{
    for (int size = 1; size < 40; ++size) {
        expectRefusal("(function() local t = {} for i = 1, " + std::to_string(size) +
                          " do t['k' .. i] = {} end t.a = print return t end)()",
                      "boolean, number or string expected, got function at a", KeyValues());
    }
}

TEST_F(LuaValueTest, WhatLuaCannotHoldIsNotPushed)
{
    const auto expectNothing = [&](const auto& value, const std::string& reason) {
        LogCapture log;
        EXPECT_EQ(LuaValue::push(state, value), STATUS_INVALID_PARAMETER);
        EXPECT_THAT(log.lines(), ElementsAre(logged("push", "Invalid value (" + reason + ").")));
        EXPECT_EQ(lua_gettop(state), top);
    };
    expectNothing((1LL << 53) + 1, "no number of Lua is 9007199254740993");
    expectNothing(LLONG_MAX, "no number of Lua is 9223372036854775807");
    expectNothing(ULLONG_MAX, "no number of Lua is 18446744073709551615");
    expectNothing(KeyValues{{"id", ULLONG_MAX}}, "no number of Lua is 18446744073709551615");
    expectNothing(std::vector<Variant>{1, Variant()}, "no value at [2]");
    expectNothing(std::vector<const char*>{"a", nullptr}, "no value at [2]");
}

TEST_F(LuaValueTest, MetatablesAreNotLookedAt)
{
    const std::string strange =
        "setmetatable({a = 1}, {__index = function() error('asked') end,\n"
        "  __newindex = function() error('asked') end, __len = function() error('asked') end})";
    EXPECT_EQ(got<KeyValues>(strange), (KeyValues{{"a", 1}}));
}

// ---- In an application's own function -----------------------------------------------------------

/** Takes a record and returns it in a list, with what it lacks. */
int complete(lua_State* from)
{
    LuaValue::check<KeyValues>(from, 1);
    LuaValue::check<std::optional<int>>(from, 2);

    LuaGuard guard(from);
    int r = STATUS_FAILURE;
    const bool done = guard.run([&] {
        KeyValues record;
        std::optional<int> level;
        LuaValue::get(from, 1, record);
        LuaValue::get(from, 2, level);
        record.set("level", level.value_or(-1));
        r = LuaValue::push(from, std::vector<KeyValues>{record});
    });
    if (!done) {
        return guard.raise();
    }
    return r == STATUS_SUCCESS ? 1 : luaL_error(from, "no memory");
}

TEST_F(LuaValueTest, OrdinaryFunctionsCheckReadAndPush)
{
    lua_register(state, "complete", complete);

    EXPECT_EQ(got<std::vector<KeyValues>>("complete({name = 'a'})"),
              (std::vector<KeyValues>{{{"level", -1}, {"name", "a"}}}));
    EXPECT_EQ(got<std::vector<KeyValues>>("complete({name = 'a'}, 5)")[0].get("level", 0), 5);
    EXPECT_EQ(got<std::string>("select(2, pcall(complete))"),
              "bad argument #1 to '?' (table expected, got no value)");
    EXPECT_THAT(
        got<std::string>("select(2, pcall(function() complete({name = {}}) end))"),
        EndsWith(":1: bad argument #1 to 'complete' (boolean, number or string expected, got "
                 "table at name)"));
}

TEST_F(LuaValueTest, PushingWithoutMemoryIsACode)
{
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* opened) { memory.attach(opened); });
    const std::vector<KeyValues> records = {{{"name", "a name that is new to it"}}, {{"b", 1}}};
    int failures = 0;
    for (int nth = 1; nth < 1000; ++nth) {
        const LoadedScript other("");
        LogCapture log;

        memory.refuseFrom(nth);
        const int r = LuaValue::push(other.state(), records);
        memory.refuseNothing();

        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(other.top(), BUILT_IN + 1);
            EXPECT_THAT(log.lines(), IsEmpty());
            break;
        }
        ++failures;
        EXPECT_EQ(r, STATUS_OUT_OF_MEMORY);
        EXPECT_THAT(log.lines(), ElementsAre(logged("push", "Memory allocation failed.")));
        EXPECT_EQ(other.top(), BUILT_IN);
    }
    EXPECT_GT(failures, 3);
}

TEST_F(LuaValueTest, ReadingWithoutMemoryThrowsAndChangesNothing)
{
    evaluate("{{name = 'a text that takes memory'}, {other = 'another text that takes memory'}}");
    const std::vector<KeyValues> expected = {{{"name", "a text that takes memory"}},
                                             {{"other", "another text that takes memory"}}};
    int failures = 0;
    for (int nth = 1; nth < 1000; ++nth) {
        std::vector<KeyValues> records;
        bool happened = false;
        bool thrown = false;
        {
            const AllocationFailure failure(Allocation::ThrowingNew, nth);
            try {
                LuaValue::get(state, -1, records);
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            happened = failure.happened();
        }
        EXPECT_EQ(thrown, happened);
        EXPECT_EQ(lua_gettop(state), top + 1);
        if (!happened) {
            EXPECT_EQ(records, expected);
            break;
        }
        ++failures;
    }
    EXPECT_GT(failures, 5);
}

}  // namespace
}  // namespace oxil::test
