#include "OxBaseLuaApi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <lua.hpp>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "BaseLuaApiFixture.h"
#include "LuaCalls.h"
#include "LuaChunk.h"
#include "MainLoop.h"
#include "OxLogMatchers.h"
#include "OxLuaScript.h"
#include "OxStatus.h"
#include "ScriptFile.h"
#include "ScriptLog.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using Clock = std::chrono::steady_clock;

class LuaTimerTest : public BaseLuaApiFixture {};

auto expiredWithoutScript(const lua_State* state)
{
    char message[64];
    std::snprintf(message, sizeof message, "Invalid state (0x%x).",
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(state)));
    return LoggedIn("OxBaseLuaApi.cpp", "onTimerExpired", message);
}

TEST_F(LuaTimerTest, TimerStartChecksItsArguments)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "#1 to 'start' (number expected, got no value)"},
        {"nil, 'f'", "#1 to 'start' (number expected, got nil)"},
        {"'soon', 'f'", "#1 to 'start' (number expected, got string)"},
        {"{}, 'f'", "#1 to 'start' (number expected, got table)"},
        {"'soon', {}", "#1 to 'start' (number expected, got string)"},
        {"0", "#2 to 'start' (string expected, got no value)"},
        {"0, nil, true", "#2 to 'start' (string expected, got nil)"},
        {"0, true", "#2 to 'start' (string expected, got boolean)"},
        {"0, {}", "#2 to 'start' (string expected, got table)"},
        {"0, print", "#2 to 'start' (string expected, got function)"}};
    const Host host;
    for (const auto& [arguments, message] : cases) {
        EXPECT_EQ(host.run("Timer.start(" + arguments + ")"),
                  "error: chunk:1: bad argument " + message);
    }
    EXPECT_EQ(host.run("return pcall(Timer.start)"),
              "false, bad argument #1 to '?' (number expected, got no value)");
    EXPECT_EQ(host.run("return Timer.start(3600000, '') - timer0"), "0");
}

TEST_F(LuaTimerTest, ATimerCallsItsFunctionOnceUnlessToldToRepeat)
{
    struct Case {
        const char* third;
        bool repeats;
    };
    constexpr Case CASES[] = {
        {"", false},      {", nil", false}, {", false", false}, {", false, true", false},
        {", true", true}, {", 1", true},    {", 0", true},      {", ''", true},
        {", 'no'", true}, {", {}", true},   {", print", true},  {", true, false", true}};
    for (const Case& timer : CASES) {
        Host host("calls = 0 function tick() calls = calls + 1 end");
        EXPECT_EQ(
            host.run("return Timer.start(0, 'tick'" + std::string(timer.third) + ") - timer0"),
            "0");
        EXPECT_TRUE(host.reaches("calls", timer.repeats ? 3 : 1)) << timer.third;
        if (!timer.repeats) {
            iterateFor(3ms);
            EXPECT_EQ(host.number("calls"), 1) << timer.third;
        }
        // Whether it has fired or not: it is there until it is stopped.
        EXPECT_EQ(host.run("return Timer.stop(timer0)"), "") << timer.third;
        const int calls = host.number("calls");
        iterateFor(3ms);
        EXPECT_EQ(host.number("calls"), calls) << timer.third;
        EXPECT_THAT(host.run("Timer.stop(timer0)"), StartsWith("error: ")) << timer.third;
    }
}

TEST_F(LuaTimerTest, ARepeatingTimerKeepsItsInterval)
{
    Host host("calls = 0 function tick() calls = calls + 1 end");
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(host.run("handle = Timer.start(100, 'tick', true) return handle - timer0"), "0");

    EXPECT_TRUE(host.reaches("calls", 1));
    EXPECT_GE(Clock::now() - start, 99ms);
    EXPECT_TRUE(host.reaches("calls", 3));
    EXPECT_GE(Clock::now() - start, 299ms);

    EXPECT_EQ(host.run("Timer.stop(handle)"), "");
    iterateFor(110ms);
    EXPECT_EQ(host.number("calls"), 3);
}

TEST_F(LuaTimerTest, TheIntervalMayBeANumberInATextOrHaveAFraction)
{
    Host host("calls = 0 function tick() calls = calls + 1 end");
    EXPECT_EQ(host.run("Timer.start('1', 'tick') Timer.start(1.25, 'tick') "
                       "Timer.start(0.25, 'tick')"),
              "");
    EXPECT_TRUE(host.reaches("calls", 3));
}

TEST_F(LuaTimerTest, ANegativeIntervalIsAVeryLongOne)
{
    Host host("calls = 0 function tick() calls = calls + 1 end");
    EXPECT_EQ(host.run(R"(
        return Timer.start(-1, 'tick') - timer0,
        Timer.start(-2147483648, 'tick', true) - timer0
    )"),
              "0, 1");
    iterateFor(20ms);
    EXPECT_EQ(host.number("calls"), 0);
}

TEST_F(LuaTimerTest, ATimerWithoutNameCallsNothing)
{
    Host host("_G[''] = function() called = 1 end");
    EXPECT_EQ(host.run("return Timer.start(0, '', true) - timer0, Timer.start(0, '') - timer0"),
              "0, 1");
    const int top = host.top();
    iterateFor(5ms);
    EXPECT_EQ(host.number("called"), 0);
    EXPECT_EQ(host.top(), top);
    EXPECT_EQ(host.script.getMethodName(), "");
}

TEST_F(LuaTimerTest, ANumberIsANameLikeAnyOther)
{
    Host host("called = 0 _G['5'] = function() called = called + 1 end");
    EXPECT_EQ(host.run("Timer.start(0, 5)"), "");
    EXPECT_TRUE(host.reaches("called", 1));
}

TEST_F(LuaTimerTest, TheFunctionGetsNoArgumentsAndItsResultsAreDropped)
{
    Host host(
        R"(
        arguments, calls = -1, 0
        function tick(...) arguments = select('#', ...) calls = calls + 1
        return 1, 'two', {} end
    )");
    const int top = host.top();
    EXPECT_EQ(host.run("Timer.start(0, 'tick', true)"), "");
    EXPECT_TRUE(host.reaches("calls", 3));
    EXPECT_EQ(host.number("arguments"), 0);
    EXPECT_EQ(host.top(), top);
    EXPECT_EQ(host.script.getMethodName(), "tick");
    EXPECT_EQ(host.script.getReturnCount(), 0);
    EXPECT_EQ(host.script.getParameterCount(), 0);
}

TEST_F(LuaTimerTest, TheFunctionIsLookedUpAtEachExpiry)
{
    Host host("calls = 0 new = 0");
    const int top = host.top();
    EXPECT_EQ(host.run("Timer.start(0, 'tick', true)"), "");
    // There is no such function at first.
    EXPECT_TRUE(iterateUntil([&] { return host.top() >= top + 2; }, LIMIT));
    EXPECT_EQ(host.message(), "attempt to call a nil value");

    EXPECT_EQ(host.run("function tick() calls = calls + 1 end"), "");
    EXPECT_TRUE(host.reaches("calls", 2));
    EXPECT_EQ(host.run("function tick() new = new + 1 end"), "");
    EXPECT_TRUE(host.reaches("new", 2));
}

TEST_F(LuaTimerTest, ALongNameIsKept)
{
    const std::string name(1000, 'n');
    Host host("called = 0 _G[('n'):rep(1000)] = function() called = called + 1 end");
    EXPECT_EQ(host.run("Timer.start(0, ('n'):rep(1000)) collectgarbage()"), "");
    EXPECT_TRUE(host.reaches("called", 1));
    EXPECT_EQ(host.script.getMethodName(), name);
}

TEST_F(LuaTimerTest, AFunctionThatFailsIsCalledAgainAndLeavesItsMessages)
{
    Host host("calls = 0 function boom() calls = calls + 1 error('number ' .. calls, 0) end");
    const int top = host.top();
    EXPECT_EQ(host.run("timer = Timer.start(0, 'boom', true)"), "");
    EXPECT_TRUE(host.reaches("calls", 300));
    EXPECT_EQ(host.run("Timer.stop(timer)"), "");

    const int calls = host.number("calls");
    ASSERT_EQ(host.top(), top + calls);
    for (int i = 1; i <= calls; ++i) {
        EXPECT_EQ(inWords(host.state(), top + i), "number " + std::to_string(i));
    }
}

TEST_F(LuaTimerTest, AFunctionThatFailsAMillionTimesDoesNoHarm)
{
    constexpr int CALLS = 1000000;
    Host host(
        R"(
        calls = 0 function boom() calls = calls + 1 error('boom', 0) end
        function works() return 6 * 7 end
    )");
    // The stack of a LuaJIT state has an end. The last calls that it has room for fail with a
    // message that says so, for want of the 20 places that each C function asks for; then the
    // library refuses, and nothing is left behind any more.
    const bool limited = host.run("return jit ~= nil") == "true";
    const int top = host.top();

    int failed = 0;
    LogCapture log;
    while (failed < CALLS && host.call("boom") == STATUS_SUCCESS) {
        ++failed;
    }
    EXPECT_EQ(host.top(), top + failed);
    if (!limited) {
        EXPECT_EQ(failed, CALLS);
        EXPECT_THAT(log.lines(), IsEmpty());
    } else {
        const auto refused = LoggedIn("OxScript.cpp", "callMethod", "Invalid state.");
        EXPECT_GT(failed, 50000);
        EXPECT_LT(failed, CALLS);
        EXPECT_THAT(log.lines(), ElementsAre(refused));
        for (int i = 0; i < 1000; ++i) {
            log.clear();
            EXPECT_EQ(host.call("boom"), STATUS_INVALID_STATE);
            EXPECT_THAT(log.lines(), ElementsAre(refused));
        }
        EXPECT_EQ(host.top(), top + failed);
    }

    int overflows = 0;
    for (int i = 1; i <= failed; ++i) {
        const std::string message = inWords(host.state(), top + i);
        if (message != "boom") {
            ASSERT_THAT(message, HasSubstr("stack overflow"));
            ++overflows;
        }
    }
    EXPECT_LE(overflows, limited ? 30 : 0);

    lua_settop(host.state(), top);
    EXPECT_LE(host.number("calls"), failed);
    EXPECT_GE(host.number("calls"), failed - overflows);
    int answer = 0;
    EXPECT_EQ(host.script.callMethod("works", std::tie(answer)), STATUS_SUCCESS);
    EXPECT_EQ(answer, 42);
}

TEST_F(LuaTimerTest, ATimerMayBeStoppedAndStartedFromItsOwnFunction)
{
    for (const std::string repeat : {"false", "true"}) {
        Host host("repeats = " + repeat + R"(
            calls, other = 0, 0
            function tick()
              calls = calls + 1
              Timer.stop(timer)
              timer = Timer.start(0, 'tock', repeats)
            end
            function tock() other = other + 1 Timer.stop(timer) end
            timer = Timer.start(0, 'tick', repeats)
        )");
        const int top = host.top();
        EXPECT_TRUE(host.reaches("other", 1));
        iterateFor(3ms);
        EXPECT_EQ(host.number("calls"), 1);
        EXPECT_EQ(host.number("other"), 1);
        EXPECT_EQ(host.top(), top) << host.message();
        EXPECT_EQ(host.run("return Timer.start(3600000, '') - timer0"), "0");
        EXPECT_EQ(host.run("Timer.stop(timer0)"), "");
    }
}

TEST_F(LuaTimerTest, ATimerMayBeStoppedWhileItsFunctionBlocks)
{
    Host host(R"(
        calls, left = 0, 0
        function stop() Timer.stop(timer) collectgarbage() end
        function tick()
          calls = calls + 1
          Timer.start(0, 'stop')
          WaitingLoop.runTime(WaitingLoop.create(), 5)
          left = left + 1
        end
        timer = Timer.start(0, 'tick', true)
    )");
    const int top = host.top();
    EXPECT_TRUE(host.reaches("left", 1));
    iterateFor(3ms);
    EXPECT_EQ(host.number("calls"), 1);
    EXPECT_EQ(host.top(), top) << host.message();
}

TEST_F(LuaTimerTest, AFunctionMayStopOtherTimersThatAreDue)
{
    Host host(
        R"(
        first, second = 0, 0
        function one() first = first + 1 Timer.stop(timer0 + 1) Timer.stop(timer0) end
        function two() second = second + 1 Timer.stop(timer0 + 1) Timer.stop(timer0) end
        Timer.start(0, 'one', true) Timer.start(0, 'two', true)
    )");
    const int top = host.top();
    EXPECT_TRUE(
        iterateUntil([&] { return host.number("first") + host.number("second") > 0; }, LIMIT));
    iterateFor(3ms);
    EXPECT_EQ(host.number("first") + host.number("second"), 1);
    EXPECT_EQ(host.top(), top) << host.message();
}

TEST_F(LuaTimerTest, HandlesPastTheEndInATimersFunctionEndWithIt)
{
    Host host(
        R"(
        calls = 0
        function tick() calls = calls + 1 WaitingLoop.go(loop0 + 5) end
        timer = Timer.start(0, 'tick', true)
    )");
    const int top = host.top();
    EXPECT_TRUE(host.reaches("calls", 3));
    EXPECT_EQ(host.run("Timer.stop(timer)"), "");
    EXPECT_EQ(host.top(), top + host.number("calls"));
    const int loops = host.number("loop0");
    EXPECT_THAT(host.message(), EndsWith(": " + rangeError(loops, loops + 5)));
}

TEST_F(LuaTimerTest, ATimerOutlivesItsScriptAndSaysSoAtEachExpiry)
{
    Host survivor("calls = 0 function tick() calls = calls + 1 end");
    auto gone = std::make_unique<Host>(
        R"(
        function tick() end
        Timer.start(1, 'tick', true) Timer.start(1, '', true)
        Timer.start(1, '')
    )");
    const lua_State* state = gone->state();
    gone.reset();

    LogCapture log;
    EXPECT_TRUE(iterateUntil([&] { return log.lines().size() >= 6; }, LIMIT));
    EXPECT_EQ(survivor.run("return Timer.stop(timer0)"), "");
    ASSERT_EQ(log.lines().size() % 2, 0u);
    for (std::size_t i = 0; i < log.lines().size(); i += 2) {
        EXPECT_THAT(log.lines()[i], unknownState());
        EXPECT_THAT(log.lines()[i + 1], expiredWithoutScript(state));
    }
    EXPECT_EQ(survivor.number("calls"), 0);

    log.clear();
    iterateFor(5ms);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LuaTimerTest, AOneShotTimerThatOutlivesItsScriptSaysSoOnce)
{
    auto gone = std::make_unique<Host>("function tick() end Timer.start(0, 'tick')");
    const lua_State* state = gone->state();
    gone.reset();

    LogCapture log;
    EXPECT_TRUE(iterateUntil([&] { return !log.lines().empty(); }, LIMIT));
    iterateFor(3ms);
    EXPECT_THAT(log.lines(), ElementsAre(unknownState(), expiredWithoutScript(state)));
}

TEST_F(LuaTimerTest, ATimerNeverCallsIntoAnotherScriptWhoseStateHasGotTheSameAddress)
{
    const std::string file = "calls = 0 function tick() calls = calls + 1 end ";
    LuaStates states;
    states.reuse();
    auto gone = std::make_unique<Host>(file + "Timer.start(1, 'tick', true)");
    const lua_State* state = gone->state();
    gone.reset();

    Host other(file);
    ASSERT_EQ(other.state(), state);
    LogCapture log;
    EXPECT_TRUE(iterateUntil([&] { return log.lines().size() >= 4; }, LIMIT));
    EXPECT_EQ(other.number("calls"), 0);
    for (std::size_t i = 0; i < 4; i += 2) {
        EXPECT_THAT(log.lines()[i], unknownState());
        EXPECT_THAT(log.lines()[i + 1], expiredWithoutScript(state));
    }

    // Its own ones do.
    EXPECT_EQ(other.run("Timer.start(1, 'tick')"), "");
    EXPECT_TRUE(other.reaches("calls", 1));
}

TEST_F(LuaTimerTest, TimersOfAScriptThatIsLoadedAgainCallIntoItsNewState)
{
    Host host("calls = 0 function tick() calls = calls + 1 end Timer.start(1, 'tick', true)");
    EXPECT_TRUE(host.reaches("calls", 1));

    host.file.write("calls = 0 function tick() calls = calls - 1 end");
    const lua_State* before = host.state();
    ASSERT_EQ(host.script.load(), STATUS_SUCCESS);
    ASSERT_NE(host.state(), before);
    EXPECT_EQ(host.number("calls"), 0);
    EXPECT_TRUE(iterateUntil([&] { return host.number("calls") <= -2; }, LIMIT));
}

TEST_F(LuaTimerTest, TimersOfAStateThatIsClosedAreLeftAloneWhenTheScriptGoes)
{
    auto gone = std::make_unique<Host>("function tick() end Timer.start(1, 'tick', true)");
    const lua_State* state = gone->state();
    gone->file.write("");
    ASSERT_EQ(gone->script.load(), STATUS_SUCCESS);
    gone.reset();

    LogCapture log;
    EXPECT_TRUE(iterateUntil([&] { return log.lines().size() >= 2; }, LIMIT));
    EXPECT_THAT(log.lines()[0], unknownState());
    EXPECT_THAT(log.lines()[1], expiredWithoutScript(state));
}

TEST_F(LuaTimerTest, TimersOfAScriptThatFailedToLoadAreRefusedAtEachExpiry)
{
    const ScriptFile file("function tick() end Timer.start(0, 'tick', true) error('no')");
    LuaScript script(file.path());

    LogCapture log;
    EXPECT_EQ(script.load(), STATUS_INVALID_STATE);
    log.clear();
    EXPECT_TRUE(iterateUntil([&] { return log.lines().size() >= 3; }, LIMIT));
    EXPECT_THAT(log.lines(), Each(LoggedIn("OxScript.cpp", "callMethod", "Invalid state.")));
}

TEST_F(LuaTimerTest, ATimerStartedInACoroutineFindsNoScript)
{
    Host host(
        R"(
        calls = 0 function tick() calls = calls + 1 end
        co = coroutine.create(function()
          Timer.start(0, 'tick') WaitingLoop.runTime(WaitingLoop.create(), 1)
        end)
    )");
    lua_getglobal(host.state(), "co");
    const lua_State* coroutine = lua_tothread(host.state(), -1);
    lua_pop(host.state(), 1);

    LogCapture log;
    EXPECT_EQ(host.run("return coroutine.resume(co)"), "true");
    EXPECT_THAT(log.lines(), ElementsAre(unknownState(), expiredWithoutScript(coroutine)));
    EXPECT_EQ(host.number("calls"), 0);
}

TEST_F(LuaTimerTest, ATimersFunctionMayWorkWithCoroutines)
{
    Host host(
        R"(
        sum = 0
        worker = coroutine.wrap(function() while true do sum = sum + 1 coroutine.yield() end
        end)
        function tick() worker() end Timer.start(0, 'tick', true)
    )");
    EXPECT_TRUE(host.reaches("sum", 5));
}

TEST_F(LuaTimerTest, WithoutMemoryForATimerThereIsNone)
{
    Host host(
        R"(
        calls = 0 function tick() calls = calls + 1 end
        function f() handle = Timer.start(0, 'tick', true) end
    )");
    lua_getglobal(host.state(), "f");
    {
        AllocationFailure failure(Allocation::NothrowNew);
        EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_EQ(host.number("handle"), -1);
    iterateFor(3ms);
    EXPECT_EQ(host.number("calls"), 0);
    EXPECT_EQ(host.run("return Timer.start(3600000, '') - timer0"), "0");
}

TEST_F(LuaTimerTest, ATimerThatCouldNotBeArmedProperlyIsATimerAllTheSame)
{
    Host host(
        R"(
        calls = 0 function tick() calls = calls + 1 end
        function f() handle = Timer.start(0, 'tick') end
    )");
    lua_getglobal(host.state(), "f");

    LogCapture log;
    {
        AllocationFailure failure(Allocation::NothrowNew, 2);
        EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxTimer.cpp", "__start", "Memory allocation failed.")));
    EXPECT_EQ(host.number("handle"), host.number("timer0"));

    // Nobody owns the source, but it calls.
    log.clear();
    EXPECT_TRUE(host.reaches("calls", 1));
    EXPECT_EQ(host.run("Timer.stop(handle)"), "");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LuaTimerTest, ATimerThatCouldNotBeArmedProperlyIsSilentOnceItIsStopped)
{
    Host host(
        R"(
        calls = 0 function tick() calls = calls + 1 end
        function f() handle = Timer.start(0, 'tick') end
    )");
    lua_getglobal(host.state(), "f");
    {
        LogCapture log;
        AllocationFailure failure(Allocation::NothrowNew, 2);
        EXPECT_EQ(lua_pcall(host.state(), 0, 0, 0), 0);
        EXPECT_TRUE(failure.happened());
    }

    EXPECT_EQ(host.run("Timer.stop(handle)"), "");

    iterateFor(10ms);
    EXPECT_EQ(host.number("calls"), 0);
}

}  // namespace
}  // namespace oxil::test
