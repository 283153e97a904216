// C++ functions that are bound: what scripts may give them, what comes back, and what may happen to
// the script meanwhile.

#include <OxLuaApi.h>
#include <OxLuaLimits.h>
#include <OxLuaScript.h>
#include <OxStatus.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <functional>
#include <lua.hpp>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "AllocationSweep.h"
#include "LoadedScript.h"
#include "LuaCalls.h"
#include "LuaMemory.h"
#include "MainLoop.h"
#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const LoggedBy logged("OxLuaApi.cpp");

/** Binds what the test wants. */
class BindingApi : public LuaApi {
public:
    explicit BindingApi(std::function<int(BindingApi&)> whatIsBound = [](BindingApi&) { return 0; })
        : __bind(std::move(whatIsBound))
    {
    }

    int onLoading() override { return __bind(*this); }

private:
    std::function<int(BindingApi&)> __bind;
};

/** A script with an API that nothing is bound in yet. */
class LuaBindingTest : public testing::Test {
protected:
    /** What a Lua expression is, as text, or its error without the position. */
    std::string evaluated(const std::string& expression) const
    {
        const std::string code = "return tostring(" + expression + ")";
        lua_State* state = loaded.state();
        if (luaL_loadbuffer(state, code.c_str(), code.size(), "=test") == 0) {
            lua_pcall(state, 0, 1, 0);
        }
        const std::string result = loaded.message();
        lua_pop(state, 1);
        const std::string position = "test:1: ";
        return result.substr(result.rfind(position, 0) == 0 ? position.size() : 0);
    }

    BindingApi api;
    LoadedScript loaded{"", {&api}};
};

// ---- Where it goes -------------------------------------------------------------------------------

int doubled(int number)
{
    return 2 * number;
}

TEST_F(LuaBindingTest, ItIsAGlobalOrAFieldOfATable)
{
    EXPECT_EQ(api.bind("one", [] { return 1; }), STATUS_SUCCESS);
    EXPECT_EQ(api.bind("Shelf.two", [] { return 2; }), STATUS_SUCCESS);
    EXPECT_EQ(api.bind("Shelf.three", [] { return 3; }), STATUS_SUCCESS);
    EXPECT_EQ(api.bind("Shop.Shelf.four", [] { return 4; }), STATUS_SUCCESS);
    EXPECT_EQ(api.bind("string.five", [] { return 5; }), STATUS_SUCCESS);

    EXPECT_EQ(evaluated("one() .. Shelf.two() .. Shelf.three() .. Shop.Shelf.four()"), "1234");
    EXPECT_EQ(evaluated("string.five() .. string.upper('a')"), "5A");
    EXPECT_EQ(evaluated("require 'Shelf' == Shelf"), "true");
    EXPECT_EQ(loaded.top(), BUILT_IN) << "nothing is left on the stack";
}

TEST_F(LuaBindingTest, TheFileItselfMayCallIt)
{
    BindingApi early([](BindingApi& self) { return self.bind("Shelf.one", [] { return 1; }); });
    LoadedScript script("found = Shelf.one()", {&early});

    EXPECT_EQ(globalText(script, "found"), "1");
}

TEST_F(LuaBindingTest, ALaterFunctionTakesThePlaceOfAnEarlierOne)
{
    EXPECT_EQ(api.bind("Shelf.one", [] { return 1; }), STATUS_SUCCESS);
    EXPECT_EQ(api.bind("Shelf.one", [] { return "other"; }), STATUS_SUCCESS);

    EXPECT_EQ(evaluated("Shelf.one()"), "other");
}

TEST_F(LuaBindingTest, WhatHasNoPlaceIsRefused)
{
    const auto counter = std::make_shared<int>();
    for (const char* name : {"", ".", "Shelf.", ".put"}) {
        SCOPED_TRACE(name);
        LogCapture log;
        EXPECT_EQ(api.bind(name, [counter] {}), STATUS_INVALID_PARAMETER);
        EXPECT_THAT(log.lines(), ElementsAre(logged("bind", "Invalid parameter")));
    }
    for (const char* name : {"print.put", "_VERSION.put", "string.upper.put"}) {
        SCOPED_TRACE(name);
        LogCapture log;
        EXPECT_EQ(api.bind(name, [counter] {}), STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(), ElementsAre(logged("bind", "Invalid state")));
    }
    lua_gc(loaded.state(), LUA_GCCOLLECT, 0);
    EXPECT_EQ(counter.use_count(), 1) << "all of them are destroyed";
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST_F(LuaBindingTest, ItNeedsALoadedScript)
{
    const auto counter = std::make_shared<int>();
    BindingApi lonely;
    LuaScript script;
    LogCapture log;

    EXPECT_EQ(lonely.bind("put", [counter] {}), STATUS_INVALID_STATE);
    EXPECT_EQ(lonely.load(&script), STATUS_SUCCESS);
    EXPECT_EQ(lonely.bind("put", [counter] {}), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(),
                ElementsAre(logged("bind", "Invalid state"), logged("bind", "Invalid state")));
    EXPECT_EQ(counter.use_count(), 1);
}

// ---- What can be bound ---------------------------------------------------------------------------

class Shelf {
public:
    void put(const std::string& article, int count)
    {
        articles += article;
        total += count;
    }
    int count() const noexcept { return total; }

    std::string articles;
    int total = 0;
};

TEST_F(LuaBindingTest, FunctionsObjectsAndMembersAreBound)
{
    struct Adder {
        int operator()(int number) { return sum += number; }
        int sum = 10;
    };
    Shelf shelf;
    int calls = 0;
    const std::function<int()> wrapped = [&calls] { return ++calls; };
    api.bind("doubled", doubled);
    api.bind("doubledToo", &doubled);
    api.bind("add", Adder());
    api.bind("wrapped", wrapped);
    api.bind("owned", [held = std::make_unique<int>(7)]() mutable { return (*held)++; });
    api.bind("Shelf.put", &shelf, &Shelf::put);
    api.bind("Shelf.count", &shelf, &Shelf::count);

    EXPECT_EQ(evaluated("doubled(4) .. ' ' .. doubledToo(5)"), "8 10");
    EXPECT_EQ(evaluated("add(1) .. ' ' .. add(2)"), "11 13") << "its state lasts";
    EXPECT_EQ(evaluated("wrapped() + wrapped()"), "3");
    EXPECT_EQ(evaluated("owned() .. owned()"), "78");
    EXPECT_EQ(evaluated("Shelf.put('bolt', 3) or 'nothing'"), "nothing");
    EXPECT_EQ(evaluated("Shelf.count()"), "3");
    EXPECT_EQ(shelf.articles, "bolt");
}

// ---- Parameters ----------------------------------------------------------------------------------

TEST_F(LuaBindingTest, ParametersAreWhatTheScriptGave)
{
    std::string seen;
    api.bind("see", [&](bool flag, int number, unsigned int natural, long long large, float ratio,
                        double exact, const std::string& text) {
        seen = std::to_string(flag) + ' ' + std::to_string(number) + ' ' + std::to_string(natural) +
               ' ' + std::to_string(large) + ' ' + std::to_string(ratio) + ' ' +
               std::to_string(exact) + ' ' + text;
    });
    EXPECT_EQ(evaluated("see(true, -3, 4000000000, 2^53, 0.5, 0.25, 'a\\0b') or 1"), "1");
    EXPECT_EQ(seen, "1 -3 4000000000 9007199254740992 0.500000 0.250000 a" + std::string("\0b", 2));

    // What else Lua takes for numbers and texts.
    EXPECT_EQ(evaluated("see(false, '-3', '0x10', 1, '1e1', 2, 1.5) or 1"), "1");
    EXPECT_EQ(seen, "0 -3 16 1 10.000000 2.000000 1.5");
}

TEST_F(LuaBindingTest, IntegersLoseTheirFractionAndStopAtTheirLimits)
{
    const double infinity = INFINITY;
    struct Case {
        double number;
        int asInt;
        unsigned int asUInt;
        long long asLongLong;
        unsigned long long asULongLong;
    };
    const Case cases[] = {
        {2.9, 2, 2, 2, 2},
        {-2.9, -2, 0, -2, 0},
        {-0.5, 0, 0, 0, 0},
        {2147483648.0, INT_MAX, 2147483648U, 2147483648LL, 2147483648ULL},
        {-2147483649.0, INT_MIN, 0, -2147483649LL, 0},
        {4294967296.5, INT_MAX, UINT_MAX, 4294967296LL, 4294967296ULL},
        {9223372036854775808.0, INT_MAX, UINT_MAX, LLONG_MAX, 9223372036854775808ULL},
        {1e300, INT_MAX, UINT_MAX, LLONG_MAX, ULLONG_MAX},
        {-1e300, INT_MIN, 0, LLONG_MIN, 0},
        {infinity, INT_MAX, UINT_MAX, LLONG_MAX, ULLONG_MAX},
        {-infinity, INT_MIN, 0, LLONG_MIN, 0},
        {NAN, 0, 0, 0, 0}};
    std::tuple<int, unsigned int, long long, unsigned long long> seen;
    api.bind("see", [&](int a, unsigned int b, long long c, unsigned long long d) {
        seen = {a, b, c, d};
    });
    for (const Case& test : cases) {
        SCOPED_TRACE(test.number);
        lua_getglobal(loaded.state(), "see");
        for (int i = 0; i < 4; ++i) {
            lua_pushnumber(loaded.state(), test.number);
        }
        ASSERT_EQ(lua_pcall(loaded.state(), 4, 0, 0), 0);
        EXPECT_EQ(seen, std::tuple(test.asInt, test.asUInt, test.asLongLong, test.asULongLong));
    }
}

TEST_F(LuaBindingTest, TextsOfLuaAreNotCopied)
{
    std::string seen;
    const char* place = nullptr;
    api.bind("see", [&](std::string_view view, const char* text) {
        place = view.data();
        seen = std::string(view) + '|' + text;
    });
    lua_getglobal(loaded.state(), "see");
    lua_pushlstring(loaded.state(), "a\0b", 3);
    const char* const original = lua_tostring(loaded.state(), -1);
    lua_pushnumber(loaded.state(), 12.5);
    ASSERT_EQ(lua_pcall(loaded.state(), 2, 0, 0), 0);

    EXPECT_EQ(place, original);
    EXPECT_EQ(seen, std::string("a\0b|12.5", 8));
}

TEST_F(LuaBindingTest, WhatIsOptionalMayBeLeftOut)
{
    api.bind("see", [](std::optional<int> number, const std::optional<std::string>& text,
                       const Variant& value, std::optional<std::vector<int>> list) {
        return std::to_string(number.value_or(-1)) + ' ' + text.value_or("none") + ' ' +
               value.toString() + ' ' + (list.has_value() ? std::to_string(list->size()) : "none");
    });
    EXPECT_EQ(evaluated("see()"), "-1 none null none");
    EXPECT_EQ(evaluated("see(nil, 'a')"), "-1 a null none");
    EXPECT_EQ(evaluated("see(1, nil, true, {})"), "1 none 1 0");
    EXPECT_EQ(evaluated("see(1, 'a', 'b', {5, 6}, 'more')"), "1 a b 2");
    EXPECT_EQ(evaluated("see('one')"), "bad argument #1 to 'see' (number expected, got string)");
}

TEST_F(LuaBindingTest, WrongArgumentsHaveLuasOwnErrors)
{
    int calls = 0;
    api.bind("Shelf.put", [&](const std::string&, int, bool) { ++calls; });
    api.bind("show", [&](const KeyValues&, const std::vector<KeyValues>&) { ++calls; });
    api.bind("list", [&](const std::vector<std::vector<int>>&) { ++calls; });
    api.bind("value", [&](const Variant&) { ++calls; });

    const auto expect = [&](const char* expression, const char* error) {
        EXPECT_EQ(evaluated(expression), error);
    };
    const std::string luas = evaluated("string.rep('a')");
    EXPECT_EQ(luas, "bad argument #2 to 'rep' (number expected, got no value)");
    expect("Shelf.put('bolt')", "bad argument #2 to 'put' (number expected, got no value)");
    expect("Shelf.put()", "bad argument #1 to 'put' (string expected, got no value)");
    expect("Shelf.put({}, 1, true)", "bad argument #1 to 'put' (string expected, got table)");
    expect("Shelf.put('a', 'b', true)", "bad argument #2 to 'put' (number expected, got string)");
    expect("Shelf.put('a', 1, 1)", "bad argument #3 to 'put' (boolean expected, got number)");
    expect("Shelf.put('a', 1)", "bad argument #3 to 'put' (boolean expected, got no value)");
    expect("show(1)", "bad argument #1 to 'show' (table expected, got number)");
    expect("show({}, nil)", "bad argument #2 to 'show' (table expected, got nil)");
    expect("show({size = {}, age = print, name = 'a'})",
           "bad argument #1 to 'show' (boolean, number or string expected, got function at age)");
    expect("show({size = {}, [1] = 2})",
           "bad argument #1 to 'show' (record expected, got table with other keys)");
    expect("show({[''] = 2})",
           "bad argument #1 to 'show' (record expected, got table with other keys)");
    expect("show({}, {{}, {size = {}}})",
           "bad argument #2 to 'show' (boolean, number or string expected, got table at [2].size)");
    expect("show({}, {{}, 'a'})", "bad argument #2 to 'show' (table expected, got string at [2])");
    expect("show({}, {a = {}})",
           "bad argument #2 to 'show' (list expected, got table with other keys)");
    expect("list({{1, 2}, {3, {}}})",
           "bad argument #1 to 'list' (number expected, got table at [2][2])");
    expect("list({{1, 2}, {3, [5] = 4}})",
           "bad argument #1 to 'list' (list expected, got table with other keys at [2])");
    expect("list({{1, 2}, {3, nil, 4, nil, nil, nil, nil, 5}})",
           "bad argument #1 to 'list' (list expected, got table with other keys at [2])");
    expect("list({{1.5, [1.5] = 2}})",
           "bad argument #1 to 'list' (list expected, got table with other keys at [1])");
    expect("list({{nil, 2, [1.5] = 1}})",
           "bad argument #1 to 'list' (list expected, got table with other keys at [1])");
    expect("value({})",
           "bad argument #1 to 'value' (boolean, number or string expected, got table)");
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST_F(LuaBindingTest, AWrongArgumentInAScriptSaysWhere)
{
    BindingApi other([](BindingApi& self) { return self.bind("put", [](int) {}); });
    LoadedScript script("function f()\n  put('x')\nend", {&other});

    std::string message;
    EXPECT_EQ(script.script.callMethod("f", std::tie(message)), STATUS_SUCCESS);
    EXPECT_THAT(message, EndsWith(":2: bad argument #1 to 'put' (number expected, got string)"));
}

TEST_F(LuaBindingTest, ATableThatContainsItselfIsRefused)
{
    api.bind("list", [](const std::vector<std::vector<int>>&) {});
    api.bind("show", [](const KeyValues&) {});
    ASSERT_EQ(luaL_dostring(loaded.state(), "t = {} t[1] = t r = {} r.self = r"), 0);

    EXPECT_EQ(evaluated("list(t)"),
              "bad argument #1 to 'list' (number expected, got table at [1][1])");
    EXPECT_EQ(evaluated("show(r)"),
              "bad argument #1 to 'show' (boolean, number or string expected, got table at self)");
}

// ---- Results -------------------------------------------------------------------------------------

TEST_F(LuaBindingTest, ResultsAreLuaValues)
{
    api.bind("nothing", [] {});
    api.bind("flag", [] { return true; });
    api.bind("number", [] { return -3; });
    api.bind("natural", [] { return 4000000000U; });
    api.bind("large", [] { return 1LL << 53; });
    api.bind("ratio", [] { return 0.5F; });
    api.bind("exact", [] { return 0.1; });
    api.bind("text", [] { return std::string("a\0b", 3); });
    api.bind("view", [] { return std::string_view("view"); });
    api.bind("literal", [] { return "literal"; });
    api.bind("null", []() -> const char* { return nullptr; });
    api.bind("absent", [] { return std::optional<int>(); });
    api.bind("present", [] { return std::optional<std::string>("here"); });
    api.bind("value", [] { return Variant(2.5); });
    api.bind("several", [] { return std::tuple(1, "two", std::optional<int>(), true); });

    EXPECT_EQ(evaluated("select('#', nothing())"), "0");
    EXPECT_EQ(evaluated("flag() == true"), "true");
    EXPECT_EQ(evaluated("number() == -3 and natural() == 4000000000 and large() == 2^53"), "true");
    EXPECT_EQ(evaluated("ratio() == 0.5 and exact() == 0.1"), "true");
    EXPECT_EQ(evaluated("text() == 'a\\0b'"), "true");
    EXPECT_EQ(evaluated("view() .. literal()"), "viewliteral");
    EXPECT_EQ(evaluated("null() == nil and absent() == nil"), "true");
    EXPECT_EQ(evaluated("present()"), "here");
    EXPECT_EQ(evaluated("value()"), "2.5");
    EXPECT_EQ(evaluated("select('#', several())"), "4");
    EXPECT_EQ(evaluated("table.concat({tostring(several()), select(2, several()), "
                        "tostring(select(3, several())), tostring((select(4, several())))}, ' ')"),
              "1 two nil true");
    EXPECT_EQ(loaded.top(), BUILT_IN);
}

TEST_F(LuaBindingTest, TablesGoBothWays)
{
    api.bind("turn", [](const std::vector<KeyValues>& records) {
        return std::vector<KeyValues>(records.rbegin(), records.rend());
    });
    api.bind("sorted", [](const KeyValues& record) { return record.getKeys(); });
    api.bind("twice", [](std::vector<std::vector<double>> lists) {
        const std::vector<std::vector<double>> more = lists;
        lists.insert(lists.end(), more.begin(), more.end());
        return lists;
    });
    api.bind("flags", [](std::vector<bool> flags) {
        flags.flip();
        return flags;
    });

    EXPECT_EQ(evaluated("turn({{name = 'a'}, {name = 'b', on = true}})[1].name"), "b");
    EXPECT_EQ(evaluated("#turn({{name = 'a'}, {name = 'b', on = true}})"), "2");
    EXPECT_EQ(evaluated("table.concat(sorted({b = 1, a = 2, B = true, ['\\255'] = 1}), ' ')"),
              "B a b \xFF");
    EXPECT_EQ(evaluated("#twice({{1}, {2, 3}})"), "4");
    EXPECT_EQ(evaluated("twice({{1}, {2, 0.5}})[4][2]"), "0.5");
    EXPECT_EQ(evaluated("tostring(flags({true, false})[2])"), "true");
    EXPECT_EQ(evaluated("#turn({})"), "0");
}

TEST_F(LuaBindingTest, AResultThatLuaCannotHoldIsAnError)
{
    BindingApi other([](BindingApi& self) {
        self.bind("large", [] { return (1LL << 53) + 1; });
        self.bind("largest", [] { return ULLONG_MAX; });
        self.bind("value", [] { return Variant(LLONG_MAX); });
        self.bind("record", [] { return KeyValues{{"id", LLONG_MIN + 1}}; });
        return self.bind("gap", [] { return std::vector<Variant>{1, Variant(), 3}; });
    });
    LoadedScript script("function f(name)\n  return _G[name]()\nend", {&other});
    const auto expect = [&](const char* name, const char* error) {
        std::string message;
        EXPECT_EQ(script.script.callMethod("f", std::tie(message), name), STATUS_SUCCESS);
        EXPECT_EQ(message, script.file.path() + ":2: " + error);
    };
    // In a tail call the caller is not known.
    script.file.write("function f(name)\n  local r = _G[name]()\nend");
    ASSERT_EQ(script.script.load(), STATUS_SUCCESS);

    expect("large", "no number of Lua is 9007199254740993");
    expect("largest", "no number of Lua is 18446744073709551615");
    expect("value", "no number of Lua is 9223372036854775807");
    expect("record", "no number of Lua is -9223372036854775807");
    expect("gap", "no value at [2]");
}

// ---- Exceptions ----------------------------------------------------------------------------------

TEST_F(LuaBindingTest, WhatItThrowsComesOutOfTheCall)
{
    BindingApi other([](BindingApi& self) {
        return self.bind("fail", [](const std::string& why) { throw std::out_of_range(why); });
    });
    LoadedScript script(
        "function f() fail('too far') end\n"
        "function handled() return select(2, pcall(fail, 'too far')) end",
        {&other});

    EXPECT_THROW(script.script.callMethod("f"), std::out_of_range);
    std::string message;
    EXPECT_EQ(script.script.callMethod("handled", std::tie(message)), STATUS_SUCCESS);
    EXPECT_EQ(message, "too far");

    script.file.write("fail('at once')");
    LogCapture log;
    EXPECT_THROW(script.script.load(), std::out_of_range);
}

TEST_F(LuaBindingTest, WhatFailsInATimersFunctionReachesTheErrorHandler)
{
    struct Report {
        std::string name;
        std::string message;
        std::string traceback;
    };
    std::vector<Report> reports;
    BindingApi other([](BindingApi& self) {
        self.bind("check", [](int) {});
        return self.bind("fail", [] { throw std::runtime_error("broken"); });
    });
    LoadedScript script(
        "function first() check('x') end\n"
        "function second() fail() end\n"
        "local a, b = Timer.start(0, 'first'), Timer.start(0, 'second')\n"
        "function stop() Timer.stop(b) Timer.stop(a) end",
        {&other});
    script.script.setErrorHandler(
        [&](const std::string& name, const std::string& message, const std::string& traceback) {
            reports.push_back({name, message, traceback});
        });

    EXPECT_TRUE(iterateUntil([&] { return reports.size() == 2; }, std::chrono::seconds(5)));

    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].name, "first");
    EXPECT_THAT(reports[0].message,
                EndsWith(":1: bad argument #1 to 'check' (number expected, got string)"));
    EXPECT_THAT(reports[0].traceback, StartsWith("stack traceback:\n\t[C]: in function 'check'"));
    EXPECT_THAT(reports[0].traceback, HasSubstr(script.file.path() + ":1: in function"));
    EXPECT_EQ(reports[1].name, "second");
    EXPECT_THAT(reports[1].message, EndsWith(":2: broken"));
    EXPECT_THAT(reports[1].traceback, StartsWith("stack traceback:\n\t[C]: in function 'fail'"));
    EXPECT_EQ(script.script.callMethod("stop"), STATUS_SUCCESS);
}

// ---- How long it lives ---------------------------------------------------------------------------

TEST_F(LuaBindingTest, ItEndsWithTheState)
{
    const auto counter = std::make_shared<int>();
    {
        BindingApi other([&](BindingApi& self) { return self.bind("f", [counter] {}); });
        LoadedScript script("", {&other});
        EXPECT_EQ(counter.use_count(), 2);
        EXPECT_EQ(script.script.load(), STATUS_SUCCESS);
        EXPECT_EQ(counter.use_count(), 2) << "the one of the earlier state is gone";
    }
    EXPECT_EQ(counter.use_count(), 1);
}

TEST_F(LuaBindingTest, OneThatNobodyReachesAnyMoreIsCollected)
{
    const auto counter = std::make_shared<int>();
    api.bind("f", [counter] {});
    api.bind("f", [] {});

    lua_gc(loaded.state(), LUA_GCCOLLECT, 0);

    EXPECT_EQ(counter.use_count(), 1);
}

TEST_F(LuaBindingTest, ItMayTakeItsOwnPlaceAway)
{
    const auto counter = std::make_shared<int>(5);
    api.bind("f", [counter, this] {
        api.bind("f", [] { return -1; });
        lua_gc(loaded.state(), LUA_GCCOLLECT, 0);
        lua_gc(loaded.state(), LUA_GCCOLLECT, 0);
        return *counter + static_cast<int>(counter.use_count());
    });

    EXPECT_EQ(evaluated("f()"), "7");
    EXPECT_EQ(evaluated("f()"), "-1");
    lua_gc(loaded.state(), LUA_GCCOLLECT, 0);
    EXPECT_EQ(counter.use_count(), 1);
}

TEST_F(LuaBindingTest, ItMayCallItselfThroughTheScript)
{
    BindingApi other;
    LoadedScript script("function f(n) return sum(n, tostring(n)) end", {&other});
    other.bind("sum", [&script](int n, const std::string& text) {
        int rest = 0;
        if (n > 0) {
            script.script.callMethod("f", std::tie(rest), n - 1);
        }
        return rest + std::stoi(text);
    });
    int sum = 0;
    EXPECT_EQ(script.script.callMethod("f", std::tie(sum), 20), STATUS_SUCCESS);
    EXPECT_EQ(sum, 210);
}

TEST_F(LuaBindingTest, ItMayDestroyTheScriptOrLoadItAgain)
{
    for (const bool destroys : {true, false}) {
        SCOPED_TRACE(destroys);
        const auto counter = std::make_shared<int>(5);
        std::unique_ptr<LoadedScript> script;
        std::string after;
        BindingApi other([&](BindingApi& self) {
            self.bind("note", [&](const std::string& text) { after += text; });
            return self.bind("leave", [&, counter](const std::string& text) {
                if (destroys) {
                    script.reset();
                } else {
                    script->script.load();
                }
                return text + std::to_string(*counter);
            });
        });
        script = std::make_unique<LoadedScript>("function f() note(leave('a')) end",
                                                std::initializer_list<LuaApi*>{&other});
        LogCapture log;

        EXPECT_EQ(script->script.callMethod("f", 0), STATUS_INVALID_STATE);

        EXPECT_THAT(log.lines(), ElementsAre(Logged("callMethod", "Invalid state.")));
        EXPECT_EQ(after, "a5") << "the function goes on to its end";
        EXPECT_EQ(counter.use_count(), destroys ? 1 : 2);
    }
}

TEST_F(LuaBindingTest, AFinalizerThatComesTooLateIsToldSo)
{
    std::string seen;
    BindingApi late;
    {
        LoadedScript script(
            "local early = newproxy(true)\n"
            "getmetatable(early).__gc = function() note(select(2, pcall(f))) end",
            {});
        late.load(&script.script);
        // Made after the finalizer's object, and so destroyed before it.
        late.bind("f", [] {});
        lua_pushlightuserdata(script.state(), &seen);
        lua_pushcclosure(
            script.state(),
            [](lua_State* state) {
                *static_cast<std::string*>(lua_touserdata(state, lua_upvalueindex(1))) =
                    luaL_checkstring(state, 1);
                return 0;
            },
            1);
        lua_setglobal(script.state(), "note");
    }
    EXPECT_EQ(seen, "the function is no more");
}

TEST_F(LuaBindingTest, ItMayBeCalledInACoroutine)
{
    api.bind("sum", [](const std::vector<int>& numbers) {
        int sum = 0;
        for (const int number : numbers) {
            sum += number;
        }
        return std::tuple(sum, std::to_string(sum));
    });
    api.bind("fail", [] { throw std::out_of_range("too far"); });

    EXPECT_EQ(evaluated("coroutine.wrap(function() return select(2, sum({1, 2, 3})) end)()"), "6");
    EXPECT_THAT(evaluated("select(2, coroutine.resume(coroutine.create(function() fail() end)))"),
                EndsWith("too far"));
}

// ---- Memory --------------------------------------------------------------------------------------

constexpr int MORE_THAN_ENOUGH = 10000;

TEST_F(LuaBindingTest, BindingFailsWhereverMemoryEnds)
{
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* state) { memory.attach(state); });
    const auto counter = std::make_shared<int>(7);
    int failures = 0;
    for (int nth = 1; nth < MORE_THAN_ENOUGH; ++nth) {
        BindingApi other;
        LoadedScript script("", {&other});
        const LogCapture log;

        memory.refuseFrom(nth);
        const int r = other.bind("A.table.f", [counter] { return *counter; });
        memory.refuseNothing();

        EXPECT_EQ(script.top(), BUILT_IN);
        if (r == STATUS_SUCCESS) {
            EXPECT_THAT(log.lines(), IsEmpty());
            break;
        }
        ++failures;
        EXPECT_EQ(r, STATUS_INVALID_STATE);
        EXPECT_THAT(log.lines(), ElementsAre(logged("bind", "Invalid state")));
        // What was left half done does no harm.
        EXPECT_EQ(other.bind("A.table.f", [counter] { return *counter; }), STATUS_SUCCESS);
        EXPECT_EQ(luaL_dostring(script.state(), "assert(A.table.f() == 7)"), 0);
    }
    EXPECT_GT(failures, 5);
    EXPECT_EQ(counter.use_count(), 1);
}

TEST_F(LuaBindingTest, BindingThrowsWhereverTheProcesssMemoryEnds)
{
    const auto counter = std::make_shared<int>();
    const std::string name = "A_table_with_a_long_name.a_function_with_a_long_name";
    const int failures = failEachNew([&] { api.bind(name, [counter] {}); },
                                     [&](bool failed) {
                                         EXPECT_EQ(loaded.top(), BUILT_IN);
                                         EXPECT_EQ(counter.use_count(), failed ? 1 : 2);
                                     });
    EXPECT_EQ(failures, 2) << "the object, and the name of the table";
}

constexpr const char* TURNING =
    "function f(...) return turn({{name = 'a name that is long enough', level = 5}, {on = true}},\n"
    "  'a text that is long enough', {1, 2, 3}, 12.5, 0.5) end";

using Turned = std::tuple<std::vector<KeyValues>, std::string, std::vector<Variant>, std::string>;

Turned turn(const std::vector<KeyValues>& records, std::string text,
            const std::vector<Variant>& list, const std::string& number, const char* half)
{
    return {records, text + number, list, half};
}

TEST_F(LuaBindingTest, ACallIsAnOrdinaryErrorWhereverMemoryEnds)
{
    LuaMemory memory;
    LuaStates states;
    states.whenOpened([&](lua_State* state) { memory.attach(state); });
    int failures = 0;
    for (int nth = 1; nth < MORE_THAN_ENOUGH; ++nth) {
        BindingApi other([](BindingApi& self) { return self.bind("turn", turn); });
        LoadedScript script(TURNING, {&other});
        lua_getglobal(script.state(), "f");

        memory.refuseFrom(nth);
        const int status = lua_pcall(script.state(), 0, LUA_MULTRET, 0);
        const bool refused = memory.refused();
        memory.refuseNothing();

        if (status == 0) {
            EXPECT_FALSE(refused);
            EXPECT_EQ(script.top(), BUILT_IN + 4);
            break;
        }
        ++failures;
        EXPECT_THAT(status, AnyOf(LUA_ERRMEM, LUA_ERRRUN)) << "the latter if raised again";
        EXPECT_EQ(script.message(), "not enough memory");
        EXPECT_EQ(script.top(), BUILT_IN + 1);
        lua_settop(script.state(), BUILT_IN);
        EXPECT_EQ(luaL_dostring(script.state(), "assert(#f() == 2)"), 0);
    }
    EXPECT_GT(failures, 10);
}

TEST_F(LuaBindingTest, ACallThrowsWhereverTheProcesssMemoryEnds)
{
    BindingApi other([](BindingApi& self) { return self.bind("turn", turn); });
    LoadedScript script(TURNING, {&other});
    const int failures = failEachNew([&] { script.script.callMethod("f", 1); },
                                     [&](bool) { lua_settop(script.state(), BUILT_IN); });
    EXPECT_GT(failures, 10);
}

TEST_F(LuaBindingTest, ACallTakesNoMoreMemoryThanItsArguments)
{
    double sum = 0;
    api.bind("add", [&](int one, double other, std::string_view text, std::optional<bool>) {
        sum += one + other + static_cast<double>(text.size());
        return std::tuple(sum, true);
    });
    ASSERT_EQ(luaL_dostring(loaded.state(),
                            "function many(n) for i = 1, n do add(i, 0.5, 'text') end end"),
              0);
    const auto allocations = [&](int times) {
        lua_getglobal(loaded.state(), "many");
        lua_pushinteger(loaded.state(), times);
        const long before = allocationCount();
        EXPECT_EQ(lua_pcall(loaded.state(), 1, 0, 0), 0);
        return allocationCount() - before;
    };
    allocations(1000);
    EXPECT_LT(allocations(1000), 10) << "some of Lua's own";
}

}  // namespace
}  // namespace oxil::test
