#include "OxLuaGuard.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstring>
#include <exception>
#include <lua.hpp>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "AllocationFailure.h"
#include "LuaChunk.h"
#include "MainLoop.h"
#include "OxLogMatchers.h"
#include "OxLuaApi.h"
#include "OxLuaScript.h"
#include "OxStatus.h"
#include "ScriptFile.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

static_assert(std::is_trivially_destructible_v<LuaGuard>);
static_assert(std::is_nothrow_constructible_v<LuaGuard, lua_State*>);
static_assert(!std::is_convertible_v<lua_State*, LuaGuard>);
static_assert(noexcept(std::declval<LuaGuard&>().run(std::declval<void (*)()>())));
static_assert(std::is_same_v<decltype(std::declval<LuaGuard&>().raise()), int>);

struct Refusal : std::runtime_error {
    explicit Refusal(const std::string& reason, int number = 0)
        : std::runtime_error(reason), code(number)
    {
    }
    int code;
};

// Functions that the scripts of these tests have in the table "Native".
namespace native {

const char* textOf(lua_State* state)
{
    return luaL_optstring(state, 1, "no reason");
}

// The reason, with the number of the second argument in the exception.
int refuse(lua_State* state)
{
    const char* reason = textOf(state);
    const int number = static_cast<int>(luaL_optinteger(state, 2, 0));
    LuaGuard guard(state);
    if (!guard.run([&] { throw Refusal(reason, number); })) {
        return guard.raise();
    }
    return 0;
}

int throwNumber(lua_State* state)
{
    LuaGuard guard(state);
    if (!guard.run([] { throw 5; })) {
        return guard.raise();
    }
    return 0;
}

int exhaust(lua_State* state)
{
    LuaGuard guard(state);
    if (!guard.run([] { throw std::bad_alloc(); })) {
        return guard.raise();
    }
    return 0;
}

int succeed(lua_State* state)
{
    const int top = lua_gettop(state);
    int answer = 0;
    LuaGuard guard(state);
    if (!guard.run([&] { answer = 42; })) {
        return guard.raise();
    }
    lua_pushinteger(state, answer);
    lua_pushboolean(state, lua_gettop(state) == top + 1);
    return 2;
}

// One guard for several attempts, of which the last fails; true if each said how it went.
int tryAgain(lua_State* state)
{
    LuaGuard guard(state);
    const bool first = guard.run([] { throw std::logic_error("a first and longer reason"); });
    const bool second = guard.run([] {});
    const bool third = guard.run([] { throw std::logic_error("third reason"); });
    if (first || !second || third) {
        return luaL_error(state, "run() told it wrong");
    }
    return guard.raise();
}

// A guard within a guard: the inner failure is settled there, the outer one is raised.
int nest(lua_State* state)
{
    LuaGuard outer(state);
    const bool done = outer.run([&] {
        LuaGuard inner(state);
        if (!inner.run([] { throw std::logic_error("inner"); })) {
            throw std::runtime_error("outer");
        }
    });
    return done ? luaL_error(state, "not noticed") : outer.raise();
}

// An inner failure that is settled without raising it.
int settle(lua_State* state)
{
    LuaGuard guard(state);
    const bool done = guard.run([] { throw std::logic_error("settled"); });
    lua_pushboolean(state, done);
    return 1;
}

// Raises with every slot taken that Lua promises a native function.
int raiseOnAFullStack(lua_State* state)
{
    lua_settop(state, 0);
    for (int i = 0; i < LUA_MINSTACK; ++i) {
        lua_pushinteger(state, i);
    }
    LuaGuard guard(state);
    if (!guard.run([] { throw std::runtime_error("full"); })) {
        return guard.raise();
    }
    return 0;
}

LuaScript* other = nullptr;

// Calls a function of the other script by its name, in a guard.
int callOther(lua_State* state)
{
    const char* name = luaL_checkstring(state, 1);
    int status = STATUS_FAILURE;
    LuaGuard guard(state);
    if (!guard.run([&] { status = other->callMethod(name, 0); })) {
        return guard.raise();
    }
    lua_pushinteger(state, status);
    return 1;
}

const luaL_Reg FUNCTIONS[] = {{"refuse", refuse},       {"throwNumber", throwNumber},
                              {"exhaust", exhaust},     {"succeed", succeed},
                              {"tryAgain", tryAgain},   {"nest", nest},
                              {"settle", settle},       {"raiseOnAFullStack", raiseOnAFullStack},
                              {"callOther", callOther}, {nullptr, nullptr}};

}  // namespace native

class GuardedApi : public LuaApi {
public:
    int onLoading() override
    {
        registerApiTable("Native", native::FUNCTIONS);
        return 0;
    }
};

// ---- In a plain state, without the library around it --------------------------------------------

class LuaGuardTest : public testing::Test {
protected:
    LuaGuardTest() : __state(luaL_newstate(), lua_close)
    {
        luaL_openlibs(__state.get());
        luaL_register(__state.get(), "Native", native::FUNCTIONS);
        lua_pop(__state.get(), 1);
    }

    std::string run(const std::string& chunk) { return runChunk(__state.get(), chunk); }

    lua_State* state() { return __state.get(); }

private:
    std::unique_ptr<lua_State, void (*)(lua_State*)> __state;
};

TEST_F(LuaGuardTest, WhatSucceedsPassesAndLeavesTheStackAlone)
{
    EXPECT_EQ(run("return Native.succeed('an argument', 2)"), "42, true");
}

TEST_F(LuaGuardTest, AnExceptionBecomesALuaErrorWithItsTextAndThePlaceOfTheCall)
{
    EXPECT_EQ(run("Native.refuse('out of order')"), "error: chunk:1: out of order");
    EXPECT_EQ(run("\n\nlocal x = Native.refuse('out of order')"), "error: chunk:3: out of order");
    EXPECT_EQ(run("Native.exhaust()"), std::string("error: chunk:1: ") + std::bad_alloc().what());
    EXPECT_EQ(run("Native.refuse('')"), "error: chunk:1: ");
}

TEST_F(LuaGuardTest, WhatIsNoStandardExceptionIsAnUnknownOne)
{
    EXPECT_EQ(run("Native.throwNumber()"), "error: chunk:1: unknown exception");
}

TEST_F(LuaGuardTest, AFunctionThatNoLuaCodeCalledHasNoPlace)
{
    EXPECT_EQ(run("return pcall(Native.refuse, 'out of order')"), "false, out of order");

    lua_pushcfunction(state(), native::refuse);
    EXPECT_EQ(lua_pcall(state(), 0, 0, 0), LUA_ERRRUN);
    EXPECT_EQ(inWords(state(), -1), "no reason");
    lua_pop(state(), 1);
}

TEST_F(LuaGuardTest, TheScriptMayHandleTheErrorAndGoesOn)
{
    EXPECT_EQ(run("local ok, reason = pcall(function() Native.refuse('no') end) "
                  "return ok, reason, 'going on'"),
              "false, chunk:1: no, going on");
    EXPECT_EQ(run("return xpcall(Native.throwNumber, function(m) return 'handled: ' .. m end)"),
              "false, handled: unknown exception");
    EXPECT_EQ(run("local co = coroutine.create(function() Native.refuse('in a coroutine') end) "
                  "return coroutine.resume(co)"),
              "false, chunk:1: in a coroutine");
}

TEST_F(LuaGuardTest, LongTextsAreCutTo255Characters)
{
    for (const std::size_t length : {254u, 255u, 256u, 257u, 10000u}) {
        std::string text;
        while (text.size() < length) {
            text += static_cast<char>('a' + text.size() % 26);
        }
        EXPECT_EQ(run("local ok, reason = pcall(Native.refuse, '" + text + "') return reason"),
                  text.substr(0, 255))
            << length;
    }
}

TEST_F(LuaGuardTest, TheCutDoesNotDependOnWhatWasInItsMemory)
{
    const std::unique_ptr<lua_State, void (*)(lua_State*)> state(luaL_newstate(), lua_close);
    lua_pushcfunction(state.get(), [](lua_State* inside) {
        alignas(LuaGuard) char memory[sizeof(LuaGuard)];
        std::memset(memory, 'x', sizeof memory);
        auto* guard = new (memory) LuaGuard(inside);
        guard->run([] { throw std::logic_error(std::string(300, 'y')); });
        return guard->raise();
    });

    EXPECT_EQ(lua_pcall(state.get(), 0, 0, 0), LUA_ERRRUN);

    EXPECT_EQ(lua_tostring(state.get(), -1), std::string(255, 'y'));
}

TEST_F(LuaGuardTest, ThePlaceDoesNotCountForTheCut)
{
    const std::string text(300, 'x');
    EXPECT_EQ(run("Native.refuse('" + text + "')"), "error: chunk:1: " + text.substr(0, 255));
}

TEST_F(LuaGuardTest, ATextIsNoFormat)
{
    EXPECT_EQ(run("Native.refuse('100% %s %d %n %')"), "error: chunk:1: 100% %s %d %n %");
}

TEST_F(LuaGuardTest, OneGuardServesSeveralAttemptsAndRaisesTheLastFailure)
{
    EXPECT_EQ(run("Native.tryAgain()"), "error: chunk:1: third reason");
}

TEST_F(LuaGuardTest, GuardsNest)
{
    EXPECT_EQ(run("Native.nest()"), "error: chunk:1: outer");
}

TEST_F(LuaGuardTest, AFailureNeedNotBeRaised)
{
    EXPECT_EQ(run("return Native.settle()"), "false");
}

TEST_F(LuaGuardTest, RaisesAlsoWithAFullStack)
{
    EXPECT_EQ(run("Native.raiseOnAFullStack()"), "error: chunk:1: full");
}

TEST_F(LuaGuardTest, RunAndRaiseAskForNoMemoryThatCanFail)
{
    // Of the library's own kinds; what Lua needs for the message is Lua's business.
    std::string result;
    {
        AllocationFailure failure(Allocation::NothrowNew);
        result = run("Native.throwNumber()");
        EXPECT_FALSE(failure.happened());
    }
    EXPECT_EQ(result, "error: chunk:1: unknown exception");
}

TEST_F(LuaGuardTest, FailsAgainAndAgain)
{
    EXPECT_EQ(run("local last for i = 1, 100000 do "
                  "  local ok, reason = pcall(Native.refuse, 'number ' .. i % 7) "
                  "  last = reason "
                  "end return last"),
              "number " + std::to_string(100000 % 7));
}

// ---- In a script --------------------------------------------------------------------------------

class LuaGuardScriptTest : public testing::Test {
protected:
    LuaGuardScriptTest() : __file(""), __script(__file.path())
    {
        __script.addLuaApi(&__api);
        native::other = &__script;
    }
    ~LuaGuardScriptTest() override { native::other = nullptr; }

    void load(const std::string& content)
    {
        __file.write(content);
        ASSERT_EQ(__script.load(), STATUS_SUCCESS);
    }

    // The code of the Refusal that comes out, -1 if none does.
    int refusalOf(const std::string& methodName)
    {
        try {
            EXPECT_EQ(__script.callMethod(methodName, 0), STATUS_SUCCESS);
        } catch (const Refusal& refusal) {
            return refusal.code;
        }
        return -1;
    }

    std::string run(const std::string& chunk) { return runChunk(state(), chunk); }

    lua_State* state() const { return __script.getLuaState(); }
    LuaScript& script() { return __script; }
    const ScriptFile& file() const { return __file; }

private:
    ScriptFile __file;
    GuardedApi __api;
    LuaScript __script;
};

TEST_F(LuaGuardScriptTest, TheExceptionItselfComesOutOfACall)
{
    load(
        "function f() Native.refuse('no', 17) end\n"
        "function g() Native.throwNumber() end\n"
        "function h() Native.exhaust() end\n");
    const int top = lua_gettop(state());

    EXPECT_EQ(refusalOf("f"), 17);
    EXPECT_EQ(lua_gettop(state()), top + 1);
    EXPECT_EQ(inWords(state(), -1), file().path() + ":1: no");

    try {
        script().callMethod("g", 0);
        ADD_FAILURE() << "nothing thrown";
    } catch (int number) {
        EXPECT_EQ(number, 5);
    }
    EXPECT_THROW(script().callMethod("h", 0), std::bad_alloc);
    EXPECT_EQ(lua_gettop(state()), top + 3);
}

TEST_F(LuaGuardScriptTest, ItComesOutOfEveryFormOfCall)
{
    load("function f() Native.refuse('no') end");
    const int top = lua_gettop(state());
    int number = 7;
    std::string text = "before";

    EXPECT_THROW(script().callMethod("f"), Refusal);
    EXPECT_THROW(script().callMethod("f", 2), Refusal);
    EXPECT_THROW(script().callMethod("f", std::tie(), 1, "two"), Refusal);
    EXPECT_THROW(script().callMethod("f", std::tie(number, text), 3), Refusal);

    EXPECT_EQ(number, 7);
    EXPECT_EQ(text, "before");
    EXPECT_EQ(lua_gettop(state()), top + 4);
}

TEST_F(LuaGuardScriptTest, LoadingFirstDoesWhatItDoesForAnyError)
{
    file().write("\nNative.refuse('not now', 4)");

    LogCapture log;
    try {
        script().load();
        ADD_FAILURE() << "nothing thrown";
    } catch (const Refusal& refusal) {
        EXPECT_EQ(refusal.code, 4);
        EXPECT_STREQ(refusal.what(), "not now");
    }
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxLuaScript.cpp", "onLoading",
                                                  "filePath(" + file().path() + ") (1) (" +
                                                      file().path() + ":2: not now).")));
    EXPECT_EQ(state(), nullptr);

    load("function f() answer = Native.succeed() end");
    EXPECT_EQ(refusalOf("f"), -1);
    EXPECT_EQ(run("return answer"), "42");
}

TEST_F(LuaGuardScriptTest, AHandledErrorDoesNotComeOut)
{
    load(
        "function handled() pcall(Native.refuse, 'no', 1) end\n"
        "function failsLater() pcall(Native.refuse, 'no', 2) error('for another reason') end\n"
        "function failsWithNothing() pcall(Native.refuse, 'no', 3) error() end\n"
        "function fails() error('on its own') end\n"
        "function settledThenFails() Native.settle() error('', 0) end\n");
    const int top = lua_gettop(state());

    EXPECT_EQ(refusalOf("handled"), -1);
    EXPECT_EQ(lua_gettop(state()), top);

    EXPECT_EQ(refusalOf("failsLater"), -1);
    EXPECT_EQ(inWords(state(), -1), file().path() + ":2: for another reason");
    EXPECT_EQ(refusalOf("failsWithNothing"), -1);
    EXPECT_EQ(inWords(state(), -1), "nil");
    EXPECT_EQ(refusalOf("fails"), -1);
    EXPECT_EQ(refusalOf("settledThenFails"), -1);
    EXPECT_EQ(inWords(state(), -1), "");
    EXPECT_EQ(lua_gettop(state()), top + 4);
}

TEST_F(LuaGuardScriptTest, ItComesOutOfCoroutinesThatPassItOn)
{
    load(
        "function once() coroutine.wrap(function() Native.refuse('no', 1) end)() end\n"
        "function twice() coroutine.wrap(function() coroutine.wrap(function()\n"
        "  Native.refuse('no', 2) end)() end)() end\n"
        "function later() local f = coroutine.wrap(function()\n"
        "  coroutine.yield() Native.refuse('no', 3) end) f() f() end\n"
        "function afterAnother() pcall(Native.refuse, 'no', 6)\n"
        "  coroutine.wrap(function() Native.refuse('no', 5) end)() end\n");

    EXPECT_EQ(refusalOf("once"), 1);
    EXPECT_THAT(inWords(state(), -1), testing::EndsWith(file().path() + ":1: no"));
    EXPECT_EQ(refusalOf("twice"), 2);
    EXPECT_EQ(refusalOf("later"), 3);
    EXPECT_EQ(refusalOf("afterAnother"), 5);
}

TEST_F(LuaGuardScriptTest, AnErrorOfTheScriptIsItsOwnAlsoInACoroutine)
{
    load(
        "function handled() local f = coroutine.wrap(function()\n"
        "  local ok, reason = pcall(Native.refuse, 'no', 1) error('other: ' .. reason, 0) end)\n"
        "  f() end\n"
        "function handledOutside() pcall(coroutine.wrap(function() Native.refuse('no', 2) end))\n"
        "  coroutine.wrap(function() error('on its own: no', 0) end)() end\n"
        "function resumed() local ok, reason = coroutine.resume(coroutine.create(function()\n"
        "  Native.refuse('no', 3) end)) error('other: ' .. reason) end\n"
        "function resumedWithin() coroutine.wrap(function() local ok, reason =\n"
        "  coroutine.resume(coroutine.create(function() Native.refuse('no', 4) end))\n"
        "  error('other: ' .. reason, 0) end)() end\n");

    for (const char* name : {"handled", "handledOutside", "resumed", "resumedWithin"}) {
        EXPECT_EQ(refusalOf(name), -1) << name;
        EXPECT_THAT(inWords(state(), -1), testing::EndsWith(": no"));
    }
}

TEST_F(LuaGuardScriptTest, AnErrorThatIsRaisedAgainAsItIsComesOut)
{
    load(
        "function cleansUp() local ok, reason = pcall(Native.refuse, 'no', 1)\n"
        "  cleaned = true error(reason, 0) end");

    EXPECT_EQ(refusalOf("cleansUp"), 1);
    EXPECT_EQ(run("return cleaned"), "true");
}

TEST_F(LuaGuardScriptTest, TheLastOfSeveralExceptionsComesOut)
{
    load("function f() pcall(Native.refuse, 'first', 1) Native.refuse('second', 2) end");
    EXPECT_EQ(refusalOf("f"), 2);
}

TEST_F(LuaGuardScriptTest, AnErrorHandledOutsideACallOfTheLibraryIsForgotten)
{
    load("function fails() error('on its own') end function works() end");

    EXPECT_EQ(run("Native.refuse('past the library', 9)"), "error: chunk:1: past the library");

    EXPECT_EQ(refusalOf("works"), -1);
    EXPECT_EQ(refusalOf("fails"), -1);
}

TEST_F(LuaGuardScriptTest, ItPassesThroughNestedCallsOneByOne)
{
    load(
        "function inner() Native.refuse('deep', 3) end\n"
        "function middle() Native.callOther('inner') reached = true end\n"
        "function outer() Native.callOther('middle') reached = true end\n");

    EXPECT_EQ(refusalOf("outer"), 3);
    EXPECT_EQ(run("return reached"), "nil");
}

TEST_F(LuaGuardScriptTest, AnOuterCallMayHandleWhatAnInnerOneThrew)
{
    load(
        "function inner() Native.refuse('deep', 3) end\n"
        "function outer() ok, reason = pcall(Native.callOther, 'inner') end\n"
        "function failing() pcall(Native.callOther, 'inner') error('another') end\n");

    EXPECT_EQ(refusalOf("outer"), -1);
    EXPECT_EQ(run("return ok, reason"), "false, deep");
    EXPECT_EQ(refusalOf("failing"), -1);
}

TEST_F(LuaGuardScriptTest, AnInnerCallIsNotEndedByTheExceptionOfTheOuterOne)
{
    load(
        "function innerWorks() end\n"
        "function innerFails() error('on its own') end\n"
        "function outer()\n"
        "  pcall(Native.refuse, 'handled', 3)\n"
        "  works = Native.callOther('innerWorks')\n"
        "  fails = Native.callOther('innerFails')\n"
        "end\n");

    EXPECT_EQ(refusalOf("outer"), -1);
    EXPECT_EQ(run("return works, fails"), "0, 0");
}

TEST_F(LuaGuardScriptTest, AnExceptionBelongsToTheInnermostCall)
{
    // Each call fails on its own, with just the text of an exception that another call met.
    load(
        "function meets() pcall(Native.refuse, 'no', 3) end\n"
        "function fails() error('no', 0) end\n"
        "function outerMeets() meets() status = Native.callOther('fails') end\n"
        "function innerMeets() Native.callOther('meets') fails() end\n");

    EXPECT_EQ(refusalOf("meets"), -1);
    EXPECT_EQ(refusalOf("fails"), -1);
    EXPECT_EQ(run("pcall(Native.refuse, 'no', 4)"), "");
    EXPECT_EQ(refusalOf("fails"), -1);
    EXPECT_EQ(refusalOf("outerMeets"), -1);
    EXPECT_EQ(run("return status"), "0");
    EXPECT_EQ(refusalOf("innerMeets"), -1);
}

TEST_F(LuaGuardScriptTest, AnExceptionGoesFromScriptToScript)
{
    load("function inner() Native.refuse('far away', 6) end");
    const ScriptFile callerFile("function outer() Native.callOther('inner') end");
    GuardedApi api;
    LuaScript caller(callerFile.path());
    caller.addLuaApi(&api);
    ASSERT_EQ(caller.load(), STATUS_SUCCESS);

    try {
        caller.callMethod("outer", 0);
        ADD_FAILURE() << "nothing thrown";
    } catch (const Refusal& refusal) {
        EXPECT_EQ(refusal.code, 6);
    }
    EXPECT_EQ(inWords(caller.getLuaState(), -1), callerFile.path() + ":1: far away");
    EXPECT_EQ(inWords(state(), -1), file().path() + ":1: far away");
}

TEST_F(LuaGuardScriptTest, ATimerEndsTheExceptionOfItsFunction)
{
    load(
        "expiries = 0\n"
        "function f() expiries = expiries + 1 Native.refuse('in a timer', expiries) end\n"
        "timer = Timer.start(0, 'f', true)\n");
    const int top = lua_gettop(state());

    EXPECT_TRUE(iterateUntil([&] { return lua_gettop(state()) >= top + 3; }, 10s));
    EXPECT_EQ(run("Timer.stop(timer) return expiries"), std::to_string(lua_gettop(state()) - top));
    EXPECT_EQ(inWords(state(), -1), file().path() + ":2: in a timer");
}

TEST_F(LuaGuardScriptTest, AnExceptionInATimerLeavesTheBlockedCallAlone)
{
    load(
        "function tick() Native.refuse('in a timer', 1) end\n"
        "function f()\n"
        "  local timer, loop = Timer.start(0, 'tick'), WaitingLoop.create()\n"
        "  WaitingLoop.runTime(loop, 10)\n"
        "  WaitingLoop.destroy(loop) Timer.stop(timer)\n"
        "  finished = true\n"
        "end\n"
        "function g() f() Native.refuse('outside', 2) end\n"
        "function h() f() error('on its own') end\n");

    EXPECT_EQ(refusalOf("f"), -1);
    EXPECT_EQ(run("return finished"), "true");
    EXPECT_EQ(refusalOf("g"), 2);
    EXPECT_EQ(refusalOf("h"), -1);
}

}  // namespace
}  // namespace oxil::test
