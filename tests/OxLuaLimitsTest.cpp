#include "OxLuaLimits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <lua.hpp>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "LoadedScript.h"
#include "MainLoop.h"
#include "NativeApi.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxWaitingLoop.h"

namespace oxil::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint64_t INSTRUCTIONS = 1000 * 1000;
constexpr std::size_t BYTES = 4 * 1024 * 1024;

/** Ends the process if a script is still there after this time; nothing else could. */
class Alarm {
public:
    Alarm() { alarm(60); }
    ~Alarm() { alarm(0); }
};

class LuaLimitsTest : public testing::Test {
protected:
    /** Loads a file with limits; returns the message of the error that ends it, if one does. */
    std::string load(const std::string& content)
    {
        const ScriptFile file(content);
        script = std::make_unique<LuaScript>(file.path());
        script->addLuaApi(&limits);
        LogCapture log;
        if (script->load() == STATUS_SUCCESS) {
            EXPECT_THAT(log.lines(), IsEmpty());
            return "";
        }
        EXPECT_EQ(script->getLuaState(), nullptr);
        const std::string message = log.lines().back().message;
        const std::string prefix = "filePath(" + file.path() + ") (1) (";
        EXPECT_EQ(message.substr(0, prefix.size()), prefix);
        return message.substr(prefix.size(), message.size() - prefix.size() - 2);
    }

    /** Calls a function without parameters or results; returns the message of its error. */
    std::string call(const std::string& function)
    {
        lua_State* state = script->getLuaState();
        const int top = lua_gettop(state);
        EXPECT_EQ(script->callMethod(function, 0), STATUS_SUCCESS);
        const std::string message = lua_gettop(state) > top ? lua_tostring(state, -1) : "";
        lua_settop(state, top);
        return message;
    }

    LuaLimits limits{INSTRUCTIONS, BYTES};
    std::unique_ptr<LuaScript> script;
    const Alarm watch;
};

// ---- What a hostile script does -----------------------------------------------------------------

struct Attack {
    const char* name;
    const char* code;
    const char* message;                 // that ends it
    const char* otherMessage = message;  // or this one, where memory is spent differently
};

void PrintTo(const Attack& attack, std::ostream* stream)
{
    *stream << attack.name;
}

constexpr const char* INSTRUCTIONS_REACHED = "instruction limit reached";
constexpr const char* NO_MEMORY = "not enough memory";

const Attack ATTACKS[] = {
    {"EndsTheProcess", "os.exit(3)", "attempt to call field 'exit' (a nil value)"},
    {"LoopsForEver", "while true do end", INSTRUCTIONS_REACHED},
    {"CallsForEver", "local function f() return f() end f()", INSTRUCTIONS_REACHED},
    {"HandlesTheError", "while true do pcall(function() while true do end end) end",
     INSTRUCTIONS_REACHED},
    {"HandlesTheErrorAtEachLevel",
     "local function f(n) while true do if n > 0 then pcall(f, n - 1) end end end f(100)",
     INSTRUCTIONS_REACHED},
    {"LoopsWhereErrorsAreHandled",
     "xpcall(function() while true do end end, function() while true do end end)",
     "attempt to call global 'xpcall' (a nil value)"},
    {"HidesInCoroutines",
     "local function f(n)"
     "  for i = 1, n > 0 and 30 or 0 do coroutine.wrap(f)(n - 1) end "
     "end f(30)",
     "attempt to index global 'coroutine' (a nil value)"},
    {"LoopsInAFinalizer", "getmetatable(newproxy(true)).__gc = function() while true do end end",
     "attempt to call global 'newproxy' (a nil value)"},
    {"LoopsInTheFinalizerOfAFile",
     "getmetatable(io.stdout).__gc = function() while true do end end",
     "attempt to index global 'io' (a nil value)"},
    {"LoopsInAMetamethod",
     "local t = setmetatable({}, {__index = function() while true do end end}) return t.x",
     INSTRUCTIONS_REACHED},
    {"LoopsWhenItIsSorted", "table.sort({1, 2}, function() while true do end end)",
     INSTRUCTIONS_REACHED},
    {"TakesMemory", "local t = {} while true do t[#t + 1] = {} end", NO_MEMORY},
    {"TakesMemoryAtOnce", "local s = 'x' while true do s = s .. s end", NO_MEMORY},
    {"HandlesTheLackOfMemory",
     "local s = 'x' local function f() while true do s = s .. s end end "
     "while true do pcall(f) end",
     INSTRUCTIONS_REACHED, NO_MEMORY},
    {"OverflowsTheStackByAPattern", "('a'):find(('a?'):rep(500000))",
     "attempt to call method 'rep' (a nil value)"},
    {"MatchesForEver", "('aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa'):match('.-.-.-.-.-.-.-.-b')",
     "attempt to call method 'match' (a nil value)"},
    {"RepeatsNothing", "string.rep('', 2147483647)", "attempt to call field 'rep' (a nil value)"},
    {"CountsWithoutInstructions",
     "local t = {} for i = 0, 30 do t[2 ^ i] = 1 end table.foreachi(t, math.randomseed)",
     "attempt to call field 'foreachi' (a nil value)"},
    {"InsertsFarBelow", "table.insert({}, -2147483648, 1)", "no such position"},
    {"InsertsWhereNumbersAreCutOff", "table.insert({}, 2147483648, 1)", "no such position"},
    {"InsertsNowhere", "table.insert({}, 0 / 0, 1)", "no such position"},
    {"InsertsIntoALongTable",
     "local t = {1, 2, 3, 4} for k = 26, 0, -1 do t[5 * 2 ^ k] = 1 end table.insert(t, 1, 1)",
     "too long"},
    {"SortsALongTable",
     "local t = {1, 2, 3, 4} for k = 26, 0, -1 do t[5 * 2 ^ k] = 1 end table.sort(t, type)",
     "too long"},
    {"RemovesFromALongTable",
     "local t = {1, 2, 3, 4} for k = 26, 0, -1 do t[5 * 2 ^ k] = 1 end table.remove(t, 1)",
     "too long"},
    {"Recurses", "local function f() return 1 + f() end f()", "stack overflow"},
    {"RecursesInC", "local function f() table.sort({1, 2}, f) end f()", "stack overflow"},
    {"LoadsCompiledLua", "loadstring('\\27Lua')",
     "attempt to call global 'loadstring' (a nil value)"},
    {"TurnsTheHookOff", "debug.sethook()", "attempt to index global 'debug' (a nil value)"},
    {"LoadsLibraries", "require('os').exit(3)", "attempt to call global 'require' (a nil value)"},
    {"StopsTheTimersOfOthers", "Timer.stop(0)", "attempt to index global 'Timer' (a nil value)"},
    {"BlocksInALoop", "WaitingLoop.run(WaitingLoop.create())",
     "attempt to index global 'WaitingLoop' (a nil value)"},
};

class LuaLimitsAttackTest : public LuaLimitsTest, public testing::WithParamInterface<Attack> {};

TEST_P(LuaLimitsAttackTest, FailsInTheFile)
{
    EXPECT_THAT(load(GetParam().code),
                AnyOf(HasSubstr(GetParam().message), HasSubstr(GetParam().otherMessage)));
}

TEST_P(LuaLimitsAttackTest, FailsInAFunctionAndTheNextCallWorks)
{
    ASSERT_EQ(load(std::string("function attack() ") + GetParam().code +
                   " end function add(a, b) return a + b end"),
              "");

    EXPECT_THAT(call("attack"),
                AnyOf(HasSubstr(GetParam().message), HasSubstr(GetParam().otherMessage)));

    int sum = 0;
    EXPECT_EQ(script->callMethod("add", std::tie(sum), 2, 3), STATUS_SUCCESS);
    EXPECT_EQ(sum, 5);
}

INSTANTIATE_TEST_SUITE_P(Script, LuaLimitsAttackTest, testing::ValuesIn(ATTACKS),
                         testing::PrintToStringParamName());

TEST_F(LuaLimitsTest, ACompiledScriptIsRefused)
{
    LoadedScript compiler("function compile() return string.dump(loadstring('x = 1')) end");
    ASSERT_EQ(compiler.script.callMethod("compile", 1), STATUS_SUCCESS);
    std::size_t length = 0;
    const char* code = lua_tolstring(compiler.state(), -1, &length);
    const std::string compiled(code, length);
    ASSERT_EQ(compiled[0], LUA_SIGNATURE[0]);

    for (const std::string& content : {compiled, "#!/usr/bin/lua\n" + compiled}) {
        SCOPED_TRACE(content.substr(0, 2));
        const ScriptFile file(content);
        LuaScript refused(file.path());
        refused.addLuaApi(&limits);
        LogCapture log;

        EXPECT_EQ(refused.load(), STATUS_INVALID_STATE);

        EXPECT_EQ(refused.getLuaState(), nullptr);
        ASSERT_EQ(log.lines().size(), 4U);
        EXPECT_THAT(log.lines()[0], LoggedIn("OxLuaLimits.cpp", "onLoading",
                                             "Compiled script (" + file.path() + ")."));
        if (content == compiled) {
            EXPECT_THAT(log.lines()[3].message, HasSubstr("script refused"));
        }
    }

    const ScriptFile file(compiled);
    LuaScript trusted(file.path());
    EXPECT_EQ(trusted.load(), STATUS_SUCCESS) << "without limits it is as good as any";
}

TEST_F(LuaLimitsTest, NothingElseIsLeftOfTheStandardLibraries)
{
    ASSERT_EQ(load(R"(
        local names = {}
        for name, value in pairs(_G) do
            if type(value) == 'table' and value ~= _G then
                for field in pairs(value) do names[#names + 1] = name .. '.' .. field end
            else
                names[#names + 1] = name
            end
        end
        table.sort(names)
        function rest() return table.concat(names, ' ') end
    )"),
              "");
    std::string rest;
    ASSERT_EQ(script->callMethod("rest", std::tie(rest)), STATUS_SUCCESS);

    const std::string luaJitOnly =
        "bit.arshift bit.band bit.bnot bit.bor bit.bswap bit.bxor bit.lshift bit.rol bit.ror "
        "bit.rshift bit.tobit bit.tohex ";
    const bool isLuaJit = rest.find(luaJitOnly) != std::string::npos;
    EXPECT_EQ(rest, "Log.print _G _VERSION assert " + (isLuaJit ? luaJitOnly : "") +
                        "error gcinfo getfenv getmetatable ipairs math.abs math.acos math.asin "
                        "math.atan math.atan2 math.ceil math.cos math.cosh math.deg math.exp "
                        "math.floor math.fmod math.frexp math.huge math.ldexp math.log math.log10 "
                        "math.max math.min " +
                        (isLuaJit ? "" : "math.mod ") +
                        "math.modf math.pi math.pow math.rad math.random math.randomseed math.sin "
                        "math.sinh math.sqrt math.tan math.tanh next os.clock os.date os.difftime "
                        "os.time pairs pcall rawequal rawget rawset select setfenv "
                        "setmetatable string.byte string.char string.dump string.format string.len "
                        "string.lower string.reverse string.sub string.upper table.concat "
                        "table.getn table.insert table.maxn " +
                        (isLuaJit ? "table.move table.remove" : "table.remove table.setn") +
                        " table.sort tonumber tostring type unpack");
}

// ---- Instructions -------------------------------------------------------------------------------

TEST_F(LuaLimitsTest, EachCallHasAllInstructionsAgain)
{
    ASSERT_EQ(load("function f(n) for i = 1, n do end end function half() f(500000) end"), "");

    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(call("half"), "");
    }
}

TEST_F(LuaLimitsTest, TheMessageNamesTheLine)
{
    ASSERT_EQ(load("\nfunction f()\nwhile true do end\nend"), "");

    EXPECT_THAT(call("f"), EndsWith(":3: instruction limit reached"));
}

TEST_F(LuaLimitsTest, ACallInsideAnotherHasItsOwnInstructions)
{
    std::string inner;
    NativeApi api([&](lua_State*, const std::string& name) { inner = call(name); });
    const ScriptFile file(R"(
        function spend(n) for i = 1, n do end end
        function some() spend(700000) end
        function all() while true do end end
        function outer(name, n) native.run(name) native.run(name) spend(n) end
        function outerSome() outer('some', 700000) end
        function outerAll() outer('all', 700000) end
        function outerMuch() outer('some', 2000000) end
    )");
    script = std::make_unique<LuaScript>(file.path());
    script->addLuaApi(&limits);
    script->addLuaApi(&api);
    ASSERT_EQ(script->load(), STATUS_SUCCESS);

    EXPECT_EQ(call("outerSome"), "");
    EXPECT_EQ(inner, "");
    EXPECT_EQ(call("outerAll"), "") << "the one outside goes on";
    EXPECT_THAT(inner, EndsWith("instruction limit reached"));
    EXPECT_THAT(call("outerMuch"), EndsWith("instruction limit reached"));
    EXPECT_EQ(inner, "");
}

TEST_F(LuaLimitsTest, ATimersCallsAreLimited)
{
    ASSERT_EQ(limits.keep("Timer"), STATUS_SUCCESS);
    ASSERT_EQ(load(R"(
        calls = 0
        function tick() calls = calls + 1 while true do end end
        local timer = Timer.start(0, 'tick', true)
        function getCalls() return calls end
        function stop() Timer.stop(timer) end
    )"),
              "");
    int calls = 0;

    EXPECT_TRUE(iterateUntil(
        [&] {
            EXPECT_EQ(script->callMethod("getCalls", std::tie(calls)), STATUS_SUCCESS);
            return calls >= 3;
        },
        std::chrono::seconds(5)));

    EXPECT_EQ(call("stop"), "");
}

TEST_F(LuaLimitsTest, CallsOfTheApplicationOnTheStateCountTogether)
{
    ASSERT_EQ(load("function f() for i = 1, 700000 do end end"), "");
    lua_State* state = script->getLuaState();
    const auto run = [&] {
        lua_getglobal(state, "f");
        return lua_pcall(state, 0, 0, 0);
    };

    EXPECT_EQ(run(), 0);
    EXPECT_EQ(run(), LUA_ERRRUN);
    EXPECT_EQ(run(), LUA_ERRRUN) << "they are not given back";
    EXPECT_EQ(call("f"), "");
}

TEST_F(LuaLimitsTest, MovingMemoryCountsAsWell)
{
    ASSERT_EQ(load(R"(
        local s = 'x' while #s < 128 * 1024 do s = s .. s end
        function f() for i = 1, 1000 do local t = s .. i end end
    )"),
              "");

    EXPECT_THAT(call("f"), EndsWith("instruction limit reached"));
}

// ---- Memory -------------------------------------------------------------------------------------

TEST_F(LuaLimitsTest, MemoryThatIsGivenBackCanBeHadAgain)
{
    LuaLimits roomy(std::numeric_limits<std::uint64_t>::max(), BYTES);
    LoadedScript loaded(R"(
        function f() local s = ('x') for i = 1, 19 do s = s .. s end return #s end
        for i = 1, 100 do f() end
    )",
                        {&roomy});
    int length = 0;

    EXPECT_EQ(loaded.script.callMethod("f", std::tie(length)), STATUS_SUCCESS);

    EXPECT_EQ(length, 1 << 19);
}

TEST_F(LuaLimitsTest, AStateWithoutMemoryForItsScriptIsNotLoaded)
{
#ifdef LUAJIT_VERSION
    GTEST_SKIP() << "LuaJIT asks for memory to take a pointer";
#endif
    LuaLimits none(INSTRUCTIONS, 1);
    const ScriptFile file("x = 1");
    LuaScript small(file.path());
    small.addLuaApi(&none);
    LogCapture log;

    EXPECT_EQ(small.load(), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxLuaScript.cpp", "onLoading",
                                     "filePath(" + file.path() + ") (1) (not enough memory).")));
}

TEST_F(LuaLimitsTest, TablesThatFitIntoTheMemoryAreHandledAsEver)
{
    EXPECT_EQ(load(R"(
        local t = {}
        for i = 1, 50000 do table.insert(t, -i) end
        table.insert(t, 1, 7)
        table.insert(t, 50002, 8)
        table.sort(t)
        assert(#t == 50002 and t[1] == -50000 and t[50002] == 8)
        assert(table.remove(t) == 8 and table.remove(t, 1) == -50000 and #t == 50000)
        assert(select('#', table.remove({})) == 0)
        assert(not pcall(table.sort, 5))
    )"),
              "");
}

// ---- Names --------------------------------------------------------------------------------------

TEST_F(LuaLimitsTest, WhatIsKeptStaysThere)
{
    EXPECT_EQ(limits.keep("coroutine"), STATUS_SUCCESS);
    EXPECT_EQ(limits.keep("os.getenv"), STATUS_SUCCESS);

    EXPECT_EQ(load("coroutine.wrap(function() os.getenv('HOME') end)()"), "");
}

TEST_F(LuaLimitsTest, KeepingWhatIsNotTakenAwayIsRefused)
{
    for (const std::string name : {"", "math", "string", "os.clock", "io.write"}) {
        LogCapture log;
        EXPECT_EQ(limits.keep(name), STATUS_NOT_FOUND);
        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxLuaLimits.cpp", "keep", "Not found (" + name + ").")));
    }
}

TEST_F(LuaLimitsTest, MoreCanBeTakenAway)
{
    NativeApi api;
    for (const char* name : {"Log", "native.run", "math.sin", "nothing", "nothing.there", "rawset",
                             "_VERSION.x", ""}) {
        limits.takeAway(name);
    }
    LoadedScript loaded(
        "assert(Log == nil and native.run == nil and math.sin == nil and rawset == nil)"
        "assert(math.cos)",
        {&api, &limits});
}

TEST_F(LuaLimitsTest, AnApplicationCanOfferItsOwnUnderANameThatWasTakenAway)
{
    NativeApi api([](lua_State*, const std::string&) {}, "Timer");

    LoadedScript loaded("assert(Timer.run and not Timer.start)", {&limits, &api});
}

// ---- Life ---------------------------------------------------------------------------------------

TEST_F(LuaLimitsTest, TheyOutliveTheirObject)
{
    auto shortLived = std::make_unique<LuaLimits>(INSTRUCTIONS, BYTES);
    auto loaded = std::make_unique<LoadedScript>("function f() while true do end end",
                                                 std::initializer_list<LuaApi*>{shortLived.get()});
    EXPECT_EQ(loaded->script.removeLuaApi(shortLived.get()), STATUS_SUCCESS);
    shortLived.reset();

    EXPECT_EQ(loaded->script.callMethod("f", 0), STATUS_SUCCESS);
    EXPECT_THAT(loaded->message(), EndsWith("instruction limit reached"));
    loaded.reset();
}

/** Notes the allocator of the state when it goes. */
int noteAllocator(lua_State* state)
{
    void* data = nullptr;
    **static_cast<lua_Alloc**>(lua_touserdata(state, 1)) = lua_getallocf(state, &data);
    return 0;
}

TEST_F(LuaLimitsTest, AStateGoesWithItsOwnAllocator)
{
    lua_Alloc atFirst = nullptr;
    lua_Alloc atLast = nullptr;
    NativeApi witness;
    witness.whenLoading = [&] {
        lua_State* state = witness.getLuaScript()->getLuaState();
        void* data = nullptr;
        atFirst = lua_getallocf(state, &data);
        *static_cast<lua_Alloc**>(lua_newuserdata(state, sizeof(lua_Alloc*))) = &atLast;
        lua_newtable(state);
        lua_pushcfunction(state, noteAllocator);
        lua_setfield(state, -2, "__gc");
        lua_setmetatable(state, -2);
    };
    {
        LoadedScript loaded("", {&witness, &limits});
        void* data = nullptr;
        EXPECT_NE(lua_getallocf(loaded.state(), &data), atFirst);
    }

    EXPECT_NE(atLast, nullptr);
    EXPECT_EQ(atLast, atFirst);
}

TEST_F(LuaLimitsTest, TheLastOnesHold)
{
    LuaLimits more(10 * INSTRUCTIONS, BYTES);
    LoadedScript loaded("for i = 1, 5000000 do end", {&limits, &more});

    EXPECT_EQ(loaded.script.addLuaApi(&limits), STATUS_SUCCESS);

    EXPECT_NE(luaL_dostring(loaded.state(), "for i = 1, 5000000 do end"), 0);
}

TEST_F(LuaLimitsTest, WithoutAStateThereIsNothingToLimit)
{
    LogCapture log;
    EXPECT_EQ(limits.onLoading(), STATUS_INVALID_STATE);
    LuaScript unloaded("unloaded.lua");
    EXPECT_EQ(limits.load(&unloaded), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxLuaLimits.cpp", "onLoading", "Invalid state."),
                                         LoggedIn("OxLuaLimits.cpp", "onLoading", "Invalid state."),
                                         LoggedIn("OxLuaApi.cpp", "load", "-524271")));
}

}  // namespace
}  // namespace oxil::test
